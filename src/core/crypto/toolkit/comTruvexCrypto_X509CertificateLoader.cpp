#include "crypto/toolkit/comTruvexCrypto_X509CertificateLoader.h"

#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/TVXStream.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {
const QString kNotACertificate = u"The data is not a DER encoded X.509 certificate"_s;
const QString kNothingLoaded = u"No certificate has been loaded"_s;
}  // namespace

comTruvexCrypto_X509CertificateLoader comTruvexCrypto_X509CertificateLoader::loaderCryptoProvider(
    TVXCryptoProvider& provider) {
    return comTruvexCrypto_X509CertificateLoader(provider);
}

void comTruvexCrypto_X509CertificateLoader::loadFromStream(TVXStream& stream) {
    const QByteArray der = stream.readAll();
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    nivossl::X509Ptr certificate(d2i_X509(nullptr, &in, der.size()));
    if (!certificate) {
        nivossl::fail(TVXCryptoOperationException, kNotACertificate);
    }
    m_certificate = TVXX509Certificate(nivossl::shareCert(std::move(certificate)));
}

TVXX509Certificate comTruvexCrypto_X509CertificateLoader::x509Certificate() const {
    if (!m_certificate) {
        nivossl::fail(TVXCryptoOperationException, kNothingLoaded);
    }
    return *m_certificate;
}
