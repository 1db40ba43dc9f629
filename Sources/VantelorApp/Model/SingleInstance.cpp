#include "Model/SingleInstance.h"

#include <unistd.h>

#include <QDataStream>
#include <QDir>
#include <QLocalSocket>
#include <QLockFile>

namespace vantelor {

namespace {

// A launch names a handful of folders; anything far larger is not another Vantelor talking.
constexpr quint32 maximumTargets = 4096;
constexpr char acknowledgement = '1';

} // namespace

SingleInstance::SingleInstance(QString socketPath, QObject* parent)
    : QObject(parent)
    , m_socketPath(std::move(socketPath))
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

QString SingleInstance::defaultSocketPath()
{
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    const QString folder = runtime.isEmpty() ? QDir::tempPath() : QString::fromLocal8Bit(runtime);
    return folder + QStringLiteral("/com.vantelor.Vantelor-") + QString::number(::getuid());
}

SingleInstance::Role SingleInstance::claim(const QList<LaunchTarget>& targets, int timeoutMs)
{
    QLockFile lock(m_socketPath + QStringLiteral(".lock"));
    // Without the lock (an unwritable runtime folder) the worst case is two windows.
    const bool locked = lock.tryLock(timeoutMs);
    if (handOff(targets, timeoutMs))
        return Role::secondary;
    if (locked) {
        // Nobody answered while we hold the lock: a socket file there is a dead instance's.
        QLocalServer::removeServer(m_socketPath);
        m_server.listen(m_socketPath);
    }
    return Role::primary;
}

bool SingleInstance::handOff(const QList<LaunchTarget>& targets, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(m_socketPath);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out << quint32(targets.size());
    for (const LaunchTarget& target : targets)
        out << target.serialize();
    socket.write(message);
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    // Connected but never answered: a hung instance; starting a second one would not help.
    socket.waitForReadyRead(timeoutMs);
    return true;
}

void SingleInstance::accept()
{
    while (QLocalSocket* socket = m_server.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            QDataStream in(socket);
            in.startTransaction();
            quint32 count = 0;
            in >> count;
            if (count > maximumTargets) {
                socket->abort();
                return;
            }
            QList<LaunchTarget> targets;
            for (quint32 i = 0; i < count; ++i) {
                QByteArray bytes;
                in >> bytes;
                if (const auto target = LaunchTarget::deserialize(bytes))
                    targets.append(*target);
            }
            if (!in.commitTransaction())
                return;
            socket->write(&acknowledgement, 1);
            socket->disconnectFromServer();
            emit targetsReceived(targets);
        });
    }
}

} // namespace vantelor
