#include "log/LogViewerController.h"

#include <QAction>
#include <QComboBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QToolBar>
#include <QVBoxLayout>

#include "platform/ExportFileName.h"
#include "session/NivoGXUtil.h"
#include "session/UserDataExport.h"
#include "shell/IconSet.h"
#include "shell/Prompter.h"
#include "shell/StatusColumn.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kWindowTitle = QT_TRANSLATE_NOOP("LogViewerController", "Activity Log");
const char* const kEncryptItem = QT_TRANSLATE_NOOP("LogViewerController", "Encrypt");
const char* const kDecryptItem = QT_TRANSLATE_NOOP("LogViewerController", "Decrypt");
const char* const kEncryptTip = QT_TRANSLATE_NOOP("LogViewerController", "Show encryptions only");
const char* const kDecryptTip = QT_TRANSLATE_NOOP("LogViewerController", "Show decryptions only");
const char* const kSearchIn = QT_TRANSLATE_NOOP("LogViewerController", "Search in");
const char* const kSearchPlaceholder = QT_TRANSLATE_NOOP("LogViewerController", "Search");
const char* const kReload = QT_TRANSLATE_NOOP("LogViewerController", "Reload");
const char* const kExport = QT_TRANSLATE_NOOP("LogViewerController", "Export");
const char* const kClear = QT_TRANSLATE_NOOP("LogViewerController", "Clear");
const char* const kExportLogFileTo = QT_TRANSLATE_NOOP("LogViewerController", "Export Log file to");
const char* const kClearQuestion =
    QT_TRANSLATE_NOOP("LogViewerController", "Do you wish to clear log file?");

// The table's columns in order; a column's LogQuery::Column is its index plus one.
const std::array<const QString*, 6> kColumns = {&LogQuery::kDate,      &LogQuery::kTime,
                                                &LogQuery::kType,      &LogQuery::kFile,
                                                &LogQuery::kRecipient, &LogQuery::kStatus};
// What the header and the combo box show for each column of kColumns.
const std::array<const char*, 6> kColumnTitles = {
    QT_TRANSLATE_NOOP("LogViewerController", "Date"),
    QT_TRANSLATE_NOOP("LogViewerController", "Time"),
    QT_TRANSLATE_NOOP("LogViewerController", "Type"),
    QT_TRANSLATE_NOOP("LogViewerController", "File"),
    QT_TRANSLATE_NOOP("LogViewerController", "Recipient"),
    QT_TRANSLATE_NOOP("LogViewerController", "Status")};
// The columns offered to the search, by index in kColumns; the type has its own filter.
const std::array<std::size_t, 5> kSearchColumns = {0, 1, 3, 4, 5};

const QString kEncryptOperation = u"Encrypt"_s;

QTableWidgetItem* textItem(const QString& text) {
    auto* item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
    return item;
}

QTableWidgetItem* typeItem(const QString& operationType) {
    const QString image =
        operationType == kEncryptOperation ? IconSet::kEncrypt : IconSet::kDecrypt;
    auto* item = new QTableWidgetItem(IconSet::named(image), QString());
    item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
    item->setData(Qt::UserRole, image);
    item->setToolTip(operationType);
    return item;
}

}  // namespace

