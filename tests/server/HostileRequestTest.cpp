// The reference server under clients it should not get: a guesser trying passwords, connections
// dropped or left silent before the TLS handshake, clients leaving while their answer is worked
// out, and bodies that are malformed, oversized or not HTTP at all. Each gets an answer or a
// closed connection, never a crash, and the server goes on serving. Client addresses other than
// 127.0.0.1 are other loopback addresses that the test's sockets bind to.
#include <gtest/gtest.h>

#include <QRandomGenerator>
#include <memory>
#include <vector>

#include "LiveServerTest.h"
#include "RawClient.h"
#include "account/NivoProfileAdmin.h"
#include "server/AccountHttpServer.h"
#include "server/TlsListener.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class HostileRequestTest : public LiveServerTest {
protected:
    // A plain request after the hostile ones: the server still works.
    static void expectServing() {
        EXPECT_EQ(NivoProfileAdmin::checkLogInNameAvailability(u"stillthere"_s), QString());
    }
};

TEST_F(HostileRequestTest, AGuesserElsewhereDoesNotLockTheOwnerOut) {
    ASSERT_EQ(NivoProfileAdmin::createProfileWithLoginName(u"target"_s, u"the right one"_s,
                                                           u"T"_s, u"T"_s, u"t@example.org"_s),
              QString());
    const QHostAddress guesser(u"127.0.0.3"_s);
    const auto guess = [&](const QByteArray& password) {
        return exchange(server->baseUrl(),
                        post("/nivo/GetProfile.aspx", "logInName=target&logInPassword=" + password),
                        nullptr, guesser);
    };
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(guess("guess" + QByteArray::number(i)).contains("Wrong password")) << i;
    }
    // The guesser's address is held back, even with the right password...
    const QByteArray held = guess("the+right+one");
    EXPECT_TRUE(held.contains("Service not available")) << held.toStdString();
    EXPECT_FALSE(held.contains("Pfx"));
    // ...while the owner, from their own address, gets in.
    EXPECT_TRUE(NivoProfileAdmin::downloadProfileWithLogInName(u"Target"_s, u"the right one"_s)
                    .isUsable());
}

// Connections that end before or during the handshake, and connections that say nothing, are
// cleared away: the server keeps accepting and answering.
TEST_F(HostileRequestTest, DroppedAndSilentConnectionsDoNotStopTheServer) {
    const QUrl url(server->baseUrl());
    const auto port = static_cast<quint16>(url.port());
    for (int i = 0; i < 200; ++i) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, port);
        ASSERT_TRUE(socket.waitForConnected(kExchangeBoundMs)) << i;
        if (i % 2 == 1) {  // the start of a TLS client hello, then nothing
            socket.write(QByteArray::fromHex("160301020001"));
            socket.waitForBytesWritten(kExchangeBoundMs);
        }
        socket.abort();
    }
    expectServing();

}

// Silent connections from one address take only that address's share of handshakes, and each
// is closed at its deadline; a client from elsewhere is answered meanwhile.
TEST_F(HostileRequestTest, SilentConnectionsAreClosedAndDoNotHoldUpOthers) {
    AccountHttpServer::Options options;
    options.logRequests = false;
    options.connections.maxPerAddress = 4;
    options.connections.handshakeDeadlineMs = 1'000;
    const ServerThread strict(ServerThread::lenientPolicy(), options);
    ASSERT_FALSE(strict.baseUrl().isEmpty());
    std::vector<std::unique_ptr<QTcpSocket>> silent;
    for (int i = 0; i < 50; ++i) {
        auto socket = std::make_unique<QTcpSocket>();
        ASSERT_TRUE(socket->bind(QHostAddress(u"127.0.0.2"_s)));
        socket->connectToHost(QHostAddress::LocalHost, strict.port());
        ASSERT_TRUE(socket->waitForConnected(kExchangeBoundMs)) << i;
        silent.push_back(std::move(socket));
    }
    EXPECT_TRUE(exchange(strict.baseUrl(), post("/nivo/CheckLoginName.aspx", "logInName=x"))
                    .contains("can be registered"));
    QElapsedTimer timer;
    timer.start();
    for (auto& socket : silent) {
        if (socket->state() == QAbstractSocket::ConnectedState) {
            socket->waitForDisconnected(static_cast<int>(
                std::max<qint64>(1, kExchangeBoundMs - timer.elapsed())));
        }
        EXPECT_NE(socket->state(), QAbstractSocket::ConnectedState);
    }
}

// A client may leave while its password is being checked: the answer is dropped and the server
// goes on. One that stays gets its answer and may send the next request on the same connection.
TEST_F(HostileRequestTest, ClientsLeavingOrStayingDuringASignIn) {
    ASSERT_EQ(NivoProfileAdmin::createProfileWithLoginName(u"patient"_s, u"password"_s, u"P"_s,
                                                           u"P"_s, u"p@example.org"_s),
              QString());
    const QByteArray signIn = post("/nivo/GetProfile.aspx", "logInName=patient&logInPassword=password")
                                  .replace("Connection: close\r\n", "");
    for (int i = 0; i < 6; ++i) {
        QSslSocket socket;
        ASSERT_TRUE(connectTo(socket, server->baseUrl()));
        socket.write(signIn);
        socket.waitForBytesWritten(kExchangeBoundMs);
        socket.abort();
    }
    QSslSocket socket;
    ASSERT_TRUE(connectTo(socket, server->baseUrl()));
    for (int round = 0; round < 2; ++round) {
        socket.write(signIn);
        QByteArray answer;
        QElapsedTimer timer;
        timer.start();
        while (!answer.contains("\"LogInInfo\":\"patient||") && timer.elapsed() < kExchangeBoundMs &&
               socket.waitForReadyRead(kExchangeBoundMs)) {
            answer += socket.readAll();
        }
        EXPECT_TRUE(answer.startsWith("HTTP/1.1 200")) << round;
        EXPECT_TRUE(answer.contains("\"LogInInfo\":\"patient||")) << round;
    }
    expectServing();
}

