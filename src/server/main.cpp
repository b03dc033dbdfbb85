// nivogx-server: the reference account service.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QHostAddress>
#include <QTextStream>

#include "server/AccountAuthority.h"
#include "server/AccountHttpServer.h"
#include "server/AccountService.h"
#include "server/AccountStore.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QString devFile(const char* name) {
    return QStringLiteral(NIVOGX_DEV_CERTS_DIR "/") + QString::fromLatin1(name);
}

int fail(const QString& message) {
    QTextStream(stderr) << "nivogx-server: " << message << Qt::endl;
    return 1;
}

}  // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"nivogx-server"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Reference account server for NIVO-GX."_s);
    parser.addHelpOption();
    const QCommandLineOption listen(u"listen"_s, u"Address and port to listen on."_s,
                                    u"host:port"_s, u"127.0.0.1:8443"_s);
    const QCommandLineOption dataDir(u"data-dir"_s, u"Folder of the account database."_s,
                                     u"dir"_s);
    const QCommandLineOption tlsCert(u"tls-cert"_s, u"TLS certificate chain (PEM, leaf first)."_s,
                                     u"file"_s, devFile("server-tls-chain.pem"));
    const QCommandLineOption tlsKey(u"tls-key"_s, u"TLS private key (PEM)."_s, u"file"_s,
                                    devFile("server-tls.key"));
    const QCommandLineOption caCert(u"ca-cert"_s, u"CA certificate that issues user certificates."_s,
                                    u"file"_s, devFile("service-root.cer"));
    const QCommandLineOption caKey(u"ca-key"_s, u"Private key (PEM) of that CA."_s, u"file"_s,
                                   devFile("service-root.key"));
    parser.addOptions({listen, dataDir, tlsCert, tlsKey, caCert, caKey});
    parser.process(app);

    if (!parser.isSet(dataDir)) {
        return fail(u"--data-dir is required"_s);
    }
    const QString where = parser.value(listen);
    const qsizetype colon = where.lastIndexOf(u':');
    bool portOk = false;
    const int port = where.mid(colon + 1).toInt(&portOk);
    const QHostAddress address(where.left(colon).remove(u'[').remove(u']'));
    if (colon <= 0 || !portOk || port < 0 || port > 65535 || address.isNull()) {
        return fail(u"--listen wants host:port, for example 127.0.0.1:8443"_s);
    }

    if (!QDir().mkpath(parser.value(dataDir))) {
        return fail(u"cannot create the data folder %1"_s.arg(parser.value(dataDir)));
    }
    AccountStore store(QDir(parser.value(dataDir)).filePath(u"accounts.db"_s));
    if (!store.open()) {
        return fail(u"cannot open the account database in %1"_s.arg(parser.value(dataDir)));
    }
    const AccountAuthority authority(parser.value(caCert), parser.value(caKey));
    if (!authority.isValid()) {
        return fail(u"cannot load the CA certificate and key"_s);
    }
    AccountService service(store, authority);
    AccountHttpServer server(service);
    if (!server.setTls(parser.value(tlsCert), parser.value(tlsKey))) {
        return fail(u"cannot load the TLS certificate and key"_s);
    }
    const quint16 bound = server.listen(address, static_cast<quint16>(port));
    if (bound == 0) {
        return fail(u"cannot listen on %1"_s.arg(where));
    }
    QTextStream(stdout) << "nivogx-server: listening on https://" << where.left(colon) << ':'
                        << bound << Qt::endl;
    return QCoreApplication::exec();
}
