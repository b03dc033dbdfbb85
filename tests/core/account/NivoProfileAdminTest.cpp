// The account calls against a scripted server: which answers become which status texts, what is
// sent, and how malformed answers end. The real server's behaviour is tested in tests/server.
#include <gtest/gtest.h>

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QTcpServer>
#include <QUrlQuery>

#include "ScriptedHttpsServer.h"
#include "TestPki.h"
#include "account/AccountServer.h"
#include "account/NivoProfileAdmin.h"

namespace {

class NivoProfileAdminTest : public ::testing::Test {
protected:
    void SetUp() override { AccountServer::setBaseUrl(server.baseUrl()); }
    void TearDown() override { AccountServer::setBaseUrl(QString()); }

    QString getProfileStatus(const QByteArray& body) {
        server.answer(body, "text/plain");
        return download().StatusText;
    }
    static NivoProfile download() {
        return NivoProfileAdmin::downloadProfileWithLogInName(QStringLiteral("alice"),
                                                              QStringLiteral("pw"));
    }
    static NivoProfile lookUp() {
        return NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(QStringLiteral("a"),
                                                                      QStringLiteral("a"));
    }

    // Field names and values of the last request, in order.
    QList<QPair<QString, QString>> lastFields() const {
        const auto requests = server.requests();
        return requests.isEmpty() ? QList<QPair<QString, QString>>{}
                                  : QUrlQuery(QString::fromUtf8(requests.last().body))
                                        .queryItems(QUrl::FullyDecoded);
    }

