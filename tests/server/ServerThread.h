#pragma once

#include <QString>
#include <QTemporaryDir>
#include <QThread>
#include <memory>

// The real account server (store, authority, service, HTTPS) on 127.0.0.1 with the development
// PKI, running on its own thread so that a blocking client can talk to it from the test's.
class ServerThread {
public:
    ServerThread();
    ~ServerThread();
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;

    [[nodiscard]] QString baseUrl() const;

private:
    struct Parts;
    QTemporaryDir m_dir;
    QThread m_thread;
    QObject* m_anchor;         // lives on m_thread: work is queued to it
    Parts* m_parts = nullptr;  // created and destroyed on m_thread
    quint16 m_port = 0;
};
