#include "Previews/NikonPreview.h"

#include <QList>
#include <QSet>

#include "Support/Paths.h"

namespace vantelor::NikonPreview {

namespace {

constexpr quint16 tagJpegOffset = 513;
constexpr quint16 tagJpegLength = 514;
constexpr quint16 tagSubIfds = 330;
constexpr quint16 typeLong = 4;

class Walker {
public:
    explicit Walker(FileReader& file) : m_file(file) {}

    std::optional<Located> run()
    {
        const auto header = read(0, 8);
        if (!header)
            return std::nullopt;
        if (header->startsWith("II"))
            m_little = true;
        else if (header->startsWith("MM"))
            m_little = false;
        else
            return std::nullopt;
        if (u16(header->constData() + 2) != 42)
            return std::nullopt;

        QList<quint64> stack{u32(header->constData() + 4)};
        QSet<quint64> visited;
        std::optional<Located> best;
        while (!stack.isEmpty()) {
            const quint64 offset = stack.takeLast();
            if (visited.size() >= maxIfds)
                break;
            if (offset == 0 || visited.contains(offset))
                continue;
            visited.insert(offset);

            const auto countBytes = read(offset, 2);
            if (!countBytes)
                return std::nullopt;
            const int count = u16(countBytes->constData());
            if (count > maxEntries)
                return std::nullopt;
            const auto body = read(offset + 2, qint64(count) * 12 + 4);
            if (!body)
                return std::nullopt;

            std::optional<quint32> jpegOffset, jpegLength;
            for (int i = 0; i < count; ++i) {
                const char* entry = body->constData() + i * 12;
                const quint16 tag = u16(entry);
                const quint16 type = u16(entry + 2);
                const quint32 n = u32(entry + 4);
                const quint32 value = u32(entry + 8);
                if (type != typeLong)
                    continue;
                if (tag == tagJpegOffset && n == 1) {
                    jpegOffset = value;
                } else if (tag == tagJpegLength && n == 1) {
                    jpegLength = value;
                } else if (tag == tagSubIfds && n >= 1 && n <= quint32(maxSubIfds)) {
                    if (n == 1) {
                        stack.append(value);
                        continue;
                    }
                    const auto array = read(value, qint64(n) * 4);
                    if (!array)
                        return std::nullopt;
                    for (quint32 k = 0; k < n; ++k)
                        stack.append(u32(array->constData() + k * 4));
                }
            }

            if (jpegOffset && jpegLength && *jpegLength >= 1 && *jpegLength <= maxRead
                && qint64(*jpegOffset) <= m_file.size() && m_file.size() - qint64(*jpegOffset) >= qint64(*jpegLength)) {
                // Strictly greater: on equal lengths the first one found stays.
                if (!best || qint64(*jpegLength) > best->length)
                    best = Located{qint64(*jpegOffset), qint64(*jpegLength), {}};
            }
            stack.append(u32(body->constData() + count * 12));
        }

        if (!best)
            return std::nullopt;
        auto bytes = read(best->offset, best->length);
        if (!bytes || uchar(bytes->at(0)) != 0xFF || uchar(bytes->at(1)) != 0xD8)
            return std::nullopt;
        best->bytes = std::move(*bytes);
        return best;
    }

private:
    // Every access: at most 32 MiB, inside the file, and all of it or nothing.
    std::optional<QByteArray> read(quint64 offset, qint64 count)
    {
        if (count > maxRead || offset > quint64(m_file.size()) || quint64(m_file.size()) - offset < quint64(count))
            return std::nullopt;
        QByteArray bytes = m_file.read(qint64(offset), count);
        if (bytes.size() != count)
            return std::nullopt;
        return bytes;
    }

    quint16 u16(const char* p) const
    {
        const auto* b = reinterpret_cast<const uchar*>(p);
        return m_little ? quint16(b[0] | b[1] << 8) : quint16(b[0] << 8 | b[1]);
    }

    quint32 u32(const char* p) const
    {
        const auto* b = reinterpret_cast<const uchar*>(p);
        return m_little ? quint32(b[0]) | quint32(b[1]) << 8 | quint32(b[2]) << 16 | quint32(b[3]) << 24
                        : quint32(b[0]) << 24 | quint32(b[1]) << 16 | quint32(b[2]) << 8 | quint32(b[3]);
    }

    FileReader& m_file;
    bool m_little = true;
};

} // namespace

std::optional<Located> locate(FileReader& file)
{
    return Walker(file).run();
}

std::optional<Located> locate(const QString& path)
{
    auto file = FileReader::open(path);
    if (!file)
        return std::nullopt;
    return locate(*file);
}

std::optional<QByteArray> jpeg(const QString& path)
{
    if (Paths::suffix(path).toLower() != QLatin1String("nef"))
        return std::nullopt;
    auto found = locate(path);
    if (!found)
        return std::nullopt;
    return std::move(found->bytes);
}

} // namespace vantelor::NikonPreview
