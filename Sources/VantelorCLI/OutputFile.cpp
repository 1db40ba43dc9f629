#include "OutputFile.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include <QBuffer>
#include <QImageWriter>

#include "Support/Paths.h"

namespace vantelor::cli::OutputFile {

Status writeBytes(const QString& path, const QByteArray& bytes)
{
    const QByteArray name = Paths::encode(path);
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        return SystemError::fromErrno(path);
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            const SystemError error = SystemError::fromErrno(path);
            ::close(fd);
            ::unlink(name.constData());
            return error;
        }
        done += n;
    }
    if (::close(fd) != 0) {
        const SystemError error = SystemError::fromErrno(path);
        ::unlink(name.constData());
        return error;
    }
    return Done();
}

bool isImagePath(const QString& path)
{
    const QString ext = Paths::suffix(path).toLower();
    return ext == QLatin1String("png") || ext == QLatin1String("jpg") || ext == QLatin1String("jpeg");
}

Status writeImage(const QString& path, const QImage& image)
{
    const bool png = Paths::suffix(path).toLower() == QLatin1String("png");
    if (!isImagePath(path))
        return WorkflowError::invalid(QStringLiteral("La salida debe terminar en .png o .jpg: ") + Paths::displayText(path));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, png ? "png" : "jpeg");
    if (!png)
        writer.setQuality(92);
    if (!writer.write(png ? image : image.convertToFormat(QImage::Format_RGB32)))
        return WorkflowError::io(QStringLiteral("No se pudo codificar la imagen ") + Paths::displayText(path));
    return writeBytes(path, bytes);
}

} // namespace vantelor::cli::OutputFile
