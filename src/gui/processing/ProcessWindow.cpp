#include "processing/ProcessWindow.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

#include "processing/ProcessController.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kCancel = QT_TRANSLATE_NOOP("ProcessWindow", "Cancel");

// The bar counts in thousandths: a byte count does not fit an int.
constexpr int kSteps = 1000;
constexpr int kWidth = 440;
// Below this a file is done before sizes and times could be read.
constexpr qint64 kBigFile = qint64(4) * 1024 * 1024;
// Before this the speed is still a guess.
constexpr qint64 kSettledMs = 1500;

const char* const kPercent = QT_TRANSLATE_NOOP("ProcessWindow", "%1 %");
const char* const kOfSize = QT_TRANSLATE_NOOP("ProcessWindow", "%1 %, %2 of %3");
const char* const kSecondsLeft = QT_TRANSLATE_NOOP("ProcessWindow", "about %1 s left");
const char* const kMinutesLeft = QT_TRANSLATE_NOOP("ProcessWindow", "about %1 min left");

}  // namespace

ProcessWindow::ProcessWindow(ProcessController* controller, QWidget* parent)
    // A tool window floats above the main window and stays out of the task bar.
    : QWidget(parent, Qt::Tool | Qt::WindowStaysOnTopHint),
      m_controller(controller),
      m_fieldStatus(new QLabel(this)),
      m_progressIndicator(new QProgressBar(this)),
      m_fieldProgress(new QLabel(this)),
      m_cancelButton(new QPushButton(tr(kCancel), this)) {
    setObjectName(u"ProcessWindow"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    // Each file of a run has a window of its own: none takes the keyboard from the list.
    setAttribute(Qt::WA_ShowWithoutActivating);
    m_fieldStatus->setObjectName(u"fieldStatus"_s);
    m_progressIndicator->setObjectName(u"progressIndicator"_s);
    m_cancelButton->setObjectName(u"cancelButton"_s);
    m_fieldProgress->setObjectName(u"fieldProgress"_s);

    m_fieldStatus->setText(QString());
    m_progressIndicator->setTextVisible(false);
    m_progressIndicator->setRange(0, 0);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_fieldProgress, 1);
    buttons->addWidget(m_cancelButton);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_fieldStatus);
    layout->addWidget(m_progressIndicator);
    layout->addLayout(buttons);
    setFixedWidth(kWidth);

    connect(m_cancelButton, &QPushButton::clicked, this, &ProcessWindow::cancelButtonTapped);
    if (controller != nullptr) {
        connect(controller, &ProcessController::statusChanged, this, &ProcessWindow::setStatus);
        connect(controller, &ProcessController::progress, this, &ProcessWindow::setProgress);
        connect(controller, &ProcessController::processingCompleted, this,
                &ProcessWindow::processingCompleted);
        // The queue deletes a controller once it has reported; its window goes with it.
        connect(controller, &QObject::destroyed, this, &QWidget::close);
    }
}

ProcessController* ProcessWindow::controller() const {
    return m_controller;
}

QString ProcessWindow::statusText() const {
    return m_statusText;
}

void ProcessWindow::setStatus(const QString& label, const QString& title) {
    m_statusText = label;
    // A long path is shortened in its middle, where the folders are, rather than widening the
    // window; the whole text stays in the tooltip.
    m_fieldStatus->setText(m_fieldStatus->fontMetrics().elidedText(
        label, Qt::ElideMiddle, kWidth - 2 * style()->pixelMetric(QStyle::PM_LayoutLeftMargin)));
    m_fieldStatus->setToolTip(label);
    setWindowTitle(title);
}

QString ProcessWindow::progressText(qint64 done, qint64 total, qint64 elapsedMs) {
    if (total <= 0) {
        return {};
    }
    const QLocale locale;
    const auto percent = static_cast<int>(done * 100 / total);
    if (total < kBigFile) {
        return tr(kPercent).arg(percent);
    }
    QString text = tr(kOfSize).arg(QString::number(percent), locale.formattedDataSize(done, 1),
                                   locale.formattedDataSize(total, 1));
    if (done > 0 && done < total && elapsedMs >= kSettledMs) {
        const auto left =
            static_cast<qint64>(double(elapsedMs) * double(total - done) / double(done) / 1000.0);
        text += u", "_s + (left < 90 ? tr(kSecondsLeft).arg(qMax<qint64>(left, 1))
                                     : tr(kMinutesLeft).arg((left + 30) / 60));
    }
    return text;
}

void ProcessWindow::setProgress(qint64 done, qint64 total) {
    if (total <= 0) {
        m_progressIndicator->setRange(0, 0);
        m_fieldProgress->clear();
        return;
    }
    if (!m_clock.isValid()) {
        m_clock.start();
    }
    m_progressIndicator->setRange(0, kSteps);
    m_progressIndicator->setValue(static_cast<int>(done * kSteps / total));
    m_fieldProgress->setText(progressText(done, total, m_clock.elapsed()));
}

void ProcessWindow::cancelButtonTapped() {
    if (m_controller) {
        m_controller->cancel();
    }
}

void ProcessWindow::processingCompleted() {
    close();
}
