#include "Input/ShortcutProfileFile.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "Support/FileReader.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

WorkflowError notAProfile()
{
    return WorkflowError::invalid(QStringLiteral("Perfil de atajos no compatible"));
}

} // namespace

Result<ShortcutProfile> ShortcutProfileFile::decode(const QByteArray& bytes)
{
    if (bytes.size() > ShortcutProfile::maximumFileBytes)
        return notAProfile();
    const Result<ShortcutProfile> decoded = ShortcutProfile::fromJson(bytes);
    if (!decoded)
        return decoded;
    const Result<ShortcutProfile> valid = decoded->validated();
    if (!valid)
        return valid;
    return valid->preservingDefaults();
}

Result<ShortcutProfile> ShortcutProfileFile::read(const QString& path)
{
    const auto st = FileStat::read(path, /*followLinks=*/true);
    if (!st)
        return st.failure();
    if (st->isDirectory())
        return SystemError(EISDIR, path);
    if (st->size > ShortcutProfile::maximumFileBytes)
        return notAProfile();
    std::optional<FileReader> reader = FileReader::open(path);
    if (!reader)
        return SystemError::fromErrno(path);
    // One byte more than allowed tells a file that grew since the stat from one that fits.
    return decode(reader->read(0, ShortcutProfile::maximumFileBytes + 1));
}

Status ShortcutProfileFile::write(const ShortcutProfile& profile, const QString& path)
{
    const QByteArray native = Paths::encode(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
        if (errno == EEXIST)
            return WorkflowError::invalid(
                QStringLiteral("Ya existe «%1»: elige otro nombre").arg(Paths::displayText(Paths::fileName(path))));
        return SystemError::fromErrno(path);
    }
    const QByteArray bytes = profile.toJson(QJsonDocument::Indented);
    qsizetype written = 0;
    int failure = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            failure = n < 0 ? errno : EIO;
            break;
        }
        written += n;
    }
    if (::close(fd) != 0 && failure == 0)
        failure = errno;
    if (failure != 0) {
        // The file is ours (created above): a half-written profile would only fail its import.
        ::unlink(native.constData());
        return SystemError(failure, path);
    }
    return Done{};
}

} // namespace vantelor
