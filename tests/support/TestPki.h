#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include "model/NivoProfile.h"

// A throw-away PKI made at test time with the real `openssl` command: a root CA and any number of
// users (RSA or EC), each with PEM key and certificate files, DER certificate and PKCS#12 bytes.
// Everything lives in a temporary directory that disappears with the object. Serial numbers
// increase in creation order, so a later user sorts after an earlier one in DER sets.
class TestPki {
public:
    enum class KeyType { Rsa, Ec };

    struct Identity {
        QString commonName;
        QString keyPath;   // PEM private key, unencrypted
        QString certPath;  // PEM certificate
        QByteArray certDer;
        QByteArray pfx;    // key and certificate under kPassword
    };

    static const QString kPassword;

    TestPki();
    // A PKI whose root is an existing CA (PEM certificate or DER, PEM key).
    TestPki(const QString& caCertPath, const QString& caKeyPath);

    // The PKI of the development service root that test builds trust (certs/dev): its users'
    // certificates verify as the account service's own. Made once per process.
    [[nodiscard]] static TestPki& devService();
    // The DER certificate (EC key) of `commonName` from devService(); `copy` tells apart
    // several certificates for one name (a re-issued key). Made once per name and copy.
    [[nodiscard]] static QByteArray serviceCertificate(const QString& commonName, int copy = 0);

    [[nodiscard]] const Identity& ca() const noexcept { return m_ca; }

    // A user certified by `issuer` (the root CA when null).
    [[nodiscard]] Identity createUser(const QString& commonName, KeyType keyType = KeyType::Rsa,
                                      const Identity* issuer = nullptr);
    // A user certified by the root CA, valid from `notBefore` to `notAfter` (UTC,
    // "YYYYMMDDHHMMSSZ"), with the given key usage.
    [[nodiscard]] Identity createUserValid(const QString& commonName, const QString& notBefore,
                                           const QString& notAfter,
                                           const QString& keyUsage = QStringLiteral(
                                               "digitalSignature,keyEncipherment"));
    // An intermediate CA certified by the root CA.
    [[nodiscard]] Identity createIntermediateCa(const QString& commonName);
    // A self-signed certificate that chains to nothing here.
    [[nodiscard]] Identity createSelfSigned(const QString& commonName);

    // PKCS#12 of the identity's key and certificate; `legacy` uses the RC2/3DES protection of
    // older exports.
    [[nodiscard]] QByteArray exportPfx(const Identity& identity, const QString& password,
                                       bool legacy = false) const;
    // A signed-in profile of the identity, PFX under kPassword.
    [[nodiscard]] static NivoProfile profileFor(const Identity& identity, const QString& loginName);

    // Runs `openssl` with `arguments`, feeding `input`; returns standard output. A non-zero exit
    // records a test failure unless `exitCode` is given, which then receives it.
    QByteArray openssl(const QStringList& arguments, const QByteArray& input = {},
                       int* exitCode = nullptr) const;

    // `openssl cms -sign -nodetach` of `content` by the signers, in the order given, as DER.
    [[nodiscard]] QByteArray sign(const QByteArray& content, const QList<const Identity*>& signers,
                                  const QStringList& extraArguments = {}) const;
    // `openssl cms -encrypt` of `content` for the recipients, as DER.
    [[nodiscard]] QByteArray encrypt(const QByteArray& content,
                                     const QList<const Identity*>& recipients,
                                     const QStringList& extraArguments = {}) const;

    // Writes `bytes` to a file in the PKI directory and returns its path.
    QString writeFile(const QString& name, const QByteArray& bytes) const;
    [[nodiscard]] QString path(const QString& name) const;

private:
    // A new key for `identity` (named by `stem`) and a certificate request for it; its path.
    QString newRequest(const QString& stem, const QString& commonName, KeyType keyType,
                       Identity& identity);
    Identity issue(const QString& commonName, KeyType keyType, const Identity* issuer,
                   const QString& extensions);
    [[nodiscard]] QStringList newKeyArguments(KeyType keyType) const;

    QTemporaryDir m_dir;
    QString m_config;
    int m_nextSerial = 0x1001;
    int m_nextName = 0;
    Identity m_ca;
};
