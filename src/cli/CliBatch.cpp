#include "CliBatch.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonObject>
#include <QJsonValue>
#include <QSet>
#include <QThreadPool>
#include <functional>
#include <memory>
#include <vector>

#include "CliCommand.h"
#include "CliConsole.h"
#include "CliMessages.h"
#include "CliPipe.h"
#include "log/VisibleText.h"
#include "processing/FileListModel.h"
#include "processing/ProcessController.h"
#include "storage/NivoGXUtil.h"

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

int CliBatch::run(const Files& batch, const Settings& settings) {
    m_placed = false;
    const QStringList& files = batch.paths;
    const QStringList& names = batch.names;
    if (files.isEmpty()) {
        return CliCommand::Success;
    }
    CliConsole& console = m_messages.console();
    const bool toEncrypt = settings.toEncrypt;
    const auto profile = NivoGXUtil::getNivoProfile();
    // Read once for the whole run: every keychain question is a round trip to its service.
    const QString userNivoId = toEncrypt ? NivoGXUtil::getNivoUsername() : QString();

    // What a file's run left for its result line, kept until the files before it are printed.
    struct Run {
        bool done = false;
        QString outcome;
        QString reservedPath;  // the name chosen at the start, kept from the other runs
        QString outputPath;
        SenderVerdict sender;
    };
    std::vector<Run> runs(static_cast<size_t>(files.size()));
    size_t started = 0;
    size_t printed = 0;
    // The outputs of the runs under way, which only appear once complete.
    QSet<QString> outputsInUse;
    bool allSucceeded = true;
    bool interrupted = false;
    QEventLoop loop;
    // A controller runs one file. One that has reported is kept until the next one reports, as it
    // is still sending its signal when it does.
    std::vector<std::unique_ptr<ProcessController>> controllers(runs.size());
    std::unique_ptr<ProcessController> retired;

    const auto printLine = [&](const QString& file, const Run& run) {
        const bool succeeded = run.outcome.isEmpty();
        allSucceeded = allSucceeded && succeeded;
        m_placed = m_placed || succeeded;
        const auto fromText = [&run] {
            return run.sender.verified()
                       ? kFromSender.arg(VisibleText::of(run.sender.name))
                       : kFromUnverifiedSender.arg(VisibleText::of(run.sender.name),
                                                   VisibleText::of(run.sender.reason()));
        };
        if (settings.toStdout && succeeded) {
            // Standard output carries the result; the sender is told beside it.
            if (!toEncrypt) {
                m_messages.warn(
                    kSucceededLine.arg(VisibleText::of(file), CliPipe::kStandardOutput) +
                    fromText());
            }
            return;
        }
        if (settings.json) {
            QJsonObject line{{u"input"_s, file},
                             {u"output"_s, succeeded ? QJsonValue(run.outputPath)
                                                     : QJsonValue(QJsonValue::Null)},
                             {u"outcome"_s, run.outcome}};
            if (!succeeded) {
                line.insert(u"error"_s, run.outcome);
            }
            if (!toEncrypt) {
                line.insert(u"sender"_s, run.sender.name);
                line.insert(u"verified"_s, succeeded && run.sender.verified());
                line.insert(u"trust"_s, succeeded ? run.sender.reason() : QString());
            }
            console.out() << CliMessages::jsonLine(line) << Qt::endl;
        } else if (succeeded) {
            // Names come from outside: none may steer the terminal.
            QString text =
                kSucceededLine.arg(VisibleText::of(file), VisibleText::of(run.outputPath));
            if (!toEncrypt) {
                text += fromText();
            }
            console.out() << text << Qt::endl;
        } else {
            m_messages.say(kFailedLine.arg(VisibleText::of(file), VisibleText::of(run.outcome)));
        }
    };

    size_t underWay = 0;
    bool largeUnderWay = false;
    std::function<void()> startMore;
    const auto start = [&](bool large) {
        const size_t index = started++;
        ++underWay;
        largeUnderWay = large;
        controllers[index] = std::make_unique<ProcessController>();
        ProcessController* controller = controllers[index].get();
        if (toEncrypt) {
            controller->setUserNivoId(userNivoId);
        }
        controller->setRequireVerified(settings.requireVerified);
        if (settings.toStdout) {
            // Copied out within the run, whose log line then says whether it arrived.
            controller->setHandOver([armoured = settings.armoured](QIODevice& result) {
                return CliPipe::release(result, armoured);
            });
        } else {
            controller->setArmoured(settings.armoured);
        }
        if (names[static_cast<qsizetype>(index)] != files[static_cast<qsizetype>(index)]) {
            controller->setInputName(names[static_cast<qsizetype>(index)]);
        }
        controller->setOutputPathsInUse(outputsInUse);
        // Only the first file not yet printed shows its progress: the bar is that of one file.
        QObject::connect(controller, &ProcessController::progress, &loop,
                         [&console, index, &printed](qint64 done, qint64 total) {
                             if (index == printed) {
                                 console.showProgress(done, total);
                             }
                         });
        QObject::connect(controller, &ProcessController::processingCompleted, &loop,
                         [&, controller, index](const QString& result) {
                             Run& run = runs[index];
                             if (run.done) {
                                 return;
                             }
                             run.done = true;
                             run.outcome = result;
                             run.outputPath = controller->outputPath();
                             run.sender = controller->senderVerdict();
                             outputsInUse.remove(run.reservedPath);
                             retired = std::move(controllers[index]);
                             --underWay;
                             largeUnderWay = false;
                             if (index == printed) {
                                 console.endProgress();
                             }
                             for (; printed < runs.size() && runs[printed].done; ++printed) {
                                 printLine(names[static_cast<qsizetype>(printed)], runs[printed]);
                             }
                             startMore();
                             if (printed == runs.size() || (interrupted && underWay == 0)) {
                                 loop.quit();
                             }
                         });
        const QString subFolder = batch.subFolders.value(static_cast<qsizetype>(index));
        controller->processFile(
            QFileInfo(files[static_cast<qsizetype>(index)]).absoluteFilePath(),
            profile.value_or(NivoProfile()), settings.password, settings.recipients,
            subFolder.isEmpty() ? settings.outputFolder
                                : FileListModel::makeSubFolders(settings.outputFolder, subFolder),
            toEncrypt);
        // A run always reports from the event loop, so its output is known before it ends.
        runs[index].reservedPath = controller->outputPath();
        if (!controller->outputPath().isEmpty()) {
            outputsInUse.insert(controller->outputPath());
        }
    };
    // A large file runs alone: it keeps both cores busy by itself, and two of them would hold
    // two sets of blocks in flight.
    startMore = [&] {
        while (!interrupted && started < runs.size() && underWay < kFilesInFlight) {
            const bool large =
                QFileInfo(files[static_cast<qsizetype>(started)]).size() >= kRunsAloneFrom;
            if (underWay > 0 && (large || largeUnderWay)) {
                break;
            }
            start(large);
        }
    };
    // Ctrl-C cancels what is under way, as the Cancel button does: each such file gets its
    // "Cancelled" log line, and its stopped work leaves no output.
    console.catchInterrupt([&] {
        interrupted = true;
        for (std::unique_ptr<ProcessController>& controller : controllers) {
            if (controller && controller->isRunning()) {
                controller->cancel();
            }
        }
        loop.quit();
    });
    startMore();
    if (!interrupted) {
        loop.exec();
    }
    console.releaseInterrupt();
    if (interrupted) {
        console.endProgress();
        // The stopped work ends within a block; its own log line comes with its completion.
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        return CliCommand::Interrupted;
    }
    return allSucceeded ? CliCommand::Success : CliCommand::Failure;
}
