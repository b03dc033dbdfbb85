#include "crypto/CmsOutline.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <memory>
#include <optional>
#include <tuple>
#include <vector>

#include "crypto/OpenSsl.h"
#include "crypto/TVXCmsParser.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kKeyTransport = u"key transport"_s;
const QString kKeyAgreement = u"key agreement"_s;
const QString kOtherRecipient = u"recipient type %1"_s;
// Nesting is bounded so that a hostile file cannot exhaust the stack while its ends are sought.
constexpr int kMaxDepth = 64;

using Asn1ObjectPtr = std::unique_ptr<ASN1_OBJECT, nivossl::Free<ASN1_OBJECT_free>>;

QString objectName(const ASN1_OBJECT* object) {
    if (object == nullptr) {
        return {};
    }
    const int nid = OBJ_obj2nid(object);
    if (nid != NID_undef) {
        return QString::fromLatin1(OBJ_nid2ln(nid));
    }
    char text[128] = {};
    OBJ_obj2txt(text, sizeof text, object, 1);
    return QString::fromLatin1(text);
}

QString algorithmName(const X509_ALGOR* algorithm) {
    if (algorithm == nullptr) {
        return {};
    }
    const ASN1_OBJECT* object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
    return objectName(object);
}

QString nameText(const X509_NAME* name) {
    if (name == nullptr) {
        return {};
    }
    const nivossl::BioPtr bio(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253);
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return QString::fromUtf8(data, static_cast<qsizetype>(size));
}

QString integerHex(const ASN1_INTEGER* number) {
    if (number == nullptr) {
        return {};
    }
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char*>(ASN1_STRING_get0_data(number)),
                   ASN1_STRING_length(number))
            .toHex());
}

QString octetsHex(const ASN1_OCTET_STRING* octets) {
    return integerHex(octets);
}

// A minimal reader of BER, enough to reach the content-encryption algorithm, which OpenSSL does
// not hand out for a message it has not decrypted.
class BerReader {
public:
    BerReader(const unsigned char* begin, const unsigned char* end) : m_pos(begin), m_end(end) {}

    struct Element {
        int tag = 0;
        int tagClass = 0;
        bool constructed = false;
        bool indefinite = false;
        const unsigned char* header = nullptr;
        const unsigned char* content = nullptr;
        long length = 0;  // of the content; 0 when indefinite
    };

    std::optional<Element> next() {
        if (m_pos >= m_end) {
            return std::nullopt;
        }
        Element e;
        const unsigned char* p = m_pos;
        const int flags = ASN1_get_object(&p, &e.length, &e.tag, &e.tagClass, m_end - m_pos);
        if (flags & 0x80) {
            return std::nullopt;
        }
        e.constructed = (flags & V_ASN1_CONSTRUCTED) != 0;
        e.indefinite = (flags & 1) != 0;
        e.header = m_pos;
        e.content = p;
        m_pos = p;
        return e;
    }
    // Moves past the element just read by next().
    bool skip(const Element& e, int depth = 0) {
        if (!e.indefinite) {
            m_pos = e.content + e.length;
            return m_pos <= m_end;
        }
        if (depth > kMaxDepth) {
            return false;
        }
        // Children up to the end-of-contents marker.
        for (;;) {
            const auto child = next();
            if (!child) {
                return false;
            }
            if (child->tag == V_ASN1_EOC && child->tagClass == V_ASN1_UNIVERSAL) {
                return true;
            }
            if (!skip(*child, depth + 1)) {
                return false;
            }
        }
    }
    // Continues inside a constructed element just read by next().
    void enter(const Element& e) { m_pos = e.content; }

private:
    const unsigned char* m_pos;
    const unsigned char* m_end;
};

// The OID text of EncryptedContentInfo's content type and algorithm; empty on any surprise.
std::pair<QString, QString> encryptedContentInfo(const QByteArray& der) {
    const auto* begin = reinterpret_cast<const unsigned char*>(der.constData());
    BerReader reader(begin, begin + der.size());
    // ContentInfo SEQUENCE { contentType, [0] EXPLICIT EnvelopedData SEQUENCE { ... } }
    auto contentInfo = reader.next();
    if (!contentInfo || !contentInfo->constructed) {
        return {};
    }
    reader.enter(*contentInfo);
    auto contentType = reader.next();
    if (!contentType || !reader.skip(*contentType)) {
        return {};
    }
    auto explicitTag = reader.next();
    if (!explicitTag || !explicitTag->constructed) {
        return {};
    }
    reader.enter(*explicitTag);
    auto enveloped = reader.next();
    if (!enveloped || !enveloped->constructed) {
        return {};
    }
    reader.enter(*enveloped);
    // version, optional [0] originatorInfo, recipientInfos SET, then EncryptedContentInfo.
    for (int field = 0; field < 4; ++field) {
        auto e = reader.next();
        if (!e) {
            return {};
        }
        if (e->tag == V_ASN1_SEQUENCE && e->tagClass == V_ASN1_UNIVERSAL) {
            reader.enter(*e);
            QString names[2];
            for (QString& name : names) {
                auto inner = reader.next();
                if (!inner) {
                    return {};
                }
                if (inner->tag == V_ASN1_SEQUENCE) {
                    // The algorithm identifier: its first member is the OID.
                    reader.enter(*inner);
                    inner = reader.next();
                    if (!inner) {
                        return {};
                    }
                }
                if (inner->tag != V_ASN1_OBJECT || inner->indefinite) {
                    return {};
                }
                const unsigned char* start = inner->header;
                const Asn1ObjectPtr object(d2i_ASN1_OBJECT(
                    nullptr, &start, (inner->content - inner->header) + inner->length));
                name = objectName(object.get());
                reader.skip(*inner);
            }
            return {names[0], names[1]};
        }
        if (!reader.skip(*e)) {
            return {};
        }
    }
    return {};
}

