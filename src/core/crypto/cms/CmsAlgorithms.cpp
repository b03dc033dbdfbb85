#include "crypto/cms/CmsAlgorithmsOpenSsl.h"

#include <openssl/rsa.h>

namespace CmsAlgorithms {

const EVP_CIPHER* contentCipher(const TVXAlgorithmDescriptor& descriptor) noexcept {
    return descriptor == kContentEncryption ? EVP_aes_256_cbc() : nullptr;
}

const EVP_MD* signatureDigest(int signatureAlgorithm) noexcept {
    return signatureAlgorithm == kSignatureAlgorithm ? EVP_sha256() : nullptr;
}

unsigned int signerFlags() noexcept {
    // Content type, message digest and signing time only; no capabilities list.
    return CMS_NOSMIMECAP;
}

unsigned int recipientFlags(EVP_PKEY* recipientKey) noexcept {
    return EVP_PKEY_is_a(recipientKey, "RSA") == 1 ? CMS_KEY_PARAM : 0U;
}

bool configureRecipient(CMS_RecipientInfo* recipient) noexcept {
    EVP_PKEY_CTX* context = CMS_RecipientInfo_get0_pkey_ctx(recipient);
    if (CMS_RecipientInfo_type(recipient) == CMS_RECIPINFO_AGREE) {
        // The context is the ephemeral key's; without this the key derivation uses SHA-1.
        return context != nullptr && EVP_PKEY_CTX_set_ecdh_kdf_md(context, EVP_sha256()) > 0;
    }
    if (CMS_RecipientInfo_type(recipient) != CMS_RECIPINFO_TRANS) {
        return true;
    }
    return context != nullptr &&
           EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_OAEP_PADDING) > 0 &&
           EVP_PKEY_CTX_set_rsa_oaep_md(context, EVP_sha256()) > 0 &&
           EVP_PKEY_CTX_set_rsa_mgf1_md(context, EVP_sha256()) > 0;
}

}  // namespace CmsAlgorithms
