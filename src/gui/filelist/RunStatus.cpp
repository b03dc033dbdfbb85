#include "filelist/RunStatus.h"

#include <QApplication>
#include <QMainWindow>
#include <QProgressBar>
#include <QStatusBar>
#include <QSystemTrayIcon>

#include "processing/ProcessController.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kRunDone = QT_TRANSLATE_NOOP("RunStatus", "%1 of %2 files done");
const char* const kRunFailed = QT_TRANSLATE_NOOP("RunStatus", "%1 failed: see the list.");
const char* const kRunProgress = QT_TRANSLATE_NOOP("RunStatus", "%1 %2 of %3");

// A run this long is one the user may have turned away from.
constexpr std::chrono::milliseconds kNotifyAfter{5000};

}  // namespace

RunStatus::RunStatus(QMainWindow& window, std::function<qsizetype()> pendingFiles)
    : QObject(&window),
      m_window(window),
      m_pendingFiles(std::move(pendingFiles)),
      m_bar(new QProgressBar(&window)),
      m_notify([this](const QString& summary) { notifyDesktop(summary); }),
      m_notifyAfter(kNotifyAfter) {
    m_bar->setObjectName(u"runProgress"_s);
    m_bar->setMaximumWidth(200);
    m_bar->hide();
    window.statusBar()->addPermanentWidget(m_bar);
}

void RunStatus::setRunEndNotifier(RunEndNotifier notifier, std::chrono::milliseconds minimum) {
    m_notify = std::move(notifier);
    m_notifyAfter = minimum;
}

void RunStatus::processingChanged(bool processing) {
    m_bar->setVisible(processing);
    if (processing) {
        m_started = 0;
        m_failed = 0;
        m_clock.start();
        return;
    }
    // The run ends inside the last file's report, before the window has heard its outcome.
    QMetaObject::invokeMethod(this, &RunStatus::runEnded, Qt::QueuedConnection);
}

void RunStatus::fileStarting(ProcessController* controller, const QString& word) {
    ++m_started;
    m_word = word;
    connect(controller, &ProcessController::progress, this, &RunStatus::showProgress);
    connect(
        controller, &ProcessController::processingCompleted, this,
        [this](const QString& result) { m_failed += result.isEmpty() ? 0 : 1; },
        Qt::SingleShotConnection);
    showProgress(0, 0);
}

void RunStatus::runEnded() {
    const QString done = tr(kRunDone).arg(m_started - m_failed).arg(m_started);
    m_window.statusBar()->showMessage(done, kStatusMessageMs);
    // Any window of the application in use counts: the file's own window may have been the
    // active one until the end.
    if (m_clock.elapsed() < m_notifyAfter.count() || QApplication::activeWindow() != nullptr) {
        return;
    }
    m_notify(m_failed > 0 ? done + u"\n"_s + tr(kRunFailed).arg(m_failed) : done);
}

// The files done count whole, the current one by its share.
void RunStatus::showProgress(qint64 done, qint64 total) {
    const qsizetype all = m_started + m_pendingFiles();
    m_window.statusBar()->showMessage(tr(kRunProgress).arg(m_word).arg(m_started).arg(all));
    const double share = total > 0 ? double(done) / double(total) : 0.0;
    m_bar->setRange(0, 1000);
    m_bar->setValue(all > 0 ? int(1000.0 * (double(m_started - 1) + share) / double(all)) : 0);
}

void RunStatus::notifyDesktop(const QString& summary) {
    QApplication::alert(&m_window);
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        if (m_tray == nullptr) {
            m_tray = new QSystemTrayIcon(m_window.windowIcon(), this);
        }
        m_tray->show();
        m_tray->showMessage(m_window.windowTitle(), summary);
    }
}
