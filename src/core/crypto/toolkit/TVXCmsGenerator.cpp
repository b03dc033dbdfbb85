#include "crypto/toolkit/TVXCmsGenerator.h"

#include <array>

#include "crypto/cms/CmsAlgorithmsOpenSsl.h"
#include "crypto/cms/HandoffPipe.h"
#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/TVXStream.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kNoLayers = u"Nothing to encode: no sign or envelope step was configured"_s;
const QString kNoSigner = u"A signed layer needs at least one signer with a private key"_s;
const QString kDetachedUnsupported = u"Detached signatures are not supported"_s;
const QString kNoRecipients = u"An enveloped layer needs at least one recipient"_s;
const QString kUnknownCipher = u"Unsupported content-encryption algorithm"_s;
const QString kUnknownSignature = u"Unsupported signature algorithm %1"_s;
const QString kCannotSign = u"Cannot set up the signature"_s;
const QString kCannotEnvelope = u"Cannot set up the encryption for a recipient"_s;
const QString kCannotStart = u"Cannot start encoding the message"_s;
const QString kCannotRead = u"Cannot read the content"_s;
const QString kCannotWrite = u"Cannot encode the message"_s;

constexpr unsigned int kStreamFlags = CMS_BINARY | CMS_PARTIAL | CMS_STREAM;

nivossl::CmsPtr makeSigned(const TVXSignTransform& transform) {
    if (transform.signers().isEmpty()) {
        nivossl::fail(TVXCryptoOperationException, kNoSigner);
    }
    if (!transform.includePlaintext()) {
        nivossl::fail(TVXNotSupportedException, kDetachedUnsupported);
    }
    nivossl::CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, kStreamFlags));
    if (!cms) {
        nivossl::fail(TVXCryptoOperationException, kCannotSign);
    }
    for (const TVXCmsSignedBy& signer : transform.signers()) {
        const EVP_MD* digest = CmsAlgorithms::signatureDigest(signer.signatureAlgorithm());
        if (digest == nullptr) {
            nivossl::fail(TVXNotSupportedException,
                          kUnknownSignature.arg(signer.signatureAlgorithm()));
        }
        if (!signer.participant().hasPrivateKey()) {
            nivossl::fail(TVXCryptoOperationException, kNoSigner);
        }
        const unsigned int flags = kStreamFlags | CmsAlgorithms::signerFlags() |
                                   (transform.includeSignerCert() ? 0U : CMS_NOCERTS);
        // add1: the message takes its own references to certificate and key.
        if (CMS_add1_signer(cms.get(), signer.participant().certificate().handle(),
                            signer.participant().privateKey(), digest, flags) == nullptr) {
            nivossl::fail(TVXCryptoOperationException, kCannotSign);
        }
    }
    return cms;
}

nivossl::CmsPtr makeEnveloped(const TVXEnvelopeTransform& transform) {
    const EVP_CIPHER* cipher =
        transform.algorithm() ? CmsAlgorithms::contentCipher(*transform.algorithm()) : nullptr;
    if (cipher == nullptr) {
        nivossl::fail(TVXNotSupportedException, kUnknownCipher);
    }
    if (transform.recipients().isEmpty()) {
        nivossl::fail(TVXCryptoOperationException, kNoRecipients);
    }
    nivossl::CmsPtr cms(CMS_encrypt(nullptr, nullptr, cipher, kStreamFlags));
    if (!cms) {
        nivossl::fail(TVXCryptoOperationException, kCannotEnvelope);
    }
    for (const TVXCmsEncryptedFor& recipient : transform.recipients()) {
        X509* certificate = recipient.participant().certificate().handle();
        EVP_PKEY* key = X509_get0_pubkey(certificate);
        if (key == nullptr) {
            nivossl::fail(TVXCryptoOperationException, kCannotEnvelope);
        }
        CMS_RecipientInfo* info = CMS_add1_recipient_cert(
            cms.get(), certificate, CMS_BINARY | CmsAlgorithms::recipientFlags(key));
        if (info == nullptr || !CmsAlgorithms::configureRecipient(info)) {
            nivossl::fail(TVXCryptoOperationException, kCannotEnvelope);
        }
    }
    return cms;
}

// One layer's streaming encoder, pushed on top of the next outer layer's (or the sink). Tearing it
// down pops and frees exactly the BIOs it added.
class LayerEncoder {
public:
    LayerEncoder(CMS_ContentInfo* cms, BIO* next) : m_next(next) {
        m_head = BIO_new_NDEF(next, reinterpret_cast<ASN1_VALUE*>(cms),
                              ASN1_ITEM_rptr(CMS_ContentInfo));
        if (m_head == nullptr) {
            nivossl::fail(TVXCryptoOperationException, kCannotStart);
        }
    }
    ~LayerEncoder() {
        BIO* bio = m_head;
        while (bio != nullptr && bio != m_next) {
            BIO* below = BIO_pop(bio);
            BIO_free(bio);
            bio = below;
        }
    }
    LayerEncoder(const LayerEncoder&) = delete;
    LayerEncoder& operator=(const LayerEncoder&) = delete;

    [[nodiscard]] BIO* head() const noexcept { return m_head; }

private:
    BIO* m_head = nullptr;
    BIO* m_next;
};

// The encoders of all layers; each inner one sits on the head of the next outer one, so they are
// torn down innermost first.
class EncoderStack {
public:
    EncoderStack() = default;
    ~EncoderStack() { clear(); }
    EncoderStack(const EncoderStack&) = delete;
    EncoderStack& operator=(const EncoderStack&) = delete;

