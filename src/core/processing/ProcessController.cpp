#include "processing/ProcessController.h"

#include <QFile>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QLoggingCategory>
#include <QPointer>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>
#include <atomic>
#include <functional>
#include <limits>
#include <memory>
#include <optional>

#include "account/NivoProfileCommon.h"
#include "contacts/ContactDB.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/cms/CmsArmour.h"
#include "model/LogEntry.h"
#include "platform/AtomicFile.h"
#include "platform/PathText.h"

using namespace Qt::Literals::StringLiterals;

Q_LOGGING_CATEGORY(lcProcessing, "nivogx.processing")

const QString ProcessController::kProtectedExtension = u"tvf"_s;
const QString ProcessController::kEncryptingLabel = u"Encrypting %1 ..."_s;
const QString ProcessController::kEncryptingTitle = u"Encrypting ..."_s;
const QString ProcessController::kDecryptingLabel = u"Decrypting %1 ..."_s;
const QString ProcessController::kDecryptingTitle = u"Decrypting ..."_s;
const QString ProcessController::kInputDoesNotExist = u"%1 does not exists."_s;
const QString ProcessController::kEncryptionCancelled = u"Encryption cancelled"_s;
const QString ProcessController::kDecryptionCancelled = u"Decryption cancelled"_s;

namespace {

// Marks that cut a decrypted file's inner extension, tried in this order.
constexpr QChar kExtensionCuts[] = {u'-', u'_', u' ', u'('};

// Everything the background work needs, copied so that nothing is shared with the owner.
struct Job {
    QString inputPath;
    QString outputPath;
    NivoProfile profile;
    QString password;
    QList<QByteArray> certificates;
    bool toEncrypt = true;
    bool requireVerified = false;
    ProcessController::HandOver handOver;
    bool armoured = false;
    // The output paths of other runs under way, which a taken output name does not move to.
    QSet<QString> outputPathsInUse;
    // The user's contacts, for naming a known sender; a copy of its own, because the current
    // database object belongs to the main thread.
    std::optional<ContactDB> contacts;
};

// Copies and versions such as "report.pdf-2" or "report.pdf(1)" hide the real extension; cutting
// at the first mark brings it back. A mark at the very start leaves the extension alone and one
// right after its first character empties it: output names must not change from one release to
// the next, so these two cases stay as they are.
QString tidyInnerExtension(QString extension) {
    for (const QChar mark : kExtensionCuts) {
        const qsizetype at = extension.indexOf(mark);
        if (at == 1) {
            extension.clear();
        } else if (at > 1) {
            extension.truncate(at);
        }
    }
    return extension;
}

// The number at the start of `text`; 0 when it does not start with a digit or would not leave
// room for one more.
qint64 leadingNumber(QStringView text) {
    constexpr qint64 kLargest = std::numeric_limits<qint64>::max() - 1;
    qint64 number = 0;
    for (const QChar c : text) {
        if (c < u'0' || c > u'9') {
            break;
        }
        const int digit = c.unicode() - u'0';
        if (number > (kLargest - digit) / 10) {
            return 0;
        }
        number = number * 10 + digit;
    }
    return number;
}

// The next name to try when `name` is taken: "a(2).pdf.tvf" after "a(1).pdf.tvf", "a(1).txt"
// after "a.txt". A protected file's inner extension stays with "tvf", so the number goes before
// both. "(0)" is not a number here, so "x(0).txt" goes on as "x(0)(1).txt".
QString nextFreeCandidate(const QString& name) {
    QString base = PathText::withoutExtension(name);
    QString extension = PathText::extension(name);
    if (extension == ProcessController::kProtectedExtension) {
        if (const QString inner = PathText::extension(base); !inner.isEmpty()) {
            extension = inner + u'.' + extension;
            base = PathText::withoutExtension(base);
        }
    }
    const qsizetype open = base.lastIndexOf(u'(');
    if (base.endsWith(u')') && open >= 0) {
        const qsizetype digitsFrom = open + 1;
        const qint64 n =
            leadingNumber(QStringView(base).mid(digitsFrom, base.size() - 1 - digitsFrom));
        if (n != 0) {
            return PathText::withExtension(base.left(open) + u"(%1)"_s.arg(n + 1), extension);
        }
    }
    return PathText::withExtension(base + u"(1)"_s, extension);
}

QString decryptedName(const QString& fileName) {
    if (PathText::extension(fileName) != ProcessController::kProtectedExtension) {
        return fileName;
    }
    const QString plain = PathText::withoutExtension(fileName);
    QString extension = PathText::extension(plain);
    if (!extension.isEmpty()) {
        extension = tidyInnerExtension(extension);
    }
    const QString name = PathText::withExtension(PathText::withoutExtension(plain), extension);
    // Nothing would be left of a file called ".tvf"; it keeps its name rather than naming the
    // folder itself.
    return name.isEmpty() ? fileName : name;
}

// A protected file in text armour (PEM, S/MIME), decoded into a temporary file of the output's
// folder that never gets a name where the system allows (see AtomicFile), and goes with this
// object.
class UnwrappedInput {
public:
    UnwrappedInput(const QString& inputPath, const QString& folder)
        : m_message(folder + u"/armour"_s) {
        QFile in(inputPath);
        if (!in.open(QIODevice::ReadOnly)) {
            m_failure = in.errorString();
            return;
        }
        if (!m_message.open(AtomicFile::OwnerOnly)) {
            m_failure = m_message.errorString();
            return;
        }
        m_failure = CmsArmour::unwrap(in, *m_message.device());
        if (m_failure.isEmpty()) {
            m_path = m_message.readBackPath();
            m_failure = m_message.errorString();
        }
    }