    ScriptedHttpsServer server;
};

TEST_F(NivoProfileAdminTest, GetProfileMarkersInOrderIgnoringCase) {
    EXPECT_EQ(getProfileStatus("Sorry, the user IS NOT REGISTERED here"),
              QStringLiteral("Username is not registered"));
    EXPECT_EQ(getProfileStatus("wrong password. Service not available."),
              QStringLiteral("Server unable to process request"));
    EXPECT_EQ(getProfileStatus("is not registered, wrong password"),
              QStringLiteral("Username is not registered"));
    EXPECT_EQ(getProfileStatus("{\"Pfx\":[1,2],\"LogInInfo\":\"Wrong Password||x\"}"),
              QStringLiteral("Wrong password"))
        << "a phrase inside JSON still decides, and nothing is parsed";
}

TEST_F(NivoProfileAdminTest, EachOperationHasItsOwnMarkers) {
    server.answer("is not matched", "text/plain");
    EXPECT_EQ(lookUp().StatusText, QStringLiteral("Invalid NIVO ID email"));
    server.answer("x is not registered", "text/plain");
    EXPECT_EQ(lookUp().StatusText, QStringLiteral("Invalid NIVO ID name"));

    auto create = [] {
        return NivoProfileAdmin::createProfileWithLoginName(QStringLiteral("a"), QStringLiteral("p"),
                                                            QString(), QString(), QString());
    };
    server.answer("invalid account entry", "text/plain");
    EXPECT_EQ(create(), QStringLiteral("Invalid Account entry"));
    server.answer("name is not available; Invalid Account Entry", "text/plain");
    EXPECT_EQ(create(), QStringLiteral("Username is not available"));
    server.answer("wrong password", "text/plain");
    EXPECT_EQ(create(), QString()) << "not a sign-up marker";

    server.answer("Wrong Password", "text/plain");
    EXPECT_EQ(NivoProfileAdmin::changePasswordWithLoginName(QStringLiteral("a"), QStringLiteral("b"),
                                                           QStringLiteral("c")),
              QStringLiteral("Wrong password"));
    server.answer("is not available", "text/plain");
    EXPECT_EQ(NivoProfileAdmin::checkLogInNameAvailability(QStringLiteral("a")),
              QStringLiteral("Username is not available"));
    server.answer("anything else", "text/plain");
    EXPECT_EQ(NivoProfileAdmin::checkLogInNameAvailability(QStringLiteral("a")), QString());
}

TEST_F(NivoProfileAdminTest, NamesAreLowerCasedOnlyWhereTheServerExpectsIt) {
    using Fields = QList<QPair<QString, QString>>;
    auto field = [](const char* name, const char* value) {
        return qMakePair(QString::fromLatin1(name), QString::fromUtf8(value));
    };
    server.answer("Service not available", "text/plain");

    (void)NivoProfileAdmin::downloadProfileWithLogInName(QStringLiteral("ÄLice"), QStringLiteral(" Pw "));
    EXPECT_EQ(lastFields(), (Fields{field("logInName", "älice"), field("logInPassword", " Pw ")}));
    EXPECT_EQ(server.requests().last().path, "/nivo/GetProfile.aspx");

    (void)NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(QStringLiteral("Bob"), QStringLiteral("Bob"));
    EXPECT_EQ(lastFields(), (Fields{field("logInName", "Bob"), field("logInPassword", ""),
                                    field("logInNameToRetrieve", "Bob"), field("emailToRetrieve", "")}));

    (void)NivoProfileAdmin::createProfileWithLoginName(QStringLiteral("Alice"), QStringLiteral("P"),
                                                       QStringLiteral("Al"), QStringLiteral("Ice"),
                                                       QStringLiteral("a@b.co"));
    EXPECT_EQ(lastFields(),
              (Fields{field("logInName", "alice"), field("logInPassword", "P"), field("firstName", "Al"),
                      field("lastName", "Ice"), field("email", "a@b.co"), field("mobilePhone", ""),
                      field("dateOfBirth", ""), field("gender", ""), field("country", ""),
                      field("city", ""), field("language", ""), field("recommendedBy", "")}));

    (void)NivoProfileAdmin::changePasswordWithLoginName(QStringLiteral("Alice"), QStringLiteral("o"),
                                                        QStringLiteral("n"));
    EXPECT_EQ(lastFields(), (Fields{field("logInName", "Alice"), field("oldLogInPassword", "o"),
                                    field("newLogInPassword", "n")}));

    (void)NivoProfileAdmin::checkLogInNameAvailability(QStringLiteral("Alice"));
    EXPECT_EQ(lastFields(), (Fields{field("logInName", "alice")}));
    EXPECT_EQ(server.requests().last().path, "/nivo/CheckLoginName.aspx");
}

TEST_F(NivoProfileAdminTest, MalformedProfileAnswers) {
    auto answered = [this](const QByteArray& body) {
        server.answer(body, "application/json");
        return download();
    };
    const NivoProfile noPfx = answered("{\"LogInInfo\":\"alice||A\"}");
    EXPECT_EQ(noPfx.StatusText, QString());
    EXPECT_FALSE(noPfx.StatusText.isNull());
    EXPECT_TRUE(noPfx.Pfx.isNull());
    EXPECT_TRUE(noPfx.LoginName.isNull());

    EXPECT_EQ(answered("not json at all").StatusText, QString());
    EXPECT_EQ(answered("").StatusText, QString());

    EXPECT_EQ(answered("{\"Pfx\":\"AAEC\",\"LogInInfo\":\"alice\"}").StatusText,
              QStringLiteral("Error:the answer's Pfx member is not an array"));
    EXPECT_EQ(answered("{\"Pfx\":[1,2,3]}").StatusText,
              QStringLiteral("Error:the answer carries no login name"));

    // A key file that the password does not open: the profile keeps Pfx but has no certificate.
    const NivoProfile unopened = answered("{\"Pfx\":[1,2,3],\"LogInInfo\":\"alice||A||B\"}");
    EXPECT_EQ(unopened.StatusText, QString());
    EXPECT_EQ(unopened.LoginName, QStringLiteral("alice"));
    EXPECT_EQ(unopened.Pfx, QByteArray("\x01\x02\x03"));
    EXPECT_TRUE(unopened.Cer.isNull());
    EXPECT_FALSE(unopened.isUsable());
}

TEST_F(NivoProfileAdminTest, HugeAndDeeplyNestedAnswersEndAsFailures) {
    // 8 MB: refused once the first MiB has come, not held in memory and parsed. (Much larger
    // answers only make the scripted server slow to send on a loaded machine.)
    server.answer("{\"Pfx\":[" + QByteArray("1,").repeated(4 * 1024 * 1024) + "1]}",
                  "application/json");
    NivoProfile profile = download();
    EXPECT_EQ(profile.StatusText, QStringLiteral("The server's answer is too large."));
    EXPECT_TRUE(profile.Pfx.isEmpty());
    EXPECT_EQ(lookUp().StatusText, QStringLiteral("The server's answer is too large."));

    // Nested 100,000 deep, well under the size cap: the codec gives up on depth, the answer
    // counts as one without a key file.
    constexpr int kDepth = 100'000;
    const QByteArray deepArray = QByteArray(kDepth, '[') + QByteArray(kDepth, ']');
    const QByteArray deepObject = QByteArray("{\"a\":").repeated(kDepth) + "1" + QByteArray(kDepth, '}');
    for (const QByteArray& deep :
         {"{\"Pfx\":" + deepArray + ",\"LogInInfo\":\"alice\"}", deepObject}) {
        server.answer(deep, "application/json");
        profile = download();
        EXPECT_EQ(profile.StatusText, QString());
        EXPECT_FALSE(profile.isUsable());
        const NivoProfile id = lookUp();
        EXPECT_EQ(id.StatusText, QString());
        EXPECT_TRUE(id.Cer.isEmpty());
    }
}

TEST_F(NivoProfileAdminTest, IdAnswerWithUnexpectedTypesEscapesToTheCaller) {
    server.answer("{\"Pfx\":[48,\"x\"]}");
    EXPECT_THROW((void)lookUp(), std::invalid_argument);
    server.answer("{\"Other\":1}");
    const NivoProfile none = lookUp();
    EXPECT_EQ(none.StatusText, QString());
    EXPECT_TRUE(none.Cer.isEmpty());
}

// A JSON array of the bytes, as the server sends key files and certificates.
QString byteArrayJson(const QByteArray& bytes) {
    QStringList numbers;
    for (const char byte : bytes) {
        numbers.append(QString::number(static_cast<unsigned char>(byte)));
    }
    return u'[' + numbers.join(u',') + u']';
}

TEST(NivoProfileAdminAnswerTest, AnswerBodiesAreReadWithoutAServer) {
    TestPki pki;
    const TestPki::Identity alice = pki.createUser(QStringLiteral("alice"));
    const QString answer = QStringLiteral("{\"Pfx\":%1,\"LogInInfo\":\"alice||Al||Ice||a@b.co\"}")
                               .arg(byteArrayJson(alice.pfx));

    const NivoProfile profile =
        NivoProfileAdmin::profileFromAnswer(answer, QStringLiteral("ALICE"), TestPki::kPassword);
    EXPECT_TRUE(profile.isUsable());
    EXPECT_EQ(profile.LoginName, QStringLiteral("alice"));
    EXPECT_EQ(profile.Pfx, alice.pfx);
    EXPECT_EQ(profile.Cer, alice.certDer);
    EXPECT_TRUE(NivoProfileAdmin::profileFromAnswer(answer, QStringLiteral("alice"),
                                                    QStringLiteral("not it"))
                    .Cer.isNull());

    const NivoProfile id = NivoProfileAdmin::nivoIdFromAnswer(
        QStringLiteral("{\"Pfx\":%1}").arg(byteArrayJson(alice.certDer)));
    EXPECT_EQ(id.Cer, alice.certDer);
    EXPECT_EQ(id.StatusText, QString());
    EXPECT_EQ(
        NivoProfileAdmin::nivoIdFromAnswer(QStringLiteral("alice is not registered")).StatusText,
        QStringLiteral("Invalid NIVO ID name"));
}

TEST_F(NivoProfileAdminTest, TransportFailuresAreTheLayersTexts) {
    server.hang();
    EXPECT_EQ(download().StatusText, QStringLiteral("The request timed out"));

    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    AccountServer::setBaseUrl(QStringLiteral("https://127.0.0.1:%1").arg(probe.serverPort()));
    probe.close();
    EXPECT_EQ(download().StatusText, QStringLiteral("A connection failure occurred"));
    EXPECT_EQ(NivoProfileAdmin::checkLogInNameAvailability(QStringLiteral("a")),
              QStringLiteral("A connection failure occurred"));

    // A server nobody vouches for is named, and counts as out of reach.
    QTemporaryDir dir;
    QProcess openssl;
    openssl.setWorkingDirectory(dir.path());
    openssl.start(QStringLiteral("openssl"),
                  QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes "
                                 "-keyout key.pem -out cert.pem -days 2 -subj /CN=localhost "
                                 "-addext subjectAltName=IP:127.0.0.1")
                      .split(u' '));
    ASSERT_TRUE(openssl.waitForFinished(30000));
    ASSERT_EQ(openssl.exitCode(), 0);
    ScriptedHttpsServer untrusted(dir.filePath(QStringLiteral("cert.pem")),
                                  dir.filePath(QStringLiteral("key.pem")));
    untrusted.answer("{}");
    AccountServer::setBaseUrl(untrusted.baseUrl());
    const QString status = download().StatusText;
    EXPECT_EQ(status, QStringLiteral("The account server's certificate is not trusted (127.0.0.1)"));
    EXPECT_TRUE(NivoProfileAdmin::isUnreachable(status));
    EXPECT_TRUE(untrusted.requests().isEmpty());
}

TEST_F(NivoProfileAdminTest, AnErrorStatusWithoutAMarkerNamesTheStatus) {
    const QString badGateway = QStringLiteral("The account server answered 502 Bad Gateway.");
    server.answer("<html><h1>502 Bad Gateway</h1></html>", "text/html", 502);
    EXPECT_EQ(download().StatusText, badGateway);
    EXPECT_EQ(lookUp().StatusText, badGateway);
    EXPECT_EQ(NivoProfileAdmin::createProfileWithLoginName(
                  QStringLiteral("a"), QStringLiteral("p"), {}, {}, {}),
              badGateway);  // no longer an account created
    server.answer({}, {}, 404);
    EXPECT_EQ(NivoProfileAdmin::checkLogInNameAvailability(QStringLiteral("a")),
              QStringLiteral("The account server answered 404 Not Found."));
    // The server's own refusals still read as such, whatever their status.
    server.answer("Service not available", "text/plain", 500);
    EXPECT_EQ(download().StatusText, QStringLiteral("Server unable to process request"));
}

}  // namespace
