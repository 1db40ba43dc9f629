#include "Support/TiffWriter.h"

#include <algorithm>

#include <QtEndian>

namespace vantelor::test {

TiffIfd& TiffIfd::rationals(quint16 tag, const QList<QPair<quint32, quint32>>& values)
{
    QList<quint32> parts;
    for (const auto& [numerator, denominator] : values)
        parts << numerator << denominator;
    return add({.tag = tag, .type = typeRational, .count = quint32(values.size()), .numbers = parts});
}

namespace {

class Layout {
public:
    explicit Layout(bool little) : m_little(little) {}

    QByteArray out;

    template <typename T>
    QByteArray encode(T v) const
    {
        char b[sizeof(T)];
        m_little ? qToLittleEndian(v, b) : qToBigEndian(v, b);
        return QByteArray(b, sizeof(T));
    }
    void put32(qsizetype at, quint32 v) { out.replace(at, 4, encode(v)); }
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
        out.append(encode(quint16(rows.size())));
        out.append(QByteArray(qsizetype(rows.size()) * 12 + 4, '\0'));
        for (int i = 0; i < rows.size(); ++i) {
            const Slot& s = rows[i];
            const qsizetype at = start + 2 + i * 12;
            out.replace(at, 8, encode(s.tag) + encode(s.type) + encode(s.count));
            const TiffIfd::Entry& e = *s.source;
            if (s.isLength || e.rawField) {
                put32(at + 8, s.isLength ? quint32(e.block.size()) : e.rawValue);
            } else if (e.lengthTag) {
                m_deferred.append({at + 8, &e.block});
            } else {
                QByteArray value = e.value;
                for (const TiffIfd& child : e.children)
                    value += encode(writeIfd(child));
                for (quint32 v : e.numbers)
                    value += e.type == TiffIfd::typeShort ? encode(quint16(v)) : encode(v);
                writeValue(at, value);
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
    }

private:
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
    qsizetype link = 4;   // where the next IFD's offset goes
    for (const TiffIfd& ifd : chain) {
        const quint32 offset = layout.writeIfd(ifd);
        layout.put32(link, offset);
        link = offset + 2 + qsizetype(ifd.entries().size() + std::count_if(ifd.entries().begin(), ifd.entries().end(),
                                                                             [](const TiffIfd::Entry& e) { return e.lengthTag != 0; })) * 12;
    }
    layout.writeBlocks();
    return layout.out;
}

} // namespace vantelor::test
