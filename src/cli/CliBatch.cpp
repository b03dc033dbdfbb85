#include "CliBatch.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonObject>
#include <QJsonValue>
#include <QThreadPool>

#include "CliCommand.h"
#include "CliConsole.h"
#include "CliMessages.h"
#include "CliPipe.h"
#include "log/VisibleText.h"
#include "processing/BatchRunner.h"
#include "processing/ProcessController.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kSucceededLine = u"%1 -> %2"_s;
const QString kFromSender = u" (from %1)"_s;
const QString kFromUnverifiedSender = u" (from %1; NOT VERIFIED: %2)"_s;
const QString kFailedLine = u"%1: %2"_s;

// Files worked on at once in a batch: a small file's signature, sync and log line take most of
// its time, and two of them keep both cores busy. A file of kRunsAloneFrom bytes or more runs
// alone.
constexpr size_t kFilesInFlight = 2;
constexpr qint64 kRunsAloneFrom = qint64{1} << 20;

}  // namespace

CliBatch::CliBatch(CliMessages& messages, const Files& files, const Settings& settings)
    : m_messages(messages),
      m_console(messages.console()),
      m_files(files),
      m_settings(settings),
      m_runs(static_cast<size_t>(files.paths.size())),
      m_controllers(m_runs.size()) {}

CliBatch::~CliBatch() = default;

int CliBatch::run() {
    if (m_runs.empty()) {
        return CliCommand::Success;
    }
    m_profile = NivoGXUtil::getNivoProfile();
    // Read once for the whole run: every keychain question is a round trip to its service.
    m_userNivoId = m_settings.toEncrypt ? NivoGXUtil::getNivoUsername() : QString();
    QEventLoop loop;
    m_loop = &loop;
    // Ctrl-C cancels what is under way, as the Cancel button does: each such file gets its
    // "Cancelled" log line, and its stopped work leaves no output.
    m_console.catchInterrupt([this] { interrupt(); });
    startMore();
    if (!m_interrupted) {
        loop.exec();
    }
    m_console.releaseInterrupt();
    int exit = m_allSucceeded ? CliCommand::Success : CliCommand::Failure;
    if (m_interrupted) {
        m_console.endProgress();
        // The stopped work ends within a block; its own log line comes with its completion.
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        exit = CliCommand::Interrupted;
    }
    // The controllers go before the loop they report to.
    m_retired.reset();
    m_controllers.clear();
    m_loop = nullptr;
    return exit;
}

void CliBatch::interrupt() {
    m_interrupted = true;
    for (std::unique_ptr<ProcessController>& controller : m_controllers) {
        if (controller && controller->isRunning()) {
            controller->cancel();
        }
    }
    m_loop->quit();
}

// A large file runs alone: it keeps both cores busy by itself, and two of them would hold two
// sets of blocks in flight.
void CliBatch::startMore() {
    while (!m_interrupted && m_started < m_runs.size() && m_underWay < kFilesInFlight) {
        const bool large =
            QFileInfo(m_files.paths[static_cast<qsizetype>(m_started)]).size() >= kRunsAloneFrom;
        if (m_underWay > 0 && (large || m_largeUnderWay)) {
            break;
        }
        start(large);
    }
}

