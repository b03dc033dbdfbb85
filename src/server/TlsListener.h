#pragma once

#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QSslConfiguration>
#include <QTcpServer>
#include <memory>
#include <optional>

class QSslSocket;
class QTcpSocket;

// Accepts TCP connections and hands on only those whose TLS handshake has completed, so that the
// HTTP layer never sees a connection that died or stalled on the way. Whatever clients do, it
// keeps accepting:
// - at most maxHandshakes handshakes run at once; further connections wait for their turn, which
//   comes soon since a handshake ends within handshakeDeadlineMs of the connection's arrival,
//   waiting included (connections that died while waiting go quickly);
// - at most maxConnections connections are open at once; past that, accepting pauses (new
//   clients wait in the kernel's queue) until one closes;
// - one client address (an IPv6 /64) has at most maxPerAddress connections handshaking or open; as
// many more
//   may wait for their turn, and more than that are closed at once;
// - a connection that completes no answer for idleDeadlineMs is closed (this is also the deadline
//   for a request's headers and body), unless it is marked busy while its answer is prepared;
// - a connection that sends more than maxUnansweredBytes without getting an answer is dropped
//   (the HTTP layer keeps a request whole in memory before anyone looks at it).
class TlsListener : public QTcpServer {
    Q_OBJECT
public:
    struct Limits {
        int maxHandshakes = 64;
        int maxConnections = 1000;
        int maxPerAddress = 32;
        int handshakeDeadlineMs = 10'000;
        int idleDeadlineMs = 15'000;
        qint64 maxUnansweredBytes = 1024 * 1024;
    };

    explicit TlsListener(Limits limits, QObject* parent = nullptr);

    // Used for connections accepted from now on.
    void setTlsConfiguration(const QSslConfiguration& tls);
    // Each connection starts with a PROXY protocol (version 1) line from a front proxy that
    // passes TLS through, naming the client; connections without one are closed. Only for a
    // listener that nothing but the proxy can reach.
    void setProxyProtocol(bool on) { m_proxyProtocol = on; }
    // Listens with SO_REUSEPORT, so that several processes share the port (the kernel spreads
    // the connections). False, with errorString(), when that fails.
    bool listenSharingPort(const QHostAddress& address, quint16 port);

    // The client of a connection handed on: its peer, or the one its PROXY line named.
    [[nodiscard]] static QHostAddress clientAddress(const QTcpSocket* socket);
    // The client named by a PROXY line (without its CR LF); a null address for "PROXY UNKNOWN",
    // empty when the line is malformed.
    [[nodiscard]] static std::optional<QHostAddress> parseProxyLine(const QByteArray& line);
    static constexpr int kMaxProxyLine = 107;  // CR LF included
    [[nodiscard]] QSslConfiguration tlsConfiguration() const { return m_tls; }

    [[nodiscard]] int handshakesInProgress() const noexcept { return m_handshakes; }
    [[nodiscard]] int openConnections() const noexcept { return m_connections; }

    // While a connection is busy its idle deadline does not run out. Calls nest.
    static void setBusy(QTcpSocket* socket, bool busy);

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    // Reads the PROXY line off the descriptor (not a byte more), then admits the connection.
    void readProxyLine(qintptr descriptor);
    // `client` null: the peer is the client.
    void admit(qintptr descriptor, const QHostAddress& client);
    void startHandshakes();
    void handshakeEnded(QSslSocket* socket, bool completed);
    void connectionGone(const QString& client, bool active);
    void watchIdle(QSslSocket* socket);
    void limitUnanswered(QSslSocket* socket);
    // Pauses or resumes accepting to keep within the limits.
    void updateAccepting();

    Limits m_limits;
    QSslConfiguration m_tls;
    int m_handshakes = 0;
    int m_connections = 0;
    bool m_paused = false;
    bool m_proxyProtocol = false;
    int m_readingProxyLines = 0;
    struct Waiting {
        QSslSocket* socket;
        QString client;                // as ClientThrottle counts clients
        std::shared_ptr<bool> active;  // set once its handshake starts
    };
    struct Share {
        int all = 0;     // waiting, handshaking or open
        int active = 0;  // handshaking or open
    };
    QList<Waiting> m_waiting;  // accepted, waiting for a handshake slot, oldest first
    QHash<QString, Share> m_perAddress;
};
