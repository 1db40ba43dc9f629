#include "Input/ShortcutProfileFile.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "Support/FileDescriptor.h"
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
    FileDescriptor fd(::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!fd.isOpen()) {
        if (errno == EEXIST)
            return WorkflowError::invalid(
                QStringLiteral("Ya existe «%1»: elige otro nombre").arg(Paths::displayText(Paths::fileName(path))));
        return SystemError::fromErrno(path);
    }
    const QByteArray bytes = profile.toJson(QJsonDocument::Indented);
    int failure = fd.writeAll(bytes.constData(), bytes.size());
    // A late write error (NFS) surfaces only at the close.
    if (const int closed = fd.close(); failure == 0)
        failure = closed;
    if (failure != 0) {
        // The file is ours (created above): a half-written profile would only fail its import.
        ::unlink(native.constData());
        return SystemError(failure, path);
    }
    return Done{};
}

} // namespace vantelor
