#include <QJsonObject>

#include "Command.h"
#include "Library/CaptureTimeReader.h"
#include "Support/FileStat.h"
#include "Support/FileReader.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace {

int execute(const QCommandLineParser& parser)
{
    QList<PhotoItem> photos;
    for (const QString& argument : parser.positionalArguments()) {
        const QString path = Paths::clean(argument);
        const auto st = FileStat::read(path, /*followLinks=*/true);
        if (!st)
            return Io::fail(st.message());
        if (st->isDirectory()) {
            const Result<ScanSnapshot> snapshot = scanToEnd(path);
            if (!snapshot)
                return Io::fail(snapshot.message());
            photos += snapshot->photos;
        } else {
            // Named on purpose, a file that cannot be read is a failure, not a photo without a date.
            if (!st->isRegular())
                return Io::fail(Paths::displayText(path) + QStringLiteral(": no es un archivo normal"));
            if (!FileReader::open(path))
                return Io::fail(SystemError::fromErrno(path).message());
            photos.append(PhotoItem(path, st->size, st->created, st->modified, st->resourceID()));
        }
    }

    CaptureTimeReader reader;
    const CaptureTimeReader::Table table = reader.read(photos).result();

    if (parser.isSet(QStringLiteral("json"))) {
        QJsonObject dates;
        for (const PhotoItem& photo : photos)
            if (table.contains(photo.url))
                dates.insert(Paths::jsonText(photo.url), Io::isoDate(table.value(photo.url)));
        Io::json(QJsonObject{{QStringLiteral("dates"), dates}});
        return success;
    }
    QString text;
    for (const PhotoItem& photo : photos) {
        const auto it = table.constFind(photo.url);
        text += QStringLiteral("%1  %2\n")
                    .arg(it == table.cend() ? QStringLiteral("—                   ") : Io::isoDate(*it), photo.url);
    }
    text.chop(1);
    if (!text.isEmpty())
        Io::out(text);
    return success;
}

const bool registered = Registry::addParsed(
    QStringLiteral("dates"), QStringLiteral("Fecha de captura EXIF de cada foto, en UTC."),
    Syntax{QStringLiteral("Escribe la fecha de captura (EXIF DateTimeOriginal, leída como UTC) de cada RUTA. "
                          "Una carpeta significa sus fotos, en el orden del explorador."),
           QStringLiteral("RUTA…"), 1},
    execute);

} // namespace

} // namespace vantelor::cli
