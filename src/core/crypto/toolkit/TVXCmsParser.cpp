#include "crypto/toolkit/TVXCmsParser.h"

#include <algorithm>
#include <array>
#include <exception>
#include <optional>

#include "crypto/cms/BerOctetsBio.h"
#include "crypto/cms/BerReader.h"
#include "crypto/cms/BioBerSource.h"
#include "crypto/cms/CmsHead.h"
#include "crypto/cms/HandoffPipe.h"
#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/CmsSignatureCheck.h"
#include "crypto/toolkit/TVXCmsParserCallback.h"
#include "crypto/toolkit/TVXStream.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

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
const QString kNotSupported = u"Not Supported Exception"_s;
const QString kCannotWriteDecoded = u"Cannot write the decoded content"_s;

constexpr int kMaxLevel = 8;

// A fault of the message itself; becomes a TVXError in the result.
struct MessageError {
    QString description;
};

QString typeName(int nid) {
    const char* name = OBJ_nid2ln(nid);
    return name != nullptr ? QString::fromUtf8(name) : QString::number(nid);
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

using Header = BerReader::Header;

constexpr quint8 kContext = BerReader::kContext;
constexpr qint64 kMaxOidSize = CmsHead::kMaxOidSize;
// The authentication tag of AuthEnvelopedData.
constexpr qint64 kMaxTagSize = 64;
// The piece in which decoded content is passed on.
constexpr int kCopyChunk = 64 * 1024;

constexpr std::array kContentTypes{
    NID_pkcs7_data,         NID_pkcs7_signed,        NID_pkcs7_enveloped,
    NID_pkcs7_signedAndEnveloped, NID_pkcs7_digest,  NID_pkcs7_encrypted,
    NID_id_smime_ct_compressedData, NID_id_smime_ct_authEnvelopedData,
    NID_id_smime_ct_authData};

using CarrierError = BioBerSource::CarrierError;

// A content-less layer rebuilt by CmsHead for OpenSSL; a message whose kept parts OpenSSL
// refuses is damaged.
nivossl::CmsPtr accepted(nivossl::CmsPtr cms) {
    if (!cms) {
        throw MessageError{kDamaged.arg(nivossl::Errors::drain().text())};
    }
    return cms;
}

// The digest BIOs that CMS_dataInit pushed on a BIO we do not own; frees exactly those.
class DigestChain {
public:
    DigestChain(BIO* head, BIO* below) : m_head(head), m_below(below) {}
    ~DigestChain() {
        BIO* bio = m_head;
        while (bio != nullptr && bio != m_below) {
            BIO* next = BIO_pop(bio);
            BIO_free(bio);
            bio = next;
        }
    }
    DigestChain(const DigestChain&) = delete;
    DigestChain& operator=(const DigestChain&) = delete;

    [[nodiscard]] BIO* head() const noexcept { return m_head; }

private:
    BIO* m_head;
    BIO* m_below;
};

// Reads the message front to back: the small parts (recipient entries, algorithms, certificates,
// signer entries) are kept and handed to OpenSSL as content-less messages; the content streams
// through OpenSSL's decryption and digests into the decoded stream. Signatures are judged only
// once the content has passed, so the decoded stream holds unverified content until then.
class ParseRun {
public:
    ParseRun(TVXCmsParserCallback& callback, TVXCmsParseResult& result)
        : m_callback(callback), m_result(result) {}

    void parse(BIO* in) {
        BioBerSource source(in, m_pending);
        BerReader reader(source);
        int type = NID_undef;
        try {
            type = CmsHead::oidNid(CmsHead::readContentType(reader));
        } catch (const BerReader::Error&) {
            throw MessageError{kNotCms};
        }
        if (std::find(kContentTypes.begin(), kContentTypes.end(), type) == kContentTypes.end()) {
            throw MessageError{kNotCms};
        }
        openTyped(reader, type, 0);
    }

private:
    // The rest of a ContentInfo of `type`, its SEQUENCE entered and its type read; leaves it.
    void openTyped(BerReader& reader, int type, int level) {
        if (level > kMaxLevel) {
            throw MessageError{kTooDeep};
        }
        switch (type) {
        case NID_pkcs7_enveloped:
        case NID_id_smime_ct_authEnvelopedData:
            openEnveloped(reader, type, level);
            reader.leave();
            reader.leave();
            return;
        case NID_id_smime_ct_compressedData:
            (void)m_callback.getDetachedCompressedDataForEncodingLevel(level);
            throw MessageError{kNotSupported};
        case NID_pkcs7_signed: {
            if (level == 0) {
                throw MessageError{kNotEncrypted.arg(typeName(type))};
            }
            const Header explicitContent = reader.expect(kContext, 0, true, "content");
            reader.enter(explicitContent);
            openSigned(reader, level, std::nullopt);
            reader.leave();
            reader.leave();
            return;
        }
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

    // What an enveloped layer carried: a whole ContentInfo (under id-data or id-signedData) or a
    // bare SignedData (under id-signedData).
    void openInner(BerReader& reader, int innerType, int level) {
        if (innerType != NID_pkcs7_data && innerType != NID_pkcs7_signed) {
            throw MessageError{kUnsupportedInner.arg(typeName(innerType))};
        }
        // Content that is no ContentInfo was never signed; under id-signedData it is damaged.
        const auto notContentInfo = [innerType](const QString& detail) {
            return MessageError{innerType == NID_pkcs7_data ? kUnsigned : kDamaged.arg(detail)};
        };
        std::optional<Header> first;
        try {
            const std::optional<Header> outer = reader.next();
            if (!outer || !outer->isUniversal(BerReader::kTagSequence) || !outer->constructed) {
                throw notContentInfo(u"no SEQUENCE"_s);
            }
            reader.enter(*outer);
            first = reader.next();
        } catch (const CarrierError&) {
            throw;
        } catch (const BerReader::Error& error) {
            throw notContentInfo(error.message());
        }
        if (first && innerType == NID_pkcs7_signed &&
            first->isUniversal(BerReader::kTagInteger) && !first->constructed) {
            openSigned(reader, level, first);
            return;
        }
        int type = NID_undef;
        if (first && first->isUniversal(BerReader::kTagOid) && !first->constructed) {
            try {
                type = CmsHead::oidNid(reader.capture(*first, kMaxOidSize));
            } catch (const CarrierError&) {
                throw;
            } catch (const BerReader::Error& error) {
                throw notContentInfo(error.message());
            }
        }
        if (std::find(kContentTypes.begin(), kContentTypes.end(), type) == kContentTypes.end()) {
            throw notContentInfo(u"no content type"_s);
        }
        openTyped(reader, type, level);
    }

    // EnvelopedData or AuthEnvelopedData, from its [0]; leaves its SEQUENCE.
    void openEnveloped(BerReader& reader, int type, int level) {
        const bool authenticated = type == NID_id_smime_ct_authEnvelopedData;
        const CmsHead head = CmsHead::readEnveloped(reader, type);
        if (!head.content) {
            (void)m_callback.getDetachedCiphertextForEncodingLevel(level);
            throw MessageError{kNotSupported};
        }
        const nivossl::CmsPtr cms = accepted(head.withoutContent());

        const QList<Participant> recipients = m_callback.getRecipientForEncodingLevel(level);
        const Participant* opener = nullptr;
        for (const Participant& recipient : recipients) {
            if (recipient.hasPrivateKey() &&
                isRecipient(cms.get(), recipient.certificate().handle())) {
                opener = &recipient;
                break;
            }
        }
        if (opener == nullptr) {
            throw MessageError{kNotForUs};
        }
        if (CMS_decrypt_set1_pkey_and_peer(cms.get(), opener->privateKey(),
                                           opener->certificate().handle(), nullptr) != 1) {
            throw MessageError{kCannotDecrypt.arg(nivossl::Errors::drain().text())};
        }

        BerOctetsBio feed(reader, m_pending);
        nivossl::BioPtr ciphertext = feed.bio();
        if (!ciphertext) {
            throw MessageError{kCannotDecrypt.arg(nivossl::Errors::drain().text())};
        }
        reader.beginOctets(*head.content);
        const nivossl::BioPtr plain(CMS_dataInit(cms.get(), ciphertext.get()));
        if (!plain) {
            throw MessageError{kCannotDecrypt.arg(nivossl::Errors::drain().text())};
        }
        (void)ciphertext.release();  // now the end of the plain chain
        // What follows the content must be read before the decryption finishes: an
        // authenticated layer's tag comes after it.
        feed.setAtEnd([&reader, authenticated, cipher = plain.get()] {
            reader.leave();
            finishEnveloped(reader, authenticated, cipher);
        });

        BioBerSource plainSource(plain.get(), m_pending);
        BerReader inner(plainSource);
        openInner(inner, OBJ_obj2nid(CMS_get0_eContentType(cms.get())), level + 1);
        // Whatever follows the inner layer is ignored, but it must be decrypted to the end so
        // that the padding or tag is checked.
        std::array<char, 4096> rest{};
        while (plainSource.read(rest.data(), rest.size()) > 0) {
        }
        if (!feed.ended() || BIO_get_cipher_status(plain.get()) != 1) {
            throw MessageError{kCannotDecrypt.arg(nivossl::Errors::drain().text())};
        }
    }

    // The fields after the encrypted content, up to the end of the enveloped layer.
    static void finishEnveloped(BerReader& reader, bool authenticated, BIO* cipher) {
        while (const std::optional<Header> header = reader.next()) {
            if (authenticated && header->isUniversal(BerReader::kTagOctetString) &&
                !header->constructed) {
                QByteArray tag = reader.capture(*header, kMaxTagSize);
                const qsizetype size = tag.size() - header->raw.size();
                EVP_CIPHER_CTX* context = nullptr;
                if (size <= 0 || BIO_get_cipher_ctx(cipher, &context) != 1 ||
                    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, static_cast<int>(size),
                                        tag.data() + header->raw.size()) <= 0) {
                    throw MessageError{kCannotDecrypt.arg(nivossl::Errors::drain().text())};
                }
            } else if (authenticated && header->is(kContext, 1)) {
                throw MessageError{kUnsupportedInner.arg(u"authenticated attributes"_s)};
            } else if (header->tagClass == kContext) {
                reader.skip(*header);  // unprotected attributes
            } else {
                throw BerReader::Error(u"the enveloped layer holds more than expected"_s);
            }
        }
        reader.leave();
    }

    // SignedData: its SEQUENCE is entered when `version` is given (read already), else it is
    // next. Streams the content to the decoded stream, then checks every signature; leaves the
    // SEQUENCE.
    void openSigned(BerReader& reader, int level, std::optional<Header> version) {
        if (!version) {
            reader.enter(reader.expect(BerReader::kUniversal, BerReader::kTagSequence, true,
                                       "signed layer"));
            version = reader.expect(BerReader::kUniversal, BerReader::kTagInteger, false,
                                    "version");
        }
        QByteArray fields = reader.capture(*version);
        fields += reader.capture(reader.expect(BerReader::kUniversal, BerReader::kTagSet, true,
                                               "digest algorithms"));
        reader.enter(reader.expect(BerReader::kUniversal, BerReader::kTagSequence, true,
                                   "encapsulated content"));
        const QByteArray contentType = reader.capture(
            reader.expect(BerReader::kUniversal, BerReader::kTagOid, false, "content type"),
            kMaxOidSize);
        fields += CmsHead::derOf(0x30, contentType);
        const std::optional<Header> explicitContent = reader.next();
        if (!explicitContent) {
            // Content signed apart from the message cannot be streamed alongside it.
            throw MessageError{kNotSupported};
        }
        if (!explicitContent->is(kContext, 0) || !explicitContent->constructed) {
            throw BerReader::Error(u"the signed content is not where it belongs"_s);
        }
        reader.enter(*explicitContent);
        const std::optional<Header> octets = reader.next();
        if (!octets || !octets->isUniversal(BerReader::kTagOctetString)) {
            throw BerReader::Error(u"the signed content is no OCTET STRING"_s);
        }
        TVXStream* decoded = m_callback.getDecoded();
        if (decoded == nullptr) {
            throw MessageError{kNoDestination};
        }
        BIO* out = decoded->bio();

        // Digests for the listed algorithms (the signer entries come after the content), on top of
        // the decoded stream: a second thread digests and writes the content while this one
        // decrypts and reads it.
        const nivossl::CmsPtr digests =
            accepted(CmsHead::contentInfo(NID_pkcs7_signed, fields + "\x31\x00"_ba));
        const DigestChain chain(CMS_dataInit(digests.get(), out), out);
        if (chain.head() == nullptr) {
            throw MessageError{kCannotVerify.arg(nivossl::Errors::drain().text())};
        }
        reader.beginOctets(*octets);
        {
            HandoffPipe pipe(chain.head());
            std::array<char, kCopyChunk> buffer{};
            while (const qint64 read = reader.readOctets(buffer.data(), kCopyChunk)) {
                if (BIO_write(pipe.bio(), buffer.data(), static_cast<int>(read)) != read) {
                    break;  // the second thread failed; finish() says so
                }
            }
            QString failure;
            if (!pipe.finish(failure)) {
                nivossl::fail(TVXStreamOperationException,
                              failure.isEmpty() ? kCannotWriteDecoded
                                                : kCannotWriteDecoded + u" ("_s + failure + u')');
            }
        }
        reader.leave();
        reader.leave();

        while (const std::optional<Header> header = reader.next()) {
            if (header->is(kContext, 0) || header->is(kContext, 1) ||
                header->isUniversal(BerReader::kTagSet)) {
                fields += reader.capture(*header);  // certificates, CRLs, signer entries
            } else {
                throw BerReader::Error(u"the signed layer holds more than expected"_s);
            }
        }
        reader.leave();
        const nivossl::CmsPtr cms = accepted(CmsHead::contentInfo(NID_pkcs7_signed, fields));
        verify(cms.get(), chain.head(), level);
    }

    // Each signature must match its certificate and the content that streamed through
    // `digests`.
    void verify(CMS_ContentInfo* cms, BIO* digests, int level) {
        const QString problem = CmsSignatureCheck::check(
            cms, digests, [&] { return m_callback.getSignerForEncodingLevel(level); }, m_result);
        if (!problem.isEmpty()) {
            throw MessageError{kCannotVerify.arg(problem)};
        }
    }

    TVXCmsParserCallback& m_callback;
    TVXCmsParseResult& m_result;
    // A fault parked by a BIO callback, raised again once control is back in our code.
    std::exception_ptr m_pending;
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
        ParseRun(callback, result).parse(source.bio());
    } catch (const MessageError& error) {
        result.recordFailure(TVXError(error.description));
    } catch (const BerReader::Error& error) {
        result.recordFailure(TVXError(kDamaged.arg(error.message())));
    } catch (const TVXException& exception) {
        result.recordFailure(exception);
    }
    ERR_clear_error();
    return result;
}
