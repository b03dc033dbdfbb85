#pragma once

#include <QHostAddress>
#include <QHttpServer>
#include <QSslConfiguration>
#include <QString>

#include "server/AccountService.h"

// Serves the account service's five endpoints over HTTPS: POST form bodies in, plain text or
// JSON out.
class AccountHttpServer {
public:
    // Larger form bodies are refused unparsed, with the "service not available" answer.
    static constexpr qsizetype kMaxFormBytes = 64 * 1024;
    // What a connection may send while waiting for its answer. The HTTP layer keeps a request
    // whole in memory before any handler sees it, so a client sending on and on is cut off here:
    // past this many bytes since the last answer its connection is dropped without one. It leaves
    // room for bodies somewhat over kMaxFormBytes to get their answer.
    static constexpr qint64 kMaxUnansweredBytes = 1024 * 1024;

    explicit AccountHttpServer(AccountService& service);

    // Loads a PEM certificate chain (leaf first) and its PEM private key. False when unusable.
    [[nodiscard]] bool setTls(const QString& chainPath, const QString& keyPath);
    // Listens on the address; returns the port (useful when 0 asked for any), or 0 on failure.
    [[nodiscard]] quint16 listen(const QHostAddress& address, quint16 port);

    // Parses an application/x-www-form-urlencoded body ('+' is a blank, UTF-8 text).
    [[nodiscard]] static AccountService::Form parseForm(const QByteArray& body);

private:
    AccountService& m_service;
    QHttpServer m_server;
};