    // "" when the message is ready at path().
    [[nodiscard]] const QString& failure() const { return m_failure; }
    [[nodiscard]] const QString& path() const { return m_path; }

private:
    AtomicFile m_message;  // never committed
    QString m_path;
    QString m_failure;
};

// Called on the worker thread with bytes done and the total; answers whether to go on.
using ProgressReport = NivoCryptoOperation::Progress;

RunResult work(const Job& job, const ProgressReport& report) {
    NivoCryptoOperation::FileRun run{};
    run.progress = report;
    run.nextName = [&inUse = job.outputPathsInUse](const QString& taken) {
        return ProcessController::nextFreeOutputPath(taken, inUse);
    };
    run.handOver = job.handOver;
    run.armoured = job.armoured;
    if (job.toEncrypt) {
        return NivoCryptoOperation::encryptFile(job.inputPath, job.profile, job.password,
                                                job.certificates, job.outputPath, run);
    }
    NivoCryptoOperation::SenderContext context;
    context.serviceRoot = NivoProfileCommon::getNivoRootCer();
    context.requireVerified = job.requireVerified;
    if (job.contacts) {
        context.nivoIdOf = [&contacts = *job.contacts](const QByteArray& certificate) {
            return contacts.getNIVOIDfromCertData(certificate);
        };
        context.isContact = [&contacts = *job.contacts](const QString& nivoId) {
            return contacts.contactExists(nivoId) >= 0;
        };
    }
    // Armoured files are opened as the message their text carries.
    std::optional<UnwrappedInput> unwrapped;
    if (CmsArmour::isArmoured(job.inputPath)) {
        unwrapped.emplace(job.inputPath, QFileInfo(job.outputPath).absolutePath());
        if (!unwrapped->failure().isEmpty()) {
            return {.status = RunResult::Status::Failed,
                    .sender = {},
                    .detail = unwrapped->failure(),
                    .placedPath = {}};
        }
    }
    return NivoCryptoOperation::decryptFile(unwrapped ? unwrapped->path() : job.inputPath,
                                            job.profile, job.password, job.outputPath, context,
                                            run);
}

}  // namespace

ProcessController::ProcessController(std::shared_ptr<RunEnvironment> environment, QObject* parent)
    : QObject(parent),
      m_environment(std::move(environment)),
      m_cancelled(std::make_shared<std::atomic<bool>>(false)) {}

ProcessController::~ProcessController() = default;

QString ProcessController::generateOutputFilePath(const QString& folder, const QString& fileName,
                                                  bool toEncrypt, const QSet<QString>& inUse) {
    QString name = fileName;
    if (toEncrypt) {
        if (PathText::extension(name) != kProtectedExtension) {
            name += u'.' + kProtectedExtension;
        }
    } else {
        name = decryptedName(name);
    }
    const QString path = PathText::join(folder, name);
    return inUse.contains(path) || QFileInfo::exists(path) ? nextFreeOutputPath(path, inUse)
                                                            : path;
}

QString ProcessController::nextFreeOutputPath(const QString& taken, const QSet<QString>& inUse) {
    const QString folder = PathText::withoutLastComponent(taken);
    QString path = taken;
    do {
        path = PathText::join(folder, nextFreeCandidate(PathText::lastComponent(path)));
    } while (inUse.contains(path) || QFileInfo::exists(path));
    return path;
}

void ProcessController::processFile(const QString& inputPath, const NivoProfile& profile,
                                    const QString& password, const QList<Contact>& recipientList,
                                    const QString& outputFolder, bool toEncrypt) {
    if (m_started) {
        qCWarning(lcProcessing) << "A controller runs one file; ignoring" << inputPath;
        return;
    }
    m_started = true;
    m_userProfile = profile;
    m_password = password;
    m_toEncrypt = toEncrypt;
    m_inputPath = inputPath;
    if (m_inputName.isEmpty()) {
        m_inputName = inputPath;
    }

    if (!QFileInfo::exists(inputPath)) {
        // Reported like any outcome, from the event loop, so the caller sees one way of finishing.
        const QString outcome = kInputDoesNotExist.arg(inputPath);
        QMetaObject::invokeMethod(
            this, [this, outcome] { Q_EMIT processingCompleted(outcome); }, Qt::QueuedConnection);
        return;
    }

    m_recipientList = recipientList;
    QList<QByteArray> certificates;
    certificates.reserve(recipientList.size());
    for (const Contact& contact : recipientList) {
        certificates.append(contact.CertData);
    }
    m_outputPath = generateOutputFilePath(outputFolder, PathText::lastComponent(inputPath),
                                          toEncrypt, m_outputPathsInUse);
    // Only an encryption's log line names the user; the keychain answers slowly.
    if (toEncrypt && !m_userNivoIdGiven) {
        m_userNivoId = m_environment->userNivoId();
    }
    m_running = true;

    if (toEncrypt) {
        Q_EMIT statusChanged(kEncryptingLabel.arg(m_inputName), kEncryptingTitle);
        encryptProcess(certificates);
    } else {
        Q_EMIT statusChanged(kDecryptingLabel.arg(m_inputName), kDecryptingTitle);
        decryptProcess();
    }
}

