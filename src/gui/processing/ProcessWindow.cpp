#include "processing/ProcessWindow.h"

#include <QHBoxLayout>
#include <QLabel>
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

}  // namespace

ProcessWindow::ProcessWindow(ProcessController* controller, QWidget* parent)
    // A tool window floats above the main window and stays out of the task bar.
    : QWidget(parent, Qt::Tool | Qt::WindowStaysOnTopHint),
      m_controller(controller),
      m_fieldStatus(new QLabel(this)),
      m_progressIndicator(new QProgressBar(this)),
      m_cancelButton(new QPushButton(tr(kCancel), this)) {
    setObjectName(u"ProcessWindow"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    m_fieldStatus->setObjectName(u"fieldStatus"_s);
    m_progressIndicator->setObjectName(u"progressIndicator"_s);
    m_cancelButton->setObjectName(u"cancelButton"_s);

    m_fieldStatus->setText(QString());
    m_progressIndicator->setTextVisible(false);
    m_progressIndicator->setRange(0, 0);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
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

void ProcessWindow::setProgress(qint64 done, qint64 total) {
    if (total <= 0) {
        m_progressIndicator->setRange(0, 0);
        return;
    }
    m_progressIndicator->setRange(0, kSteps);
    m_progressIndicator->setValue(static_cast<int>(done * kSteps / total));
}

void ProcessWindow::cancelButtonTapped() {
    if (m_controller) {
        m_controller->cancel();
    }
}

void ProcessWindow::processingCompleted() {
    close();
}
