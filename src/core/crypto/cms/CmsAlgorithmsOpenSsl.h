#pragma once

// Private to the crypto folder: the OpenSSL side of CmsAlgorithms.h.

#include <openssl/cms.h>
#include <openssl/evp.h>

#include "crypto/cms/CmsAlgorithms.h"

namespace CmsAlgorithms {

// Null when the descriptor or code is not one we write.
[[nodiscard]] const EVP_CIPHER* contentCipher(const TVXAlgorithmDescriptor& descriptor) noexcept;
[[nodiscard]] const EVP_MD* signatureDigest(int signatureAlgorithm) noexcept;
// Signer flags beyond the caller's choices: which signed attributes go in.
[[nodiscard]] unsigned int signerFlags() noexcept;
// Recipient flags: whether key-transport parameters are set after adding the recipient.
[[nodiscard]] unsigned int recipientFlags(EVP_PKEY* recipientKey) noexcept;
// Sets the key-transport parameters of a freshly added recipient; false on failure.
[[nodiscard]] bool configureRecipient(CMS_RecipientInfo* recipient) noexcept;

}  // namespace CmsAlgorithms