void CliBatch::start(bool large) {
    const size_t index = m_started++;
    const auto at = static_cast<qsizetype>(index);
    ++m_underWay;
    m_largeUnderWay = large;
    m_controllers[index] = std::make_unique<ProcessController>(NivoGXUtil::runEnvironment());
    ProcessController* controller = m_controllers[index].get();
    if (m_settings.toEncrypt) {
        controller->setUserNivoId(m_userNivoId);
    }
    controller->setRequireVerified(m_settings.requireVerified);
    if (m_settings.toStdout) {
        // Copied out within the run, whose log line then says whether it arrived.
        controller->setHandOver([armoured = m_settings.armoured](QIODevice& result) {
            return CliPipe::release(result, armoured);
        });
    } else {
        controller->setArmoured(m_settings.armoured);
    }
    if (m_files.names[at] != m_files.paths[at]) {
        controller->setInputName(m_files.names[at]);
    }
    controller->setOutputPathsInUse(m_outputsInUse);
    // Only the first file not yet printed shows its progress: the bar is that of one file.
    QObject::connect(controller, &ProcessController::progress, m_loop,
                     [this, index](qint64 done, qint64 total) {
                         if (index == m_printed) {
                             m_console.showProgress(done, total);
                         }
                     });
    QObject::connect(controller, &ProcessController::processingCompleted, m_loop,
                     [this, index](const QString& result) { completed(index, result); });
    const QString subFolder = m_files.subFolders.value(at);
    controller->processFile(
        QFileInfo(m_files.paths[at]).absoluteFilePath(), m_profile.value_or(NivoProfile()),
        m_settings.password, m_settings.recipients,
        subFolder.isEmpty() ? m_settings.outputFolder
                            : BatchRunner::makeSubFolders(m_settings.outputFolder, subFolder),
        m_settings.toEncrypt);
    // A run always reports from the event loop, so its output is known before it ends.
    m_runs[index].reservedPath = controller->outputPath();
    if (!controller->outputPath().isEmpty()) {
        m_outputsInUse.insert(controller->outputPath());
    }
}

void CliBatch::completed(size_t index, const QString& result) {
    Run& run = m_runs[index];
    if (run.done) {
        return;
    }
    const ProcessController& controller = *m_controllers[index];
    run.done = true;
    run.outcome = result;
    run.outputPath = controller.outputPath();
    run.sender = controller.senderVerdict();
    m_outputsInUse.remove(run.reservedPath);
    m_retired = std::move(m_controllers[index]);
    --m_underWay;
    m_largeUnderWay = false;
    if (index == m_printed) {
        m_console.endProgress();
    }
    for (; m_printed < m_runs.size() && m_runs[m_printed].done; ++m_printed) {
        printLine(m_files.names[static_cast<qsizetype>(m_printed)], m_runs[m_printed]);
    }
    startMore();
    if (m_printed == m_runs.size() || (m_interrupted && m_underWay == 0)) {
        m_loop->quit();
    }
}

void CliBatch::printLine(const QString& name, const Run& run) {
    const bool succeeded = run.outcome.isEmpty();
    const bool toEncrypt = m_settings.toEncrypt;
    m_allSucceeded = m_allSucceeded && succeeded;
    m_placed = m_placed || succeeded;
    const auto fromText = [&run] {
        return run.sender.verified()
                   ? kFromSender.arg(VisibleText::of(run.sender.name))
                   : kFromUnverifiedSender.arg(VisibleText::of(run.sender.name),
                                               VisibleText::of(run.sender.reason()));
    };
    if (m_settings.toStdout && succeeded) {
        // Standard output carries the result; the sender is told beside it.
        if (!toEncrypt) {
            m_messages.warn(kSucceededLine.arg(VisibleText::of(name), CliPipe::kStandardOutput) +
                            fromText());
        }
        return;
    }
    if (m_settings.json) {
        QJsonObject line{
            {u"input"_s, name},
            {u"output"_s, succeeded ? QJsonValue(run.outputPath) : QJsonValue(QJsonValue::Null)},
            {u"outcome"_s, run.outcome}};
        if (!succeeded) {
            line.insert(u"error"_s, run.outcome);
        }
        if (!toEncrypt) {
            line.insert(u"sender"_s, run.sender.name);
            line.insert(u"verified"_s, succeeded && run.sender.verified());
            line.insert(u"trust"_s, succeeded ? run.sender.reason() : QString());
        }
        m_console.out() << CliMessages::jsonLine(line) << Qt::endl;
    } else if (succeeded) {
        // Names come from outside: none may steer the terminal.
        QString text = kSucceededLine.arg(VisibleText::of(name), VisibleText::of(run.outputPath));
        if (!toEncrypt) {
            text += fromText();
        }
        m_console.out() << text << Qt::endl;
    } else {
        m_messages.say(kFailedLine.arg(VisibleText::of(name), VisibleText::of(run.outcome)));
    }
}
