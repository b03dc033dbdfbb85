#include "crypto/toolkit/TVXCryptoProvider.h"

#include <openssl/provider.h>

#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kLegacyMissing =
    u"This key file is protected with an old algorithm (RC2, RC4 or DES) that needs OpenSSL's "
    u"legacy provider, and the legacy provider is not installed"_s;

}  // namespace

void TVXCryptoProvider::loadLegacyAlgorithms() {
    const std::lock_guard lock(m_mutex);
    if (m_legacy != nullptr) {
        return;
    }
    // Loading any provider explicitly switches off the implicit default one, so it is loaded
    // explicitly first.
    if (m_default == nullptr) {
        m_default = OSSL_PROVIDER_load(nullptr, "default");
    }
    m_legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    if (m_legacy == nullptr) {
        nivossl::fail(TVXNotSupportedException, kLegacyMissing);
    }
}

bool TVXCryptoProvider::legacyAlgorithmsLoaded() const {
    const std::lock_guard lock(m_mutex);
    return m_legacy != nullptr;
}

TVXCryptoProvider& TVXDefaultCryptoProvider() {
    static TVXCryptoProvider provider;
    return provider;
}
