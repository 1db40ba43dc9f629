#pragma once

#include <optional>

#include <QByteArray>
#include <QString>

#include "Support/FileReader.h"

namespace vantelor {

// Finds the largest embedded JPEG preview of a Nikon NEF file by walking just enough of its TIFF
// structure: the header, at most 32 IFDs of at most 512 entries each, and the chosen JPEG. The raw
// data is never read. Holds no state, so any thread may call it; every failure is an absent
// result, and the caller then decodes the raw file another way.
namespace NikonPreview {

// Where the chosen preview lies in the file, and its bytes (starting with 0xFF 0xD8).
struct Located {
    qint64 offset = 0;
    qint64 length = 0;
    QByteArray bytes;
};

// The bytes of the chosen preview; nothing for files whose extension is not "nef" (any case),
// which are not even opened.
std::optional<QByteArray> jpeg(const QString& path);
// The same search with its position, for any extension.
std::optional<Located> locate(const QString& path);
// The search over an open file; the reader's byte count shows how little was read.
std::optional<Located> locate(FileReader& file);

// Limits of the walk.
constexpr int maxIfds = 32;
constexpr int maxEntries = 512;
constexpr int maxSubIfds = 32;
constexpr qint64 maxRead = 32 * 1024 * 1024;

} // namespace NikonPreview
} // namespace vantelor
