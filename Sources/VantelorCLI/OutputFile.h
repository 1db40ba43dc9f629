#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>

#include "Support/Result.h"

namespace vantelor::cli {

// Files the commands write. Each is created exclusively: an existing file is never replaced, and
// a file whose writing fails is removed again.
namespace OutputFile {

Status writeBytes(const QString& path, const QByteArray& bytes);
// PNG or JPEG (quality 92) by the path's extension; other extensions fail.
Status writeImage(const QString& path, const QImage& image);
bool isImagePath(const QString& path);

} // namespace OutputFile
} // namespace vantelor::cli
