#include "Model/LaunchTarget.h"

#include <climits>
#include <cstdlib>

#include <QDataStream>
#include <QIODevice>

#include "Library/PhotoItem.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

QString pathOf(const QByteArray& argument, const QString& workingFolder)
{
    if (argument.startsWith("file:")) {
        // "file:///a", and "file://localhost/a" from older file managers; a remote host is not ours.
        QByteArray rest = argument.mid(5);
        if (rest.startsWith("//")) {
            rest = rest.mid(2);
            const qsizetype slash = rest.indexOf('/');
            const QByteArray host = slash < 0 ? rest : rest.left(slash);
            if (!host.isEmpty() && host != "localhost")
                return {};
            rest = slash < 0 ? QByteArray("/") : rest.mid(slash);
        }
        return Paths::clean(Paths::decode(QByteArray::fromPercentEncoding(rest)));
    }
    const QString path = Paths::decode(argument);
    return Paths::clean(path.startsWith(QLatin1Char('/')) ? path : Paths::join(workingFolder, path));
}

// The form the controller keeps a folder in (symbolic links resolved), so that the photo to
// select is found under the same path.
QString canonical(const QString& path)
{
    char resolved[PATH_MAX];
    if (::realpath(Paths::encode(path).constData(), resolved) == nullptr)
        return path;
    return Paths::decode(QByteArray(resolved));
}

} // namespace

LaunchTarget LaunchTarget::resolve(const QByteArray& argument, const QString& workingFolder)
{
    QString path = pathOf(argument, workingFolder);
    if (path.isEmpty())
        return {Paths::decode(argument), std::nullopt};
    path = canonical(path);
    const Result<FileStat> stat = FileStat::read(path, true);
    if (stat && !stat->isDirectory()) {
        const QString folder = Paths::parent(path);
        if (PhotoItem::hasSupportedExtension(path))
            return {folder, path};
        return {folder, std::nullopt};
    }
    return {path, std::nullopt};
}

QList<LaunchTarget> LaunchTarget::resolve(const QList<QByteArray>& arguments, const QString& workingFolder)
{
    QList<LaunchTarget> targets;
    for (const QByteArray& argument : arguments)
        targets.append(resolve(argument, workingFolder));
    return targets;
}

QByteArray LaunchTarget::serialize() const
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << Paths::encode(folder) << bool(photo) << (photo ? Paths::encode(*photo) : QByteArray());
    return bytes;
}

std::optional<LaunchTarget> LaunchTarget::deserialize(const QByteArray& bytes)
{
    QDataStream in(bytes);
    QByteArray folder;
    bool hasPhoto = false;
    QByteArray photo;
    in >> folder >> hasPhoto >> photo;
    if (in.status() != QDataStream::Ok || !folder.startsWith('/') || (hasPhoto && !photo.startsWith('/')))
        return std::nullopt;
    return LaunchTarget{Paths::decode(folder), hasPhoto ? std::optional(Paths::decode(photo)) : std::nullopt};
}

} // namespace vantelor
