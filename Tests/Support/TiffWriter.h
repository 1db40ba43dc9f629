#pragma once

#include <memory>

#include <QByteArray>
#include <QList>
#include <QString>

namespace vantelor::test {

// One IFD of a TIFF structure under construction: tags with values, sub-IFDs (SubIFDs, EXIF),
// data blocks (strips, embedded JPEGs) and, for hostile files, raw entries written as given.
class TiffIfd {
public:
    enum Type : quint16 { typeByte = 1, typeAscii = 2, typeShort = 3, typeLong = 4, typeRational = 5, typeUndefined = 7, typeSRational = 10 };

    TiffIfd& ascii(quint16 tag, const QByteArray& text);     // NUL added
    TiffIfd& shorts(quint16 tag, const QList<quint16>& values);
    TiffIfd& longs(quint16 tag, const QList<quint32>& values);
    TiffIfd& rationals(quint16 tag, const QList<QPair<quint32, quint32>>& values);
    TiffIfd& bytes(quint16 tag, Type type, const QByteArray& data);
    // An entry whose four value bytes are written exactly as given (offsets that point anywhere).
    TiffIfd& raw(quint16 tag, quint16 type, quint32 count, quint32 valueField);
    // Tag 0x14A pointing at child IFDs.
    TiffIfd& subIfds(QList<TiffIfd> children);
    // Tag 0x8769 pointing at the EXIF IFD.
    TiffIfd& exif(TiffIfd child);
    // A block of data whose offset goes in offsetTag and length in lengthTag (LONG values):
    // 0x201/0x202 for an embedded JPEG, 0x111/0x117 for one strip.
    TiffIfd& data(quint16 offsetTag, quint16 lengthTag, const QByteArray& block);

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
    const QList<Entry>& entries() const { return m_entries; }

private:
    TiffIfd& add(Entry entry);

    QList<Entry> m_entries;
};

// Lays out a chain of IFDs (IFD0 → IFD1 → …) after an 8-byte header in either byte order.
class TiffWriter {
public:
    static QByteArray write(const QList<TiffIfd>& chain, bool littleEndian = true);
};

} // namespace vantelor::test
