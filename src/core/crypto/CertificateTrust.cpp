#include "crypto/CertificateTrust.h"

#include <QCryptographicHash>

#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/ComTruvexIO_MemoryStream.h"
#include "crypto/toolkit/TVXCryptoProvider.h"
#include "crypto/toolkit/comTruvexCrypto_X509CertificateLoader.h"
#include "crypto/toolkit/comTruvexCrypto_X509CertificateValidator.h"

using namespace Qt::Literals::StringLiterals;
using Trust = SenderVerdict::Trust;
using Validator = comTruvexCrypto_X509CertificateValidator;

namespace {

const QString kUnreadable = u"unreadable certificate"_s;
const QString kExpired = u"certificate expired"_s;
const QString kNotYetValid = u"certificate not yet valid"_s;
const QString kMadeOutTo = u"certificate made out to \"%1\""_s;

std::optional<TVXX509Certificate> load(const QByteArray& der) {
    try {
        auto stream = ComTruvexIO_MemoryStream::streamFromData(der);
        auto loader = comTruvexCrypto_X509CertificateLoader::loaderCryptoProvider(
            TVXDefaultCryptoProvider());
        loader.loadFromStream(*stream);
        return loader.x509Certificate();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

Trust trustOf(Validator::Fault fault) {
    switch (fault) {
    case Validator::Fault::None:
        return Trust::Verified;
    case Validator::Fault::SelfSigned:
        return Trust::SelfSigned;
    case Validator::Fault::Expired:
        return Trust::Expired;
    case Validator::Fault::NotYetValid:
        return Trust::NotYetValid;
    case Validator::Fault::OtherAuthority:
        break;
    }
    return Trust::OtherAuthority;
}

// The fault of `certificate` against `serviceRoot` at `at`; an unusable root trusts nobody.
Validator::Fault checkAgainst(const TVXX509Certificate& certificate, const QByteArray& serviceRoot,
                             const QDateTime& at) {
    const std::optional<TVXX509Certificate> root = load(serviceRoot);
    if (!root) {
        return X509_check_issued(certificate.handle(), certificate.handle()) == X509_V_OK
                   ? Validator::Fault::SelfSigned
                   : Validator::Fault::OtherAuthority;
    }
    try {
        return Validator::validatorCryptoProvider(TVXDefaultCryptoProvider(), {*root}, {})
            .check(certificate, at);
    } catch (const std::exception&) {
        return Validator::Fault::OtherAuthority;
    }
}

QString nameText(const X509_NAME* name) {
    const nivossl::BioPtr out(BIO_new(BIO_s_mem()));
    if (!out || X509_NAME_print_ex(out.get(), name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB) < 0) {
        ERR_clear_error();
        return {};
    }
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(out.get(), &bytes);
    return QString::fromUtf8(bytes, length);
}

}  // namespace

Trust CertificateTrust::judgeSigner(const TVXX509Certificate& certificate,
                                    const QDateTime& signedAt, const QByteArray& serviceRoot) {
    // A signing time is the signer's own claim: one in the future proves nothing, so the
    // certificate must then be valid now.
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QDateTime at = signedAt.isValid() && signedAt <= now ? signedAt : now;
    const Trust trust = trustOf(checkAgainst(certificate, serviceRoot, at));
    if (trust != Trust::Verified) {
        return trust;
    }
    const bool maySign = X509_check_purpose(certificate.handle(), X509_PURPOSE_SMIME_SIGN, 0) == 1;
    ERR_clear_error();
    return maySign ? Trust::Verified : Trust::NotForSigning;
}

QString CertificateTrust::contactCertificateProblem(const QByteArray& certificateDer,
                                                    const QString& nivoId,
                                                    const QByteArray& serviceRoot) {
    const std::optional<TVXX509Certificate> certificate = load(certificateDer);
    if (!certificate) {
        return kUnreadable;
    }
    const Trust trust = trustOf(checkAgainst(*certificate, serviceRoot, {}));
    if (trust == Trust::Expired) {
        return kExpired;
    }
    if (trust == Trust::NotYetValid) {
        return kNotYetValid;
    }
    if (trust != Trust::Verified) {
        return SenderVerdict{.name = {}, .trust = trust, .impersonatedContact = {}}.reason();
    }
    if (certificate->subjectCN().compare(nivoId, Qt::CaseInsensitive) != 0) {
        return kMadeOutTo.arg(certificate->subjectCN());
    }
    return {};
}

std::optional<CertificateTrust::Details> CertificateTrust::describe(
    const QByteArray& certificateDer) {
    const std::optional<TVXX509Certificate> certificate = load(certificateDer);
    if (!certificate) {
        return std::nullopt;
    }
    X509* x509 = certificate->handle();
    Details details;
    details.subject = nameText(X509_get_subject_name(x509));
    details.issuer = nameText(X509_get_issuer_name(x509));
    details.notBefore = nivossl::dateTimeOf(X509_get0_notBefore(x509));
    details.notAfter = nivossl::dateTimeOf(X509_get0_notAfter(x509));
    details.sha256 = fingerprint(certificate->asRawData());
    return details;
}

QString CertificateTrust::fingerprint(const QByteArray& der) {
    return QString::fromLatin1(
        QCryptographicHash::hash(der, QCryptographicHash::Sha256).toHex(':').toUpper());
}
