#include "server/TlsListener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <QSslSocket>
#include <QTimer>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "server/ClientThrottle.h"

namespace {

constexpr char kBusyProperty[] = "nivogx-busy";
constexpr char kIdleTimerName[] = "nivogx-idle";
constexpr char kClientProperty[] = "nivogx-client";

}  // namespace

TlsListener::TlsListener(Limits limits, QObject* parent) : QTcpServer(parent), m_limits(limits) {
    // Connections wait here only between the end of their handshake and the HTTP layer taking
    // them, which it does at once; the handshakes themselves are counted by this class.
    setMaxPendingConnections(std::max(m_limits.maxConnections, 30));
}

void TlsListener::setTlsConfiguration(const QSslConfiguration& tls) {
    m_tls = tls;
}

void TlsListener::setBusy(QTcpSocket* socket, bool busy) {
    const int count = socket->property(kBusyProperty).toInt() + (busy ? 1 : -1);
    socket->setProperty(kBusyProperty, std::max(count, 0));
    if (count <= 0) {
        if (auto* idle = socket->findChild<QTimer*>(QLatin1String(kIdleTimerName))) {
            idle->start();
        }
    }
}

bool TlsListener::listenSharingPort(const QHostAddress& address, quint16 port) {
    const bool v6 = address.protocol() == QAbstractSocket::IPv6Protocol;
    sockaddr_storage storage = {};
    socklen_t length = 0;
    if (v6) {
        auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(port);
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::memcpy(&in6->sin6_addr, bytes.c, sizeof bytes.c);
        length = sizeof *in6;
    } else {
        auto* in4 = reinterpret_cast<sockaddr_in*>(&storage);
        in4->sin_family = AF_INET;
        in4->sin_port = htons(port);
        in4->sin_addr.s_addr = htonl(address.toIPv4Address());
        length = sizeof *in4;
    }
    // QTcpServer cannot set the option before it binds: the socket is made here and handed over.
    const int fd = ::socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (fd < 0 || ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on) != 0 ||
        ::bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0 ||
        ::listen(fd, SOMAXCONN) != 0 || !setSocketDescriptor(fd)) {
        if (fd >= 0) {
            ::close(fd);
        }
        return false;
    }
    return true;
}

QHostAddress TlsListener::clientAddress(const QTcpSocket* socket) {
    const QVariant proxied = socket->property(kClientProperty);
    return proxied.isValid() ? QHostAddress(proxied.toString()) : socket->peerAddress();
}

std::optional<QHostAddress> TlsListener::parseProxyLine(const QByteArray& line) {
    const QList<QByteArray> parts = line.split(' ');
    if (parts.size() >= 2 && parts[0] == "PROXY" && parts[1] == "UNKNOWN") {
        return QHostAddress();
    }
    if (parts.size() != 6 || parts[0] != "PROXY" || (parts[1] != "TCP4" && parts[1] != "TCP6")) {
        return std::nullopt;
    }
    const QHostAddress source(QString::fromLatin1(parts[2]));
    const QHostAddress destination(QString::fromLatin1(parts[3]));
    const auto family =
        parts[1] == "TCP4" ? QAbstractSocket::IPv4Protocol : QAbstractSocket::IPv6Protocol;
    bool portsOk = true;
    for (const QByteArray& port : {parts[4], parts[5]}) {
        bool ok = false;
        portsOk &= port.toUInt(&ok) <= 65535 && ok && !port.startsWith('+');
    }
    if (source.protocol() != family || destination.protocol() != family || !portsOk) {
        return std::nullopt;
    }
    return source;
}

void TlsListener::incomingConnection(qintptr descriptor) {
    if (m_proxyProtocol) {
        readProxyLine(descriptor);
    } else {
        admit(descriptor, {});
    }
}

void TlsListener::readProxyLine(qintptr descriptor) {
    const int fd = static_cast<int>(descriptor);
    // Only the proxy reaches this listener, but a stuck one must not pile connections up.
    if (m_readingProxyLines >= m_limits.maxHandshakes) {
        ::close(fd);
        return;
    }
    ++m_readingProxyLines;
    auto* notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, this);
    auto* deadline = new QTimer(notifier);
    deadline->setSingleShot(true);
    const auto line = std::make_shared<QByteArray>();
    // Ends the wait: admits the connection for the client named, or closes it.
    // Once only: the deadline may be due while the notifier waits for its deletion.
    const auto end = [this, notifier, deadline, fd](std::optional<QHostAddress> client) {
        if (!notifier->isEnabled()) {
            return;
        }
        deadline->stop();
        notifier->setEnabled(false);
        notifier->deleteLater();
        --m_readingProxyLines;
        if (client) {
            admit(fd, *client);
        } else {
            ::close(fd);
        }
    };
    connect(deadline, &QTimer::timeout, notifier, [end] { end(std::nullopt); });
    connect(notifier, &QSocketNotifier::activated, notifier, [end, line, fd] {
        // Looked at first and taken only up to the line's end: what follows is the TLS
        // handshake, for the socket made next.
        char bytes[kMaxProxyLine];
        const ssize_t peeked =
            ::recv(fd, bytes, sizeof bytes - line->size(), MSG_PEEK | MSG_DONTWAIT);
        if (peeked <= 0) {
            if (peeked == 0 || (errno != EAGAIN && errno != EINTR)) {
                end(std::nullopt);
            }
            return;
        }
        const QByteArray seen = *line + QByteArray(bytes, static_cast<qsizetype>(peeked));
        const qsizetype stop = seen.indexOf("\r\n");
        const qsizetype take = stop >= 0 ? stop + 2 - line->size() : peeked;
        if ((stop < 0 && seen.size() >= kMaxProxyLine) || ::recv(fd, bytes, take, 0) != take) {
            end(std::nullopt);
            return;
        }
        if (stop < 0) {
            *line = seen;
            return;
        }
        end(parseProxyLine(seen.left(stop)));
    });
    deadline->start(m_limits.handshakeDeadlineMs);
}

