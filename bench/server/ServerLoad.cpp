// Steady load on the account server: a user is created, then GetId requests for that user arrive
// at a fixed rate (open loop: a slow answer does not delay the next request) for a fixed time.
// Prints requests, errors and latency percentiles, measured from each request's due time so
// that queueing in the client counts too.
//
// With --signin-clients N, N more clients sign in over and over with the right password (each
// waits for its answer before the next) while the GetId requests run; the sign-ins per second
// are printed too.
//
// With --getid-clients N the fixed rate gives way to N clients asking GetId as fast as they are
// answered: the throughput, in GetId/s (and GetProfile/s of the sign-in clients).
//
// Run: bench/server-load [--rate N] [--seconds N] [--signin-clients N] [--getid-clients N]
//                        [--server URL | --database URL] [--processes N]
// Without --server it starts build/src/server/nivogx-server --dev on 127.0.0.1, on an SQLite
// database in a scratch folder or the --database given, N processes sharing one port.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QRegularExpression>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>
#include <QUrlQuery>
#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kDrainMs = 10'000;
const QString kUser = u"loadtest"_s;
const QString kPassword = u"load test 1"_s;

QTextStream& out() {
    static QTextStream stream(stdout);
    return stream;
}

int fail(const QString& message) {
    QTextStream(stderr) << "server-load: " << message << Qt::endl;
    return 1;
}

QNetworkRequest formRequest(const QUrl& url) {
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      u"application/x-www-form-urlencoded; charset=utf-8"_s);
    // Loopback against the development certificate: trust is not what is measured here.
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setPeerVerifyMode(QSslSocket::VerifyNone);
    request.setSslConfiguration(tls);
    request.setTransferTimeout(kDrainMs);
    return request;
}

QByteArray form(const QList<std::pair<QString, QString>>& fields) {
    QUrlQuery query;
    for (const auto& [name, value] : fields) {
        query.addQueryItem(name, QString::fromLatin1(QUrl::toPercentEncoding(value)));
    }
    return query.toString(QUrl::FullyEncoded).toUtf8();
}

// The body of one blocking POST; empty on a transport error.
QByteArray post(QNetworkAccessManager& manager, const QUrl& url, const QByteArray& body) {
    QNetworkReply* reply = manager.post(formRequest(url), body);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const QByteArray answer = reply->error() == QNetworkReply::NoError ? reply->readAll() : "";
    reply->deleteLater();
    return answer;
}

