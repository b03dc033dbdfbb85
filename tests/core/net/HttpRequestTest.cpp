// The form request against a scripted HTTPS server on 127.0.0.1: what goes out, how answers are
// decoded, and which failures get which description.
#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QTcpServer>
#include <QTemporaryDir>

#include "ScriptedHttpsServer.h"
#include "TestFiles.h"
#include "net/HttpRequest.h"

namespace {

QList<QSslCertificate> devCommCas() {
    QList<QSslCertificate> cas;
    for (const char* name : {"comm-root.cer", "comm-intermediate.cer"}) {
        cas.append(QSslCertificate(
            fileBytes(QStringLiteral(NIVOGX_SOURCE_DIR "/certs/dev/") + QString::fromLatin1(name)),
            QSsl::Der));
    }
    return cas;
}

class HttpRequestTest : public ::testing::Test {
protected:
    HttpRequest::Result post(const HttpRequest::Fields& fields, int timeoutMs = 5000) {
        return HttpRequest::postForm(QUrl(server.baseUrl() + QStringLiteral("/nivo/GetId.aspx")),
                                     fields, {devCommCas(), timeoutMs});
    }

    ScriptedHttpsServer server;
};

TEST_F(HttpRequestTest, SendsFieldsInOrderUtf8EncodedWithEmptyOnesIncluded) {
    server.answer("ok", "text/plain");
    const auto result = post({{QStringLiteral("logInName"), QStringLiteral("Zoë & co=1+1")},
                              {QStringLiteral("logInPassword"), QString()},
                              {QStringLiteral("logInNameToRetrieve"), QStringLiteral("bob")}});
    ASSERT_FALSE(result.failed()) << result.error.toStdString();
    EXPECT_EQ(result.body, QStringLiteral("ok"));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].path, "/nivo/GetId.aspx");
    EXPECT_EQ(requests[0].headers.value("content-type"),
              "application/x-www-form-urlencoded; charset=utf-8");
    EXPECT_EQ(requests[0].body,
              "logInName=Zo%C3%AB%20%26%20co%3D1%2B1&logInPassword=&logInNameToRetrieve=bob");
}

TEST_F(HttpRequestTest, BodyIsDecodedWithTheAnswersCharsetElseLatin1) {
    const QByteArray utf8 = QStringLiteral("naïve ✓").toUtf8();
    server.answer(utf8, "text/plain; charset=UTF-8");
    EXPECT_EQ(post({}).body, QStringLiteral("naïve ✓"));

    server.answer(utf8, "text/plain");
    EXPECT_EQ(post({}).body, QString::fromLatin1(utf8)) << "no charset named: ISO 8859-1";

    server.answer("caf\xe9", "text/plain; charset=\"iso-8859-1\"");
    EXPECT_EQ(post({}).body, QStringLiteral("café"));

    server.answer("caf\xe9", "text/plain; charset=utf-8");
    const auto invalid = post({});
    EXPECT_FALSE(invalid.failed());
    EXPECT_TRUE(invalid.body.isNull()) << "bytes that do not decode give no answer text";

    server.answer("", "text/plain");
    const auto empty = post({});
    EXPECT_FALSE(empty.body.isNull());
    EXPECT_TRUE(empty.body.isEmpty());
}

TEST_F(HttpRequestTest, HttpErrorStatusStillDeliversTheBody) {
    for (int status : {404, 500, 503}) {
        server.answer("Service not available", "text/plain", status);
        const auto result = post({});
        EXPECT_FALSE(result.failed()) << status;
        EXPECT_FALSE(result.statusOk()) << status;
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.body, QStringLiteral("Service not available")) << status;
    }
}

TEST_F(HttpRequestTest, SilentServerTimesOut) {
    server.hang();
    const auto result = post({}, 700);
    EXPECT_EQ(result.error, QStringLiteral("The request timed out"));
}

TEST_F(HttpRequestTest, OversizedAnswerIsRefused) {
    server.answer(QByteArray(HttpRequest::kMaxAnswerBytes + 1, 'x'), "text/plain");
    EXPECT_EQ(post({}).error, HttpRequest::kAnswerTooLarge);
    server.answer(QByteArray(HttpRequest::kMaxAnswerBytes, 'x'), "text/plain");
    EXPECT_EQ(post({}).body.size(), HttpRequest::kMaxAnswerBytes);
}

TEST(HttpRequestFailureTest, UnreachableServerIsAConnectionFailure) {
    // A port that was free a moment ago: nothing listens there now.
    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    const quint16 port = probe.serverPort();
    probe.close();
    const auto result = HttpRequest::postForm(
        QUrl(QStringLiteral("https://127.0.0.1:%1/nivo/GetId.aspx").arg(port)), {},
        {devCommCas(), 5000});
    EXPECT_EQ(result.error, QStringLiteral("A connection failure occurred"));
}

