#include "QFileDialogChooser.h"

#include <dirent.h>

#include <QFileDialog>
#include <QUrl>

#include "Support/Paths.h"

namespace vantelor {

QFileDialogChooser::QFileDialogChooser(QWidget* parent) : m_parent(parent) {}

QFileDialogChooser::~QFileDialogChooser()
{
    if (m_dialog)
        m_dialog->deleteLater();
}

void QFileDialogChooser::chooseFolder(const Request& request, Done done)
{
    if (m_dialog)
        m_dialog->deleteLater();
    auto* dialog = new QFileDialog(m_parent, request.message);
    m_dialog = dialog;
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setOption(QFileDialog::ReadOnly, !request.canCreateFolders);
    // Qt's own dialog, so that the URL of a name that is not UTF-8 comes back intact.
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setLabelText(QFileDialog::Accept, request.prompt);
    dialog->setLabelText(QFileDialog::LookIn, request.message);
    dialog->setWindowModality(Qt::NonModal);

    auto answered = std::make_shared<bool>(false);
    // Qt's own dialog announces the choice with fileSelected only; the URL keeps the bytes.
    QObject::connect(dialog, &QFileDialog::fileSelected, dialog, [dialog, done, answered] {
        const QList<QUrl> urls = dialog->selectedUrls();
        if (*answered || urls.isEmpty())
            return;
        *answered = true;
        const QString path = pathFromUrl(urls.first());
        done(path.isEmpty() ? std::nullopt : std::optional<QString>(path));
    });
    QObject::connect(dialog, &QFileDialog::rejected, dialog, [done, answered] {
        if (*answered)
            return;
        *answered = true;
        done(std::nullopt);
    });
    dialog->show();
}

namespace {

// The entry of `folder` that Qt showed as `shown`: Qt lists names through QFile::decodeName,
// which turns every byte that is not UTF-8 into U+FFFD, so the name is looked up again among the
// folder's real bytes. Nothing when no entry, or more than one, reads that way.
std::optional<QString> entryShownAs(const QString& folder, const QString& shown)
{
    DIR* dir = ::opendir(Paths::encode(folder).constData());
    if (!dir)
        return std::nullopt;
    std::optional<QString> found;
    int matches = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const QString name = Paths::decode(QByteArray(entry->d_name));
        if (Paths::displayText(name) == shown) {
            found = name;
            ++matches;
        }
    }
    ::closedir(dir);
    return matches == 1 ? found : std::nullopt;
}

} // namespace

QString QFileDialogChooser::pathFromUrl(const QUrl& url)
{
    if (!url.isLocalFile())
        return {};
    const QString path = Paths::fromFileUrl(url.toString(QUrl::FullyEncoded));
    if (!path.contains(QChar::ReplacementCharacter))
        return path;
    QString rebuilt;
    const QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString& part : parts) {
        const QString folder = rebuilt.isEmpty() ? QStringLiteral("/") : rebuilt;
        QString name = part;
        if (part.contains(QChar::ReplacementCharacter)) {
            if (auto real = entryShownAs(folder, part))
                name = *real;
        }
        rebuilt = Paths::join(rebuilt.isEmpty() ? QString() : rebuilt, name);
    }
    return rebuilt.isEmpty() ? path : rebuilt;
}

} // namespace vantelor
