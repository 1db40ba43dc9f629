#include "Support/TiffWriter.h"

#include <algorithm>

#include <QtEndian>

namespace vantelor::test {

TiffIfd& TiffIfd::add(Entry entry)
{
    m_entries.append(std::move(entry));
    return *this;
}

TiffIfd& TiffIfd::ascii(quint16 tag, const QByteArray& text)
{
    return add({.tag = tag, .type = typeAscii, .count = quint32(text.size() + 1), .value = text + '\0'});
}

TiffIfd& TiffIfd::shorts(quint16 tag, const QList<quint16>& values)
{
    return add({.tag = tag, .type = typeShort, .count = quint32(values.size()), .numbers = QList<quint32>(values.begin(), values.end())});
}

TiffIfd& TiffIfd::longs(quint16 tag, const QList<quint32>& values)
{
    return add({.tag = tag, .type = typeLong, .count = quint32(values.size()), .numbers = values});
}

TiffIfd& TiffIfd::rationals(quint16 tag, const QList<QPair<quint32, quint32>>& values)
{
    QList<quint32> parts;
    for (const auto& [numerator, denominator] : values)
        parts << numerator << denominator;
    return add({.tag = tag, .type = typeRational, .count = quint32(values.size()), .numbers = parts});
}

TiffIfd& TiffIfd::bytes(quint16 tag, Type type, const QByteArray& data)
{
    return add({.tag = tag, .type = type, .count = quint32(data.size()), .value = data});
}

TiffIfd& TiffIfd::raw(quint16 tag, quint16 type, quint32 count, quint32 valueField)
{
    return add({.tag = tag, .type = type, .count = count, .rawField = true, .rawValue = valueField});
}

TiffIfd& TiffIfd::subIfds(QList<TiffIfd> children)
{
    return add({.tag = 0x14A, .type = typeLong, .count = quint32(children.size()), .children = std::move(children)});
}

TiffIfd& TiffIfd::exif(TiffIfd child)
{
    return add({.tag = 0x8769, .type = typeLong, .count = 1, .children = {std::move(child)}});
}

TiffIfd& TiffIfd::data(quint16 offsetTag, quint16 lengthTag, const QByteArray& block)
{
    return add({.tag = offsetTag, .type = typeLong, .count = 1, .lengthTag = lengthTag, .block = block});
}

namespace {

class Layout {
public:
    explicit Layout(bool little) : m_little(little) {}

    QByteArray out;

    void put16(qsizetype at, quint16 v) { out.replace(at, 2, enc16(v)); }
    void put32(qsizetype at, quint32 v) { out.replace(at, 4, enc32(v)); }
    QByteArray enc16(quint16 v) const
    {
        char b[2];
        m_little ? qToLittleEndian(v, b) : qToBigEndian(v, b);
        return QByteArray(b, 2);
    }
    QByteArray enc32(quint32 v) const
    {
        char b[4];
        m_little ? qToLittleEndian(v, b) : qToBigEndian(v, b);
        return QByteArray(b, 4);
    }
    void align()
    {
        if (out.size() % 2)
            out.append('\0');
    }

    // Appends the IFD and everything it points to; returns its offset. Entries go in tag order.
    quint32 writeIfd(const TiffIfd& ifd)
    {
        struct Slot { quint16 tag; quint16 type; quint32 count; const TiffIfd::Entry* source; bool isLength; };
        QList<Slot> rows;
        for (const auto& e : ifd.entries()) {
            rows.append({e.tag, e.type, e.count, &e, false});
            if (e.lengthTag)
                rows.append({e.lengthTag, TiffIfd::typeLong, 1, &e, true});
        }
        std::stable_sort(rows.begin(), rows.end(), [](const Slot& a, const Slot& b) { return a.tag < b.tag; });

        align();
        const quint32 start = quint32(out.size());
        out.append(enc16(quint16(rows.size())));
        out.append(QByteArray(qsizetype(rows.size()) * 12 + 4, '\0'));
        for (int i = 0; i < rows.size(); ++i) {
            const Slot& s = rows[i];
            const qsizetype at = start + 2 + i * 12;
            put16(at, s.tag);
            put16(at + 2, s.type);
            put32(at + 4, s.count);
            const TiffIfd::Entry& e = *s.source;
            if (s.isLength) {
                put32(at + 8, quint32(e.block.size()));
            } else if (e.rawField) {
                put32(at + 8, e.rawValue);
            } else if (!e.children.isEmpty()) {
                QList<quint32> offsets;
                for (const TiffIfd& child : e.children)
                    offsets.append(writeIfd(child));
                writeValue(at, encodeLongs(offsets));
            } else if (e.lengthTag) {
                m_deferred.append({at + 8, &e.block});
            } else {
                writeValue(at, encoded(e));
            }
        }
        return start;
    }

    // Image data goes after every IFD and value, as cameras write it: the structure sits in the
    // first kilobytes of the file and the large blocks follow.
    void writeBlocks()
    {
        for (const auto& [field, block] : m_deferred) {
            align();
            put32(field, quint32(out.size()));
            out.append(*block);
        }
        m_deferred.clear();
    }

    void linkNext(quint32 ifdOffset, quint32 next)
    {
        const quint16 count = m_little ? qFromLittleEndian<quint16>(out.constData() + ifdOffset)
                                       : qFromBigEndian<quint16>(out.constData() + ifdOffset);
        put32(ifdOffset + 2 + count * 12, next);
    }

private:
    QByteArray encodeLongs(const QList<quint32>& values) const
    {
        QByteArray b;
        for (quint32 v : values)
            b.append(enc32(v));
        return b;
    }
    QByteArray encoded(const TiffIfd::Entry& e) const
    {
        if (e.numbers.isEmpty())
            return e.value;
        QByteArray b;
        for (quint32 v : e.numbers)
            b.append(e.type == TiffIfd::typeShort ? enc16(quint16(v)) : enc32(v));
        return b;
    }
    void writeValue(qsizetype at, const QByteArray& value)
    {
        if (value.size() <= 4) {
            out.replace(at + 8, value.size(), value);
            return;
        }
        align();
        put32(at + 8, quint32(out.size()));
        out.append(value);
    }

    bool m_little;
    QList<QPair<qsizetype, const QByteArray*>> m_deferred;
};

} // namespace

QByteArray TiffWriter::write(const QList<TiffIfd>& chain, bool littleEndian)
{
    Layout layout(littleEndian);
    layout.out = littleEndian ? QByteArray("II*\0", 4) : QByteArray("MM\0*", 4);
    layout.out.append(QByteArray(4, '\0'));
    quint32 previous = 0;
    for (int i = 0; i < chain.size(); ++i) {
        const quint32 offset = layout.writeIfd(chain[i]);
        if (i == 0)
            layout.put32(4, offset);
        else
            layout.linkNext(previous, offset);
        previous = offset;
    }
    layout.writeBlocks();
    return layout.out;
}

} // namespace vantelor::test
