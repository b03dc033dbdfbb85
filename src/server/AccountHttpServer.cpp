#include "server/AccountHttpServer.h"

#include <QFile>
#include <QHttpServerRequest>
#include <QHttpServerResponse>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <memory>
#include <QUrlQuery>

using namespace Qt::Literals::StringLiterals;

namespace {

using Handler = AccountService::Answer (AccountService::*)(const AccountService::Form&);

QHttpServerResponse respond(const AccountService::Answer& answer) {
    return QHttpServerResponse(answer.contentType, answer.body);
}

// Counts what `socket` receives between answers and drops the connection past the limit. The
// first slot runs before the HTTP layer's own (connected once the handshake is done) and sees the
// bytes it is about to take; a second one, connected once the HTTP layer's is in place, notes
// what it left unread, so that no byte is counted twice.
void limitUnanswered(QSslSocket* socket) {
    struct Count {
        qint64 unanswered = 0;
        qint64 leftOver = 0;
        bool tailConnected = false;
    };
    const auto count = std::make_shared<Count>();
    QObject::connect(socket, &QIODevice::readyRead, socket, [socket, count] {
        count->unanswered += socket->bytesAvailable() - count->leftOver;
        if (count->unanswered > AccountHttpServer::kMaxUnansweredBytes) {
            socket->abort();
            return;
        }
        if (!count->tailConnected) {
            count->tailConnected = true;
            QObject::connect(socket, &QIODevice::readyRead, socket,
                             [socket, count] { count->leftOver = socket->bytesAvailable(); });
        }
    });
    QObject::connect(socket, &QIODevice::bytesWritten, socket,
                     [count] { count->unanswered = 0; });
}

}  // namespace

AccountHttpServer::AccountHttpServer(AccountService& service) : m_service(service) {
    const std::pair<const char*, Handler> endpoints[] = {
        {"/nivo/GetProfile.aspx", &AccountService::getProfile},
        {"/nivo/GetId.aspx", &AccountService::getId},
        {"/nivo/CreateProfile.aspx", &AccountService::createProfile},
        {"/nivo/ChangePassword.aspx", &AccountService::changePassword},
        {"/nivo/CheckLoginName.aspx", &AccountService::checkLoginName},
    };
    for (const auto& [path, handler] : endpoints) {
        m_server.route(QString::fromLatin1(path), QHttpServerRequest::Method::Post,
                       [this, handler](const QHttpServerRequest& request) {
                           if (request.body().size() > kMaxFormBytes) {
                               return respond(AccountService::serviceNotAvailable());
                           }
                           return respond((m_service.*handler)(parseForm(request.body())));
                       });
    }
}

bool AccountHttpServer::setTls(const QString& chainPath, const QString& keyPath) {
    QFile chainFile(chainPath);
    QFile keyFile(keyPath);
    if (!chainFile.open(QIODevice::ReadOnly) || !keyFile.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QList<QSslCertificate> chain = QSslCertificate::fromData(chainFile.readAll(), QSsl::Pem);
    const QByteArray keyPem = keyFile.readAll();
    QSslKey key(keyPem, QSsl::Ec);
    if (key.isNull()) {
        key = QSslKey(keyPem, QSsl::Rsa);
    }
    if (chain.isEmpty() || key.isNull()) {
        return false;
    }
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setLocalCertificateChain(chain);
    tls.setPrivateKey(key);
    tls.setPeerVerifyMode(QSslSocket::VerifyNone);
    m_server.sslSetup(tls);
    return true;
}

quint16 AccountHttpServer::listen(const QHostAddress& address, quint16 port) {
    const quint16 bound = m_server.listen(address, port);
    // With TLS set up (always, see main) the HTTP layer listens through a TLS server, which hands
    // out every new connection before the HTTP layer takes it.
    if (bound != 0) {
        if (auto* tls = qobject_cast<QSslServer*>(m_server.servers().constLast())) {
            QObject::connect(tls, &QSslServer::startedEncryptionHandshake, tls, &limitUnanswered);
        }
    }
    return bound;
}

AccountService::Form AccountHttpServer::parseForm(const QByteArray& body) {
    QByteArray plusAsBlank = body;
    plusAsBlank.replace('+', "%20");
    AccountService::Form form;
    const QUrlQuery query(QString::fromLatin1(plusAsBlank));
    for (const auto& [name, value] : query.queryItems(QUrl::FullyDecoded)) {
        form.insert(name, value);
    }
    return form;
}
