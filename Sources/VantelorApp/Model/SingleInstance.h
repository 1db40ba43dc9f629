#pragma once

#include <QList>
#include <QLocalServer>
#include <QObject>
#include <QString>

#include "Model/LaunchTarget.h"

namespace vantelor {

// Keeps one Vantelor per user: a second launch hands its folders to the running one through a
// local socket (only the user may connect) and exits. Two launches at the same moment agree
// through a lock file beside the socket, so exactly one of them becomes the running instance; a
// socket left behind by a crashed instance is taken over.
//
// claim() is the one blocking call and runs before the event loop starts; after it, the running
// instance receives on the GUI thread.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Role { primary, secondary };

    // The socket's path; by default "com.vantelor.Vantelor-<uid>" in $XDG_RUNTIME_DIR.
    explicit SingleInstance(QString socketPath = defaultSocketPath(), QObject* parent = nullptr);
    static QString defaultSocketPath();

    // Hands the targets to the running instance and answers secondary, or starts listening and
    // answers primary. When no socket can be made the process simply runs on its own.
    Role claim(const QList<LaunchTarget>& targets, int timeoutMs = 5000);

signals:
    // Another launch's folders (possibly none: it only asked to bring the window forward).
    void targetsReceived(const QList<LaunchTarget>& targets);

private:
    bool handOff(const QList<LaunchTarget>& targets, int timeoutMs);
    void accept();

    QString m_socketPath;
    QLocalServer m_server;
};

} // namespace vantelor
