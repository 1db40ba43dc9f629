#pragma once

#include <optional>

#include <QByteArray>
#include <QList>

#include "Support/FileReader.h"

namespace vantelor {

// A bounded reader of a TIFF structure (TIFF-based raws, the EXIF block of a JPEG). Every offset
// is checked against the file, every count is capped: damaged or hostile files give nothing, never
// a crash or a huge allocation. Reads go through one cached window at the start of the structure,
// which holds the IFDs of almost every camera file.
class TiffReader {
public:
    struct Entry {
        quint16 tag = 0;
        quint16 type = 0;
        quint32 count = 0;
        quint32 valueField = 0;  // the offset, or the value itself when it fits in four bytes
        QByteArray inlineBytes;  // the four raw bytes of the value field
    };

    static constexpr int maxEntriesPerIfd = 512;
    static constexpr qint64 maxValueBytes = 1 << 20;

    // `base` is where the header ("II*\0" / "MM\0*") starts; `limit` bounds the structure's end.
    static std::optional<TiffReader> open(FileReader& file, qint64 base, qint64 limit);

    bool littleEndian() const { return m_little; }
    quint32 firstIfdOffset() const { return m_firstIfd; }

    // The entries of the IFD at an offset relative to the header.
    std::optional<QList<Entry>> ifd(quint32 offset);
    // The value bytes of an entry (inline or pointed to); nothing when out of bounds or too big.
    std::optional<QByteArray> valueBytes(const Entry& entry);
    // A SHORT or LONG entry's first value.
    std::optional<quint32> unsignedValue(const Entry& entry);
    // An ASCII entry's text up to its first NUL.
    std::optional<QByteArray> asciiValue(const Entry& entry);

    static int typeSize(quint16 type);
    static const Entry* find(const QList<Entry>& entries, quint16 tag);

    quint16 u16(const char* p) const;
    quint32 u32(const char* p) const;

private:
    TiffReader(FileReader& file, qint64 base, qint64 limit, bool little, QByteArray window);
    QByteArray readAt(quint32 offset, qint64 length);

    FileReader* m_file;
    qint64 m_base;
    qint64 m_limit;
    bool m_little;
    quint32 m_firstIfd = 0;
    QByteArray m_window;
};

} // namespace vantelor
