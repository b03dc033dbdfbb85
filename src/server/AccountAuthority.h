#pragma once

#include <QByteArray>
#include <QString>
#include <memory>
#include <optional>

// The account service's key material work: issuing a user's key and certificate under the
// service's root CA, packing them into a password-protected PKCS#12 file, re-protecting it
// under a new password, and the slow salted hash the service keeps of each password.
class AccountAuthority {
public:
    // Iterations of the PKCS#12 key derivation (PBKDF2-HMAC-SHA256 for the AES-256 bags, and the
    // SHA-256 MAC). The app opens the file for every file it protects or opens, so this weighs
    // brute-force cost against the app's responsiveness.
    static constexpr int kPkcs12Iterations = 100'000;
    // Iterations of the stored password hash (PBKDF2-HMAC-SHA256), checked once per request.
    static constexpr int kPasswordHashIterations = 310'000;
    static constexpr int kUserKeyBits = 3072;
    static constexpr int kCertificateValidityDays = 3 * 365;

    struct Issued {
        QByteArray pfx;          // key + certificate (+ the CA), protected by the password
        QByteArray certificate;  // the user's certificate, DER
    };

    struct PasswordHash {
        QByteArray salt;
        QByteArray hash;
        int iterations = kPasswordHashIterations;
    };

    // Loads the CA certificate (DER or PEM) and its private key (PEM). isValid() tells.
    AccountAuthority(const QString& caCertificatePath, const QString& caKeyPath);
    ~AccountAuthority();
    AccountAuthority(const AccountAuthority&) = delete;
    AccountAuthority& operator=(const AccountAuthority&) = delete;

    [[nodiscard]] bool isValid() const noexcept;
    // Smaller user keys are made in no time: for tests of many sign-ups, never in production.
    void setUserKeyBits(int bits) { m_userKeyBits = bits; }

    // A new RSA key and a certificate whose common name is the login name, packed with the
    // password. The serial number is `number` (unique per issuer) followed by 64 random bits.
    // Empty on failure.
    [[nodiscard]] std::optional<Issued> issue(const QString& loginName, const QString& password,
                                              quint64 number) const;
    // The same key and certificate under a new password. Empty when the old one does not open it.
    [[nodiscard]] static std::optional<QByteArray> reprotect(const QByteArray& pfx,
                                                             const QString& oldPassword,
                                                             const QString& newPassword);

    [[nodiscard]] static PasswordHash hashPassword(const QString& password);
    [[nodiscard]] static bool verifyPassword(const QString& password, const PasswordHash& stored);

private:
    struct Ca;
    std::unique_ptr<Ca> m_ca;
    int m_userKeyBits = kUserKeyBits;
};
