#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QSslCertificate>
#include <QString>
#include <QUrl>

// Synchronous HTTPS form requests, for use from a worker thread (or a thread that may block).
// TLS is always verified, against the system's CAs plus any extra CAs given.
class HttpRequest {
public:
    using Fields = QList<QPair<QString, QString>>;

    static constexpr int kDefaultTimeoutMs = 10'000;
    static constexpr qint64 kMaxAnswerBytes = 1024 * 1024;

    // Error descriptions that callers compare against.
    static const QString kConnectionFailure;
    static const QString kTimedOut;
    static const QString kAnswerTooLarge;
    // The TLS handshake failed, mostly because no trusted CA stands behind the server.
    static const QString kTlsFailure;

    struct Result {
        QString error;  // empty when the request completed
        QString body;   // decoded answer; null when the bytes do not decode in the named charset
        int status = 0;        // the answer's HTTP status; 0 without one
        QString statusReason;  // its reason phrase as the server sent it; may be empty
        // The server was never reached: refused, unknown host, no route, failed TLS.
        bool unreachable = false;
        [[nodiscard]] bool failed() const { return !error.isEmpty(); }
        [[nodiscard]] bool tlsFailed() const { return error == kTlsFailure; }
        // A 2xx status, or none at all (an answer that is no HTTP one).
        [[nodiscard]] bool statusOk() const {
            return status == 0 || (status >= 200 && status < 300);
        }
    };

    // The CAs the system trusts: those of SSL_CERT_FILE and SSL_CERT_DIR when either is set,
    // else the system's store. Read again only when those variables change.
    [[nodiscard]] static QList<QSslCertificate> systemCaCertificates();

    struct Options {
        QList<QSslCertificate> extraCaCertificates;  // trusted beside the system's CAs
        int timeoutMs = kDefaultTimeoutMs;           // longest wait without progress
    };

    // POSTs the fields in order as "application/x-www-form-urlencoded; charset=utf-8" (empty
    // values included) and waits for the answer. An answer with any HTTP status is an answer,
    // with its body and status; a failure below HTTP (no connection, TLS, a protocol failure, a
    // body that would have to be sent again) is an error.
    [[nodiscard]] static Result postForm(const QUrl& url, const Fields& fields,
                                         const Options& options);

    // The form body as sent, for tests and servers that want to agree with it.
    [[nodiscard]] static QByteArray encodeForm(const Fields& fields);
    // Decodes a body with the charset named by a Content-Type value, else ISO 8859-1. Null when
    // the bytes are not valid in that charset.
    [[nodiscard]] static QString decodeBody(const QByteArray& body, const QByteArray& contentType);
};
