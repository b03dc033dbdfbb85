#include "crypto/NivoCryptoOperation.h"

#include <atomic>
#include <exception>
#include <mutex>
#include <optional>
#include <variant>

#include "crypto/CertificateTrust.h"
#include "crypto/CryptoLog.h"
#include "crypto/cms/CmsAlgorithms.h"
#include "crypto/cms/CmsArmour.h"
#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/ComTruvexIO_FileStream.h"
#include "crypto/toolkit/ComTruvexIO_MemoryStream.h"
#include "crypto/toolkit/TVXCmsGenerator.h"
#include "crypto/toolkit/TVXCmsParser.h"
#include "crypto/toolkit/TVXCmsParserCallback.h"
#include "crypto/toolkit/TVXCryptoProvider.h"
#include "crypto/toolkit/TVXException.h"
#include "crypto/toolkit/comTruvexCryptoBusinessLogic_CryptoParticipant.h"
#include "crypto/toolkit/comTruvexCrypto_Pkcs12Loader.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"
#include "platform/AtomicFile.h"

using namespace Qt::Literals::StringLiterals;
using Participant = comTruvexCryptoBusinessLogic_CryptoParticipant;

Q_LOGGING_CATEGORY(lcCrypto, "nivogx.crypto")

const QString NivoCryptoOperation::kNotRecipient =
    u"Decryption failed. You are not the recipient of the file."_s;
const QString NivoCryptoOperation::kNotEncryptedOrNotSupported =
    u"Decryption failed. File is either not encrypted or not supported."_s;
const QString NivoCryptoOperation::kInvalidSignature = u"Decryption failed: Invalid Signature."_s;
const QString NivoCryptoOperation::kUnverifiedSender =
    u"Decryption failed. The sender is not verified: %1."_s;

namespace {

const QString kNotRecipientMarker = u"Incomplete encoding during or after RecipientInfo"_s;
const QString kNotCmsMarker = u"Unrecognized top level CMS encoding"_s;
const QString kCannotWrite = u"Cannot write %1: %2"_s;

// Decrypted content is for the user's eyes only.
constexpr QFileDevice::Permissions kPlainFilePermissions =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner;

std::mutex& lookupMutex() {
    static std::mutex mutex;
    return mutex;
}

NivoCryptoOperation::SenderContext& contextSlot() {
    static NivoCryptoOperation::SenderContext context;
    return context;
}

// Replaces the file at `path` in one step; throws when that fails.
void writeWhole(const QString& path, const QByteArray& bytes,
                std::optional<QFileDevice::Permissions> permissions) {
    AtomicFile file(path);
    const bool written = file.open(permissions) &&
                         file.device()->write(bytes) == bytes.size() && file.commit();
    if (!written) {
        const QString reason =
            file.errorString().isEmpty() ? file.device()->errorString() : file.errorString();
        nivossl::fail(TVXStreamOperationException, kCannotWrite.arg(path, reason));
    }
}

}  // namespace

class NivoCryptoOperation::Steering {
public:
    explicit Steering(const Progress& progress) : m_progress(progress) {}

    // What the input stream reports to and checks before every block.
    [[nodiscard]] ComTruvexIO_FileStream::ReadProgress report() {
        return [this](qint64 done, qint64 total) { tell(done, total); };
    }
    [[nodiscard]] const std::atomic<bool>* stop() const noexcept { return &m_stopped; }
    // Asks once more, with the count reported last, when the work is done and its output not
    // yet placed; the input's check that follows fails once the answer was false.
    void askAtEnd() { tell(m_done, m_total); }
    [[nodiscard]] bool stopped() const noexcept { return m_stopped.load(); }

private:
    void tell(qint64 done, qint64 total) {
        m_done = done;
        m_total = total;
        if (m_progress && !m_stopped.load() && !m_progress(done, total)) {
            m_stopped.store(true);
        }
    }

    const Progress& m_progress;
    std::atomic<bool> m_stopped = false;
    qint64 m_done = 0;
    qint64 m_total = 0;
};

void NivoCryptoOperation::setSenderContext(SenderContext context) {
    const std::lock_guard lock(lookupMutex());
    contextSlot() = std::move(context);
}