void ProcessController::setUserNivoId(const QString& nivoId) {
    m_userNivoId = nivoId;
    m_userNivoIdGiven = true;
}

void ProcessController::setOutputPathsInUse(QSet<QString> paths) {
    m_outputPathsInUse = std::move(paths);
}

void ProcessController::encryptProcess(const QList<QByteArray>& certificates) {
    startInBackground(certificates);
}

void ProcessController::decryptProcess() {
    startInBackground({});
}

void ProcessController::startInBackground(QList<QByteArray> certificates) {
    Job job;
    job.inputPath = m_inputPath;
    job.outputPath = m_outputPath;
    job.profile = m_userProfile;
    job.password = m_password;
    job.certificates = std::move(certificates);
    job.toEncrypt = m_toEncrypt;
    job.requireVerified = m_requireVerified;
    job.handOver = m_handOver;
    job.armoured = m_armoured && m_toEncrypt;
    job.outputPathsInUse = m_outputPathsInUse;
    if (!m_toEncrypt) {
        job.contacts = m_environment->contacts();
    }

    // What the completion needs, so that it can run after this controller is gone (a cancelled
    // run's window is closed while its work goes on).
    const bool toEncrypt = m_toEncrypt;
    const QString inputPath = m_inputName;
    const QStringList encryptionNames = encryptionLogNames();
    const QPointer<ProcessController> self(this);
    const std::shared_ptr<RunEnvironment> environment = m_environment;

    // Parentless: it must outlive this controller until the work is done.
    auto* watcher = new QFutureWatcher<RunResult>;
    connect(watcher, &QFutureWatcherBase::finished, watcher,
            [watcher, self, environment, toEncrypt, inputPath, encryptionNames] {
                const RunResult outcome = watcher->result();
                watcher->deleteLater();
                // A failed or stopped run has placed nothing and so has nothing to remove.
                const bool failed = !outcome.succeeded();
                const QString status = failed ? LogEntry::kFailed : LogEntry::kSuccess;
                if (toEncrypt) {
                    environment->writeToLog(LogEntry::kEncryptAction, inputPath, encryptionNames,
                                            status);
                } else {
                    environment->writeToLog(LogEntry::kDecryptAction, inputPath,
                                            {outcome.sender.name}, status);
                }
                if (self) {
                    self->m_running = false;
                    if (!failed) {
                        self->m_sender = outcome.sender;
                        self->m_outputPath = outcome.placedPath;
                    }
                    Q_EMIT self->processingCompleted(outcome.detail);
                }
            });

    // Every report is queued to the watcher's thread, in order and before the completion, so
    // none is lost or merged however fast the work runs; they stop with this controller. The
    // answer stops the work once cancelled.
    const ProgressReport report = [watcher, self, cancelled = m_cancelled](qint64 done,
                                                                           qint64 total) {
        QMetaObject::invokeMethod(
            watcher,
            [self, done, total] {
                if (self) {
                    Q_EMIT self->progress(done, total);
                }
            },
            Qt::QueuedConnection);
        return !cancelled->load();
    };
    Q_EMIT progress(0, 0);
    watcher->setFuture(QtConcurrent::run(QThreadPool::globalInstance(),
                                         [job = std::move(job), report] { return work(job, report); }));
}

void ProcessController::cancel() {
    if (!m_running) {
        return;
    }
    m_running = false;
    // The work stops at its next report of progress and discards what it wrote.
    m_cancelled->store(true);
    if (m_toEncrypt) {
        m_environment->writeToLog(LogEntry::kEncryptAction, m_inputName, encryptionLogNames(),
                                  LogEntry::kCancelled);
        Q_EMIT processingCompleted(kEncryptionCancelled);
    } else {
        m_environment->writeToLog(LogEntry::kDecryptAction, m_inputName, {},
                                  LogEntry::kCancelled);
        Q_EMIT processingCompleted(kDecryptionCancelled);
    }
}

QString ProcessController::outputPath() const {
    return m_outputPath;
}

QString ProcessController::inputPath() const {
    return m_inputPath;
}

QStringList ProcessController::encryptionLogNames() const {
    QStringList names;
    names.reserve(m_recipientList.size() + 1);
    for (const Contact& contact : m_recipientList) {
        names.append(contact.NivoID);
    }
    names.append(m_userNivoId);
    return names;
}
