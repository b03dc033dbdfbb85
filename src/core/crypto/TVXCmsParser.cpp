#include "crypto/TVXCmsParser.h"

#include <QBuffer>
#include <algorithm>
#include <array>

#include "crypto/OpenSsl.h"
#include "crypto/TVXCmsParserCallback.h"
#include "crypto/TVXStream.h"
#include "crypto/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;
using Participant = comTruvexCryptoBusinessLogic_CryptoParticipant;

namespace {

// Callers recognise two situations by the opening words of these descriptions: "Incomplete
// encoding during or after RecipientInfo" (the key opens none of the recipient entries) and
// "Unrecognized top level CMS encoding" (the data is no protected message).
const QString kNotCms = u"Unrecognized top level CMS encoding: the data is not a CMS message"_s;
const QString kNotEncrypted =
    u"Unrecognized top level CMS encoding: the message is not encrypted (%1)"_s;
const QString kNotForUs =
    u"Incomplete encoding during or after RecipientInfo: no recipient entry is for this key"_s;
const QString kDamaged = u"The message is damaged or incomplete (%1)"_s;
const QString kCannotDecrypt = u"The message cannot be decrypted (%1)"_s;
const QString kUnsigned = u"The message content is not signed"_s;
const QString kUnsupportedInner = u"The message holds an unsupported layer (%1)"_s;
const QString kTooDeep = u"The message nests too many layers"_s;
const QString kCannotVerify = u"The signatures cannot be checked (%1)"_s;
const QString kNoDestination = u"No destination for the decoded content"_s;
const QString kNoDetachedContent = u"The signed content is detached and was not supplied"_s;
const QString kNotSupported = u"Not Supported Exception"_s;

constexpr int kMaxLevel = 8;

// A fault of the message itself; becomes a TVXError in the result.
struct MessageError {
    QString description;
};

using ObjectPtr = std::unique_ptr<ASN1_OBJECT, nivossl::Free<ASN1_OBJECT_free>>;

QString typeName(int nid) {
    const char* name = OBJ_nid2ln(nid);
    return name != nullptr ? QString::fromUtf8(name) : QString::number(nid);
}

// Whether the bytes begin as a CMS ContentInfo does: a SEQUENCE whose first element names a CMS
// content type. Tells a damaged message from data that never was one.
bool looksLikeContentInfo(const QByteArray& der) {
    const auto* start = reinterpret_cast<const unsigned char*>(der.constData());
    const unsigned char* p = start;
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    const int header = ASN1_get_object(&p, &length, &tag, &tagClass, der.size());
    // 0x80 alone may just mean "longer than the data": a truncated message still qualifies.
    const bool ok = p != start && tag == V_ASN1_SEQUENCE && tagClass == V_ASN1_UNIVERSAL &&
                    (header & V_ASN1_CONSTRUCTED) != 0;
    ObjectPtr type;
    if (ok) {
        type.reset(d2i_ASN1_OBJECT(nullptr, &p, der.size() - (p - start)));
    }
    ERR_clear_error();
    if (!type) {
        return false;
    }
    static constexpr std::array kContentTypes{
        NID_pkcs7_data,         NID_pkcs7_signed,        NID_pkcs7_enveloped,
        NID_pkcs7_signedAndEnveloped, NID_pkcs7_digest,  NID_pkcs7_encrypted,
        NID_id_smime_ct_compressedData, NID_id_smime_ct_authEnvelopedData,
        NID_id_smime_ct_authData};
    const int nid = OBJ_obj2nid(type.get());
    return std::find(kContentTypes.begin(), kContentTypes.end(), nid) != kContentTypes.end();
}

// DER length octets for `length`.
QByteArray derLength(qsizetype length) {
    if (length < 0x80) {
        return QByteArray(1, static_cast<char>(length));
    }
    QByteArray octets;
    for (auto rest = static_cast<quint64>(length); rest != 0; rest >>= 8) {
        octets.prepend(static_cast<char>(rest & 0xFF));
    }
    return QByteArray(1, static_cast<char>(0x80 | octets.size())) + octets;
}

// ContentInfo { id-signedData, [0] EXPLICIT signedData } around a bare SignedData.
QByteArray wrapSignedData(const QByteArray& signedData) {
    static const QByteArray kSignedDataOid = QByteArray::fromHex("06092a864886f70d010702");
    const QByteArray explicitContent = '\xa0' + derLength(signedData.size()) + signedData;
    const QByteArray body = kSignedDataOid + explicitContent;
    return '\x30' + derLength(body.size()) + body;
}

bool isRecipient(CMS_ContentInfo* cms, X509* certificate) {
    STACK_OF(CMS_RecipientInfo)* infos = CMS_get0_RecipientInfos(cms);
    for (int i = 0; i < sk_CMS_RecipientInfo_num(infos); ++i) {
        CMS_RecipientInfo* info = sk_CMS_RecipientInfo_value(infos, i);
        switch (CMS_RecipientInfo_type(info)) {
        case CMS_RECIPINFO_TRANS:
            if (CMS_RecipientInfo_ktri_cert_cmp(info, certificate) == 0) {
                return true;
            }
            break;
        case CMS_RECIPINFO_AGREE: {
            STACK_OF(CMS_RecipientEncryptedKey)* keys = CMS_RecipientInfo_kari_get0_reks(info);
            for (int k = 0; k < sk_CMS_RecipientEncryptedKey_num(keys); ++k) {
                if (CMS_RecipientEncryptedKey_cert_cmp(
                        sk_CMS_RecipientEncryptedKey_value(keys, k), certificate) == 0) {
                    return true;
                }
            }
            break;
        }
        default:
            break;
        }
    }
    ERR_clear_error();
    return false;
}

// The errors that mean "a signature does not match", as opposed to a message we cannot process.
bool isSignatureMismatch(const nivossl::Errors& errors) {
    return errors.has(ERR_LIB_CMS, CMS_R_VERIFICATION_FAILURE) ||
           errors.has(ERR_LIB_CMS, CMS_R_CONTENT_VERIFY_ERROR) ||
           errors.has(ERR_LIB_CMS, CMS_R_SIGNER_CERTIFICATE_NOT_FOUND) ||
           errors.has(ERR_LIB_CMS, CMS_R_MESSAGEDIGEST_WRONG_LENGTH);
}

class ParseRun {
public:
    ParseRun(TVXCmsParserCallback& callback, TVXCmsParseResult& result)
        : m_callback(callback), m_result(result) {}

