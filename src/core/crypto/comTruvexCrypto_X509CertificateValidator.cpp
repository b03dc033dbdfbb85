#include "crypto/comTruvexCrypto_X509CertificateValidator.h"

#include "crypto/OpenSsl.h"
#include "crypto/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {
const QString kCannotValidate = u"Cannot set up the certificate check"_s;
}  // namespace

comTruvexCrypto_X509CertificateValidator
comTruvexCrypto_X509CertificateValidator::validatorCryptoProvider(
    TVXCryptoProvider& /*provider*/, QList<TVXX509Certificate> rootCaCerts,
    QList<TVXX509Certificate> intermediateCaCerts) {
    return {std::move(rootCaCerts), std::move(intermediateCaCerts)};
}

bool comTruvexCrypto_X509CertificateValidator::validateX509Certificate(
    const TVXX509Certificate& certificate) const {
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
    const bool valid = X509_verify_cert(context.get()) == 1;
    ERR_clear_error();
    return valid;
}
