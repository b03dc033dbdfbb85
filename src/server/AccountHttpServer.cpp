#include "server/AccountHttpServer.h"

#include <QDateTime>
#include <QFile>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QPointer>
#include <QSslKey>
#include <QTcpSocket>
#include <QTextStream>
#include <QTimer>
#include <QUrlQuery>
#include <algorithm>
#include <functional>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

using Quick = AccountService::Answer (AccountService::*)(const AccountService::Form&);
using Slow = AccountService::Answer (AccountService::*)(const AccountService::Form&,
                                                        const QHostAddress&);

struct Endpoint {
    const char* path;
    Quick quick;  // answered on the event loop
    Slow slow;    // answered by a worker
    bool checksPassword;
};

const Endpoint kEndpoints[] = {
    {"/nivo/GetProfile.aspx", nullptr, &AccountService::getProfile, true},
    {"/nivo/GetId.aspx", &AccountService::getId, nullptr, false},
    {"/nivo/CreateProfile.aspx", nullptr, &AccountService::createProfile, false},
    {"/nivo/ChangePassword.aspx", nullptr, &AccountService::changePassword, true},
    {"/nivo/CheckLoginName.aspx", &AccountService::checkLoginName, nullptr, false},
};

void answer(QTcpSocket* socket, QHttpServerResponder& responder,
            const AccountService::Answer& answer) {
    if (socket->state() == QAbstractSocket::ConnectedState) {
        responder.write(answer.body, answer.contentType);
    }
}

// What the log says about an answer: the plain texts hold no secret and say what happened;
// JSON answers carry key material, so only their size is told.
QByteArray outcome(const AccountService::Answer& answer) {
    if (answer.body.startsWith('{')) {
        return "ok, " + QByteArray::number(answer.body.size()) + " bytes";
    }
    return answer.body.left(100);
}

}  // namespace

AccountHttpServer::AccountHttpServer(AccountService& service, AccountStore& store)
    : AccountHttpServer(service, store, Options{}) {}

AccountHttpServer::AccountHttpServer(AccountService& service, AccountStore& store, Options options)
    : m_service(service), m_store(store), m_options(options) {
    if (m_options.workers > 0) {
        m_workers.setMaxThreadCount(m_options.workers);
    }
}

AccountHttpServer::~AccountHttpServer() {
    m_workers.waitForDone();
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
    m_tls = tls;
    if (m_listener != nullptr) {
        m_listener->setTlsConfiguration(m_tls);
    }
    return true;
}

quint16 AccountHttpServer::listen(const QHostAddress& address, quint16 port) {
    auto listener = std::make_unique<TlsListener>(m_options.connections);
    listener->setTlsConfiguration(m_tls);
    listener->setProxyProtocol(m_options.proxyProtocol);
    if (!(m_options.reusePort ? listener->listenSharingPort(address, port)
                              : listener->listen(address, port))) {
        return 0;
    }
    m_listener = listener.release();
    bind(m_listener);  // takes it as a child
    return m_listener->serverPort();
}

void AccountHttpServer::stopListening() {
    if (m_listener != nullptr) {
        m_listener->close();
    }
}

