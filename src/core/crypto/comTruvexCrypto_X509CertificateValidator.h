#pragma once

#include <QList>

#include "crypto/TVXX509Certificate.h"

class TVXCryptoProvider;

// Checks that a certificate chains to one of the given roots, through the given intermediates,
// and is valid now.
class comTruvexCrypto_X509CertificateValidator {
public:
    [[nodiscard]] static comTruvexCrypto_X509CertificateValidator validatorCryptoProvider(
        TVXCryptoProvider& provider, QList<TVXX509Certificate> rootCaCerts,
        QList<TVXX509Certificate> intermediateCaCerts);

    // Throws a TVXException only when the check cannot be run at all.
    [[nodiscard]] bool validateX509Certificate(const TVXX509Certificate& certificate) const;

private:
    comTruvexCrypto_X509CertificateValidator(QList<TVXX509Certificate> roots,
                                             QList<TVXX509Certificate> intermediates)
        : m_roots(std::move(roots)), m_intermediates(std::move(intermediates)) {}

    QList<TVXX509Certificate> m_roots;
    QList<TVXX509Certificate> m_intermediates;
};
