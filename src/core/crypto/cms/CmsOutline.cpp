#include "crypto/cms/CmsOutline.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <QBuffer>
#include <memory>
#include <vector>

#include "crypto/cms/BerReader.h"
#include "crypto/cms/CmsHead.h"
#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/TVXCmsParser.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kKeyTransport = u"key transport"_s;
const QString kKeyAgreement = u"key agreement"_s;
const QString kOtherRecipient = u"recipient type %1"_s;

using Asn1ObjectPtr = std::unique_ptr<ASN1_OBJECT, nivossl::Free<ASN1_OBJECT_free>>;
using AlgorithmPtr = std::unique_ptr<X509_ALGOR, nivossl::Free<X509_ALGOR_free>>;

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

bool namesCertificate(CMS_RecipientInfo* info, CMS_RecipientEncryptedKey* key, X509* certificate) {
    const int differs = key != nullptr ? CMS_RecipientEncryptedKey_cert_cmp(key, certificate)
                                       : CMS_RecipientInfo_ktri_cert_cmp(info, certificate);
    return differs == 0;
}

}  // namespace

CmsOutline CmsOutline::inspect(const QByteArray& der, const QList<QByteArray>& knownCertificates) {
    QBuffer buffer;
    buffer.setData(der);
    buffer.open(QIODevice::ReadOnly);
    return inspect(buffer, knownCertificates);
}

CmsOutline CmsOutline::inspect(QIODevice& device, const QList<QByteArray>& knownCertificates) {
    CmsOutline result;
    nivossl::CmsPtr cms;
    try {
        BerDeviceSource source(device);
        BerReader reader(source);
        const QByteArray contentType = CmsHead::readContentType(reader);
        const auto* in = reinterpret_cast<const unsigned char*>(contentType.constData());
        const Asn1ObjectPtr type(d2i_ASN1_OBJECT(nullptr, &in, contentType.size()));
        if (!type) {
            throw BerReader::Error(u"the content type cannot be read"_s);
        }
        const int typeNid = OBJ_obj2nid(type.get());
        if (!CmsHead::isEnveloped(typeNid)) {
            result.failure = TVXCmsParser::notEncryptedMessage(objectName(type.get()));
            return result;
        }
        // The reading stops at the encrypted content: whatever follows, however long, damaged
        // or cut off, does not change what the outside of the file says.
        const CmsHead head = CmsHead::readEnveloped(reader, typeNid);
        cms = head.withoutContent();
        if (!cms) {
            throw BerReader::Error(u"the recipient list cannot be read"_s);
        }
        result.layer = typeNid == NID_pkcs7_enveloped ? u"EnvelopedData"_s : u"AuthEnvelopedData"_s;
        result.innerContentType = objectName(CMS_get0_eContentType(cms.get()));
        in = reinterpret_cast<const unsigned char*>(head.contentEncryption.constData());
        const AlgorithmPtr algorithm(d2i_X509_ALGOR(nullptr, &in, head.contentEncryption.size()));
        result.contentEncryption = algorithmName(algorithm.get());
    } catch (const BerReader::Error&) {
        ERR_clear_error();
        result.failure = TVXCmsParser::notCmsMessage();
        return result;
    }

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