bool AccountHttpServer::handleRequest(const QHttpServerRequest& request, QTcpSocket* socket) {
    Logged logged{
        TlsListener::clientAddress(socket), request.url().path().left(100).simplified(), {}};
    logged.started.start();
    if (logged.endpoint == "/healthz"_L1 && request.method() == QHttpServerRequest::Method::Get) {
        const bool healthy = m_store.isHealthy();
        makeResponder(request, socket)
            .write(healthy ? "ok\n" : "store not answering\n", "text/plain",
                   healthy ? QHttpServerResponder::StatusCode::Ok
                           : QHttpServerResponder::StatusCode::ServiceUnavailable);
        log(logged, healthy ? "ok" : "store not answering");
        return true;
    }
    const Endpoint* endpoint = nullptr;
    for (const Endpoint& candidate : kEndpoints) {
        if (logged.endpoint == QLatin1String(candidate.path)) {
            endpoint = &candidate;
        }
    }
    if (endpoint == nullptr || request.method() != QHttpServerRequest::Method::Post) {
        return false;
    }
    QHttpServerResponder responder = makeResponder(request, socket);
    if (request.body().size() > kMaxFormBytes) {
        const auto refusal = AccountService::serviceNotAvailable();
        answer(socket, responder, refusal);
        log(logged, "body too large");
        return true;
    }
    const AccountService::Form form = parseForm(request.body());
    if (endpoint->quick != nullptr) {
        const auto quick = (m_service.*(endpoint->quick))(form);
        answer(socket, responder, quick);
        log(logged, outcome(quick));
        return true;
    }

    const auto refuse = [&](const AccountService::Answer& refusal) {
        answer(socket, responder, refusal);
        log(logged, outcome(refusal));
        return true;
    };
    if (m_underWay >= m_options.maxWaiting) {
        return refuse(
            {"Service not available: busy, try again later.", "text/plain; charset=utf-8"});
    }
    const auto turn = endpoint->checksPassword ? m_service.reservePasswordCheck(form, logged.client)
                                               : std::optional<qint64>(0);
    if (!turn) {
        return refuse(AccountService::tooManyAttempts());
    }
    const qint64 wait = *turn;
    // The connection keeps still until its answer is written: no further request is read from
    // it, its idle deadline does not run and, should the client go, it is not deleted under the
    // answer on its way (that is left to finish()).
    ++m_underWay;
    TlsListener::setBusy(socket, true);
    socket->blockSignals(true);
    const QPointer<QTcpSocket> guard(socket);
    auto held = std::make_shared<QHttpServerResponder>(std::move(responder));
    // The work itself, bound here: the worker sees only the service and the request.
    const std::function<AccountService::Answer()> slow =
        std::bind(endpoint->slow, &m_service, form, logged.client);
    const auto work = [this, guard, held, slow, logged] {
        QElapsedTimer queued;
        queued.start();
        m_workers.start([this, guard, held, slow, logged, queued] {
            // Past the app's patience nobody waits for the answer: the work is not done.
            const auto done = queued.elapsed() > kClientPatienceMs
                                  ? AccountService::serviceNotAvailable()
                                  : slow();
            QMetaObject::invokeMethod(this, [this, guard, held, done, logged] {
                if (QTcpSocket* connection = guard.data()) {
                    connection->blockSignals(false);
                    TlsListener::setBusy(connection, false);
                    if (connection->state() == QAbstractSocket::ConnectedState) {
                        answer(connection, *held, done);
                        connection->flush();  // out now, even if the server stops next
                        if (connection->bytesAvailable() > 0) {
                            Q_EMIT connection->readyRead();  // what came meanwhile
                        }
                    } else {
                        connection->deleteLater();  // its "disconnected" went unheard
                    }
                }
                log(logged, outcome(done));
                finished();
            });
        });
    };
    if (wait > 0) {
        QTimer::singleShot(wait, this, work);
    } else {
        work();
    }
    return true;
}

void AccountHttpServer::missingHandler(const QHttpServerRequest& request, QTcpSocket* socket) {
    makeResponder(request, socket).write(QHttpServerResponder::StatusCode::NotFound);
    Logged logged{
        TlsListener::clientAddress(socket), request.url().path().left(100).simplified(), {}};
    logged.started.start();
    log(logged, "not found");
}

void AccountHttpServer::finished() {
    if (--m_underWay == 0) {
        Q_EMIT drained();
    }
}

void AccountHttpServer::log(const Logged& request, const QByteArray& outcome) const {
    if (!m_options.logRequests) {
        return;
    }
    QTextStream(stderr) << QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs) << ' '
                        << request.client.toString() << ' ' << request.endpoint << ' '
                        << QString::fromUtf8(outcome).simplified() << ' '
                        << request.started.elapsed() << "ms" << Qt::endl;
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