NivoCryptoOperation::SenderContext NivoCryptoOperation::installedContext() {
    const std::lock_guard lock(lookupMutex());
    return contextSlot();
}

void NivoCryptoOperation::encode(TVXStream& source, TVXStream& sink, const NivoProfile& profile,
                                 const QString& password, const QList<QByteArray>& recipientList) {
    TVXCryptoProvider& provider = TVXDefaultCryptoProvider();
    ComTruvexIO_MemoryStream pfxStream(profile.Pfx);
    ComTruvexIO_MemoryStream certificateStream(profile.Cer);

    QList<TVXCmsEncryptedFor> recipients;
    recipients.reserve(recipientList.size() + 1);
    for (const QByteArray& certificate : recipientList) {
        ComTruvexIO_MemoryStream stream(certificate);
        recipients.append(TVXCmsEncryptedFor(Participant::initWithX509Cert(stream, provider)));
    }
    // The sender can always open what he sent.
    recipients.append(TVXCmsEncryptedFor(Participant::initWithX509Cert(certificateStream, provider)));

    const TVXCmsSignedBy signer(CmsAlgorithms::kSignatureAlgorithm,
                                Participant::initWithPfx(pfxStream, password, provider));

    TVXCmsGenerator(provider)
        .sign([&signer](TVXSignTransform& transform) {
            transform.setSigner({signer});
            transform.setIncludePlaintext(true);
            transform.setIncludeSignerCert(true);
        })
        .envelope([&recipients](TVXEnvelopeTransform& transform) {
            transform.setAlgorithmForEncryptionOfContent(CmsAlgorithms::kContentEncryption);
            transform.setRecipient(recipients);
        })
        .encodeFromSource(source, sink);

    pfxStream.close();
    certificateStream.close();
}

QString NivoCryptoOperation::encryptData(const QByteArray& data, const NivoProfile& profile,
                                         const QString& password,
                                         const QList<QByteArray>& recipientList,
                                         const QString& outputPath) {
    ComTruvexIO_MemoryStream source(data);
    ComTruvexIO_MemoryStream sink;
    encode(source, sink, profile, password, recipientList);
    writeWhole(outputPath, sink.readDataFromStartToEnd(), std::nullopt);
    sink.close();
    source.close();
    return u""_s;
}

RunResult NivoCryptoOperation::runToEnd(const Progress& progress,
                                        const std::function<QString(Steering&, RunResult&)>& work) {
    Steering steering(progress);
    RunResult result;
    try {
        result.detail = work(steering, result);
    } catch (const TVXException& e) {
        result.detail = e.description();
    } catch (const std::exception& e) {
        result.detail = QString::fromLocal8Bit(e.what());
    }
    if (!result.detail.isEmpty()) {
        result.status =
            steering.stopped() ? RunResult::Status::Cancelled : RunResult::Status::Failed;
        result.sender = {};
        result.placedPath.clear();
    }
    return result;
}

QString NivoCryptoOperation::encryptFile(const QString& inputPath, const NivoProfile& profile,
                                         const QString& password,
                                         const QList<QByteArray>& recipientList,
                                         const QString& outputPath) {
    const FileRun run{};
    Steering steering(run.progress);
    RunResult result;
    return encryptStreaming(inputPath, profile, password, recipientList, outputPath, run, steering,
                            result);
}

RunResult NivoCryptoOperation::encryptFile(const QString& inputPath, const NivoProfile& profile,
                                           const QString& password,
                                           const QList<QByteArray>& recipientList,
                                           const QString& outputPath, const FileRun& run) {
    return runToEnd(run.progress, [&](Steering& steering, RunResult& result) {
        return encryptStreaming(inputPath, profile, password, recipientList, outputPath, run,
                                steering, result);
    });
}

QString NivoCryptoOperation::encryptStreaming(const QString& inputPath, const NivoProfile& profile,
                                              const QString& password,
                                              const QList<QByteArray>& recipientList,
                                              const QString& outputPath, const FileRun& run,
                                              Steering& steering, RunResult& result) {
    const auto source =
        ComTruvexIO_FileStream::initForReading(inputPath, steering.report(), steering.stop());
    const auto sink = ComTruvexIO_FileStream::initForWriting(outputPath);
    try {
        encode(*source, *sink, profile, password, recipientList);
    } catch (const TVXException&) {
        explainFailure(*source, *sink);
        throw;
    }
    steering.askAtEnd();
    source->ensureIntact();
    result.placedPath = place(*sink, outputPath, run);
    sink->close();
    source->close();
    return u""_s;
}

