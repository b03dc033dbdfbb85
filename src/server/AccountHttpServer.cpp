#include "server/AccountHttpServer.h"

#include <QFile>
#include <QHttpServerRequest>
#include <QHttpServerResponse>
#include <QSslKey>
#include <QUrlQuery>

using namespace Qt::Literals::StringLiterals;

namespace {

using Handler = AccountService::Answer (AccountService::*)(const AccountService::Form&);

QHttpServerResponse respond(const AccountService::Answer& answer) {
    return QHttpServerResponse(answer.contentType, answer.body);
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
    return m_server.listen(address, port);
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
