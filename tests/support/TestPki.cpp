#include "TestPki.h"

#include <gtest/gtest.h>

#include <QHash>
#include <QProcess>

#include "TestFiles.h"

using namespace Qt::Literals::StringLiterals;

const QString TestPki::kPassword = u"Secret pfx pass 1"_s;

namespace {

const QByteArray kConfig = R"(
[req]
distinguished_name = dn
prompt = no
[dn]
[v3_ca]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[v3_user]
basicConstraints = CA:FALSE
keyUsage = digitalSignature,keyEncipherment,keyAgreement
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
)";

}  // namespace

TestPki::TestPki() {
    m_config = writeFile(u"openssl.cnf"_s, kConfig);
    m_ca.commonName = u"NIVO-GX Test Root CA"_s;
    m_ca.keyPath = path(u"ca.key"_s);
    m_ca.certPath = path(u"ca.pem"_s);
    QStringList arguments{u"req"_s, u"-x509"_s, u"-utf8"_s, u"-config"_s, m_config, u"-extensions"_s,
                          u"v3_ca"_s, u"-nodes"_s, u"-keyout"_s, m_ca.keyPath, u"-out"_s,
                          m_ca.certPath, u"-subj"_s, u"/CN="_s + m_ca.commonName, u"-days"_s,
                          u"30"_s, u"-set_serial"_s, u"1"_s};
    arguments += newKeyArguments(KeyType::Rsa);
    openssl(arguments);
    m_ca.certDer = openssl({u"x509"_s, u"-in"_s, m_ca.certPath, u"-outform"_s, u"DER"_s});
}

TestPki::TestPki(const QString& caCertPath, const QString& caKeyPath) {
    m_config = writeFile(u"openssl.cnf"_s, kConfig);
    m_ca.keyPath = caKeyPath;
    m_ca.certPath = path(u"ca.pem"_s);
    const QString format = caCertPath.endsWith(u".pem"_s) ? u"PEM"_s : u"DER"_s;
    openssl({u"x509"_s, u"-inform"_s, format, u"-in"_s, caCertPath, u"-out"_s, m_ca.certPath});
    m_ca.certDer = openssl({u"x509"_s, u"-in"_s, m_ca.certPath, u"-outform"_s, u"DER"_s});
    m_ca.commonName = QString::fromUtf8(
        openssl({u"x509"_s, u"-in"_s, m_ca.certPath, u"-noout"_s, u"-subject"_s, u"-nameopt"_s,
                 u"multiline"_s}));
}

TestPki& TestPki::devService() {
    static TestPki pki(QStringLiteral(NIVOGX_SOURCE_DIR "/certs/dev/service-root.cer"),
                       QStringLiteral(NIVOGX_SOURCE_DIR "/certs/dev/service-root.key"));
    return pki;
}

QByteArray TestPki::serviceCertificate(const QString& commonName, int copy) {
    static QHash<QString, QByteArray> made;
    const QString key = commonName + u'\n' + QString::number(copy);
    if (!made.contains(key)) {
        made.insert(key, devService().createUser(commonName, KeyType::Ec).certDer);
    }
    return made.value(key);
}

QStringList TestPki::newKeyArguments(KeyType keyType) const {
    if (keyType == KeyType::Ec) {
        return {u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s, u"ec_paramgen_curve:P-256"_s};
    }
    return {u"-newkey"_s, u"rsa:2048"_s};
}

QString TestPki::newRequest(const QString& stem, const QString& commonName, KeyType keyType,
                            Identity& identity) {
    identity.commonName = commonName;
    identity.keyPath = path(stem + u".key"_s);
    identity.certPath = path(stem + u".pem"_s);
    const QString request = path(stem + u".csr"_s);
    QStringList arguments{u"req"_s, u"-new"_s, u"-utf8"_s, u"-config"_s, m_config, u"-nodes"_s,
                          u"-keyout"_s, identity.keyPath, u"-out"_s, request, u"-subj"_s,
                          u"/CN="_s + commonName};
    arguments += newKeyArguments(keyType);
    openssl(arguments);
    return request;
}

TestPki::Identity TestPki::issue(const QString& commonName, KeyType keyType,
                                 const Identity* issuer, const QString& extensions) {
    const QString stem = u"id%1"_s.arg(++m_nextName);
    Identity identity;
    const QString request = newRequest(stem, commonName, keyType, identity);
    const Identity& signer = issuer != nullptr ? *issuer : m_ca;
    openssl({u"x509"_s, u"-req"_s, u"-in"_s, request, u"-CA"_s, signer.certPath, u"-CAkey"_s,
             signer.keyPath, u"-set_serial"_s, QString::number(m_nextSerial++), u"-days"_s,
             u"30"_s, u"-extfile"_s, m_config, u"-extensions"_s, extensions, u"-out"_s,
             identity.certPath});
    identity.certDer =
        openssl({u"x509"_s, u"-in"_s, identity.certPath, u"-outform"_s, u"DER"_s});
    identity.pfx = exportPfx(identity, kPassword);
    return identity;
}

TestPki::Identity TestPki::createUser(const QString& commonName, KeyType keyType,
                                      const Identity* issuer) {
    return issue(commonName, keyType, issuer, u"v3_user"_s);
}