bool namesCertificate(CMS_RecipientInfo* info, CMS_RecipientEncryptedKey* key, X509* certificate) {
    const int differs = key != nullptr ? CMS_RecipientEncryptedKey_cert_cmp(key, certificate)
                                       : CMS_RecipientInfo_ktri_cert_cmp(info, certificate);
    return differs == 0;
}

}  // namespace

CmsOutline CmsOutline::inspect(const QByteArray& der,
                                     const QList<QByteArray>& knownCertificates) {
    CmsOutline result;
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    const nivossl::CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &in, der.size()));
    if (!cms) {
        ERR_clear_error();
        result.failure = TVXCmsParser::notCmsMessage();
        return result;
    }
    const int type = OBJ_obj2nid(CMS_get0_type(cms.get()));
    if (type != NID_pkcs7_enveloped && type != NID_id_smime_ct_authEnvelopedData) {
        result.failure = TVXCmsParser::notEncryptedMessage(objectName(CMS_get0_type(cms.get())));
        return result;
    }
    result.layer = type == NID_pkcs7_enveloped ? u"EnvelopedData"_s : u"AuthEnvelopedData"_s;
    std::tie(result.innerContentType, result.contentEncryption) = encryptedContentInfo(der);

    std::vector<nivossl::X509Ptr> certificates;
    for (const QByteArray& bytes : knownCertificates) {
        const auto* p = reinterpret_cast<const unsigned char*>(bytes.constData());
        certificates.emplace_back(d2i_X509(nullptr, &p, bytes.size()));
    }
    const auto matchIndex = [&certificates](CMS_RecipientInfo* info,
                                            CMS_RecipientEncryptedKey* key) -> qsizetype {
        for (std::size_t i = 0; i < certificates.size(); ++i) {
            if (certificates[i] && namesCertificate(info, key, certificates[i].get())) {
                return static_cast<qsizetype>(i);
            }
        }
        return qsizetype{-1};
    };

    STACK_OF(CMS_RecipientInfo)* infos = CMS_get0_RecipientInfos(cms.get());
    for (int i = 0; i < sk_CMS_RecipientInfo_num(infos); ++i) {
        CMS_RecipientInfo* info = sk_CMS_RecipientInfo_value(infos, i);
        const int infoType = CMS_RecipientInfo_type(info);
        if (infoType == CMS_RECIPINFO_TRANS) {
            Recipient recipient;
            recipient.kind = kKeyTransport;
            ASN1_OCTET_STRING* keyId = nullptr;
            X509_NAME* issuer = nullptr;
            ASN1_INTEGER* serial = nullptr;
            if (CMS_RecipientInfo_ktri_get0_signer_id(info, &keyId, &issuer, &serial) == 1) {
                recipient.issuer = nameText(issuer);
                recipient.serialNumber = integerHex(serial);
                recipient.keyIdentifier = octetsHex(keyId);
            }
            X509_ALGOR* algorithm = nullptr;
            if (CMS_RecipientInfo_ktri_get0_algs(info, nullptr, nullptr, &algorithm) == 1) {
                recipient.keyAlgorithm = algorithmName(algorithm);
            }
            recipient.certificateIndex = matchIndex(info, nullptr);
            result.recipients.append(recipient);
        } else if (infoType == CMS_RECIPINFO_AGREE) {
            X509_ALGOR* algorithm = nullptr;
            ASN1_OCTET_STRING* ukm = nullptr;
            const QString keyAlgorithm =
                CMS_RecipientInfo_kari_get0_alg(info, &algorithm, &ukm) == 1
                    ? algorithmName(algorithm)
                    : QString();
            STACK_OF(CMS_RecipientEncryptedKey)* keys = CMS_RecipientInfo_kari_get0_reks(info);
            for (int k = 0; k < sk_CMS_RecipientEncryptedKey_num(keys); ++k) {
                CMS_RecipientEncryptedKey* key = sk_CMS_RecipientEncryptedKey_value(keys, k);
                Recipient recipient;
                recipient.kind = kKeyAgreement;
                recipient.keyAlgorithm = keyAlgorithm;
                ASN1_OCTET_STRING* keyId = nullptr;
                X509_NAME* issuer = nullptr;
                ASN1_INTEGER* serial = nullptr;
                if (CMS_RecipientEncryptedKey_get0_id(key, &keyId, nullptr, nullptr, &issuer,
                                                      &serial) == 1) {
                    recipient.issuer = nameText(issuer);
                    recipient.serialNumber = integerHex(serial);
                    recipient.keyIdentifier = octetsHex(keyId);
                }
                recipient.certificateIndex = matchIndex(info, key);
                result.recipients.append(recipient);
            }
        } else {
            Recipient recipient;
            recipient.kind = kOtherRecipient.arg(infoType);
            result.recipients.append(recipient);
        }
    }
    ERR_clear_error();
    return result;
}
