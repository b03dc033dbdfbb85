#include "account/NivoProfileUtil.h"

#include <cmath>
#include <stdexcept>

#include "crypto/toolkit/ComTruvexIO_MemoryStream.h"
#include "crypto/toolkit/TVXCryptoProvider.h"
#include "crypto/toolkit/comTruvexCrypto_Pkcs12Loader.h"
#include "crypto/toolkit/comTruvexCrypto_X509CertificateLoader.h"
#include "crypto/toolkit/comTruvexCrypto_X509CertificateValidator.h"

namespace {

TVXX509Certificate loadCertificate(const QByteArray& der) {
    auto stream = ComTruvexIO_MemoryStream::streamFromData(der);
    auto loader =
        comTruvexCrypto_X509CertificateLoader::loaderCryptoProvider(TVXDefaultCryptoProvider());
    loader.loadFromStream(*stream);
    return loader.x509Certificate();
}

int hexDigit(QChar c) {
    if (c >= u'0' && c <= u'9') {
        return c.unicode() - u'0';
    }
    if (c >= u'a' && c <= u'f') {
        return c.unicode() - u'a' + 10;
    }
    return -1;
}

}  // namespace

bool NivoProfileUtil::found(const QString& needle, const QString& text) {
    return !needle.isEmpty() && text.contains(needle, Qt::CaseInsensitive);
}

QByteArray NivoProfileUtil::NSArrayToNSData(const QJsonArray& numbers) {
    QByteArray bytes;
    bytes.reserve(numbers.size());
    for (const QJsonValue& value : numbers) {
        if (!value.isDouble()) {
            throw std::invalid_argument("byte array element is not a number");
        }
        // The low byte of the number truncated toward zero, as two's complement has it. Worked
        // out on the double itself: numbers beyond 64 bits come from a bad answer, and
        // converting them to an integer type first would be undefined.
        const double number = value.toDouble();
        if (!std::isfinite(number)) {
            throw std::invalid_argument("byte array element is not a finite number");
        }
        double low = std::fmod(std::trunc(number), 256.0);
        if (low < 0) {
            low += 256.0;
        }
        bytes.append(static_cast<char>(static_cast<unsigned char>(low)));
    }
    return bytes;
}

std::optional<QJsonArray> NivoProfileUtil::NSDataToNSArray(const QByteArray& bytes) {
    if (bytes.isEmpty()) {
        return std::nullopt;
    }
    QJsonArray numbers;
    for (const char byte : bytes) {
        numbers.append(static_cast<int>(static_cast<unsigned char>(byte)));
    }
    return numbers;
}

QByteArray NivoProfileUtil::hexStringToByteArray(const QString& hex) {
    const QString lower = hex.toLower();
    QByteArray bytes;
    if (lower.size() < 2) {
        return bytes;
    }
    const qsizetype pairs = lower.size() / 2;
    bytes.reserve(pairs);
    for (qsizetype k = 0; k < pairs; ++k) {
        unsigned value = 0;
        for (const QChar digit : QStringView(lower).mid(2 * k, 2)) {
            const int nibble = hexDigit(digit);
            if (nibble < 0) {
                break;
            }
            value = value * 16 + static_cast<unsigned>(nibble);
        }
        bytes.append(static_cast<char>(value & 0xFFu));
    }
    return bytes;
}

QString NivoProfileUtil::byteArrayToHexString(const QByteArray& bytes) {
    return QString::fromLatin1(bytes.toHex());
}

std::optional<QByteArray> NivoProfileUtil::extractCerFromPfx(const QByteArray& pfx,
                                                             const QString& password) {
    try {
        auto stream = ComTruvexIO_MemoryStream::streamFromData(pfx);
        auto loader =
            comTruvexCrypto_Pkcs12Loader::loaderCryptoProvider(TVXDefaultCryptoProvider());
        loader.loadFromStream(*stream, password);
        return loader.x509Certificate().asRawData();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

bool NivoProfileUtil::verifyX509Cert(const QByteArray& certificate, const QByteArray& rootCa,
                                     const QByteArray& intermediateCa) {
    try {
        const TVXX509Certificate root = loadCertificate(rootCa);
        const TVXX509Certificate intermediate = loadCertificate(intermediateCa);
        const TVXX509Certificate subject = loadCertificate(certificate);
        const auto validator = comTruvexCrypto_X509CertificateValidator::validatorCryptoProvider(
            TVXDefaultCryptoProvider(), {root}, {intermediate});
        return validator.validateX509Certificate(subject);
    } catch (const std::exception&) {
        return false;
    }
}

bool NivoProfileUtil::verifyCer(const QByteArray& certificate, const QByteArray& rootCa,
                                const QByteArray& intermediateCa) {
    return verifyX509Cert(certificate, rootCa, intermediateCa);
}
