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
constexpr int kFilesInFlight = 2;
constexpr qint64 kRunsAloneFrom = qint64{1} << 20;

}  // namespace

CliBatch::CliBatch(CliMessages& messages, const Files& files, const Settings& settings)
    : m_messages(messages), m_console(messages.console()), m_files(files), m_settings(settings) {}

CliBatch::~CliBatch() = default;

int CliBatch::run() {
    if (m_files.paths.isEmpty()) {
        return CliCommand::Success;
    }
    const NivoProfile profile = NivoGXUtil::getNivoProfile().value_or(NivoProfile());
    // Read once for the whole run: every keychain question is a round trip to its service.
    m_userNivoId = m_settings.toEncrypt ? NivoGXUtil::getNivoUsername() : QString();
    QEventLoop loop;
    // After the loop, so that it and its controllers go before the loop they report to.
    BatchRunner runner(NivoGXUtil::runEnvironment());
    runner.setCapacity(kFilesInFlight);
    m_loop = &loop;
    m_runner = &runner;
    QObject::connect(
        &runner, &BatchRunner::itemStarting, &loop,
        [this](qsizetype index, ProcessController* controller) { prepare(index, *controller); });
    // Only the first file not yet printed shows its progress: the bar is that of one file.
    QObject::connect(&runner, &BatchRunner::itemProgress, &loop,
                     [this, &runner](qsizetype index, qint64 done, qint64 total) {
                         if (index == runner.firstUnfinished()) {
                             m_console.showProgress(done, total);
                         }
                     });
    QObject::connect(&runner, &BatchRunner::itemFinished, &loop, [this, &runner](qsizetype index) {
        if (index == runner.firstUnfinished()) {
            m_console.endProgress();
        }
    });
    QObject::connect(&runner, &BatchRunner::finishedInOrder, &loop,
                     [this, &runner](qsizetype index) {
                         printLine(m_files.names[index], runner.result(index));
                     });
    QObject::connect(&runner, &BatchRunner::idle, &loop, &QEventLoop::quit);
    // Ctrl-C cancels what is under way, as the Cancel button does: each such file gets its
    // "Cancelled" log line, and its stopped work leaves no output.
    m_console.catchInterrupt([this] { interrupt(); });
    for (qsizetype i = 0; i < m_files.paths.size(); ++i) {
        // A large file runs alone: it keeps both cores busy by itself, and two of them would
        // hold two sets of blocks in flight.
        const QFileInfo input(m_files.paths[i]);
        runner.add(BatchRunner::Item{input.absoluteFilePath(), m_settings.outputFolder,
                                     m_files.subFolders.value(i), m_settings.toEncrypt, profile,
                                     m_settings.password, m_settings.recipients,
                                     input.size() >= kRunsAloneFrom ? kFilesInFlight : 1});
    }
    if (!m_interrupted && runner.isBusy()) {
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
    m_runner = nullptr;
    m_loop = nullptr;
    return exit;
}

void CliBatch::interrupt() {
    m_interrupted = true;
    m_runner->cancel();
    m_loop->quit();
}

void CliBatch::prepare(qsizetype index, ProcessController& controller) const {
    if (m_settings.toEncrypt) {
        controller.setUserNivoId(m_userNivoId);
    }
    controller.setRequireVerified(m_settings.requireVerified);
    if (m_settings.toStdout) {
        // Copied out within the run, whose log line then says whether it arrived.
        controller.setHandOver([armoured = m_settings.armoured](QIODevice& result) {
            return CliPipe::release(result, armoured);
        });
    } else {
        controller.setArmoured(m_settings.armoured);
    }
    if (m_files.names[index] != m_files.paths[index]) {
        controller.setInputName(m_files.names[index]);
    }
}

void CliBatch::printLine(const QString& name, const BatchRunner::Result& result) {
    const bool succeeded = result.outcome.isEmpty();
    const bool toEncrypt = m_settings.toEncrypt;
    m_allSucceeded = m_allSucceeded && succeeded;
    m_placed = m_placed || succeeded;
    const auto fromText = [&result] {
        return result.sender.verified()
                   ? kFromSender.arg(VisibleText::of(result.sender.name))
                   : kFromUnverifiedSender.arg(VisibleText::of(result.sender.name),
                                               VisibleText::of(result.sender.reason()));
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
            {u"output"_s, succeeded ? QJsonValue(result.outputPath) : QJsonValue(QJsonValue::Null)},
            {u"outcome"_s, result.outcome}};
        if (!succeeded) {
            line.insert(u"error"_s, result.outcome);
        }
        if (!toEncrypt) {
            line.insert(u"sender"_s, result.sender.name);
            line.insert(u"verified"_s, succeeded && result.sender.verified());
            line.insert(u"trust"_s, succeeded ? result.sender.reason() : QString());
        }
        m_console.out() << CliMessages::jsonLine(line) << Qt::endl;
    } else if (succeeded) {
        // Names come from outside: none may steer the terminal.
        QString text =
            kSucceededLine.arg(VisibleText::of(name), VisibleText::of(result.outputPath));
        if (!toEncrypt) {
            text += fromText();
        }
        m_console.out() << text << Qt::endl;
    } else {
        m_messages.say(kFailedLine.arg(VisibleText::of(name), VisibleText::of(result.outcome)));
    }
}
