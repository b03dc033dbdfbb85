#include "filelist/ResultsPanel.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>
#include <memory>

#include "processing/ProcessController.h"

using namespace Qt::Literals::StringLiterals;

namespace {
const char* const kTitle = QT_TRANSLATE_NOOP("ResultsPanel", "Results");
const char* const kShowInFolder = QT_TRANSLATE_NOOP("ResultsPanel", "Show in Folder");
const char* const kOpen = QT_TRANSLATE_NOOP("ResultsPanel", "Open");
}  // namespace

ResultsPanel::ResultsPanel(QWidget* parent)
    : QWidget(parent),
      m_view(new QTableView(this)),
      m_open([](const QUrl& url) { QDesktopServices::openUrl(url); }) {
    setObjectName(u"resultsPanel"_s);
    m_view->setObjectName(u"resultsView"_s);
    m_view->setModel(&m_model);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    // Senders and reasons are read whole: long ones wrap and their rows grow.
    m_view->setWordWrap(true);
    m_view->setTextElideMode(Qt::ElideRight);
    m_view->verticalHeader()->hide();
    m_view->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    QHeaderView* header = m_view->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setSectionResizeMode(RunResults::DetailsColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(RunResults::ActionsColumn, QHeaderView::ResizeToContents);
    header->resizeSection(RunResults::FileColumn, 170);
    header->resizeSection(RunResults::ResultColumn, 80);
    header->resizeSection(RunResults::OutputColumn, 170);

    auto* title = new QLabel(tr(kTitle), this);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addWidget(title);
    layout->addWidget(m_view);
    connect(&m_model, &QAbstractItemModel::rowsInserted, this,
            [this](const QModelIndex&, int first, int last) {
                for (int row = first; row <= last; ++row) {
                    addButtons(row);
                }
                m_view->scrollToBottom();
            });
}

void ResultsPanel::follow(ProcessController* controller) {
    const auto recorded = std::make_shared<bool>(false);
    // The controller is the sender, so it is alive whenever this runs.
    connect(controller, &ProcessController::processingCompleted, this,
            [this, controller, recorded](const QString& outcome) {
                if (*recorded) {
                    return;
                }
                *recorded = true;
                RunResults::Result result;
                result.inputPath = controller->inputPath();
                if (outcome.isEmpty()) {
                    result.kind = controller->toEncrypt() ? RunResults::Kind::Protected
                                                          : RunResults::Kind::Opened;
                    result.outputPath = controller->outputPath();
                    result.sender = controller->senderVerdict();
                } else if (outcome == ProcessController::kEncryptionCancelled ||
                           outcome == ProcessController::kDecryptionCancelled) {
                    result.kind = RunResults::Kind::Cancelled;
                } else {
                    result.failure = outcome;
                }
                m_model.add(std::move(result));
            });
}

void ResultsPanel::addButtons(int row) {
    const QString output = m_model.results().at(row).outputPath;
    if (output.isEmpty()) {
        return;
    }
    auto* cell = new QWidget(m_view);
    auto* layout = new QHBoxLayout(cell);
    layout->setContentsMargins(2, 0, 2, 0);
    layout->setSpacing(4);
    auto* show = new QPushButton(tr(kShowInFolder), cell);
    show->setObjectName(u"showInFolderButton"_s);
    auto* open = new QPushButton(tr(kOpen), cell);
    open->setObjectName(u"openButton"_s);
    layout->addWidget(show);
    layout->addWidget(open);
    connect(show, &QPushButton::clicked, this, [this, output] {
        m_open(QUrl::fromLocalFile(QFileInfo(output).absolutePath()));
    });
    connect(open, &QPushButton::clicked, this,
            [this, output] { m_open(QUrl::fromLocalFile(output)); });
    m_view->setIndexWidget(m_model.index(row, RunResults::ActionsColumn), cell);
}
