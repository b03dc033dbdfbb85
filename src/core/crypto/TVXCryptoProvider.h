#pragma once

#include <mutex>

struct ossl_provider_st;

// The process-wide source of algorithms for every loader, participant, generator and parser.
// Modern algorithms are always there; the legacy ones (RC2, RC4, DES, as used by older PKCS#12
// exports) are loaded the first time a key file needs them.
class TVXCryptoProvider {
public:
    TVXCryptoProvider() = default;
    ~TVXCryptoProvider();
    TVXCryptoProvider(const TVXCryptoProvider&) = delete;
    TVXCryptoProvider& operator=(const TVXCryptoProvider&) = delete;

    // Makes the legacy algorithms available; throws a TVXException saying so when they are not
    // installed. Safe to call from any thread, any number of times.
    void loadLegacyAlgorithms();
    [[nodiscard]] bool legacyAlgorithmsLoaded() const;

private:
    mutable std::mutex m_mutex;
    ossl_provider_st* m_default = nullptr;  // unloaded in the destructor
    ossl_provider_st* m_legacy = nullptr;   // unloaded in the destructor
};

// The one provider every crypto object of the application uses.
[[nodiscard]] TVXCryptoProvider& TVXDefaultCryptoProvider();
