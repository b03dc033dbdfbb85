#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <optional>
#include <variant>

#include "crypto/toolkit/TVXException.h"
#include "crypto/toolkit/TVXX509Certificate.h"

// A failure the parser found in the message itself (as opposed to a TVXException raised by a
// callback or a stream).
class TVXError {
public:
    explicit TVXError(QString description) : m_description(std::move(description)) {}
    [[nodiscard]] const QString& description() const noexcept { return m_description; }

private:
    QString m_description;
};

using TVXErrorOrException = std::variant<TVXError, TVXException>;

// What parsing a message found: the first failure if any, whether every signature checked out,
// and the certificates of the signers, in the order of their signatures.
class TVXCmsParseResult {
public:
    [[nodiscard]] bool errorOrExceptionOccurred() const noexcept { return m_failure.has_value(); }
    // Only meaningful when errorOrExceptionOccurred().
    [[nodiscard]] const TVXErrorOrException& firstErrorOrException() const { return *m_failure; }
    // False when any signature failed, and when the message held no signed layer at all.
    [[nodiscard]] bool allSignatureValid() const noexcept {
        return m_signedLayers > 0 && m_signatureFailures == 0;
    }
    [[nodiscard]] const QList<TVXX509Certificate>& getAllSignerCert() const noexcept {
        return m_signerCertificates;
    }
    // The signed signing time of each certificate's signature, in the same order; null where the
    // signature carries none.
    [[nodiscard]] const QList<QDateTime>& getSigningTimes() const noexcept {
        return m_signingTimes;
    }

    // For the parser.
    void recordFailure(TVXErrorOrException failure) {
        if (!m_failure) {
            m_failure = std::move(failure);
        }
    }
    void recordSignedLayer(bool valid) noexcept {
        ++m_signedLayers;
        m_signatureFailures += valid ? 0 : 1;
    }
    void addSignerCertificate(TVXX509Certificate certificate, QDateTime signingTime) {
        m_signerCertificates.append(std::move(certificate));
        m_signingTimes.append(std::move(signingTime));
    }

private:
    std::optional<TVXErrorOrException> m_failure;
    int m_signedLayers = 0;
    int m_signatureFailures = 0;
    QList<TVXX509Certificate> m_signerCertificates;
    QList<QDateTime> m_signingTimes;
};
