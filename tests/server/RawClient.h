#pragma once

// Raw HTTPS exchanges with a test's server, for requests the app would never send.
#include <QElapsedTimer>
#include <QHostAddress>
#include <QSslSocket>
#include <QUrl>

inline constexpr int kExchangeBoundMs = 30'000;

inline bool connectTo(QSslSocket& socket, const QString& baseUrl, const QHostAddress& from = {}) {
    const QUrl url(baseUrl);
    if (!from.isNull() && !socket.bind(from)) {
        return false;
    }
    socket.setPeerVerifyMode(QSslSocket::VerifyNone);
    socket.connectToHostEncrypted(url.host(), static_cast<quint16>(url.port()));
    return socket.waitForEncrypted(kExchangeBoundMs);
}

// Sends raw bytes over TLS and returns everything the server sends back before it closes the
// connection or falls silent for a while. `sent` receives how many bytes went out before the
// server closed the connection.
inline QByteArray exchange(const QString& baseUrl, const QByteArray& bytes, qint64* sent = nullptr,
                    const QHostAddress& from = {}) {
    QSslSocket socket;
    if (!connectTo(socket, baseUrl, from)) {
        return "no TLS: " + socket.errorString().toUtf8();
    }
    qsizetype at = 0;
    while (at < bytes.size() && socket.state() == QAbstractSocket::ConnectedState) {
        const qint64 written = socket.write(bytes.mid(at, 1 << 16));
        if (written <= 0) {
            break;
        }
        at += written;
        socket.waitForBytesWritten(kExchangeBoundMs);
    }
    if (sent != nullptr) {
        *sent = at;
    }
    QByteArray answer;
    QElapsedTimer timer;
    timer.start();
    while (socket.state() == QAbstractSocket::ConnectedState && timer.elapsed() < kExchangeBoundMs) {
        // The first bytes may take a key's making; a connection left without an answer is
        // closed at the server's idle deadline.
        if (!socket.waitForReadyRead(answer.isEmpty() ? 20'000 : 500)) {
            break;
        }
        answer += socket.readAll();
    }
    return answer + socket.readAll();
}

inline QByteArray post(const QByteArray& path, const QByteArray& body, const QByteArray& extraHeaders = {}) {
    return "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\n" + extraHeaders +
           "Content-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" +
           body;
}
