#include "ScriptedHttpsServer.h"

#include <QHostAddress>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>

#include "TestFiles.h"

class ScriptedHttpsServerWorker : public QObject {
public:
    explicit ScriptedHttpsServerWorker(ScriptedHttpsServer& owner) : m_owner(owner) {}

    quint16 listen(const QString& chainPem, const QString& keyPem) {
        const QList<QSslCertificate> chain = QSslCertificate::fromData(fileBytes(chainPem));
        const QSslKey key(fileBytes(keyPem), QSsl::Ec);
        if (chain.isEmpty() || key.isNull()) {
            return 0;
        }
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setLocalCertificateChain(chain);
        tls.setPrivateKey(key);
        tls.setPeerVerifyMode(QSslSocket::VerifyNone);
        m_server = new QSslServer(this);
        m_server->setSslConfiguration(tls);
        connect(m_server, &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket* socket = m_server->nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                serve(socket);
            }
        });
        return m_server->listen(QHostAddress::LocalHost, 0) ? m_server->serverPort() : 0;
    }

private:
    void serve(QTcpSocket* socket) {
        QByteArray& buffer = m_buffers[socket];
        buffer += socket->readAll();
        const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
        if (headerEnd < 0) {
            return;
        }
        ScriptedHttpsServer::Request request;
        const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
        const QList<QByteArray> start = lines.value(0).trimmed().split(' ');
        request.method = start.value(0);
        request.path = start.value(1);
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines[i].indexOf(':');
            if (colon > 0) {
                request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                       lines[i].mid(colon + 1).trimmed());
            }
        }
        const qsizetype length = request.headers.value("content-length").toLongLong();
        if (buffer.size() < headerEnd + 4 + length) {
            return;
        }
        request.body = buffer.mid(headerEnd + 4, length);
        m_buffers.remove(socket);

        QByteArray response;
        {
            const QMutexLocker lock(&m_owner.m_mutex);
            m_owner.m_requests.append(request);
            response = m_owner.m_response;
        }
        if (!response.isEmpty()) {
            socket->write(response);
            socket->disconnectFromHost();
        }
    }

    ScriptedHttpsServer& m_owner;
    QSslServer* m_server = nullptr;
    QHash<QTcpSocket*, QByteArray> m_buffers;
};

ScriptedHttpsServer::ScriptedHttpsServer(const QString& certificateChainPem,
                                         const QString& privateKeyPem) {
    answer("{}");
    m_worker = new ScriptedHttpsServerWorker(*this);
    m_worker->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_thread.start();
    // The development PKI's server certificate unless told otherwise.
    const QString chain = certificateChainPem.isEmpty()
                              ? QStringLiteral(NIVOGX_SOURCE_DIR "/certs/dev/server-tls-chain.pem")
                              : certificateChainPem;
    const QString key = privateKeyPem.isEmpty()
                            ? QStringLiteral(NIVOGX_SOURCE_DIR "/certs/dev/server-tls.key")
                            : privateKeyPem;
    QMetaObject::invokeMethod(
        m_worker, [this, chain, key] { return m_worker->listen(chain, key); },
        Qt::BlockingQueuedConnection, &m_port);
}

ScriptedHttpsServer::~ScriptedHttpsServer() {
    m_thread.quit();
    m_thread.wait();
}

QString ScriptedHttpsServer::baseUrl() const {
    return QStringLiteral("https://127.0.0.1:%1").arg(m_port);
}

void ScriptedHttpsServer::answer(const QByteArray& body, const QByteArray& contentType,
                                 int status) {
    // The reason phrases of the statuses tests use; a client must not depend on them.
    const QByteArray reason = status == 200   ? "OK"
                              : status == 404 ? "Not Found"
                              : status == 500 ? "Internal Server Error"
                              : status == 502 ? "Bad Gateway"
                                              : "Scripted";
    QByteArray response = "HTTP/1.1 " + QByteArray::number(status) + ' ' + reason + "\r\n";
    if (!contentType.isEmpty()) {
        response += "Content-Type: " + contentType + "\r\n";
    }
    response += "Content-Length: " + QByteArray::number(body.size()) +
                "\r\nConnection: close\r\n\r\n" + body;
    const QMutexLocker lock(&m_mutex);
    m_response = response;
}

void ScriptedHttpsServer::hang() {
    const QMutexLocker lock(&m_mutex);
    m_response.clear();
}

QList<ScriptedHttpsServer::Request> ScriptedHttpsServer::requests() const {
    const QMutexLocker lock(&m_mutex);
    return m_requests;
}
