#pragma once

#include <QByteArray>
#include <optional>

#include "crypto/cms/BerReader.h"
#include "crypto/cms/OpenSsl.h"

// The head of an enveloped layer (EnvelopedData or AuthEnvelopedData): everything before its
// encrypted content, read from a BerReader and kept, while the content itself is left to the
// caller (decryption streams it, the outline of a file never reads it). OpenSSL sees the head as
// a content-less layer rebuilt from the kept parts. Private to the crypto folder.
struct CmsHead {
    int type = 0;                  // NID_pkcs7_enveloped or NID_id_smime_ct_authEnvelopedData
    QByteArray fields;             // version, originator information and recipient list, as read
    QByteArray contentType;        // the encrypted content's type (OID), as read
    QByteArray contentEncryption;  // its algorithm identifier, as read
    // The header of the encrypted content ([0]); none when the content travels apart.
    std::optional<BerReader::Header> content;

    // Content-type identifiers are a dozen bytes; anything much longer is no content type of ours.
    static constexpr qint64 kMaxOidSize = 64;
    // The recipient list is kept whole until the user's entry is found in it. An entry for an
    // RSA-3072 key takes about 550 bytes, so this admits some fifteen thousand recipients.
    static constexpr qint64 kMaxRecipientList = qint64{8} << 20;

    [[nodiscard]] static bool isEnveloped(int typeNid) noexcept;

    // Enters the ContentInfo that starts at the reader's position and reads its content type:
    // the OID as read. Throws BerReader::Error when the data starts otherwise.
    [[nodiscard]] static QByteArray readContentType(BerReader& reader);
    // Reads an enveloped layer of `type` from its [0], right after the ContentInfo's content
    // type, up to and including the header of the encrypted content; the reader is then inside
    // the encrypted content information, at the content. Throws BerReader::Error.
    [[nodiscard]] static CmsHead readEnveloped(BerReader& reader, int type);

    // The layer without its content (an authenticated one with a stand-in tag) as OpenSSL reads
    // it; null when OpenSSL refuses it, its reasons queued.
    [[nodiscard]] nivossl::CmsPtr withoutContent() const;

    // ContentInfo { type, [0] EXPLICIT SEQUENCE { fields } } as OpenSSL reads it; null when
    // OpenSSL refuses it, its reasons queued.
    [[nodiscard]] static nivossl::CmsPtr contentInfo(int typeNid, const QByteArray& fields);
    // The DER element `identifier` around `content`.
    [[nodiscard]] static QByteArray derOf(quint8 identifier, const QByteArray& content);
    // The NID of an OID as read; NID_undef when it is none or unknown.
    [[nodiscard]] static int oidNid(const QByteArray& der);
};