TEST(HttpRequestTrustTest, ServerCertifiedByACaOfTheSystemStoreIsTrusted) {
    // A CA that only this test's system store knows (OpenSSL's SSL_CERT_FILE), beside the
    // compiled-in ones; the machine's real store is not touched.
    QTemporaryDir dir;
    const auto run = [&dir](const QStringList& arguments) {
        QProcess openssl;
        openssl.setWorkingDirectory(dir.path());
        openssl.start(QStringLiteral("openssl"), arguments);
        EXPECT_TRUE(openssl.waitForFinished(30000));
        EXPECT_EQ(openssl.exitCode(), 0) << openssl.readAllStandardError().toStdString();
    };
    run({QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
         QStringLiteral("ec"), QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:P-256"),
         QStringLiteral("-nodes"), QStringLiteral("-keyout"), QStringLiteral("ca.key"),
         QStringLiteral("-out"), QStringLiteral("ca.pem"), QStringLiteral("-days"),
         QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=Public Test CA")});
    run({QStringLiteral("req"), QStringLiteral("-new"), QStringLiteral("-newkey"),
         QStringLiteral("ec"), QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:P-256"),
         QStringLiteral("-nodes"), QStringLiteral("-keyout"), QStringLiteral("server.key"),
         QStringLiteral("-out"), QStringLiteral("server.csr"), QStringLiteral("-subj"),
         QStringLiteral("/CN=127.0.0.1")});
    QFile extensions(dir.filePath(QStringLiteral("san.cnf")));
    ASSERT_TRUE(extensions.open(QIODevice::WriteOnly));
    extensions.write("subjectAltName=IP:127.0.0.1\n");
    extensions.close();
    run({QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"),
         QStringLiteral("server.csr"), QStringLiteral("-CA"), QStringLiteral("ca.pem"),
         QStringLiteral("-CAkey"), QStringLiteral("ca.key"), QStringLiteral("-set_serial"),
         QStringLiteral("2"), QStringLiteral("-days"), QStringLiteral("2"),
         QStringLiteral("-extfile"), QStringLiteral("san.cnf"), QStringLiteral("-out"),
         QStringLiteral("server.pem")});

    ScriptedHttpsServer publicServer(dir.filePath(QStringLiteral("server.pem")),
                                     dir.filePath(QStringLiteral("server.key")));
    ASSERT_NE(publicServer.port(), 0);
    publicServer.answer("trusted");
    const QUrl url(publicServer.baseUrl() + QStringLiteral("/nivo/GetId.aspx"));
    // Without the CA in the store the server is refused, with it accepted, and the compiled-in
    // CAs are still trusted beside the store.
    qputenv("SSL_CERT_FILE", dir.filePath(QStringLiteral("server.csr")).toLocal8Bit());
    EXPECT_TRUE(HttpRequest::postForm(url, {}, {devCommCas(), 5000}).tlsFailed());
    qputenv("SSL_CERT_FILE", dir.filePath(QStringLiteral("ca.pem")).toLocal8Bit());
    EXPECT_EQ(HttpRequest::postForm(url, {}, {devCommCas(), 5000}).body, QStringLiteral("trusted"));
    ScriptedHttpsServer devServer;
    devServer.answer("dev");
    EXPECT_EQ(HttpRequest::postForm(QUrl(devServer.baseUrl() + QStringLiteral("/nivo/GetId.aspx")),
                                    {}, {devCommCas(), 5000})
                  .body,
              QStringLiteral("dev"));
    qunsetenv("SSL_CERT_FILE");
}

TEST(HttpRequestFailureTest, UntrustedCertificateIsAnUnreachableServer) {
    // A server whose certificate no trusted CA issued: TLS must refuse it.
    QTemporaryDir dir;
    const QString key = dir.filePath(QStringLiteral("key.pem"));
    const QString cert = dir.filePath(QStringLiteral("cert.pem"));
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                   QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                   QStringLiteral("ec_paramgen_curve:P-256"), QStringLiteral("-nodes"),
                   QStringLiteral("-keyout"), key, QStringLiteral("-out"), cert,
                   QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                   QStringLiteral("/CN=localhost"), QStringLiteral("-addext"),
                   QStringLiteral("subjectAltName=IP:127.0.0.1")});
    ASSERT_TRUE(openssl.waitForFinished(30000));
    ASSERT_EQ(openssl.exitCode(), 0) << openssl.readAllStandardError().toStdString();

    ScriptedHttpsServer impostor(cert, key);
    ASSERT_NE(impostor.port(), 0);
    impostor.answer("{\"Pfx\":[1,2,3]}");
    const auto result = HttpRequest::postForm(
        QUrl(impostor.baseUrl() + QStringLiteral("/nivo/GetId.aspx")), {}, {devCommCas(), 5000});
    EXPECT_TRUE(result.tlsFailed()) << result.error.toStdString();
    EXPECT_TRUE(result.unreachable);
    EXPECT_TRUE(result.body.isEmpty());
}

}  // namespace
