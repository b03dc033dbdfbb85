#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <chrono>
#include <functional>

class ProcessController;
class QMainWindow;
class QProgressBar;
class QSystemTrayIcon;

// How a run of the main window's list shows in its status bar: "Encrypting 3 of 12" with a bar
// over the whole run while it goes on, "11 of 12 files done" at its end, and a notification when
// the user has turned away from a long run.
class RunStatus final : public QObject {
    Q_OBJECT

public:
    // How long a message stays in the main window's status bar.
    static constexpr int kStatusMessageMs = 8000;

    // The bar goes into `window`'s status bar; `pendingFiles` counts the files still waiting.
    RunStatus(QMainWindow& window, std::function<qsizetype()> pendingFiles);

    // How the end of a run is made known when no window of the application is in use, given
    // the run's summary: by default the desktop is asked to draw attention to the window and,
    // where there is a notification area, a notification shows the summary. Runs shorter than
    // `minimum` end without it.
    using RunEndNotifier = std::function<void(const QString& summary)>;
    void setRunEndNotifier(RunEndNotifier notifier, std::chrono::milliseconds minimum);

    // The list's run starts or ends.
    void processingChanged(bool processing);
    // `word` is the file's status as it starts ("Encrypting", "Decrypting").
    void fileStarting(ProcessController* controller, const QString& word);

private:
    void runEnded();
    void showProgress(qint64 done, qint64 total);
    void notifyDesktop(const QString& summary);

    QMainWindow& m_window;
    std::function<qsizetype()> m_pendingFiles;
    QProgressBar* m_bar;
    int m_started = 0;
    int m_failed = 0;
    QString m_word;
    QElapsedTimer m_clock;
    RunEndNotifier m_notify;
    std::chrono::milliseconds m_notifyAfter;
    QSystemTrayIcon* m_tray = nullptr;
};
