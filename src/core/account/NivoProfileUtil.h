#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QString>
#include <optional>

// Byte, hex and text helpers shared by the account protocol and the profile checks.
class NivoProfileUtil {
public:
    NivoProfileUtil() = delete;

    // True when the needle occurs anywhere in the text, ignoring case. An empty needle is never
    // found.
    [[nodiscard]] static bool found(const QString& needle, const QString& text);

    // One byte per element, each the low 8 bits of the element's integer value (256 gives 0, -1
    // gives 255). Throws std::invalid_argument when an element is not a number.
    [[nodiscard]] static QByteArray NSArrayToNSData(const QJsonArray& numbers);
    // One number 0..255 per byte; empty input gives no array at all.
    [[nodiscard]] static std::optional<QJsonArray> NSDataToNSArray(const QByteArray& bytes);

    // Pairs of hex digits to bytes, case-insensitive; a trailing odd digit is ignored and a pair
    // that is not hex reads as far as its leading hex digits go (none: 0).
    [[nodiscard]] static QByteArray hexStringToByteArray(const QString& hex);
    // Two lower-case hex digits per byte, no separators.
    [[nodiscard]] static QString byteArrayToHexString(const QByteArray& bytes);

    // The certificate (DER) of a PKCS#12 file opened with the password as given; absent when the
    // password is wrong or the file damaged.
    [[nodiscard]] static std::optional<QByteArray> extractCerFromPfx(const QByteArray& pfx,
                                                                     const QString& password);
    // True when the certificate chains to the root through the intermediate and is valid now.
    // Damaged DER anywhere gives false.
    [[nodiscard]] static bool verifyX509Cert(const QByteArray& certificate,
                                             const QByteArray& rootCa,
                                             const QByteArray& intermediateCa);
    [[nodiscard]] static bool verifyCer(const QByteArray& certificate, const QByteArray& rootCa,
                                        const QByteArray& intermediateCa);
};