    void parse(const QByteArray& der, int level) {
        if (level > kMaxLevel) {
            throw MessageError{kTooDeep};
        }
        const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
        nivossl::CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &in, der.size()));
        if (!cms) {
            const nivossl::Errors errors = nivossl::Errors::drain();
            if (level == 0 && !looksLikeContentInfo(der)) {
                throw MessageError{kNotCms};
            }
            throw MessageError{kDamaged.arg(errors.text())};
        }
        const int type = OBJ_obj2nid(CMS_get0_type(cms.get()));
        switch (type) {
        case NID_pkcs7_enveloped:
        case NID_id_smime_ct_authEnvelopedData: {
            const auto [inner, innerType] = openEnveloped(cms.get(), level);
            cms.reset();
            parseInner(inner, innerType, level + 1);
            return;
        }
        case NID_id_smime_ct_compressedData:
            (void)m_callback.getDetachedCompressedDataForEncodingLevel(level);
            throw MessageError{kNotSupported};
        case NID_pkcs7_signed:
            if (level == 0) {
                throw MessageError{kNotEncrypted.arg(typeName(type))};
            }
            verifySigned(cms.get(), level);
            return;
        case NID_pkcs7_data:
            if (level == 0) {
                throw MessageError{kNotEncrypted.arg(typeName(type))};
            }
            throw MessageError{kUnsigned};
        default:
            if (level == 0) {
                throw MessageError{kNotEncrypted.arg(typeName(type))};
            }
            throw MessageError{kUnsupportedInner.arg(typeName(type))};
        }
    }

