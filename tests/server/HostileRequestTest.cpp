// The reference server under requests it should not get: a guesser trying passwords, and bodies
// that are malformed, oversized or not HTTP at all. Each gets an answer or a closed connection,
// never a crash, and the server goes on serving.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSslSocket>

#include "LiveServerTest.h"
#include "account/NivoProfileAdmin.h"
#include "server/AccountHttpServer.h"

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kExchangeBoundMs = 30'000;

bool connectTo(QSslSocket& socket, const QString& baseUrl) {
    const QUrl url(baseUrl);
    socket.setPeerVerifyMode(QSslSocket::VerifyNone);
    socket.connectToHostEncrypted(url.host(), static_cast<quint16>(url.port()));
    return socket.waitForEncrypted(kExchangeBoundMs);
}

// Sends raw bytes over TLS and returns everything the server sends back before it closes the
// connection or falls silent for a while. `sent` receives how many bytes went out before the
// server closed the connection.
QByteArray exchange(const QString& baseUrl, const QByteArray& bytes, qint64* sent = nullptr) {
    QSslSocket socket;
    if (!connectTo(socket, baseUrl)) {
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
        if (!socket.waitForReadyRead(answer.isEmpty() ? 5'000 : 500)) {
            break;
        }
        answer += socket.readAll();
    }
    return answer + socket.readAll();
}

QByteArray post(const QByteArray& path, const QByteArray& body, const QByteArray& extraHeaders = {}) {
    return "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\n" + extraHeaders +
           "Content-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" +
           body;
}

class HostileRequestTest : public LiveServerTest {
protected:
    // A plain request after the hostile ones: the server still works.
    static void expectServing() {
        EXPECT_EQ(NivoProfileAdmin::checkLogInNameAvailability(u"stillthere"_s), QString());
    }
};

TEST_F(HostileRequestTest, PasswordGuessingIsThrottledAndLocksOutTheRightPasswordToo) {
    ASSERT_EQ(NivoProfileAdmin::createProfileWithLoginName(u"target"_s, u"the right one"_s,
                                                           u"T"_s, u"T"_s, u"t@example.org"_s),
              QString());
    const auto attempt = [](const QString& password) {
        return NivoProfileAdmin::downloadProfileWithLogInName(u"Target"_s, password);
    };
    const QString refused = u"Server unable to process request"_s;
    QStringList answers;
    for (int i = 0; i < 5; ++i) {
        answers << attempt(u"guess %1"_s.arg(i)).StatusText;
        EXPECT_EQ(answers.last(), u"Wrong password"_s) << i;
    }
    // Locked now: the right password is refused like any other, and nothing comes back.
    const NivoProfile during = attempt(u"the right one"_s);
    EXPECT_EQ(during.StatusText, refused);
    EXPECT_TRUE(during.Pfx.isEmpty());
    for (int i = 5; i < 20; ++i) {
        answers << attempt(u"guess %1"_s.arg(i)).StatusText;
    }
    // Locked for a second after the fifth miss, then twice as long after each further one: of the
    // other fifteen guesses only the few that fall after a lock has run out are checked at all.
    EXPECT_GE(answers.count(refused), 12) << answers.join(u", "_s).toStdString();
    EXPECT_EQ(answers.count(refused) + answers.count(u"Wrong password"_s), 20);
    // Another name is not held up by it.
    EXPECT_EQ(NivoProfileAdmin::downloadProfileWithLogInName(u"somebody"_s, u"x"_s).StatusText,
              u"Username is not registered"_s);
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
