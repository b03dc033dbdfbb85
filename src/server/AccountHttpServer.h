#pragma once

#include <QAbstractHttpServer>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QSslConfiguration>
#include <QString>
#include <QThreadPool>

#include "server/AccountService.h"
#include "server/TlsListener.h"

// Serves the account service's five endpoints over HTTPS (POST form bodies in, plain text or
// JSON out) and GET /healthz for monitoring. Connections come through a TlsListener, which keeps
// hostile clients within bounds. The event loop only parses and answers: requests that check a
// password or issue a key run in a pool of worker threads, so look-ups stay quick meanwhile.
// Every request leaves one line on stderr: time, client address, endpoint, outcome, duration.
class AccountHttpServer : public QAbstractHttpServer {
    Q_OBJECT
public:
    // Larger form bodies are refused unparsed, with the "service not available" answer.
    static constexpr qsizetype kMaxFormBytes = 64 * 1024;
    // What a connection may send while waiting for its answer (see TlsListener).
    static constexpr qint64 kMaxUnansweredBytes = TlsListener::Limits{}.maxUnansweredBytes;
    // A request that waited this long for a worker is answered "service not available" instead
    // of being worked on: its client has given up.
    static constexpr qint64 kClientPatienceMs = 10'000;

    struct Options {
        TlsListener::Limits connections;
        int workers = 0;       // 0: one per processor core
        int maxWaiting = 256;  // requests for the workers under way; more are refused at once
        bool logRequests = true;
        bool reusePort = false;      // see TlsListener::listenSharingPort
        bool proxyProtocol = false;  // see TlsListener::setProxyProtocol
    };

    AccountHttpServer(AccountService& service, AccountStore& store);
    AccountHttpServer(AccountService& service, AccountStore& store, Options options);
    // Waits for the requests under way in the workers.
    ~AccountHttpServer() override;

    // Loads a PEM certificate chain (leaf first) and its PEM private key; when listening, new
    // connections use them from now on. False (and nothing changed) when unusable.
    [[nodiscard]] bool setTls(const QString& chainPath, const QString& keyPath);
    // Listens on the address; returns the port (useful when 0 asked for any), or 0 on failure.
    [[nodiscard]] quint16 listen(const QHostAddress& address, quint16 port);
    // Accepts no more connections; the requests under way still get their answers.
    void stopListening();
    [[nodiscard]] int requestsUnderWay() const noexcept { return m_underWay; }

    // Parses an application/x-www-form-urlencoded body ('+' is a blank, UTF-8 text).
    [[nodiscard]] static AccountService::Form parseForm(const QByteArray& body);

Q_SIGNALS:
    // The last request under way has been answered.
    void drained();

protected:
    bool handleRequest(const QHttpServerRequest& request, QTcpSocket* socket) override;
    void missingHandler(const QHttpServerRequest& request, QTcpSocket* socket) override;

private:
    struct Logged {
        QHostAddress client;
        QString endpoint;
        QElapsedTimer started;
    };

    void log(const Logged& request, const QByteArray& outcome) const;
    void finished();

    AccountService& m_service;
    AccountStore& m_store;
    Options m_options;
    QSslConfiguration m_tls;
    TlsListener* m_listener = nullptr;
    QThreadPool m_workers;
    int m_underWay = 0;
};