LogViewerController::LogViewerController(Prompter& prompter, QWidget* parent)
    : QMainWindow(parent),
      m_prompter(prompter),
      m_logTableView(new QTableWidget(this)),
      m_searchField(new QLineEdit(this)),
      m_comboBox(new QComboBox(this)),
      m_encryptItem(new QAction(tr(kEncryptItem), this)),
      m_decryptItem(new QAction(tr(kDecryptItem), this)) {
    setObjectName(u"LogViewerController"_s);
    setWindowTitle(tr(kWindowTitle));

    m_encryptItem->setObjectName(u"encryptItem"_s);
    m_encryptItem->setToolTip(tr(kEncryptTip));
    m_decryptItem->setObjectName(u"decryptItem"_s);
    m_decryptItem->setToolTip(tr(kDecryptTip));
    showImage(m_encryptItem, IconSet::kEncryptGrey);
    showImage(m_decryptItem, IconSet::kDecryptGrey);
    connect(m_encryptItem, &QAction::triggered, this, &LogViewerController::EncryptButtonTapped);
    connect(m_decryptItem, &QAction::triggered, this, &LogViewerController::DecryptButtonTapped);
    auto* toolBar = addToolBar(QString());
    toolBar->setMovable(false);
    toolBar->setFloatable(false);
    toolBar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    toolBar->setIconSize(QSize(32, 32));
    toolBar->addAction(m_encryptItem);
    toolBar->addAction(m_decryptItem);

    m_comboBox->setObjectName(u"comboBox"_s);
    for (const std::size_t column : kSearchColumns) {
        m_comboBox->addItem(tr(kColumnTitles.at(column)), *kColumns.at(column));
    }
    m_comboBox->setCurrentIndex(m_comboBox->findData(LogQuery::kFile));
    m_searchField->setObjectName(u"searchField"_s);
    m_searchField->setPlaceholderText(tr(kSearchPlaceholder));
    m_searchField->setClearButtonEnabled(true);
    connect(m_searchField, &QLineEdit::returnPressed, this,
            &LogViewerController::searchWithFieldText);
    connect(m_searchField, &QLineEdit::textEdited, this, &LogViewerController::searchFieldEdited);
    auto* searchRow = new QHBoxLayout;
    searchRow->addWidget(new QLabel(tr(kSearchIn), this));
    searchRow->addWidget(m_comboBox);
    searchRow->addWidget(m_searchField, 1);

    m_logTableView->setObjectName(u"logTableView"_s);
    m_logTableView->setColumnCount(static_cast<int>(kColumns.size()));
    QStringList headers;
    for (const char* title : kColumnTitles) {
        headers.append(tr(title));
    }
    m_logTableView->setHorizontalHeaderLabels(headers);
    m_logTableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_logTableView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_logTableView->setAlternatingRowColors(true);
    m_logTableView->setWordWrap(false);
    m_logTableView->verticalHeader()->hide();
    m_logTableView->verticalHeader()->setDefaultSectionSize(24);
    // The window sorts by itself, with its own comparators; the table only reports the click.
    m_logTableView->setSortingEnabled(false);
    QHeaderView* header = m_logTableView->horizontalHeader();
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(-1, Qt::AscendingOrder);
    header->setStretchLastSection(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->resizeSection(0, 100);
    header->resizeSection(1, 70);
    header->resizeSection(2, 50);
    header->resizeSection(3, 420);
    header->resizeSection(4, 160);
    // Paths elide in the middle, where their folders are; the status is read from its start.
    m_logTableView->setTextElideMode(Qt::ElideMiddle);
    StatusColumn::install(m_logTableView, 5);
    connect(header, &QHeaderView::sectionClicked, this,
            &LogViewerController::tableViewDidClickColumn);

    auto* reloadButton = new QPushButton(tr(kReload), this);
    reloadButton->setObjectName(u"reloadButton"_s);
    connect(reloadButton, &QPushButton::clicked, this, &LogViewerController::reloadTable);
    auto* exportButton = new QPushButton(tr(kExport), this);
    exportButton->setObjectName(u"exportButton"_s);
    connect(exportButton, &QPushButton::clicked, this, &LogViewerController::ExportButtonTapped);
    auto* clearButton = new QPushButton(tr(kClear), this);
    clearButton->setObjectName(u"clearButton"_s);
    connect(clearButton, &QPushButton::clicked, this, &LogViewerController::ClearButtonTapped);
    auto* buttonRow = new QHBoxLayout;
    buttonRow->addWidget(reloadButton);
    buttonRow->addStretch(1);
    buttonRow->addWidget(exportButton);
    buttonRow->addWidget(clearButton);

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->addLayout(searchRow);
    layout->addWidget(m_logTableView, 1);
    layout->addLayout(buttonRow);
    setCentralWidget(central);
    resize(1000, 560);

    m_logList = NivoGXUtil::getLogEntries();
    m_displayList = m_logList;
    reloadData();
}

LogViewerController::~LogViewerController() = default;

void LogViewerController::showImage(QAction* item, const QString& name) {
    item->setIcon(IconSet::named(name));
    // The image's name, for whoever needs to know which state the toggle shows.
    item->setData(name);
}

LogQuery::Operation LogViewerController::activeOperation() const {
    if (m_encryptOnly) {
        return LogQuery::Operation::Encrypt;
    }
    if (m_decryptOnly) {
        return LogQuery::Operation::Decrypt;
    }
    return LogQuery::Operation::All;
}

void LogViewerController::reloadData() {
    m_logTableView->clearContents();
    m_logTableView->setRowCount(static_cast<int>(m_displayList.size()));
    int row = 0;
    for (const LogEntry& entry : std::as_const(m_displayList)) {
        m_logTableView->setItem(row, 0, textItem(entry.date));
        m_logTableView->setItem(row, 1, textItem(entry.time));
        m_logTableView->setItem(row, 2, typeItem(entry.operationType));
        m_logTableView->setItem(row, 3, textItem(entry.filePath));
        m_logTableView->setItem(row, 4, textItem(entry.recipients));
        // The status keeps the line's ending in the entry; a cell shows one line.
        m_logTableView->setItem(row, 5, textItem(entry.status.trimmed()));
        ++row;
    }
}

void LogViewerController::reloadTable() {
    m_logList = NivoGXUtil::getLogEntries();
    m_displayList = LogQuery::ofOperation(m_logList, activeOperation());
    reloadData();
}

void LogViewerController::searchLog(const QString& text) {
    m_displayList = LogQuery::ofOperation(m_logList, activeOperation());
    if (!text.isEmpty()) {
        m_displayList = LogQuery::search(m_displayList, m_comboBox->currentData().toString(), text);
    }
    // Results come in file order: the sort is not applied again until a header is clicked.
    reloadData();
}

void LogViewerController::searchWithFieldText() {
    searchLog(m_searchField->text().trimmed().toLower());
}

void LogViewerController::searchFieldEdited(const QString& text) {
    // Other edits wait for Enter; emptying the field brings back the filtered list at once.
    if (text.isEmpty()) {
        searchLog(QString());
    }
}

void LogViewerController::EncryptButtonTapped() {
    m_decryptOnly = false;
    showImage(m_decryptItem, IconSet::kDecryptGrey);
    m_encryptOnly = !m_encryptOnly;
    showImage(m_encryptItem, m_encryptOnly ? IconSet::kEncrypt : IconSet::kEncryptGrey);
    searchWithFieldText();
}

void LogViewerController::DecryptButtonTapped() {
    m_encryptOnly = false;
    showImage(m_encryptItem, IconSet::kEncryptGrey);
    m_decryptOnly = !m_decryptOnly;
    showImage(m_decryptItem, m_decryptOnly ? IconSet::kDecrypt : IconSet::kDecryptGrey);
    searchWithFieldText();
}

void LogViewerController::tableViewDidClickColumn(int section) {
    if (section < 0 || section >= static_cast<int>(kColumns.size())) {
        return;
    }
    const auto column = LogQuery::columnNamed(*kColumns.at(static_cast<std::size_t>(section)));
    if (!column) {
        return;
    }
    m_currentOrderingState = *column;
    bool& ascending = m_ascending.at(static_cast<std::size_t>(*column));
    ascending = !ascending;
    reorderingData();
}

void LogViewerController::reorderingData() {
    QHeaderView* header = m_logTableView->horizontalHeader();
    if (m_currentOrderingState == LogQuery::Column::None) {
        header->setSortIndicator(-1, Qt::AscendingOrder);
        LogQuery::sort(m_displayList, LogQuery::Column::None, true);
    } else {
        const auto state = static_cast<std::size_t>(m_currentOrderingState);
        const bool ascending = m_ascending.at(state);
        LogQuery::sort(m_displayList, m_currentOrderingState, ascending);
        header->setSortIndicator(static_cast<int>(state) - 1,
                                 ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
    }
    reloadData();
}

void LogViewerController::ExportButtonTapped() {
    Prompter::SavePanel panel;
    panel.message = tr(kExportLogFileTo);
    panel.allowedType = ExportFileName::kLogType;
    panel.defaultName =
        ExportFileName::logName(NivoGXUtil::getNivoUsername(), QDateTime::currentDateTime());
    panel.canCreateFolders = true;
    panel.startFolder = m_exportFolder.start();
    const QString chosen = m_prompter.save(this, panel);
    if (chosen.isEmpty()) {
        return;
    }
    m_exportFolder.remember(chosen);
    if (const auto result = UserDataExport::exportLog(chosen); !result.failure.isEmpty()) {
        displayAlertBox(result.failure);
    }
}

void LogViewerController::ClearButtonTapped() {
    if (!m_prompter.ask(this, tr(kClearQuestion), QString())) {
        return;
    }
    NivoGXUtil::clearLogFile();
    // logList stays as read: a filter toggle or a search brings the old entries back until the
    // next Reload.
    m_displayList.clear();
    reloadData();
}

void LogViewerController::displayAlertBox(const QString& message) {
    m_prompter.alert(this, message, QString());
}
