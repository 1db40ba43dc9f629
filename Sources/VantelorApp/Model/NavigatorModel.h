#pragma once

#include <QObject>
#include <QStringList>

namespace vantelor {

// The folder navigator's state that outlives a window: the recent folders (newest first, at
// most 20, under "VantelorRecent") and the favourites ("VantelorFavorites", in the user's order).
// Folders are kept in the preferences as "file:///…" URLs, so names that are not UTF-8 survive.
// GUI thread only. With `persist` false nothing is read from or written to the preferences.
class NavigatorModel : public QObject {
    Q_OBJECT

public:
    static constexpr int recentLimit = 20;

    explicit NavigatorModel(bool persist = true, QObject* parent = nullptr);

    const QStringList& recentFolders() const { return m_recent; }
    const QStringList& favoriteFolders() const { return m_favorites; }

    // Moves the folder to the top of the recent folders, dropping the oldest past the limit.
    void record(const QString& folder);
    void addFavorite(const QString& folder);
    void removeFavorite(const QString& folder);

    // Asks the tree to read its listed folders again (after a transfer changed them).
    void refresh();

signals:
    void recentChanged();
    void favoritesChanged();
    void refreshRequested();

private:
    void save(const QString& key, const QStringList& folders) const;

    bool m_persist;
    QStringList m_recent;
    QStringList m_favorites;
};

} // namespace vantelor