double percentile(std::vector<double>& sorted, double p) {
    if (sorted.empty()) {
        return 0;
    }
    const auto at = static_cast<std::size_t>(p * static_cast<double>(sorted.size() - 1) + 0.5);
    return sorted[std::min(at, sorted.size() - 1)];
}

}  // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"GetId requests at a fixed rate against the account server."_s);
    parser.addHelpOption();
    const QCommandLineOption rateOption(u"rate"_s, u"Requests per second."_s, u"n"_s, u"200"_s);
    const QCommandLineOption secondsOption(u"seconds"_s, u"How long to send."_s, u"n"_s, u"30"_s);
    const QCommandLineOption serverOption(u"server"_s, u"A running server's base URL."_s, u"url"_s);
    const QCommandLineOption signInOption(u"signin-clients"_s,
                                          u"Clients signing in meanwhile, one request at a time."_s,
                                          u"n"_s, u"0"_s);
    const QCommandLineOption getIdOption(
        u"getid-clients"_s,
        u"Instead of the fixed rate: N clients asking GetId as fast as answered (throughput)."_s,
        u"n"_s, u"0"_s);
    const QCommandLineOption databaseOption(
        u"database"_s,
        u"Account database of the servers started (default: SQLite in a scratch folder)."_s,
        u"url"_s);
    const QCommandLineOption processesOption(
        u"processes"_s, u"Server processes to start, sharing one port (--reuse-port)."_s, u"n"_s,
        u"1"_s);
    parser.addOptions({rateOption, secondsOption, serverOption, signInOption, getIdOption,
                       databaseOption, processesOption});
    parser.process(app);
    const int rate = parser.value(rateOption).toInt();
    const int seconds = parser.value(secondsOption).toInt();
    const int signInClients = parser.value(signInOption).toInt();
    const int getIdClients = parser.value(getIdOption).toInt();
    const int processes = parser.value(processesOption).toInt();
    if (rate <= 0 || seconds <= 0 || signInClients < 0 || signInClients > 200 || getIdClients < 0 ||
        getIdClients > 200 || processes < 1 || processes > 16) {
        return fail(
            u"--rate and --seconds want positive numbers, --signin-clients and "
            "--getid-clients 0 to 200, --processes 1 to 16"_s);
    }

    QTemporaryDir scratch;
    std::vector<std::unique_ptr<QProcess>> servers;
    QString base = parser.value(serverOption);
    const QString database = parser.value(databaseOption).isEmpty()
                                 ? u"sqlite:"_s + scratch.path() + u"/accounts.db"_s
                                 : parser.value(databaseOption);
    for (int i = 0; base.isEmpty() || (i > 0 && i < processes); ++i) {
        // The first picks a port, the others share it.
        const QString listen = i == 0 ? u"127.0.0.1:0"_s : u"127.0.0.1:%1"_s.arg(QUrl(base).port());
        auto& server = *servers.emplace_back(std::make_unique<QProcess>());
        server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        server.start(
            QStringLiteral(NIVOGX_SERVER_PATH),
            {u"--dev"_s, u"--listen"_s, listen, u"--database"_s, database, u"--reuse-port"_s,
             processes > 1 ? u"true"_s : u"false"_s, u"--log-requests"_s, u"false"_s});
        if (!server.waitForReadyRead(30'000)) {
            return fail(u"the server did not start"_s);
        }
        const auto match = QRegularExpression(u"(https://\\S+)"_s)
                               .match(QString::fromUtf8(server.readAllStandardOutput()));
        if (!match.hasMatch()) {
            return fail(u"the server did not say where it listens"_s);
        }
        base = match.captured(1);
    }

    QNetworkAccessManager manager;
    const QByteArray created = post(manager, QUrl(base + u"/nivo/CreateProfile.aspx"_s),
                                    form({{u"logInName"_s, kUser},
                                          {u"logInPassword"_s, kPassword},
                                          {u"firstName"_s, u"Load"_s},
                                          {u"lastName"_s, u"Test"_s},
                                          {u"email"_s, u"load@example.org"_s}}));
    if (created.isEmpty()) {
        return fail(u"cannot reach %1"_s.arg(base));
    }
    const QUrl getId(base + u"/nivo/GetId.aspx"_s);
    const QByteArray getIdBody = form({{u"logInName"_s, kUser},
                                       {u"logInPassword"_s, QString()},
                                       {u"logInNameToRetrieve"_s, kUser},
                                       {u"emailToRetrieve"_s, QString()}});
    if (!post(manager, getId, getIdBody).startsWith("{\"Pfx\":[")) {
        return fail(u"GetId does not answer with a certificate"_s);
    }

    // The sign-in clients: each its own connection manager, so that they run side by side.
    const QUrl getProfile(base + u"/nivo/GetProfile.aspx"_s);
    const QByteArray getProfileBody =
        form({{u"logInName"_s, kUser}, {u"logInPassword"_s, kPassword}});
    std::vector<std::unique_ptr<QNetworkAccessManager>> signInManagers;
    qint64 signIns = 0;
    qint64 signInErrors = 0;
    bool stopSignIns = false;
    std::function<void(QNetworkAccessManager*)> signIn = [&](QNetworkAccessManager* client) {
        QNetworkReply* reply = client->post(formRequest(getProfile), getProfileBody);
        QObject::connect(reply, &QNetworkReply::finished, client, [&, client, reply] {
            const bool ok =
                reply->error() == QNetworkReply::NoError && reply->readAll().contains("\"Pfx\":[");
            ok ? ++signIns : ++signInErrors;
            reply->deleteLater();
            if (!stopSignIns) {
                signIn(client);
            }
        });
    };
    QElapsedTimer signInClock;
    signInClock.start();
    for (int i = 0; i < signInClients; ++i) {
        signInManagers.push_back(std::make_unique<QNetworkAccessManager>());
        signIn(signInManagers.back().get());
    }

    if (getIdClients > 0) {
        // Throughput: each client asks again as soon as it has its answer, for `seconds`.
        std::vector<std::unique_ptr<QNetworkAccessManager>> getIdManagers;
        qint64 answered = 0;
        qint64 failed = 0;
        bool stop = false;
        std::function<void(QNetworkAccessManager*)> ask = [&](QNetworkAccessManager* client) {
            QNetworkReply* reply = client->post(formRequest(getId), getIdBody);
            QObject::connect(reply, &QNetworkReply::finished, client, [&, client, reply] {
                const bool ok = reply->error() == QNetworkReply::NoError &&
                                reply->readAll().startsWith("{\"Pfx\":[");
                ok ? ++answered : ++failed;
                reply->deleteLater();
                if (!stop) {
                    ask(client);
                }
            });
        };
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < getIdClients; ++i) {
            getIdManagers.push_back(std::make_unique<QNetworkAccessManager>());
            ask(getIdManagers.back().get());
        }
        while (clock.elapsed() < qint64{seconds} * 1000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        }
        stop = true;
        stopSignIns = true;
        const double elapsed = static_cast<double>(clock.nsecsElapsed()) / 1e9;
        const qint64 done = answered;
        const qint64 signInsDone = signIns;
        out() << "servers:     " << std::max<std::size_t>(servers.size(), 1) << " on " << base
              << ", database "
              << (parser.value(databaseOption).isEmpty() ? u"sqlite"_s : database.section(u'@', -1))
              << '\n'
              << "GetId:       " << getIdClients << " clients, " << done << " in "
              << QString::number(elapsed, 'f', 1)
              << " s = " << QString::number(static_cast<double>(done) / elapsed, 'f', 0) << "/s, "
              << failed << " failed" << Qt::endl;
        if (signInClients > 0) {
            out() << "GetProfile:  " << signInClients << " clients, " << signInsDone << " = "
                  << QString::number(static_cast<double>(signInsDone) / elapsed, 'f', 1) << "/s, "
                  << signInErrors << " failed" << Qt::endl;
        }
        QElapsedTimer drain;
        drain.start();
        while (answered + failed + signIns + signInErrors <
                   done + signInsDone + getIdClients + signInClients &&
               drain.elapsed() < kDrainMs) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        }
        for (auto& server : servers) {
            server->terminate();
            server->waitForFinished(5'000);
        }
        return failed == 0 ? 0 : 1;
    }

    const qint64 total = qint64{rate} * seconds;
    qint64 sent = 0;
    qint64 finished = 0;
    qint64 errors = 0;
    std::vector<double> latenciesMs;
    latenciesMs.reserve(static_cast<std::size_t>(total));
    QElapsedTimer clock;
    QEventLoop loop;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(1);

    const auto sendDue = [&] {
        const qint64 elapsedNs = clock.nsecsElapsed();
        const qint64 due = std::min(total, elapsedNs * rate / 1'000'000'000 + 1);
        for (; sent < due; ++sent) {
            const qint64 dueNs = sent * 1'000'000'000 / rate;
            QNetworkReply* reply = manager.post(formRequest(getId), getIdBody);
            QObject::connect(reply, &QNetworkReply::finished, &loop, [&, reply, dueNs] {
                const bool ok = reply->error() == QNetworkReply::NoError &&
                                reply->readAll().startsWith("{\"Pfx\":[");
                if (ok) {
                    latenciesMs.push_back(static_cast<double>(clock.nsecsElapsed() - dueNs) / 1e6);
                } else {
                    ++errors;
                }
                reply->deleteLater();
                if (++finished == total) {
                    loop.quit();
                }
            });
        }
        if (sent == total) {
            ticker.stop();
            QTimer::singleShot(kDrainMs, &loop, &QEventLoop::quit);
        }
    };
    QObject::connect(&ticker, &QTimer::timeout, &loop, sendDue);
    clock.start();
    ticker.start();
    loop.exec();
    const double elapsed = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    stopSignIns = true;
    const double signInSeconds = static_cast<double>(signInClock.nsecsElapsed()) / 1e9;
    const qint64 signInsDone = signIns;

    std::sort(latenciesMs.begin(), latenciesMs.end());
    const qint64 unanswered = total - finished;
    out() << "target:      " << rate << " GetId/s for " << seconds << " s against " << base << '\n'
          << "requests:    " << sent << " sent, " << finished << " answered in "
          << QString::number(elapsed, 'f', 1) << " s\n"
          << "errors:      " << errors + unanswered << " (" << unanswered << " unanswered)\n"
          << "latency ms:  p50 " << QString::number(percentile(latenciesMs, 0.50), 'f', 1)
          << "  p90 " << QString::number(percentile(latenciesMs, 0.90), 'f', 1) << "  p99 "
          << QString::number(percentile(latenciesMs, 0.99), 'f', 1) << "  max "
          << QString::number(latenciesMs.empty() ? 0 : latenciesMs.back(), 'f', 1) << Qt::endl;
    if (signInClients > 0) {
        out() << "sign-ins:    " << signInClients << " clients, " << signInsDone << " in "
              << QString::number(signInSeconds, 'f', 1) << " s = "
              << QString::number(static_cast<double>(signInsDone) / signInSeconds, 'f', 1) << "/s, "
              << signInErrors << " failed" << Qt::endl;
    }
    // Let the last sign-ins come back before the managers go.
    QElapsedTimer drain;
    drain.start();
    while (signIns + signInErrors < signInsDone + signInClients && drain.elapsed() < kDrainMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }

    for (auto& server : servers) {
        server->terminate();
        if (!server->waitForFinished(5'000)) {
            server->kill();
            server->waitForFinished();
        }
    }
    return errors + unanswered == 0 ? 0 : 1;
}