TEST_F(HostileRequestTest, MalformedBodiesGetAnAnswer) {
    const QByteArray getProfile = "/nivo/GetProfile.aspx";
    const QByteArray getId = "/nivo/GetId.aspx";
    QByteArray junk(4096, '\0');
    for (auto& byte : junk) {
        byte = static_cast<char>(QRandomGenerator::global()->bounded(256));
    }
    const struct {
        const char* what;
        QByteArray path;
        QByteArray body;
        QByteArray expected;
    } cases[] = {
        {"no fields at all", getProfile, "&&&==&=", "is not registered"},
        {"a field without a value", getId, "logInNameToRetrieve", "is not registered"},
        {"invalid percent-encoding", getProfile, "logInName=%zz%4&logInPassword=%", "is not registered"},
        {"encoded invalid UTF-8", getId, "logInNameToRetrieve=%ff%fe%00%c3", "is not registered"},
        {"binary junk as the body", getProfile, junk, "HTTP/1.1 200"},
        {"a field just under the limit", getId,
         "logInNameToRetrieve=" + QByteArray(AccountHttpServer::kMaxFormBytes - 20, 'a'),
         "is not registered"},
        {"a body over the limit", getProfile,
         "logInName=" + QByteArray(AccountHttpServer::kMaxFormBytes, 'a') + "&logInPassword=x",
         "Service not available"},
    };
    for (const auto& c : cases) {
        const QByteArray answer = exchange(server->baseUrl(), post(c.path, c.body));
        EXPECT_TRUE(answer.startsWith("HTTP/1.1 ")) << c.what << ": " << answer.left(200).toStdString();
        EXPECT_TRUE(answer.contains(c.expected)) << c.what << ": " << answer.left(300).toStdString();
    }
    expectServing();
}

// The HTTP layer keeps a request whole before anyone looks at it: a client sending a body without
// end is cut off after about a megabyte. One that sends more than that over one connection in
// many answered requests goes on.
TEST_F(HostileRequestTest, EndlessBodiesAreCutOffButLongConversationsAreNot) {
    const QByteArray endless = post("/nivo/GetId.aspx", QByteArray(64 << 20, 'a'));
    qint64 sent = 0;
    const QByteArray answer = exchange(server->baseUrl(), endless, &sent);
    EXPECT_TRUE(answer.isEmpty()) << answer.left(200).toStdString();
    EXPECT_LT(sent, 16 << 20);

    QSslSocket socket;
    ASSERT_TRUE(connectTo(socket, server->baseUrl()));
    const QByteArray body = "logInNameToRetrieve=" + QByteArray(60 * 1024, 'b');
    const QByteArray request = "POST /nivo/GetId.aspx HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                               "Content-Type: application/x-www-form-urlencoded\r\n"
                               "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" +
                               body;
    const int rounds = static_cast<int>(2 * AccountHttpServer::kMaxUnansweredBytes / body.size());
    for (int i = 0; i < rounds; ++i) {
        socket.write(request);
        QByteArray reply;
        while (!reply.contains("is not registered") && socket.waitForReadyRead(5'000)) {
            reply += socket.readAll();
        }
        ASSERT_TRUE(reply.contains("is not registered")) << "request " << i;
    }
    expectServing();
}

TEST_F(HostileRequestTest, RequestsThatAreNotHttpAreDroppedAndTheServerGoesOn) {
    QByteArray junk(64 * 1024, '\0');
    for (auto& byte : junk) {
        byte = static_cast<char>(QRandomGenerator::global()->bounded(256));
    }
    const QByteArray requests[] = {
        junk,
        "GET /nivo/GetProfile.aspx HTTP/1.1\r\nHost: x\r\n\r\n",
        "POST /nivo/GetId.aspx HTTP/1.1\r\nHost: x\r\nContent-Length: -5\r\n\r\nabc",
        "POST /nivo/GetId.aspx HTTP/1.1\r\nHost: x\r\nContent-Length: 99999999999999999999\r\n\r\n",
        "POST /nivo/../../etc/passwd HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n",
        "POST /nivo/GetId.aspx HTTP/1.1\r\n" + QByteArray(100'000, 'X') + ": y\r\n\r\n",
        // A body announced but never sent: the connection is dropped by the client.
        "POST /nivo/GetId.aspx HTTP/1.1\r\nHost: x\r\nContent-Length: 1000000\r\n\r\nlogIn",
    };
    for (const QByteArray& request : requests) {
        const QByteArray answer = exchange(server->baseUrl(), request);
        // Either an HTTP answer or the connection closed; nothing else can come.
        EXPECT_TRUE(answer.isEmpty() || answer.startsWith("HTTP/1.1 "))
            << request.left(60).toStdString() << " -> " << answer.left(200).toStdString();
        EXPECT_FALSE(answer.contains("LogInInfo"));
        expectServing();
    }
}

}  // namespace
