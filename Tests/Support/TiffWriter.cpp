#include "Support/TiffWriter.h"

#include <algorithm>

#include <QtEndian>

namespace vantelor::test {

TiffIfd& TiffIfd::ascii(quint16 tag, const QByteArray& text)
{
    Entry e;
    e.tag = tag;
    e.type = typeAscii;
    e.value = text + '\0';
    e.count = quint32(e.value.size());
    m_entries.append(e);
    return *this;
}

TiffIfd& TiffIfd::shorts(quint16 tag, const QList<quint16>& values)
{
    Entry e;
    e.tag = tag;
    e.type = typeShort;
    e.count = quint32(values.size());
    e.shortValues = values;
    m_entries.append(e);
    return *this;
}

TiffIfd& TiffIfd::longs(quint16 tag, const QList<quint32>& values)
{
    Entry e;
    e.tag = tag;
    e.type = typeLong;
    e.count = quint32(values.size());
    e.longValues = values;
    m_entries.append(e);
    return *this;
}

TiffIfd& TiffIfd::rationals(quint16 tag, const QList<QPair<quint32, quint32>>& values)
{
    Entry e;
    e.tag = tag;
    e.type = typeRational;
    e.count = quint32(values.size());
    e.rationalValues = values;
    m_entries.append(e);
    return *this;
}

TiffIfd& TiffIfd::bytes(quint16 tag, Type type, const QByteArray& data)
{
    Entry e;
    e.tag = tag;
    e.type = type;
    e.count = quint32(data.size());
    e.value = data;
    m_entries.append(e);
    return *this;
}

TiffIfd& TiffIfd::raw(quint16 tag, quint16 type, quint32 count, quint32 valueField)
{
    Entry e;
    e.tag = tag;
    e.type = type;
    e.count = count;
    e.rawField = true;
    e.rawValue = valueField;
    m_entries.append(e);
    return *this;
}

TiffIfd& TiffIfd::subIfds(QList<TiffIfd> children)
{
    Entry e;
    e.tag = 0x14A;
    e.type = typeLong;
    e.count = quint32(children.size());
    e.children = std::move(children);
    m_entries.append(e);
    return *this;
}

TiffIfd& TiffIfd::exif(TiffIfd child)
{
    Entry e;
    e.tag = 0x8769;
    e.type = typeLong;
    e.count = 1;
    e.children = {std::move(child)};
    m_entries.append(e);
    return *this;
}

TiffIfd& TiffIfd::data(quint16 offsetTag, quint16 lengthTag, const QByteArray& block)
{
    Entry e;
    e.tag = offsetTag;
    e.type = typeLong;
    e.count = 1;
    e.lengthTag = lengthTag;
    e.block = block;
    m_entries.append(e);
    return *this;
}

namespace {

class Layout {
public:
    explicit Layout(bool little) : m_little(little) {}

    QByteArray out;

    void put16(qsizetype at, quint16 v)
    {
        char b[2];
        m_little ? qToLittleEndian(v, b) : qToBigEndian(v, b);
        out.replace(at, 2, b, 2);
    }
    void put32(qsizetype at, quint32 v)
    {
        char b[4];
        m_little ? qToLittleEndian(v, b) : qToBigEndian(v, b);
        out.replace(at, 4, b, 4);
    }
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
        if (!e.shortValues.isEmpty()) {
            QByteArray b;
            for (quint16 v : e.shortValues)
                b.append(enc16(v));
            return b;
        }
        if (!e.longValues.isEmpty())
            return encodeLongs(e.longValues);
        if (!e.rationalValues.isEmpty()) {
            QByteArray b;
            for (const auto& [n, d] : e.rationalValues)
                b.append(enc32(n)).append(enc32(d));
            return b;
        }
        return e.value;
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
