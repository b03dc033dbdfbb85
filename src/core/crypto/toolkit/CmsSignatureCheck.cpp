#include "crypto/toolkit/CmsSignatureCheck.h"

#include "crypto/toolkit/TVXCmsParseResult.h"

using namespace Qt::Literals::StringLiterals;
using Participant = comTruvexCryptoBusinessLogic_CryptoParticipant;

namespace {

// The signing time among the signed attributes of `signerInfo`; null when there is none.
QDateTime signingTime(CMS_SignerInfo* signerInfo) {
    const int index = CMS_signed_get_attr_by_NID(signerInfo, NID_pkcs9_signingTime, -1);
    X509_ATTRIBUTE* attribute = index >= 0 ? CMS_signed_get_attr(signerInfo, index) : nullptr;
    const ASN1_TYPE* value =
        attribute != nullptr ? X509_ATTRIBUTE_get0_type(attribute, 0) : nullptr;
    if (value == nullptr ||
        (value->type != V_ASN1_UTCTIME && value->type != V_ASN1_GENERALIZEDTIME)) {
        return {};
    }
    return nivossl::dateTimeOf(value->value.generalizedtime);
}

// The errors that mean "a signature does not match", as opposed to a message we cannot process.
bool isSignatureMismatch(const nivossl::Errors& errors) {
    return errors.has(ERR_LIB_CMS, CMS_R_VERIFICATION_FAILURE) ||
           errors.has(ERR_LIB_CMS, CMS_R_CONTENT_VERIFY_ERROR) ||
           errors.has(ERR_LIB_CMS, CMS_R_SIGNER_CERTIFICATE_NOT_FOUND) ||
           errors.has(ERR_LIB_CMS, CMS_R_MESSAGEDIGEST_WRONG_LENGTH);
}

// Only certificates that travel in the message name a signer.
void collectSignerCertificates(CMS_ContentInfo* cms, TVXCmsParseResult& result) {
    const nivossl::CertStackPtr certificates(CMS_get1_certs(cms));
    STACK_OF(CMS_SignerInfo)* signerInfos = CMS_get0_SignerInfos(cms);
    for (int i = 0; i < sk_CMS_SignerInfo_num(signerInfos); ++i) {
        CMS_SignerInfo* signerInfo = sk_CMS_SignerInfo_value(signerInfos, i);
        for (int c = 0; c < sk_X509_num(certificates.get()); ++c) {
            X509* certificate = sk_X509_value(certificates.get(), c);
            if (CMS_SignerInfo_cert_cmp(signerInfo, certificate) == 0) {
                result.addSignerCertificate(
                    TVXX509Certificate(nivossl::shareCert(nivossl::upRef(certificate))),
                    signingTime(signerInfo));
                break;
            }
        }
    }
    ERR_clear_error();
}

}  // namespace

QString CmsSignatureCheck::check(CMS_ContentInfo* cms, BIO* digests, const Offered& offered,
                                 TVXCmsParseResult& result) {
    ERR_clear_error();
    STACK_OF(CMS_SignerInfo)* signerInfos = CMS_get0_SignerInfos(cms);
    const int count = sk_CMS_SignerInfo_num(signerInfos);
    if (count <= 0) {
        return u"no signer"_s;
    }
    // The offered certificates are borrowed for the call.
    const QList<Participant> signers = offered();
    const nivossl::BorrowedCertStackPtr certificates(sk_X509_new_null());
    for (const Participant& signer : signers) {
        sk_X509_push(certificates.get(), signer.certificate().handle());
    }
    bool valid = CMS_set1_signers_certs(cms, certificates.get(), 0) == count;
    for (int i = 0; valid && i < count; ++i) {
        CMS_SignerInfo* signerInfo = sk_CMS_SignerInfo_value(signerInfos, i);
        valid =
            (CMS_signed_get_attr_count(signerInfo) < 0 || CMS_SignerInfo_verify(signerInfo) == 1) &&
            CMS_SignerInfo_verify_content(signerInfo, digests) == 1;
    }
    if (!valid) {
        const nivossl::Errors errors = nivossl::Errors::drain();
        if (!errors.isEmpty() && !isSignatureMismatch(errors)) {
            return errors.text();
        }
    }
    result.recordSignedLayer(valid);
    collectSignerCertificates(cms, result);
    return {};
}
