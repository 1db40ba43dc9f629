#include "NavigatorModel.h"

#include <QSettings>

#include "Support/Paths.h"

namespace vantelor {

namespace {

const QString recentKey = QStringLiteral("VantelorRecent");
const QString favoritesKey = QStringLiteral("VantelorFavorites");

QStringList load(const QString& key)
{
    QStringList folders;
    const QStringList urls = QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor")).value(key).toStringList();
    for (const QString& url : urls) {
        const QString folder = Paths::fromFileUrl(url);
        if (!folder.isEmpty() && !folders.contains(folder))
            folders.append(folder);
    }
    return folders;
}

} // namespace

NavigatorModel::NavigatorModel(bool persist, QObject* parent)
    : QObject(parent)
    , m_persist(persist)
{
    if (m_persist) {
        m_recent = load(recentKey).mid(0, recentLimit);
        m_favorites = load(favoritesKey);
    }
}

void NavigatorModel::record(const QString& folder)
{
    if (!m_recent.isEmpty() && m_recent.first() == folder)
        return;
    m_recent.removeAll(folder);
    m_recent.prepend(folder);
    while (m_recent.size() > recentLimit)
        m_recent.removeLast();
    save(recentKey, m_recent);
    emit recentChanged();
}

void NavigatorModel::addFavorite(const QString& folder)
{
    if (m_favorites.contains(folder))
        return;
    m_favorites.append(folder);
    save(favoritesKey, m_favorites);
    emit favoritesChanged();
}

void NavigatorModel::removeFavorite(const QString& folder)
{
    if (m_favorites.removeAll(folder) == 0)
        return;
    save(favoritesKey, m_favorites);
    emit favoritesChanged();
}

void NavigatorModel::refresh()
{
    emit refreshRequested();
}

void NavigatorModel::save(const QString& key, const QStringList& folders) const
{
    if (!m_persist)
        return;
    QStringList urls;
    for (const QString& folder : folders)
        urls.append(Paths::fileUrl(folder));
    QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor")).setValue(key, urls);
}

} // namespace vantelor
