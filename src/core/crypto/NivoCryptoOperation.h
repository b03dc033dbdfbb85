#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>
#include <functional>

#include "crypto/RunResult.h"
#include "crypto/SenderVerdict.h"
#include "model/NivoProfile.h"

class QIODevice;
class TVXStream;
class TVXCmsParseResult;
class ComTruvexIO_FileStream;

// Protects one file for named recipients (signed by the user, enveloped for every recipient and,
// always last, for the user) and opens protected files addressed to the user. Class-level only;
// safe to run on a worker thread.
class NivoCryptoOperation {
public:
    NivoCryptoOperation() = delete;

    // Outcome texts of decryption.
    static const QString kNotRecipient;
    static const QString kNotEncryptedOrNotSupported;
    static const QString kInvalidSignature;
    // "%1" is the verdict's reason.
    static const QString kUnverifiedSender;

    // Certificate DER in, the NIVO ID of the contact holding that certificate out ("" when none).
    using NivoIdLookup = std::function<QString(const QByteArray& certDer)>;
    // What judging a file's sender needs besides the file. The lookups are called on the thread
    // that decrypts, so they must be safe to call there.
    struct SenderContext {
        // The root that issues people's certificates (DER); without one nobody is verified.
        QByteArray serviceRoot;
        // Names known senders; without it senders other than the user go by their CN.
        NivoIdLookup nivoIdOf;
        // Whether a contact has this (lower-cased) NIVO ID.
        std::function<bool(const QString& nivoId)> isContact;
        // Whether a file whose sender is not verified fails (kUnverifiedSender) instead of
        // opening with the verdict.
        bool requireVerified = false;
    };
    // Installs the context of the overloads that take none; set once at start-up, before any
    // operation runs.
    static void setSenderContext(SenderContext context);

    // Bytes of the input consumed so far and its size, told on the working thread when about a
    // MiB more was read, at the end of the input and once more when the work is done, before its
    // output is placed. The answer false stops the work within one block of input; it then leaves
    // no output and its result is Cancelled.
    using Progress = std::function<bool(qint64 done, qint64 total)>;

    // How the caller of a file run follows and steers it. Make one with braces (`FileRun run{};`),
    // which leaves every member empty.
    struct FileRun {
        Progress progress;
        // When given, the output never replaces a file: a name found taken when the output is
        // placed makes way for the one this returns for it ("" to give up).
        std::function<QString(const QString& taken)> nextName;
        // When given, the complete output (after every check) is handed to it, read from its
        // start, instead of being placed: for output that goes to a pipe. It answers "" or its
        // failure, which fails the run; the output never has a name.
        std::function<QString(QIODevice& output)> handOver;
        // Encryption: the output is placed as PEM text instead of binary.
        bool armoured;
    };

    // Forgets every key file opened so far (see comTruvexCrypto_Pkcs12Loader); called at sign-out.
    static void forgetOpenedKeys();

    // Both return "" on success and throw a TVXException on any failure (wrong password, a bad
    // recipient certificate, a read or write failure). Duplicate recipients are kept; the user is
    // always added as the last recipient. An existing file at the output path is replaced only on
    // success; on failure it stays as it was and nothing new appears there.
    [[nodiscard]] static QString encryptData(const QByteArray& data, const NivoProfile& profile,
                                             const QString& password,
                                             const QList<QByteArray>& recipientList,
                                             const QString& outputPath);
    // Streams from the input file to the output in constant memory, whatever the file's size;
    // the output is written beside its path and takes its place only once complete. An input
    // that changes while it is read fails the operation.
    [[nodiscard]] static QString encryptFile(const QString& inputPath, const NivoProfile& profile,
                                             const QString& password,
                                             const QList<QByteArray>& recipientList,
                                             const QString& outputPath);
    // The same as a run that `run` follows and steers; it throws nothing, every failure comes
    // back in the result with its text.
    [[nodiscard]] static RunResult encryptFile(const QString& inputPath, const NivoProfile& profile,
                                               const QString& password,
                                               const QList<QByteArray>& recipientList,
                                               const QString& outputPath, const FileRun& run);