QString NivoCryptoOperation::place(ComTruvexIO_FileStream& sink, const QString& outputPath,
                                   const FileRun& run) {
    if (run.handOver) {
        sink.handOver(run.handOver);
        return {};
    }
    if (!run.armoured) {
        sink.commit(run.nextName);
        return sink.path();
    }
    // The message, complete, is written once more as text, which appears only complete too.
    QString placed;
    sink.handOver([&](QIODevice& message) {
        AtomicFile text(outputPath);
        if (!text.open()) {
            return text.errorString();
        }
        if (const QString failure = CmsArmour::wrap(message, *text.device()); !failure.isEmpty()) {
            return failure;
        }
        const bool committed = run.nextName ? text.commitAsNew(run.nextName) : text.commit();
        if (!committed) {
            return text.errorString();
        }
        placed = text.path();
        return QString();
    });
    return placed;
}

void NivoCryptoOperation::explainFailure(const ComTruvexIO_FileStream& source,
                                         const ComTruvexIO_FileStream& sink) {
    source.ensureIntact();
    if (const QString failure = sink.writeFailure(); !failure.isEmpty()) {
        ERR_clear_error();
        nivossl::fail(TVXStreamOperationException, failure);
    }
}

void NivoCryptoOperation::forgetOpenedKeys() {
    comTruvexCrypto_Pkcs12Loader::forgetOpenedKeyFiles();
}

QString NivoCryptoOperation::judge(const TVXCmsParseResult& result, const NivoProfile& profile,
                                   const SenderContext& context, SenderVerdict& sender) {
    if (result.errorOrExceptionOccurred()) {
        const TVXErrorOrException& failure = result.firstErrorOrException();
        if (const auto* error = std::get_if<TVXError>(&failure)) {
            const QString& description = error->description();
            qCWarning(lcCrypto).noquote() << u"decrypt error:%1"_s.arg(description);
            if (description.contains(kNotRecipientMarker)) {
                return kNotRecipient;
            }
            if (description.contains(kNotCmsMarker)) {
                return kNotEncryptedOrNotSupported;
            }
            return description;
        }
        const auto& exception = std::get<TVXException>(failure);
        qCWarning(lcCrypto).noquote() << u"exception: %1"_s.arg(exception.description());
        return exception.description();
    }
    if (!result.allSignatureValid()) {
        return kInvalidSignature;
    }
    // The last signer names the sender: the user by login name, a known contact by NIVO ID,
    // anyone else by the certificate's common name.
    const QList<TVXX509Certificate>& certificates = result.getAllSignerCert();
    for (const TVXX509Certificate& certificate : certificates) {
        sender.name = certificate.subjectCN();
        const QByteArray der = certificate.asRawData();
        if (der == profile.Cer) {
            sender.name = profile.LoginName;
        } else if (const QString nivoId = context.nivoIdOf ? context.nivoIdOf(der) : QString();
                   !nivoId.isEmpty()) {
            sender.name = nivoId;
        }
    }
    // The same signer decides whether the name can be believed.
    sender.impersonatedContact.clear();
    if (certificates.isEmpty()) {
        sender.trust = SenderVerdict::Trust::NoCertificate;
        return context.requireVerified ? kUnverifiedSender.arg(sender.reason()) : u""_s;
    }
    const TVXX509Certificate& decider = certificates.constLast();
    sender.trust = CertificateTrust::judgeSigner(decider, result.getSigningTimes().constLast(),
                                                 context.serviceRoot);
    // A stranger's certificate that takes a contact's name: the contact's own would have been
    // named by the lookup above.
    const QString claimed = decider.subjectCN().toLower();
    if (!sender.verified() && decider.asRawData() != profile.Cer && context.isContact &&
        !claimed.isEmpty() && context.isContact(claimed) &&
        (!context.nivoIdOf || context.nivoIdOf(decider.asRawData()) != claimed)) {
        sender.impersonatedContact = claimed;
    }
    return context.requireVerified && !sender.verified() ? kUnverifiedSender.arg(sender.reason())
                                                         : u""_s;
}

