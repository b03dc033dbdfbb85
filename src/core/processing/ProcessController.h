#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <atomic>
#include <functional>
#include <memory>

#include "crypto/SenderVerdict.h"
#include "model/Contact.h"
#include "model/NivoProfile.h"
#include "processing/RunEnvironment.h"

// Encrypts or decrypts one file without blocking its caller: it picks the output path and runs the
// crypto operation, which streams the input in constant memory, on the global thread pool, and
// back on its own thread writes one activity-log line and reports the outcome. The output appears
// only complete and never replaces a file: when its name was taken meanwhile it gets the next free
// one, which outputPath() then gives. A failed run leaves nothing behind and removes nothing.
//
// A processing window or the command-line tool makes one controller per file on a thread with an
// event loop, connects statusChanged and progress to its label and bar, calls processFile and
// waits for processingCompleted: an empty text means success, anything else is the text to show
// for the file. The Cancel button calls cancel(), which reports "Encryption cancelled" or
// "Decryption cancelled" at once and stops the work at its next report of progress; the stopped
// work still reports a second time when it ends, with its own log line ("Failed"). The controller
// may be destroyed after its first processingCompleted: the work then still ends and logs on its
// own.
class ProcessController : public QObject {
    Q_OBJECT
public:
    // The extension of protected files.
    static const QString kProtectedExtension;

    // Status label and window title while working.
    static const QString kEncryptingLabel;
    static const QString kEncryptingTitle;
    static const QString kDecryptingLabel;
    static const QString kDecryptingTitle;

    // Outcome texts of this class (the crypto layer adds its own).
    static const QString kInputDoesNotExist;
    static const QString kEncryptionCancelled;
    static const QString kDecryptionCancelled;

    // The log lines of the run go to `environment`'s log; a decryption names a known sender
    // from its contacts.
    explicit ProcessController(std::shared_ptr<RunEnvironment> environment,
                               QObject* parent = nullptr);
    ~ProcessController() override;
    ProcessController(const ProcessController&) = delete;
    ProcessController& operator=(const ProcessController&) = delete;

    // Where the result of `fileName` goes in `folder`: "tvf" appended for encryption, taken off
    // (with a tidied inner extension) for decryption, then numbered until no file has that path
    // and it is none of `inUse`.
    [[nodiscard]] static QString generateOutputFilePath(const QString& folder,
                                                        const QString& fileName, bool toEncrypt,
                                                        const QSet<QString>& inUse = {});

    // The path after `taken` by the numbering of generateOutputFilePath: the first that no file
    // has and that is none of `inUse`.
    [[nodiscard]] static QString nextFreeOutputPath(const QString& taken,
                                                    const QSet<QString>& inUse = {});

    // Starts the run; the outcome arrives later as processingCompleted on this object's thread.
    // Call it once per controller, on the controller's thread. `recipientList` is read only for
    // encryption; the user is always added as a recipient by the crypto layer.
    void processFile(const QString& inputPath, const NivoProfile& profile, const QString& password,
                     const QList<Contact>& recipientList, const QString& outputFolder,
                     bool toEncrypt);
    // The user's NIVO ID for the log lines of encryption runs, for callers that have it at hand:
    // a batch reads it from the keychain once instead of once per file. Without it processFile
    // asks the environment. Call it before processFile.
    void setUserNivoId(const QString& nivoId);
    // The output paths of other runs still under way, for callers that run several files at
    // once: this run picks none of them, as their files appear only once complete and so escape
    // the check for existing ones. Call it before processFile.
    void setOutputPathsInUse(QSet<QString> paths);
    // The name of the input in the log line and the status label, for an input whose path means
    // nothing to the person, such as standard input copied to a temporary file; the path by
    // default. Call it before processFile.
    void setInputName(const QString& name) { m_inputName = name; }
    // Makes a decrypted file whose sender is not verified a failure, leaving no output. Call it
    // before processFile.
    void setRequireVerified(bool required) noexcept { m_requireVerified = required; }
    // Where the complete output goes instead of under a name: it is handed, read from its start
    // on the working thread, to this, which answers "" or its failure, which fails the run (and
    // its log line). The output never has a name, and outputPath() stays empty after success.
    // For output to a pipe; call it before processFile.
    using HandOver = std::function<QString(QIODevice& output)>;
    void setHandOver(HandOver handOver) { m_handOver = std::move(handOver); }
    // Makes an encryption's output PEM text instead of binary. Call it before processFile.
    void setArmoured(bool armoured) noexcept { m_armoured = armoured; }
    // Logs the run as cancelled, reports the cancel text and stops the work, which leaves no
    // output. Does nothing when no run is under way or it has already been reported.
    void cancel();

    // Empty until processFile has chosen it; after success, where the output went.
    [[nodiscard]] QString outputPath() const;
    [[nodiscard]] QString inputPath() const;
    // Who signed a decrypted file, once the run has reported success; empty before and otherwise.
    [[nodiscard]] QString sender() const { return m_sender.name; }
    // The same with whether the account service stands behind the signer.
    [[nodiscard]] const SenderVerdict& senderVerdict() const noexcept { return m_sender; }
    [[nodiscard]] bool toEncrypt() const noexcept { return m_toEncrypt; }
    // True from processFile until the first processingCompleted.
    [[nodiscard]] bool isRunning() const noexcept { return m_running; }

Q_SIGNALS:
    void statusChanged(const QString& label, const QString& title);
    // Bytes of the input consumed so far and the input's size; total 0 while the amount of work
    // is unknown (before the input is opened).
    void progress(qint64 done, qint64 total);
    // "" on success, else the text to show for the file.
    void processingCompleted(const QString& processResult);

private:
    void encryptProcess(const QList<QByteArray>& certificates);
    void decryptProcess();
    void startInBackground(QList<QByteArray> certificates);
    // The recipients' NIVO IDs followed by the user's, as an encryption's log line names them.
    [[nodiscard]] QStringList encryptionLogNames() const;

    std::shared_ptr<RunEnvironment> m_environment;
    NivoProfile m_userProfile;
    QString m_password;
    bool m_toEncrypt = true;
    QString m_inputPath;
    QString m_inputName;
    QString m_outputPath;
    QList<Contact> m_recipientList;
    QString m_userNivoId;
    bool m_userNivoIdGiven = false;
    QSet<QString> m_outputPathsInUse;
    SenderVerdict m_sender;
    bool m_requireVerified = false;
    HandOver m_handOver;
    bool m_armoured = false;
    bool m_started = false;
    bool m_running = false;
    std::shared_ptr<std::atomic<bool>> m_cancelled;
};
