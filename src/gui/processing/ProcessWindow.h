#pragma once

#include <QElapsedTimer>
#include <QPointer>
#include <QWidget>

class ProcessController;
class QLabel;
class QProgressBar;
class QPushButton;

// The small floating window that shows one file's run: what is being done to which file, how far
// it is, and Cancel. It follows the run it is given and closes itself once the run has reported.
class ProcessWindow final : public QWidget {
    Q_OBJECT

public:
    explicit ProcessWindow(ProcessController* controller, QWidget* parent = nullptr);

    void cancelButtonTapped();

    [[nodiscard]] QString statusText() const;
    [[nodiscard]] ProcessController* controller() const;
    // What the line under the bar says after `elapsedMs` with `done` of `total` bytes read:
    // the percentage, and for a big file the sizes and, once it can be told, the time left.
    [[nodiscard]] static QString progressText(qint64 done, qint64 total, qint64 elapsedMs);

private:
    void setStatus(const QString& label, const QString& title);
    void setProgress(qint64 done, qint64 total);
    void processingCompleted();

    QPointer<ProcessController> m_controller;
    QString m_statusText;
    QLabel* m_fieldStatus;
    QProgressBar* m_progressIndicator;
    QLabel* m_fieldProgress;
    QElapsedTimer m_clock;
    QPushButton* m_cancelButton;
};