QString NivoCryptoOperation::decryptData(const QByteArray& data, const NivoProfile& profile,
                                         const QString& password, const QString& outputPath,
                                         QString& sender) {
    SenderVerdict verdict{.name = sender, .trust = {}, .impersonatedContact = {}};
    const QString outcome =
        decryptData(data, profile, password, outputPath, verdict, installedContext());
    sender = verdict.name;
    return outcome;
}

// Opens the message in `source` into `sink`; "" when every signature checked out, with the sender
// named, else the failure text with `sender` untouched.
QString NivoCryptoOperation::decodeTo(TVXStream& source, TVXStream& sink,
                                      const NivoProfile& profile, const QString& password,
                                      const SenderContext& context, SenderVerdict& sender) {
    TVXCryptoProvider& provider = TVXDefaultCryptoProvider();
    ComTruvexIO_MemoryStream pfxStream(profile.Pfx);
    const Participant user = Participant::participantPfx(pfxStream, password, provider);
    pfxStream.close();

    TVXCmsParserCallback callback({user}, {user}, &sink, &source);
    const TVXCmsParseResult result = TVXCmsParser().parseEncodedStream(source, callback);
    SenderVerdict named = sender;
    const QString outcome = judge(result, profile, context, named);
    if (outcome.isEmpty()) {
        sender = named;
    }
    return outcome;
}

QString NivoCryptoOperation::decryptData(const QByteArray& data, const NivoProfile& profile,
                                         const QString& password, const QString& outputPath,
                                         SenderVerdict& sender, const SenderContext& context) {
    ComTruvexIO_MemoryStream source(data);
    ComTruvexIO_MemoryStream sink;
    SenderVerdict named = sender;
    const QString outcome = decodeTo(source, sink, profile, password, context, named);
    if (outcome.isEmpty()) {
        writeWhole(outputPath, sink.readDataFromStartToEnd(), kPlainFilePermissions);
        sender = named;
    }
    source.close();
    sink.close();
    return outcome;
}

QString NivoCryptoOperation::decryptFile(const QString& inputPath, const NivoProfile& profile,
                                         const QString& password, const QString& outputPath,
                                         QString& sender) {
    const FileRun run{};
    Steering steering(run.progress);
    RunResult result;
    result.sender.name = sender;
    const QString outcome = decryptStreaming(inputPath, profile, password, outputPath,
                                             installedContext(), run, steering, result);
    sender = result.sender.name;
    return outcome;
}

RunResult NivoCryptoOperation::decryptFile(const QString& inputPath, const NivoProfile& profile,
                                           const QString& password, const QString& outputPath,
                                           const SenderContext& context, const FileRun& run) {
    return runToEnd(run.progress, [&](Steering& steering, RunResult& result) {
        return decryptStreaming(inputPath, profile, password, outputPath, context, run, steering,
                                result);
    });
}

QString NivoCryptoOperation::decryptStreaming(const QString& inputPath, const NivoProfile& profile,
                                              const QString& password, const QString& outputPath,
                                              const SenderContext& context, const FileRun& run,
                                              Steering& steering, RunResult& result) {
    const auto source =
        ComTruvexIO_FileStream::initForReading(inputPath, steering.report(), steering.stop());
    const auto sink = ComTruvexIO_FileStream::initForWriting(outputPath, kPlainFilePermissions);
    SenderVerdict named = result.sender;
    QString outcome;
    try {
        outcome = decodeTo(*source, *sink, profile, password, context, named);
    } catch (const TVXException&) {
        explainFailure(*source, *sink);
        throw;
    }
    // A message cut short or grown while it was read fails as such, whatever the decoder said.
    steering.askAtEnd();
    source->ensureIntact();
    if (outcome.isEmpty()) {
        result.placedPath = place(*sink, outputPath, run);
        result.sender = named;
    } else if (const QString failure = sink->writeFailure(); !failure.isEmpty()) {
        outcome = failure;
    }
    // Without a commit the content written so far is discarded.
    sink->close();
    source->close();
    return outcome;
}
