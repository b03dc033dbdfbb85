#pragma once

#include <QDateTime>
#include <QList>

#include "crypto/toolkit/TVXX509Certificate.h"

class TVXCryptoProvider;

// Checks that a certificate chains to one of the given roots, through the given intermediates,
// and is valid at a given time (now, unless told otherwise).
class comTruvexCrypto_X509CertificateValidator {
public:
    // What keeps a certificate from checking out; the first fault found.
    enum class Fault { None, SelfSigned, OtherAuthority, Expired, NotYetValid };

    [[nodiscard]] static comTruvexCrypto_X509CertificateValidator validatorCryptoProvider(
        TVXCryptoProvider& provider, QList<TVXX509Certificate> rootCaCerts,
        QList<TVXX509Certificate> intermediateCaCerts);

    // Throws a TVXException only when the check cannot be run at all.
    [[nodiscard]] bool validateX509Certificate(const TVXX509Certificate& certificate) const;
    // The same check, telling why a certificate fails. Given a time `at`, the certificate's own
    // validity is judged at that time and its authorities' is not looked at; without one,
    // everything must be valid now.
    [[nodiscard]] Fault check(const TVXX509Certificate& certificate,
                              const QDateTime& at = {}) const;

private:
    comTruvexCrypto_X509CertificateValidator(QList<TVXX509Certificate> roots,
                                             QList<TVXX509Certificate> intermediates)
        : m_roots(std::move(roots)), m_intermediates(std::move(intermediates)) {}

    QList<TVXX509Certificate> m_roots;
    QList<TVXX509Certificate> m_intermediates;
};
