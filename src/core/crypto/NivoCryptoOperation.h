#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>
#include <atomic>
#include <functional>

#include "account/NivoProfile.h"

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

    // Certificate DER in, the NIVO ID of the contact holding that certificate out ("" when none).
    using NivoIdLookup = std::function<QString(const QByteArray& certDer)>;
    // Installs the lookup that names known senders; set once at start-up, before any operation
    // runs. It is called on the thread that decrypts, so it must be safe to call there. Without
    // one, senders other than the user are named by their certificate's CN.
    static void setNivoIdLookup(NivoIdLookup lookup);

    // Bytes of the input consumed so far and its size, called now and then on the working thread.
    using Progress = std::function<void(qint64 done, qint64 total)>;

    // How the caller of a file operation follows and steers it. Make one with braces (`FileRun
    // run{};`), which leaves every member empty.
    struct FileRun {
        Progress progress;
        // Set from another thread to stop the work within one block of input; the operation
        // then throws and leaves no output.
        const std::atomic<bool>* cancelled;
        // When given, the output never replaces a file: a name found taken when the output is
        // placed makes way for the one this returns for it ("" to give up).
        std::function<QString(const QString& taken)> nextName;
        // Where the output went, once placed.
        QString* placedPath;
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
                                             const QString& outputPath, const FileRun& run = {});

    // Both return "" on success, with the sender named in `sender`: the user's LoginName for the
    // user's own certificate, else the contact's NIVO ID, else the certificate's CN. Any failure
    // of the message comes back as a text, with nothing written and `sender` untouched. They
    // throw a TVXException only when the key file cannot be opened (e.g. wrong password) or a
    // file cannot be read or written. As with encryption, an existing output file is replaced
    // only on success.
    [[nodiscard]] static QString decryptData(const QByteArray& data, const NivoProfile& profile,
                                             const QString& password, const QString& outputPath,
                                             QString& sender);
    // The same, naming known senders with `lookup` instead of the installed one, so that a caller
    // on a worker thread can bring a lookup that is safe there. An empty `lookup` names nobody
    // by NIVO ID.
    [[nodiscard]] static QString decryptData(const QByteArray& data, const NivoProfile& profile,
                                             const QString& password, const QString& outputPath,
                                             QString& sender, const NivoIdLookup& lookup);
    // Streams in constant memory, whatever the file's size, with the same outcomes as
    // decryptData for the same bytes. The content goes to a temporary file beside the output path
    // and takes its place only after every signature checked out, so unverified content never
    // appears under the output's name.
    [[nodiscard]] static QString decryptFile(const QString& inputPath, const NivoProfile& profile,
                                             const QString& password, const QString& outputPath,
                                             QString& sender);
    [[nodiscard]] static QString decryptFile(const QString& inputPath, const NivoProfile& profile,
                                             const QString& password, const QString& outputPath,
                                             QString& sender, const NivoIdLookup& lookup,
                                             const FileRun& run = {});

private:
    static void encode(TVXStream& source, TVXStream& sink, const NivoProfile& profile,
                       const QString& password, const QList<QByteArray>& recipientList);
    // "" when the content may be written, else the failure text; names the sender on success.
    [[nodiscard]] static QString decodeTo(TVXStream& source, TVXStream& sink,
                                          const NivoProfile& profile, const QString& password,
                                          const NivoIdLookup& lookup, QString& sender);
    [[nodiscard]] static QString judge(const TVXCmsParseResult& result, const NivoProfile& profile,
                                       const NivoIdLookup& lookup, QString& sender);
    // Throws the clearer cause of a failure when there is one: a cancel, a changed input, a
    // failed write.
    static void explainFailure(const ComTruvexIO_FileStream& source,
                               const ComTruvexIO_FileStream& sink);
    // The lookup installed with setNivoIdLookup, taken under its lock.
    [[nodiscard]] static NivoIdLookup installedLookup();
};
