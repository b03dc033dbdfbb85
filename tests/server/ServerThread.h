#pragma once

#include <QString>
#include <QTemporaryDir>
#include <QThread>
#include <memory>

#include "server/AccountHttpServer.h"
#include "server/AccountService.h"

// The real account server (store, authority, service, HTTPS) on 127.0.0.1 with the development
// PKI, running on its own thread so that a blocking client can talk to it from the test's.
class ServerThread {
public:
    // Lenient by default, so that the app's tests can sign up with short passwords and as often
    // as they like; the server's own tests pass the real policy.
    static AccountService::Policy lenientPolicy() {
        AccountService::Policy policy;
        policy.minPasswordLength = 1;
        policy.throttle.signUpIntervalSeconds = 0;
        return policy;
    }

    explicit ServerThread(AccountService::Policy policy = lenientPolicy(),
                          AccountHttpServer::Options options = quietOptions());
    ~ServerThread();
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;

    [[nodiscard]] QString baseUrl() const;
    [[nodiscard]] quint16 port() const noexcept { return m_port; }

private:
    static AccountHttpServer::Options quietOptions() {
        AccountHttpServer::Options options;
        options.logRequests = false;
        return options;
    }

    struct Parts;
    QTemporaryDir m_dir;
    QThread m_thread;
    QObject* m_anchor;         // lives on m_thread: work is queued to it
    Parts* m_parts = nullptr;  // created and destroyed on m_thread
    quint16 m_port = 0;
};
