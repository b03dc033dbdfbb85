#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <optional>

#include "crypto/SenderVerdict.h"

class TVXX509Certificate;

// The one place that decides whether the account service stands behind a person's certificate:
// for the signer of an opened file, and for a certificate about to be stored as a contact's key.
// The service root is handed in, so the rules are the same whatever root a build trusts.
class CertificateTrust {
public:
    CertificateTrust() = delete;

    // Verified when `certificate` chains to `serviceRoot`, was valid at `signedAt` (now when that
    // is null or in the future) and may sign (key usage, where present); else the first fault.
    [[nodiscard]] static SenderVerdict::Trust judgeSigner(const TVXX509Certificate& certificate,
                                                          const QDateTime& signedAt,
                                                          const QByteArray& serviceRoot);

    // "" when `certificateDer` may be stored as the key of contact `nivoId`: it chains to
    // `serviceRoot`, is valid now and its common name is the NIVO ID (any letter case). Else a
    // short reason, e.g. "self-signed certificate".
    [[nodiscard]] static QString contactCertificateProblem(const QByteArray& certificateDer,
                                                           const QString& nivoId,
                                                           const QByteArray& serviceRoot);

    // What a person can compare out of band.
    struct Details {
        QString subject;
        QString issuer;
        QDateTime notBefore;
        QDateTime notAfter;
        QString sha256;  // upper-case hex pairs joined by ':'
    };
    // None when the bytes are not a certificate.
    [[nodiscard]] static std::optional<Details> describe(const QByteArray& certificateDer);
    // The SHA-256 fingerprint of any bytes (a certificate's DER), as in Details.
    [[nodiscard]] static QString fingerprint(const QByteArray& der);
};
