#pragma once

#include <mutex>

struct ossl_provider_st;

// The process-wide source of algorithms for every loader, participant, generator and parser.
// Modern algorithms are always there; the legacy ones (RC2, RC4, DES, as used by older PKCS#12
// exports) are loaded the first time a key file needs them.
class TVXCryptoProvider {
public:
    TVXCryptoProvider() = default;
    // Loaded providers stay for the life of the process: OpenSSL's own exit-time cleanup releases
    // them, and unloading them from a static destructor could run after that cleanup.
    ~TVXCryptoProvider() = default;
    TVXCryptoProvider(const TVXCryptoProvider&) = delete;
    TVXCryptoProvider& operator=(const TVXCryptoProvider&) = delete;

    // Makes the legacy algorithms available; throws a TVXException saying so when they are not
    // installed. Safe to call from any thread, any number of times.
    void loadLegacyAlgorithms();
    [[nodiscard]] bool legacyAlgorithmsLoaded() const;

private:
    mutable std::mutex m_mutex;
    ossl_provider_st* m_default = nullptr;  // released by OpenSSL at exit
    ossl_provider_st* m_legacy = nullptr;   // released by OpenSSL at exit
};

// The one provider every crypto object of the application uses.
[[nodiscard]] TVXCryptoProvider& TVXDefaultCryptoProvider();
