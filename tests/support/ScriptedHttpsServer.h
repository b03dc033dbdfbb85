#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QString>
#include <QThread>
#include <memory>

class ScriptedHttpsServerWorker;

// An HTTPS server on 127.0.0.1 that answers exactly what a test scripts, for answers the real
// account server never gives: odd bodies, charsets, status codes, silence. It runs on its own
// thread so that a client may block the test's thread. TLS uses the development server
// certificate unless another chain and key (PEM files) are given.
class ScriptedHttpsServer {
public:
    struct Request {
        QByteArray method;
        QByteArray path;
        QMap<QByteArray, QByteArray> headers;  // names lower-cased
        QByteArray body;
    };

    explicit ScriptedHttpsServer(const QString& certificateChainPem = {},
                                 const QString& privateKeyPem = {});
    ~ScriptedHttpsServer();
    ScriptedHttpsServer(const ScriptedHttpsServer&) = delete;
    ScriptedHttpsServer& operator=(const ScriptedHttpsServer&) = delete;

    [[nodiscard]] quint16 port() const { return m_port; }
    [[nodiscard]] QString baseUrl() const;

    // Every following request gets this body (HTTP 200 unless said otherwise).
    void answer(const QByteArray& body,
                const QByteArray& contentType = "application/json; charset=utf-8",
                int status = 200);
    // Every following request gets no answer at all; the connection stays open.
    void hang();

    [[nodiscard]] QList<Request> requests() const;

private:
    friend class ScriptedHttpsServerWorker;

    mutable QMutex m_mutex;
    QByteArray m_response;  // empty: hang
    QList<Request> m_requests;
    QThread m_thread;
    ScriptedHttpsServerWorker* m_worker = nullptr;  // lives on m_thread
    quint16 m_port = 0;
};
