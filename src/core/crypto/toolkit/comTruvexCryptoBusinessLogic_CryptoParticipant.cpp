#include "crypto/toolkit/comTruvexCryptoBusinessLogic_CryptoParticipant.h"

#include "crypto/toolkit/comTruvexCrypto_Pkcs12Loader.h"
#include "crypto/toolkit/comTruvexCrypto_X509CertificateLoader.h"

using Participant = comTruvexCryptoBusinessLogic_CryptoParticipant;

Participant Participant::initWithX509Cert(TVXStream& certificate,
                                          TVXCryptoProvider& keyExtractionCryptoProvider) {
    auto loader =
        comTruvexCrypto_X509CertificateLoader::loaderCryptoProvider(keyExtractionCryptoProvider);
    loader.loadFromStream(certificate);
    return {loader.x509Certificate(), nullptr};
}

Participant Participant::initWithPfx(TVXStream& pfx, const QString& pfxPassword,
                                     TVXCryptoProvider& keyExtractionCryptoProvider) {
    auto loader = comTruvexCrypto_Pkcs12Loader::loaderCryptoProvider(keyExtractionCryptoProvider);
    loader.loadFromStream(pfx, pfxPassword);
    return {loader.x509Certificate(), loader.privateKey()};
}

Participant Participant::participantPfx(TVXStream& pfx, const QString& pfxPassword,
                                        TVXCryptoProvider& keyExtractionCryptoProvider) {
    return initWithPfx(pfx, pfxPassword, keyExtractionCryptoProvider);
}
