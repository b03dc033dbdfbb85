#include "server/TlsListener.h"

#include "server/ClientThrottle.h"

#include <QSslSocket>
#include <QTimer>
#include <algorithm>
#include <memory>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

namespace {

constexpr char kBusyProperty[] = "nivogx-busy";
constexpr char kIdleTimerName[] = "nivogx-idle";

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

void TlsListener::incomingConnection(qintptr descriptor) {
    auto* socket = new QSslSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
#ifdef Q_OS_UNIX
        ::close(static_cast<int>(descriptor));
#endif
        return;
    }
    const QHostAddress peer = socket->peerAddress();
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