void TlsListener::admit(qintptr descriptor, const QHostAddress& proxiedClient) {
    auto* socket = new QSslSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
        ::close(static_cast<int>(descriptor));
        return;
    }
    if (!proxiedClient.isNull()) {
        socket->setProperty(kClientProperty, proxiedClient.toString());
    }
    const QHostAddress peer = clientAddress(socket);
    const QString client = ClientThrottle::clientKey(peer);
    // One burst of accepts can go past the limit before accepting pauses: the excess is closed,
    // as is what one address has waiting past its share.
    if (peer.isNull() || m_connections >= m_limits.maxConnections ||
        m_perAddress.value(client).all >= 2 * m_limits.maxPerAddress) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    ++m_perAddress[client].all;
    ++m_connections;
    const auto active = std::make_shared<bool>(false);
    connect(socket, &QObject::destroyed, this,
            [this, client, active] { connectionGone(client, *active); });

    // Whichever comes first ends the handshake: success, an error, the peer leaving, the deadline
    // (which counts from now, so that waiting for a turn counts too).
    const auto ended = std::make_shared<bool>(false);
    auto* deadline = new QTimer(socket);
    deadline->setSingleShot(true);
    const auto end = [this, socket, ended, deadline](bool completed) {
        if (!*ended) {
            *ended = true;
            deadline->stop();
            handshakeEnded(socket, completed);
        }
    };
    connect(deadline, &QTimer::timeout, socket, [end] { end(false); });
    connect(socket, &QSslSocket::encrypted, this, [end] { end(true); });
    connect(socket, &QAbstractSocket::errorOccurred, this, [end] { end(false); });
    connect(socket, &QAbstractSocket::disconnected, this, [end] { end(false); });
    deadline->start(m_limits.handshakeDeadlineMs);
    m_waiting.append({socket, client, active});
    startHandshakes();
    updateAccepting();
}

void TlsListener::startHandshakes() {
    for (auto it = m_waiting.begin();
         it != m_waiting.end() && m_handshakes < m_limits.maxHandshakes;) {
        int& active = m_perAddress[it->client].active;
        if (active >= m_limits.maxPerAddress) {
            ++it;  // that address's turn comes when one of its connections ends
            continue;
        }
        ++active;
        *it->active = true;
        ++m_handshakes;
        it->socket->setSslConfiguration(m_tls);
        it->socket->startServerEncryption();
        it = m_waiting.erase(it);
    }
}

void TlsListener::handshakeEnded(QSslSocket* socket, bool completed) {
    const auto waiting = std::find_if(m_waiting.begin(), m_waiting.end(),
                                      [socket](const Waiting& w) { return w.socket == socket; });
    if (waiting != m_waiting.end()) {
        m_waiting.erase(waiting);  // ended before its turn came
    } else {
        --m_handshakes;
    }
    if (completed && socket->state() == QAbstractSocket::ConnectedState) {
        watchIdle(socket);
        limitUnanswered(socket);
        addPendingConnection(socket);  // the HTTP layer takes it from here
    } else {
        socket->abort();
        socket->deleteLater();
    }
    startHandshakes();
    updateAccepting();
}

void TlsListener::connectionGone(const QString& client, bool active) {
    --m_connections;
    const auto it = m_perAddress.find(client);
    if (it != m_perAddress.end()) {
        it->active -= active ? 1 : 0;
        if (--it->all <= 0) {
            m_perAddress.erase(it);
        }
    }
    startHandshakes();
    updateAccepting();
}

void TlsListener::watchIdle(QSslSocket* socket) {
    auto* idle = new QTimer(socket);
    idle->setObjectName(QLatin1String(kIdleTimerName));
    idle->setSingleShot(true);
    idle->setInterval(m_limits.idleDeadlineMs);
    // An answer going out starts the wait for the next request afresh.
    connect(socket, &QIODevice::bytesWritten, idle, qOverload<>(&QTimer::start));
    connect(idle, &QTimer::timeout, socket, [socket, idle] {
        if (socket->property(kBusyProperty).toInt() > 0) {
            idle->start();
        } else {
            socket->abort();
        }
    });
    idle->start();
}

// Counts what `socket` receives between answers and drops the connection past the limit. The
// first slot runs before the HTTP layer's own (connected once this one hands the socket on) and
// sees the bytes it is about to take; a second one, connected once the HTTP layer's is in place,
// notes what it left unread, so that no byte is counted twice.
void TlsListener::limitUnanswered(QSslSocket* socket) {
    struct Count {
        qint64 unanswered = 0;
        qint64 leftOver = 0;
        bool tailConnected = false;
    };
    const auto count = std::make_shared<Count>();
    const qint64 limit = m_limits.maxUnansweredBytes;
    connect(socket, &QIODevice::readyRead, socket, [socket, count, limit] {
        count->unanswered += socket->bytesAvailable() - count->leftOver;
        if (count->unanswered > limit) {
            socket->abort();
            return;
        }
        if (!count->tailConnected) {
            count->tailConnected = true;
            connect(socket, &QIODevice::readyRead, socket,
                    [socket, count] { count->leftOver = socket->bytesAvailable(); });
        }
    });
    connect(socket, &QIODevice::bytesWritten, socket, [count] { count->unanswered = 0; });
}

void TlsListener::updateAccepting() {
    const bool full = m_connections >= m_limits.maxConnections;
    if (full && !m_paused) {
        pauseAccepting();
        m_paused = true;
    } else if (!full && m_paused) {
        resumeAccepting();
        m_paused = false;
    }
}