    // Both return "" on success, with the sender named in `sender`: the user's LoginName for the
    // user's own certificate, else the contact's NIVO ID, else the certificate's CN (the last
    // signer decides). Any failure of the message comes back as a text, with nothing written and
    // `sender` untouched. They throw a TVXException only when the key file cannot be opened (e.g.
    // wrong password) or a file cannot be read or written. As with encryption, an existing output
    // file is replaced only on success.
    [[nodiscard]] static QString decryptData(const QByteArray& data, const NivoProfile& profile,
                                             const QString& password, const QString& outputPath,
                                             QString& sender);
    // The same with the installed context replaced by `context`, so that a caller on a worker
    // thread can bring lookups that are safe there, and with the verdict on the sender.
    [[nodiscard]] static QString decryptData(const QByteArray& data, const NivoProfile& profile,
                                             const QString& password, const QString& outputPath,
                                             SenderVerdict& sender, const SenderContext& context);
    // Streams in constant memory, whatever the file's size, with the same outcomes as
    // decryptData for the same bytes. The content goes to a temporary file beside the output path
    // and takes its place only after every signature checked out, so unverified content never
    // appears under the output's name.
    [[nodiscard]] static QString decryptFile(const QString& inputPath, const NivoProfile& profile,
                                             const QString& password, const QString& outputPath,
                                             QString& sender);
    // The same as a run that `run` follows and steers, with `context` instead of the installed
    // one and the verdict on the sender in the result; it throws nothing.
    [[nodiscard]] static RunResult decryptFile(const QString& inputPath, const NivoProfile& profile,
                                               const QString& password, const QString& outputPath,
                                               const SenderContext& context, const FileRun& run);

private:
    // Passes a run's progress on and stops its input once the answer is false.
    class Steering;

    // The file runs, throwing what fails; the output's place, and the sender of an opened file
    // once every check passed, go to `result`. Encryption answers "", decryption "" or the
    // failure text of the message.
    static QString encryptStreaming(const QString& inputPath, const NivoProfile& profile,
                                    const QString& password, const QList<QByteArray>& recipientList,
                                    const QString& outputPath, const FileRun& run,
                                    Steering& steering, RunResult& result);
    static QString decryptStreaming(const QString& inputPath, const NivoProfile& profile,
                                    const QString& password, const QString& outputPath,
                                    const SenderContext& context, const FileRun& run,
                                    Steering& steering, RunResult& result);
    // The edge of a run: calls `work` and turns what it throws into the result's text.
    [[nodiscard]] static RunResult runToEnd(
        const Progress& progress,
        const std::function<QString(Steering& steering, RunResult& result)>& work);
    static void encode(TVXStream& source, TVXStream& sink, const NivoProfile& profile,
                       const QString& password, const QList<QByteArray>& recipientList);
    // "" when the content may be written, else the failure text; names the sender on success.
    [[nodiscard]] static QString decodeTo(TVXStream& source, TVXStream& sink,
                                          const NivoProfile& profile, const QString& password,
                                          const SenderContext& context, SenderVerdict& sender);
    [[nodiscard]] static QString judge(const TVXCmsParseResult& result, const NivoProfile& profile,
                                       const SenderContext& context, SenderVerdict& sender);
    // Puts the complete output where `run` says: under its name (or the next free one), as PEM
    // text there, or handed over; throws when that fails. Answers where it went ("" when handed
    // over).
    [[nodiscard]] static QString place(ComTruvexIO_FileStream& sink, const QString& outputPath,
                                       const FileRun& run);
    // Throws the clearer cause of a failure when there is one: a stop, a changed input, a failed
    // write.
    static void explainFailure(const ComTruvexIO_FileStream& source,
                               const ComTruvexIO_FileStream& sink);
    // The context installed with setSenderContext, taken under its lock.
    [[nodiscard]] static SenderContext installedContext();
};