    BIO* push(CMS_ContentInfo* cms, BIO* next) {
        m_encoders.push_back(std::make_unique<LayerEncoder>(cms, next));
        return m_encoders.back()->head();
    }
    void clear() noexcept {
        while (!m_encoders.empty()) {
            m_encoders.pop_back();
        }
    }

private:
    std::vector<std::unique_ptr<LayerEncoder>> m_encoders;
};

long bioControl(BIO* bio, int command) {
    return BIO_ctrl(bio, command, 0, nullptr);
}

// Up to `size` bytes; 0 at the end of the source.
int readChunk(BIO* in, char* buffer, int size) {
    const int read = BIO_read(in, buffer, size);
    if (read > 0) {
        return read;
    }
    if (read == 0 || bioControl(in, BIO_CTRL_EOF) == 1) {
        return 0;
    }
    nivossl::fail(TVXStreamOperationException, kCannotRead);
}

void writeAll(BIO* out, const char* data, int size) {
    // Filter BIOs may take less than offered; the rest is offered again.
    for (int written = 0; written < size;) {
        const int taken = BIO_write(out, data + written, size - written);
        if (taken <= 0) {
            nivossl::fail(TVXCryptoOperationException, kCannotWrite);
        }
        written += taken;
    }
}

// OpenSSL's streaming encoder writes nothing at all for a content it never saw, so an empty
// content is encoded whole, one layer at a time, innermost first.
void encodeEmpty(const std::vector<nivossl::CmsPtr>& messages, BIO* out) {
    QByteArray content;
    for (const nivossl::CmsPtr& message : messages) {
        const nivossl::BioPtr in = nivossl::readOnlyBio(content);
        const nivossl::BioPtr encoded(BIO_new(BIO_s_mem()));
        if (!in || !encoded || CMS_final(message.get(), in.get(), nullptr, CMS_BINARY) != 1 ||
            i2d_CMS_bio(encoded.get(), message.get()) != 1) {
            nivossl::fail(TVXCryptoOperationException, kCannotWrite);
        }
        content = nivossl::memBioBytes(encoded.get());
    }
    writeAll(out, content.constData(), static_cast<int>(content.size()));
}

}  // namespace

TVXCmsGenerator& TVXCmsGenerator::sign(const std::function<void(TVXSignTransform&)>& configure) {
    TVXSignTransform transform;
    configure(transform);
    m_layers.emplace_back(std::move(transform));
    return *this;
}

TVXCmsGenerator& TVXCmsGenerator::envelope(
    const std::function<void(TVXEnvelopeTransform&)>& configure) {
    TVXEnvelopeTransform transform;
    configure(transform);
    m_layers.emplace_back(std::move(transform));
    return *this;
}

void TVXCmsGenerator::encodeFromSource(TVXStream& source, TVXStream& sink) {
    ERR_clear_error();
    if (m_layers.empty()) {
        nivossl::fail(TVXCryptoOperationException, kNoLayers);
    }
    std::vector<nivossl::CmsPtr> messages;
    for (const auto& layer : m_layers) {
        messages.push_back(std::visit(
            [](const auto& transform) {
                if constexpr (std::is_same_v<std::decay_t<decltype(transform)>, TVXSignTransform>) {
                    return makeSigned(transform);
                } else {
                    return makeEnveloped(transform);
                }
            },
            layer));
    }

    BIO* in = source.bio();
    BIO* out = sink.bio();
    std::array<char, 64 * 1024> buffer{};
    int read = readChunk(in, buffer.data(), static_cast<int>(buffer.size()));
    if (read == 0) {
        encodeEmpty(messages, out);
        ERR_clear_error();
        return;
    }
    // Outermost layer first, so that each inner layer writes its encoding into the next outer
    // one. With more than one layer, the innermost one runs on this thread and the others on a
    // second one, and a third thread writes the result to the sink: the cipher hands its output
    // on in small pieces, and writing those into the sink cost the encrypting thread about as
    // much as the cipher itself. The encoders are destroyed innermost first, the outer
    // ones after their thread, the sink's writer after every encoder that feeds it.
    std::unique_ptr<HandoffPipe> sinkWriter;
    BIO* next = out;
    if (messages.size() > 1) {
        sinkWriter = std::make_unique<HandoffPipe>(out);
        next = sinkWriter->bio();
    }
    EncoderStack outerEncoders;
    for (auto message = messages.rbegin(); message + 1 != messages.rend(); ++message) {
        next = outerEncoders.push(message->get(), next);
    }
    std::unique_ptr<HandoffPipe> pipe;
    if (messages.size() > 1) {
        pipe = std::make_unique<HandoffPipe>(next);
        next = pipe->bio();
    }
    EncoderStack innerEncoder;
    next = innerEncoder.push(messages.front().get(), next);
    do {
        writeAll(next, buffer.data(), read);
        read = readChunk(in, buffer.data(), static_cast<int>(buffer.size()));
    } while (read > 0);
    // Flushing the innermost encoder finishes it and, through the pipe, every outer layer.
    const bool finished = bioControl(next, BIO_CTRL_FLUSH) > 0;
    innerEncoder.clear();
    QString failure;
    bool handedOver = !pipe || pipe->finish(failure);
    pipe.reset();
    // The sink's own account of a failure says more than that of the thread writing into it.
    if (QString sinkFailure; sinkWriter && !sinkWriter->finish(sinkFailure)) {
        handedOver = false;
        failure = sinkFailure;
    }
    outerEncoders.clear();
    sinkWriter.reset();
    if (!finished || !handedOver) {
        nivossl::fail(TVXCryptoOperationException,
                      failure.isEmpty() ? kCannotWrite : kCannotWrite + u" ("_s + failure + u')');
    }
    ERR_clear_error();
}
