#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace vantelor::test {

// One IFD of a TIFF structure under construction: tags with values, sub-IFDs (SubIFDs, EXIF),
// data blocks (strips, embedded JPEGs) and, for hostile files, raw entries written as given.
class TiffIfd {
public:
    enum Type : quint16 { typeByte = 1, typeAscii = 2, typeShort = 3, typeLong = 4, typeRational = 5, typeUndefined = 7, typeSRational = 10 };

    struct Entry {
        quint16 tag = 0;
        quint16 type = 0;
        quint32 count = 0;
        QByteArray value = {};
        QList<quint32> numbers = {};     // SHORT, LONG or RATIONAL parts, in the file's byte order when written
        bool rawField = false;
        quint32 rawValue = 0;
        QList<TiffIfd> children = {};    // pointer tags
        quint16 lengthTag = 0;      // data blocks
        QByteArray block = {};
    };

    TiffIfd& ascii(quint16 tag, const QByteArray& text) { return bytes(tag, typeAscii, text + '\0'); }
    TiffIfd& shorts(quint16 tag, const QList<quint16>& values)
    {
        return add({.tag = tag, .type = typeShort, .count = quint32(values.size()), .numbers = QList<quint32>(values.begin(), values.end())});
    }
    TiffIfd& longs(quint16 tag, const QList<quint32>& values) { return add({.tag = tag, .type = typeLong, .count = quint32(values.size()), .numbers = values}); }
    TiffIfd& rationals(quint16 tag, const QList<QPair<quint32, quint32>>& values);
    TiffIfd& bytes(quint16 tag, Type type, const QByteArray& data) { return add({.tag = tag, .type = type, .count = quint32(data.size()), .value = data}); }
    // An entry whose four value bytes are written exactly as given (offsets that point anywhere).
    TiffIfd& raw(quint16 tag, quint16 type, quint32 count, quint32 valueField)
    {
        return add({.tag = tag, .type = type, .count = count, .rawField = true, .rawValue = valueField});
    }
    // Tag 0x14A pointing at child IFDs.
    TiffIfd& subIfds(QList<TiffIfd> children) { return add({.tag = 0x14A, .type = typeLong, .count = quint32(children.size()), .children = std::move(children)}); }
    // Tag 0x8769 pointing at the EXIF IFD.
    TiffIfd& exif(TiffIfd child) { return add({.tag = 0x8769, .type = typeLong, .count = 1, .children = {std::move(child)}}); }
    // A block of data whose offset goes in offsetTag and length in lengthTag (LONG values):
    // 0x201/0x202 for an embedded JPEG, 0x111/0x117 for one strip.
    TiffIfd& data(quint16 offsetTag, quint16 lengthTag, const QByteArray& block)
    {
        return add({.tag = offsetTag, .type = typeLong, .count = 1, .lengthTag = lengthTag, .block = block});
    }

    const QList<Entry>& entries() const { return m_entries; }

private:
    TiffIfd& add(Entry entry)
    {
        m_entries.append(std::move(entry));
        return *this;
    }

    QList<Entry> m_entries;
};

// Lays out a chain of IFDs (IFD0 → IFD1 → …) after an 8-byte header in either byte order.
class TiffWriter {
public:
    static QByteArray write(const QList<TiffIfd>& chain, bool littleEndian = true);
};

} // namespace vantelor::test
