#pragma once

#include <QByteArray>
#include <QString>

namespace vantelor {

// File names on Linux are bytes and need not be valid UTF-8. Throughout Vantelor a path is a
// QString holding an absolute, cleaned path; bytes that are not valid UTF-8 are kept as the lone
// surrogates U+DC80..U+DCFF (the "surrogate escape" convention), so that every path survives a
// round trip to the file system byte for byte. Never use QFile::encodeName/decodeName or
// QFileInfo on such paths: Qt replaces invalid bytes with U+FFFD and the file is lost.
namespace Paths {

// Bytes from the file system to a path, losslessly.
QString decode(const QByteArray& bytes);
// A path to the bytes the file system knows it by.
QByteArray encode(const QString& path);
// Whether the path holds bytes that are not valid UTF-8.
bool hasEscapedBytes(const QString& path);

// An absolute path with "." and ".." resolved and no trailing or doubled slashes; relative paths
// are taken from the current directory. Symbolic links are not resolved.
QString clean(const QString& path);

// The last component ("DSC_0001.NEF").
QString fileName(const QString& path);
// The folder that holds the path.
QString parent(const QString& path);
// The extension after the last dot of the file name, without the dot ("NEF"); empty if none.
QString suffix(const QString& path);
// The file name without its extension ("DSC_0001").
QString baseName(const QString& path);
// parent + "/" + name.
QString join(const QString& folder, const QString& name);

// For messages shown to people: escaped bytes appear as U+FFFD.
QString displayText(const QString& path);
// For text formats (JSON): escaped bytes appear as "%XX" and "%" itself as "%25"; other text is
// unchanged.
QString jsonText(const QString& path);
// The "file:///…" form, fully percent-encoded.
QString fileUrl(const QString& path);
// Back from the "file:///…" form; empty if the text is not a local file URL.
QString fromFileUrl(const QString& url);

} // namespace Paths
} // namespace vantelor