private:
    struct Inner {
        QByteArray bytes;
        int type;
    };

    Inner openEnveloped(CMS_ContentInfo* cms, int level) {
        ASN1_OCTET_STRING** content = CMS_get0_content(cms);
        if (content == nullptr || *content == nullptr) {
            (void)m_callback.getDetachedCiphertextForEncodingLevel(level);
            throw MessageError{kNotSupported};
        }
        const QList<Participant> recipients = m_callback.getRecipientForEncodingLevel(level);
        const Participant* opener = nullptr;
        for (const Participant& recipient : recipients) {
            if (recipient.hasPrivateKey() &&
                isRecipient(cms, recipient.certificate().handle())) {
                opener = &recipient;
                break;
            }
        }
        if (opener == nullptr) {
            throw MessageError{kNotForUs};
        }
        Inner inner{QByteArray(), OBJ_obj2nid(CMS_get0_eContentType(cms))};
        QBuffer buffer(&inner.bytes);
        buffer.open(QIODevice::WriteOnly);
        const nivossl::BioPtr out = nivossl::deviceBio(&buffer);
        if (!out || CMS_decrypt(cms, opener->privateKey(), opener->certificate().handle(),
                                nullptr, out.get(), CMS_BINARY) != 1) {
            throw MessageError{kCannotDecrypt.arg(nivossl::Errors::drain().text())};
        }
        return inner;
    }

    // What an enveloped layer carried: a whole ContentInfo (under id-data or id-signedData) or a
    // bare SignedData (under id-signedData).
    void parseInner(const QByteArray& inner, int innerType, int level) {
        if (innerType == NID_pkcs7_data) {
            if (!looksLikeContentInfo(inner)) {
                throw MessageError{kUnsigned};
            }
            parse(inner, level);
        } else if (innerType == NID_pkcs7_signed) {
            parse(looksLikeContentInfo(inner) ? inner : wrapSignedData(inner), level);
        } else {
            throw MessageError{kUnsupportedInner.arg(typeName(innerType))};
        }
    }

    void verifySigned(CMS_ContentInfo* cms, int level) {
        BIO* detached = nullptr;
        if (CMS_is_detached(cms) == 1) {
            TVXStream* plainText = m_callback.getDetachedPlaintextForEncodingLevel(level);
            if (plainText == nullptr) {
                throw MessageError{kNoDetachedContent};
            }
            detached = plainText->bio();
        }
        TVXStream* decoded = m_callback.getDecoded();
        if (decoded == nullptr) {
            throw MessageError{kNoDestination};
        }
        // Certificates of the offered signers help find signers whose certificate is not in the
        // message; they are borrowed for the call.
        const QList<Participant> signers = m_callback.getSignerForEncodingLevel(level);
        const nivossl::BorrowedCertStackPtr offered(sk_X509_new_null());
        for (const Participant& signer : signers) {
            sk_X509_push(offered.get(), signer.certificate().handle());
        }
        // Trust in the signer's certificate is decided elsewhere (contacts, account checks);
        // here each signature must match its certificate.
        const int verified = CMS_verify(cms, offered.get(), nullptr, detached, decoded->bio(),
                                        CMS_NO_SIGNER_CERT_VERIFY | CMS_BINARY);
        if (verified != 1) {
            const nivossl::Errors errors = nivossl::Errors::drain();
            if (!isSignatureMismatch(errors)) {
                throw MessageError{kCannotVerify.arg(errors.text())};
            }
        }
        m_result.recordSignedLayer(verified == 1);
        collectSignerCertificates(cms);
    }

    // Only certificates that travel in the message name a signer.
    void collectSignerCertificates(CMS_ContentInfo* cms) {
        const nivossl::CertStackPtr certificates(CMS_get1_certs(cms));
        STACK_OF(CMS_SignerInfo)* signerInfos = CMS_get0_SignerInfos(cms);
        for (int i = 0; i < sk_CMS_SignerInfo_num(signerInfos); ++i) {
            CMS_SignerInfo* signerInfo = sk_CMS_SignerInfo_value(signerInfos, i);
            for (int c = 0; c < sk_X509_num(certificates.get()); ++c) {
                X509* certificate = sk_X509_value(certificates.get(), c);
                if (CMS_SignerInfo_cert_cmp(signerInfo, certificate) == 0) {
                    m_result.addSignerCertificate(
                        TVXX509Certificate(nivossl::shareCert(nivossl::upRef(certificate))));
                    break;
                }
            }
        }
        ERR_clear_error();
    }

    TVXCmsParserCallback& m_callback;
    TVXCmsParseResult& m_result;
};

}  // namespace

QString TVXCmsParser::notCmsMessage() {
    return kNotCms;
}

QString TVXCmsParser::notEncryptedMessage(const QString& outerLayer) {
    return kNotEncrypted.arg(outerLayer);
}

TVXCmsParseResult TVXCmsParser::parseEncodedStream(TVXStream& source,
                                                   TVXCmsParserCallback& callback) {
    TVXCmsParseResult result;
    ERR_clear_error();
    try {
        ParseRun(callback, result).parse(source.readAll(), 0);
    } catch (const MessageError& error) {
        result.recordFailure(TVXError(error.description));
    } catch (const TVXException& exception) {
        result.recordFailure(exception);
    }
    ERR_clear_error();
    return result;
}
