#pragma once

#include <QtGlobal>

// The fixed algorithms of protected files. Files written by one installation must open in every
// other, so these never change and are chosen nowhere else; the mapping onto OpenSSL is in
// CmsAlgorithms.cpp. The README lists the same choices.
//
//  - content encryption: AES-256-CBC, in EnvelopedData
//  - key transport to RSA recipients: RSAES-OAEP, SHA-256, MGF1 with SHA-256
//  - key agreement with EC recipients: ECDH, single-pass standard DH with the X9.63 KDF over
//    SHA-256 (dhSinglePass-stdDH-sha256kdf-scheme), AES-256 key wrap
//  - signature: SHA-256 with RSA PKCS#1 v1.5 for RSA keys, ECDSA with SHA-256 for EC keys, with
//    signed attributes (content type, message digest, signing time), signer certificate included
//  - layering: the EnvelopedData's content (labelled id-data) is a whole ContentInfo(SignedData)
//
// Opening is liberal: any key transport or agreement and any signature OpenSSL verifies, AES-CBC
// or AES-GCM (AuthEnvelopedData), and the inner layer as a ContentInfo under id-data, a bare
// SignedData under id-signedData, or a ContentInfo under id-signedData.

// The content-encryption algorithm as a two-word descriptor: the first word packs a cipher family
// in its low 32 bits and a key-size class in its high 32 bits; the second word is the mode.
struct TVXAlgorithmDescriptor {
    quint64 first = 0;
    quint64 second = 0;

    friend constexpr bool operator==(const TVXAlgorithmDescriptor&,
                                     const TVXAlgorithmDescriptor&) = default;
};

namespace CmsAlgorithms {

// AES-256-CBC.
inline constexpr TVXAlgorithmDescriptor kContentEncryption{(quint64{1} << 32) | 2, 1};
// SHA-256 with the signer key's own scheme (RSA PKCS#1 v1.5 or ECDSA).
inline constexpr int kSignatureAlgorithm = 2;

}  // namespace CmsAlgorithms
