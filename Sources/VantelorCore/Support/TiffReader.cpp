#include "Support/TiffReader.h"

#include <QtEndian>

namespace vantelor {

namespace {
// Camera files keep IFD0 and the EXIF IFD in their first few kilobytes; reads beyond the window
// are small direct reads.
constexpr qint64 windowSize = 8 * 1024;
}

TiffReader::TiffReader(FileReader& file, qint64 base, qint64 limit, bool little, QByteArray window)
    : m_file(&file), m_base(base), m_limit(limit), m_little(little), m_window(std::move(window))
{
}

std::optional<TiffReader> TiffReader::open(FileReader& file, qint64 base, qint64 limit)
{
    limit = std::min(limit, file.size());
    if (base < 0 || limit - base < 8)
        return std::nullopt;
    QByteArray window = file.read(base, std::min(windowSize, limit - base));
    if (window.size() < 8)
        return std::nullopt;
    bool little;
    if (window.startsWith("II*\0"))
        little = true;
    else if (window.startsWith(QByteArray("MM\0*", 4)))
        little = false;
    else
        return std::nullopt;
    TiffReader reader(file, base, limit, little, std::move(window));
    reader.m_firstIfd = reader.u32(reader.m_window.constData() + 4);
    return reader;
}

quint16 TiffReader::u16(const char* p) const
{
    return m_little ? qFromLittleEndian<quint16>(p) : qFromBigEndian<quint16>(p);
}

quint32 TiffReader::u32(const char* p) const
{
    return m_little ? qFromLittleEndian<quint32>(p) : qFromBigEndian<quint32>(p);
}

int TiffReader::typeSize(quint16 type)
{
    switch (type) {
    case 1: case 2: case 6: case 7: return 1;        // BYTE ASCII SBYTE UNDEFINED
    case 3: case 8: return 2;                        // SHORT SSHORT
    case 4: case 9: case 11: case 13: return 4;      // LONG SLONG FLOAT IFD
    case 5: case 10: case 12: return 8;              // RATIONAL SRATIONAL DOUBLE
    default: return 0;
    }
}

const TiffReader::Entry* TiffReader::find(const QList<Entry>& entries, quint16 tag)
{
    for (const Entry& e : entries)
        if (e.tag == tag)
            return &e;
    return nullptr;
}

QByteArray TiffReader::readAt(quint32 offset, qint64 length)
{
    const qint64 absolute = m_base + qint64(offset);
    if (length <= 0 || absolute + length > m_limit)
        return {};
    if (qint64(offset) + length <= m_window.size())
        return m_window.mid(offset, length);
    return m_file->read(absolute, length);
}

std::optional<QList<TiffReader::Entry>> TiffReader::ifd(quint32 offset)
{
    const QByteArray head = readAt(offset, 2);
    if (head.size() != 2)
        return std::nullopt;
    const int count = u16(head.constData());
    if (count == 0 || count > maxEntriesPerIfd)
        return std::nullopt;
    // A whole IFD ends with the next one's offset, though no caller follows the chain.
    const QByteArray body = readAt(offset + 2, qint64(count) * 12 + 4);
    if (body.size() < count * 12)
        return std::nullopt;
    QList<Entry> entries;
    entries.reserve(count);
    for (int i = 0; i < count; ++i) {
        const char* p = body.constData() + i * 12;
        Entry e;
        e.tag = u16(p);
        e.type = u16(p + 2);
        e.count = u32(p + 4);
        e.valueField = u32(p + 8);
        e.inlineBytes = QByteArray(p + 8, 4);
        entries.append(std::move(e));
    }
    return entries;
}

std::optional<QByteArray> TiffReader::valueBytes(const Entry& entry)
{
    const int unit = typeSize(entry.type);
    if (unit == 0)
        return std::nullopt;
    const qint64 total = qint64(unit) * entry.count;
    if (total > maxValueBytes)
        return std::nullopt;
    if (total <= 4)
        return entry.inlineBytes.left(total);
    QByteArray bytes = readAt(entry.valueField, total);
    if (bytes.size() != total)
        return std::nullopt;
    return bytes;
}

std::optional<quint32> TiffReader::unsignedValue(const Entry& entry)
{
    if (entry.count < 1)
        return std::nullopt;
    if (entry.type == 3)
        return u16(entry.inlineBytes.constData());
    if (entry.type == 4 || entry.type == 13)
        return u32(entry.inlineBytes.constData());
    return std::nullopt;
}

std::optional<QByteArray> TiffReader::asciiValue(const Entry& entry)
{
    if (entry.type != 2 && entry.type != 7)
        return std::nullopt;
    auto bytes = valueBytes(entry);
    if (!bytes)
        return std::nullopt;
    const qsizetype nul = bytes->indexOf('\0');
    return nul < 0 ? *bytes : bytes->left(nul);
}

} // namespace vantelor
