#include "crypto/toolkit/comTruvexCrypto_X509CertificateValidator.h"

#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {
const QString kCannotValidate = u"Cannot set up the certificate check"_s;

using Fault = comTruvexCrypto_X509CertificateValidator::Fault;

Fault faultOf(int error) {
    switch (error) {
    case X509_V_OK:
        return Fault::None;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        return Fault::SelfSigned;
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return Fault::Expired;
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return Fault::NotYetValid;
    default:
        // No path to a root, a bad signature on the way, a CA that may not issue: in every case
        // no authority we know stands behind the certificate.
        return Fault::OtherAuthority;
    }
}
}  // namespace

comTruvexCrypto_X509CertificateValidator
comTruvexCrypto_X509CertificateValidator::validatorCryptoProvider(
    TVXCryptoProvider& /*provider*/, QList<TVXX509Certificate> rootCaCerts,
    QList<TVXX509Certificate> intermediateCaCerts) {
    return {std::move(rootCaCerts), std::move(intermediateCaCerts)};
}

bool comTruvexCrypto_X509CertificateValidator::validateX509Certificate(
    const TVXX509Certificate& certificate) const {
    return check(certificate) == Fault::None;
}

comTruvexCrypto_X509CertificateValidator::Fault comTruvexCrypto_X509CertificateValidator::check(
    const TVXX509Certificate& certificate, const QDateTime& at) const {
    ERR_clear_error();
    const nivossl::StorePtr store(X509_STORE_new());
    const nivossl::BorrowedCertStackPtr untrusted(sk_X509_new_null());
    const nivossl::StoreCtxPtr context(X509_STORE_CTX_new());
    if (!store || !untrusted || !context) {
        nivossl::fail(TVXCryptoOperationException, kCannotValidate);
    }
    for (const TVXX509Certificate& root : m_roots) {
        // The store takes its own reference (add1).
        if (X509_STORE_add_cert(store.get(), root.handle()) != 1) {
            nivossl::fail(TVXCryptoOperationException, kCannotValidate);
        }
    }
    for (const TVXX509Certificate& intermediate : m_intermediates) {
        if (sk_X509_push(untrusted.get(), intermediate.handle()) <= 0) {
            nivossl::fail(TVXCryptoOperationException, kCannotValidate);
        }
    }
    if (X509_STORE_CTX_init(context.get(), store.get(), certificate.handle(), untrusted.get()) !=
        1) {
        nivossl::fail(TVXCryptoOperationException, kCannotValidate);
    }
    // At a given time only the certificate's own dates count: the authorities above it are
    // anchors whose certificates may well be younger than a signature made before their renewal.
    if (at.isValid()) {
        X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_NO_CHECK_TIME);
    }
    const bool valid = X509_verify_cert(context.get()) == 1;
    const int error = valid ? X509_V_OK : X509_STORE_CTX_get_error(context.get());
    ERR_clear_error();
    if (valid) {
        if (at.isValid()) {
            time_t when = static_cast<time_t>(at.toSecsSinceEpoch());
            if (X509_cmp_time(X509_get0_notBefore(certificate.handle()), &when) >= 0) {
                return Fault::NotYetValid;
            }
            if (X509_cmp_time(X509_get0_notAfter(certificate.handle()), &when) <= 0) {
                return Fault::Expired;
            }
        }
        return Fault::None;
    }
    // A failure without a reason is still a failure.
    return error == X509_V_OK ? Fault::OtherAuthority : faultOf(error);
}