TestPki::Identity TestPki::createUserValid(const QString& commonName, const QString& notBefore,
                                           const QString& notAfter, const QString& keyUsage) {
    // `openssl x509 -req` cannot date a certificate; `openssl ca` can.
    const QString stem = u"dated%1"_s.arg(++m_nextName);
    const QString config = writeFile(
        stem + u".cnf"_s,
        u"[ca]\ndefault_ca = dated\n[dated]\ndatabase = %1.index\nserial = %1.serial\n"
        "new_certs_dir = .\ndefault_md = sha256\npolicy = any\nunique_subject = no\n"
        "[any]\ncommonName = supplied\n[ext]\nbasicConstraints = CA:FALSE\nkeyUsage = %2\n"_s
            .arg(stem, keyUsage)
            .toUtf8());
    writeFile(stem + u".index"_s, {});
    writeFile(stem + u".serial"_s, QByteArray::number(m_nextSerial++, 16));
    Identity identity;
    const QString request = newRequest(stem, commonName, KeyType::Rsa, identity);
    openssl({u"ca"_s, u"-batch"_s, u"-notext"_s, u"-config"_s, config, u"-cert"_s, m_ca.certPath,
             u"-keyfile"_s, m_ca.keyPath, u"-in"_s, request, u"-out"_s, identity.certPath,
             u"-startdate"_s, notBefore, u"-enddate"_s, notAfter, u"-extfile"_s, config,
             u"-extensions"_s, u"ext"_s});
    identity.certDer =
        openssl({u"x509"_s, u"-in"_s, identity.certPath, u"-outform"_s, u"DER"_s});
    identity.pfx = exportPfx(identity, kPassword);
    return identity;
}

TestPki::Identity TestPki::createIntermediateCa(const QString& commonName) {
    return issue(commonName, KeyType::Rsa, nullptr, u"v3_ca"_s);
}

TestPki::Identity TestPki::createSelfSigned(const QString& commonName) {
    const QString stem = u"self%1"_s.arg(++m_nextName);
    Identity identity;
    identity.commonName = commonName;
    identity.keyPath = path(stem + u".key"_s);
    identity.certPath = path(stem + u".pem"_s);
    QStringList arguments{u"req"_s, u"-x509"_s, u"-utf8"_s, u"-config"_s, m_config, u"-extensions"_s,
                          u"v3_user"_s, u"-nodes"_s, u"-keyout"_s, identity.keyPath, u"-out"_s,
                          identity.certPath, u"-subj"_s, u"/CN="_s + commonName, u"-days"_s,
                          u"30"_s};
    arguments += newKeyArguments(KeyType::Rsa);
    openssl(arguments);
    identity.certDer =
        openssl({u"x509"_s, u"-in"_s, identity.certPath, u"-outform"_s, u"DER"_s});
    identity.pfx = exportPfx(identity, kPassword);
    return identity;
}

QByteArray TestPki::exportPfx(const Identity& identity, const QString& password,
                              bool legacy) const {
    QStringList arguments{u"pkcs12"_s, u"-export"_s, u"-inkey"_s, identity.keyPath, u"-in"_s,
                          identity.certPath, u"-passout"_s, u"pass:"_s + password, u"-name"_s,
                          identity.commonName};
    if (legacy) {
        arguments << u"-legacy"_s;
    }
    return openssl(arguments);
}

NivoProfile TestPki::profileFor(const Identity& identity, const QString& loginName) {
    NivoProfile profile;
    profile.LoginName = loginName;
    profile.StatusText = u""_s;
    profile.Pfx = identity.pfx;
    profile.Cer = identity.certDer;
    return profile;
}

QByteArray TestPki::openssl(const QStringList& arguments, const QByteArray& input,
                            int* exitCode) const {
    QProcess process;
    process.setWorkingDirectory(m_dir.path());
    process.start(u"openssl"_s, arguments);
    if (!process.waitForStarted()) {
        ADD_FAILURE() << "cannot start openssl";
        return {};
    }
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(120000);
    const int code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    if (exitCode != nullptr) {
        *exitCode = code;
    } else if (code != 0) {
        ADD_FAILURE() << "openssl " << arguments.join(u' ').toStdString() << " failed: "
                      << process.readAllStandardError().toStdString();
    }
    return process.readAllStandardOutput();
}

QByteArray TestPki::sign(const QByteArray& content, const QList<const Identity*>& signers,
                         const QStringList& extraArguments) const {
    QStringList arguments{u"cms"_s,     u"-sign"_s,    u"-nodetach"_s,
                          u"-binary"_s, u"-outform"_s, u"DER"_s};
    for (const Identity* signer : signers) {
        arguments << u"-signer"_s << signer->certPath << u"-inkey"_s << signer->keyPath;
    }
    return openssl(arguments + extraArguments, content);
}

QByteArray TestPki::encrypt(const QByteArray& content, const QList<const Identity*>& recipients,
                            const QStringList& extraArguments) const {
    // Options after a recipient apply to that recipient (e.g. -keyopt), so they come first.
    QStringList arguments =
        QStringList{u"cms"_s, u"-encrypt"_s, u"-binary"_s, u"-outform"_s, u"DER"_s} +
        extraArguments;
    for (const Identity* recipient : recipients) {
        arguments << recipient->certPath;
    }
    return openssl(arguments, content);
}

QString TestPki::writeFile(const QString& name, const QByteArray& bytes) const {
    const QString filePath = path(name);
    EXPECT_TRUE(putFile(filePath, bytes)) << filePath.toStdString();
    return filePath;
}

QString TestPki::path(const QString& name) const {
    return m_dir.filePath(name);
}
