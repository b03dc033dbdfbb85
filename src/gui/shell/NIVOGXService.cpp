#include "shell/NIVOGXService.h"

#include <QDataStream>
#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>
#include <QStandardPaths>
#include <memory>

#include "session/NivoGXUtil.h"
#include "shell/NotificationHub.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// A launch that finds no answer this quickly starts its own instance.
constexpr int kConnectTimeoutMs = 1000;
constexpr int kWriteTimeoutMs = 5000;
constexpr QDataStream::Version kStreamVersion = QDataStream::Qt_6_4;

}  // namespace

NIVOGXService::NIVOGXService(NotificationHub& hub, QObject* parent) : QObject(parent), m_hub(hub) {
    connect(&m_server, &QLocalServer::newConnection, this, &NIVOGXService::accept);
}

QString NIVOGXService::defaultName() {
    // The runtime folder belongs to the desktop user alone, so instances of other users never
    // meet.
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    return runtime.isEmpty() ? u"nivogx"_s : QDir(runtime).filePath(u"nivogx.socket"_s);
}

bool NIVOGXService::handOver(const QString& name, const QStringList& paths) {
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(kConnectTimeoutMs)) {
        return false;
    }
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out.setVersion(kStreamVersion);
    out << paths;
    socket.write(message);
    socket.flush();
    while (socket.bytesToWrite() > 0 && socket.waitForBytesWritten(kWriteTimeoutMs)) {
    }
    socket.disconnectFromServer();
    if (socket.state() != QLocalSocket::UnconnectedState) {
        socket.waitForDisconnected(kWriteTimeoutMs);
    }
    return true;
}

bool NIVOGXService::listen(const QString& name) {
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (m_server.listen(name)) {
        return true;
    }
    // Called only after no instance answered: what is left under the name is stale.
    QLocalServer::removeServer(name);
    return m_server.listen(name);
}

void NIVOGXService::accept() {
    while (QLocalSocket* socket = m_server.nextPendingConnection()) {
        auto received = std::make_shared<QByteArray>();
        connect(socket, &QLocalSocket::readyRead, this,
                [socket, received] { received->append(socket->readAll()); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket, received] {
            received->append(socket->readAll());
            socket->deleteLater();
            QDataStream in(received.get(), QIODevice::ReadOnly);
            in.setVersion(kStreamVersion);
            QStringList offered;
            in >> offered;
            if (in.status() == QDataStream::Ok) {
                addToNIVOGX(offered);
            }
        });
    }
}

void NIVOGXService::addToNIVOGX(const QStringList& offered) {
    bool folderSkipped = false;
    for (const QString& path : offered) {
        const QFileInfo info(path);
        if (info.isDir()) {
            folderSkipped = true;
        } else if (info.exists()) {
            m_fileList.append(path);
        }
    }
    if (NivoGXUtil::hasRequiredCredentials()) {
        sendNotificationToFileController();
    } else {
        sendNotificationToAddExternalFiles();
    }
    if (folderSkipped) {
        m_hub.postFoldersSkipped();
    }
}

void NIVOGXService::sendNotificationToFileController() {
    if (m_fileList.isEmpty()) {
        return;
    }
    m_hub.postHandleExternalFileArray(m_fileList);
    m_fileList.clear();
}

void NIVOGXService::sendNotificationToAddExternalFiles() {
    if (m_fileList.isEmpty()) {
        return;
    }
    m_hub.postAddToExternalFile(m_fileList);
    m_fileList.clear();
}
