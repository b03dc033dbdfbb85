#include "contacts/ContactController.h"

#include <QDateTime>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>
#include <chrono>
#include <memory>

#include "contacts/ContactDB.h"
#include "contacts/ContactTableModel.h"
#include "crypto/CertificateTrust.h"
#include "log/VisibleText.h"
#include "session/NivoGXUtil.h"
#include "session/RecipientChoice.h"
#include "shell/Background.h"
#include "shell/IconSet.h"
#include "shell/NotificationHub.h"
#include "shell/Prompter.h"

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

const char* const kTitle = QT_TRANSLATE_NOOP("ContactController", "Recipients");
const char* const kHeading =
    QT_TRANSLATE_NOOP("ContactController", "Choose who may open the encrypted files.");
const char* const kSearchPlaceholder =
    QT_TRANSLATE_NOOP("ContactController", "Find or add a NIVO ID, then press Enter");
const char* const kAdd = QT_TRANSLATE_NOOP("ContactController", "Add");
const char* const kRemove = QT_TRANSLATE_NOOP("ContactController", "Remove");
const char* const kRemoveAvailableTip =
    QT_TRANSLATE_NOOP("ContactController", "Deletes the contact from your contacts");
const char* const kRemoveSelectedTip =
    QT_TRANSLATE_NOOP("ContactController", "Leaves the recipient out of this encryption");
const char* const kCancel = QT_TRANSLATE_NOOP("ContactController", "Cancel");
const char* const kNext = QT_TRANSLATE_NOOP("ContactController", "Next");
const char* const kSelfNote =
    QT_TRANSLATE_NOOP("ContactController", "You can always open what you encrypt.");

// The table's own click has settled by the time a removal runs.
constexpr auto kRemoveDelay = 100ms;

QTableView* makeTable(QWidget* parent, ContactTableModel* model, const QString& name) {
    auto* table = new QTableView(parent);
    table->setObjectName(name);
    table->setModel(model);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setShowGrid(false);
    table->setAlternatingRowColors(true);
    table->setWordWrap(false);
    table->verticalHeader()->hide();
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 8);
    table->horizontalHeader()->setStretchLastSection(true);
    table->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    table->horizontalHeader()->setSectionsClickable(false);
    table->setMinimumWidth(190);
    // A reload leaves the highlight on the same row, which is also the row Remove goes on
    // working on after a deletion.
    auto remembered = std::make_shared<int>(-1);
    QObject::connect(model, &QAbstractItemModel::modelAboutToBeReset, table, [table, remembered] {
        *remembered = table->currentIndex().isValid() &&
                              table->selectionModel()->isRowSelected(table->currentIndex().row())
                          ? table->currentIndex().row()
                          : -1;
    });
    QObject::connect(model, &QAbstractItemModel::modelReset, table, [table, model, remembered] {
        if (*remembered >= 0 && *remembered < model->rowCount()) {
            table->setCurrentIndex(model->index(*remembered, 0));
        }
    });
    return table;
}

QPushButton* makeButton(QWidget* parent, const char* text, const QString& name) {
    auto* button = new QPushButton(ContactController::tr(text), parent);
    button->setObjectName(name);
    button->setAutoDefault(false);
    return button;
}

const char* const kContactDetails = QT_TRANSLATE_NOOP(
    "ContactController", "%1: %7\nSubject: %2   Issuer: %3\nValid from %4 to %5\nSHA-256: %6");
const char* const kVerifiedCertificate =
    QT_TRANSLATE_NOOP("ContactController", "certificate issued by the account service");
const char* const kUnverifiedCertificate =
    QT_TRANSLATE_NOOP("ContactController", "certificate NOT VERIFIED (%1)");
const char* const kUnreadableCertificate =
    QT_TRANSLATE_NOOP("ContactController", "%1: the stored certificate cannot be read");

}  // namespace

ContactController::ContactController(NotificationHub& hub, Prompter& prompter, QWidget* parent)
    // Floats above the main window, like the other windows of a run.
    : QWidget(parent, Qt::Tool | Qt::WindowStaysOnTopHint),
      m_hub(hub),
      m_prompter(prompter),
      m_tableViewAvailable(makeTable(this, m_selection.availableModel(), u"tableViewAvailable"_s)),
      m_tableViewSelected(makeTable(this, m_selection.selectedModel(), u"tableViewSelected"_s)),
      m_searchField(new QLineEdit(this)),
      m_progressIndicator(new QProgressBar(this)),
      m_contactDetails(new QLabel(this)) {
    setObjectName(u"ContactController"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr(kTitle));
    setWindowIcon(IconSet::named(IconSet::kEncrypt));

    m_searchField->setObjectName(u"searchField"_s);
    m_searchField->setPlaceholderText(tr(kSearchPlaceholder));
    m_searchField->setClearButtonEnabled(true);
    m_searchField->addAction(IconSet::named(IconSet::kSearch), QLineEdit::LeadingPosition);
    m_progressIndicator->setObjectName(u"progressIndicator"_s);
    m_progressIndicator->setRange(0, 0);
    m_progressIndicator->setTextVisible(false);
    m_progressIndicator->setMaximumHeight(10);
    m_progressIndicator->setFixedWidth(80);
    QSizePolicy keepSpace = m_progressIndicator->sizePolicy();
    keepSpace.setRetainSizeWhenHidden(true);
    m_progressIndicator->setSizePolicy(keepSpace);
    m_progressIndicator->hide();
    m_contactDetails->setObjectName(u"contactDetails"_s);
    m_contactDetails->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_contactDetails->setWordWrap(true);
    QFont small = m_contactDetails->font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    m_contactDetails->setFont(small);

    QPushButton* add = makeButton(this, kAdd, u"addButton"_s);
    QPushButton* removeAvailable = makeButton(this, kRemove, u"removeAvailableButton"_s);
    QPushButton* removeSelected = makeButton(this, kRemove, u"removeSelectedButton"_s);
    QPushButton* cancel = makeButton(this, kCancel, u"cancelButton"_s);
    QPushButton* next = makeButton(this, kNext, u"nextButton"_s);
    add->setIcon(IconSet::named(IconSet::kAddRecipient));
    removeAvailable->setToolTip(tr(kRemoveAvailableTip));
    removeSelected->setToolTip(tr(kRemoveSelectedTip));
    connect(add, &QPushButton::clicked, this, &ContactController::addButtonTapped);
    connect(removeAvailable, &QPushButton::clicked, this,
            &ContactController::removeAvailableButtonTapped);
    connect(removeSelected, &QPushButton::clicked, this,
            &ContactController::removeSelectedButtonTapped);
    connect(cancel, &QPushButton::clicked, this, &ContactController::cancelButtonTapped);
    connect(next, &QPushButton::clicked, this, &ContactController::nextButtonTapped);
    connect(m_searchField, &QLineEdit::returnPressed, this,
            [this] { searchNivoID(m_searchField->text()); });
    connect(m_tableViewAvailable, &QTableView::clicked, this,
            &ContactController::clickInAvailableTable);
    connect(m_tableViewSelected, &QTableView::clicked, this,
            &ContactController::clickInSelectedTable);
    connect(&m_hub, &NotificationHub::contactImportCompleted, this,
            &ContactController::handleImportComplete);

    auto* tables = new QGridLayout;
    tables->addWidget(m_tableViewAvailable, 0, 0);
    auto* middle = new QVBoxLayout;
    middle->addStretch();
    middle->addWidget(add);
    middle->addStretch();
    tables->addLayout(middle, 0, 1);
    tables->addWidget(m_tableViewSelected, 0, 2);
    auto* leftButtons = new QHBoxLayout;
    leftButtons->addWidget(removeAvailable);
    leftButtons->addStretch();
    auto* rightButtons = new QHBoxLayout;
    rightButtons->addWidget(removeSelected);
    rightButtons->addStretch();
    tables->addLayout(leftButtons, 1, 0);
    tables->addLayout(rightButtons, 1, 2);
    tables->setColumnStretch(0, 1);
    tables->setColumnStretch(2, 1);
    tables->setRowStretch(0, 1);

    auto* selfNote = new QLabel(tr(kSelfNote), this);
    selfNote->setForegroundRole(QPalette::PlaceholderText);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(selfNote, 1);
    bottom->addWidget(m_progressIndicator);
    bottom->addSpacing(8);
    bottom->addWidget(cancel);
    bottom->addWidget(next);

    auto* layout = new QVBoxLayout(this);
    auto* heading = new QLabel(tr(kHeading), this);
    QFont headingFont = heading->font();
    headingFont.setBold(true);
    heading->setFont(headingFont);
    layout->addWidget(heading);
    layout->addWidget(m_searchField);
    layout->addLayout(tables, 1);
    layout->addWidget(m_contactDetails);
    layout->addSpacing(4);
    layout->addLayout(bottom);
    // Room for long names; a longer one shows whole in its tooltip and in the details.
    resize(640, 520);
}

ContactController::~ContactController() = default;

qsizetype ContactController::selectedRow(const QTableView* table) {
    const QModelIndexList rows = table->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.constFirst().row();
}

void ContactController::clickInAvailableTable() {
    const qsizetype row = selectedRow(m_tableViewAvailable);
    m_selection.clickInAvailableTable(row);
    if (row >= 0 && row < m_selection.contactList().size()) {
        showDetails(m_selection.contactList().at(row));
    }
}

void ContactController::clickInSelectedTable() {
    const qsizetype row = selectedRow(m_tableViewSelected);
    m_selection.clickInSelectedTable(row);
    if (row >= 0 && row < m_selection.selectedList().size()) {
        showDetails(m_selection.selectedList().at(row));
    }
}

void ContactController::showDetails(const Contact& contact) {
    const auto details = CertificateTrust::describe(contact.CertData);
    if (!details) {
        m_contactDetails->setText(tr(kUnreadableCertificate).arg(VisibleText::of(contact.NivoID)));
        return;
    }
    const auto when = [](const QDateTime& time) {
        return QLocale().toString(time.toLocalTime(), QLocale::ShortFormat);
    };
    const QString problem = ContactDB::certificateProblem(contact);
    m_contactDetails->setText(
        tr(kContactDetails)
            .arg(VisibleText::of(contact.NivoID), VisibleText::of(details->subject),
                 VisibleText::of(details->issuer), when(details->notBefore),
                 when(details->notAfter), details->sha256,
                 problem.isEmpty() ? tr(kVerifiedCertificate)
                                   : tr(kUnverifiedCertificate).arg(VisibleText::of(problem))));
}

void ContactController::addButtonTapped() {
    m_selection.addContact(selectedRow(m_tableViewAvailable));
}

void ContactController::removeAvailableButtonTapped() {
    QTimer::singleShot(kRemoveDelay, this, [this] { m_selection.handleDeleteAEntry(); });
}

void ContactController::removeSelectedButtonTapped() {
    QTimer::singleShot(kRemoveDelay, this, [this] { m_selection.handleDeleteSEntry(); });
}

void ContactController::handleImportComplete() {
    m_selection.handleImportComplete();
}

void ContactController::selectAvailableRow(qsizetype row) {
    const QModelIndex index = m_selection.availableModel()->index(static_cast<int>(row), 0);
    m_tableViewAvailable->scrollTo(index);
    m_tableViewAvailable->selectionModel()->setCurrentIndex(
        index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void ContactController::searchNivoID(const QString& text) {
    const RecipientSelection::Search search = m_selection.searchNivoID(text);
    switch (search.outcome) {
        case RecipientSelection::Search::Outcome::Self:
            m_prompter.alert(this, RecipientChoice::unableToAddSelf(), QString());
            return;
        case RecipientSelection::Search::Outcome::Existing:
            selectAvailableRow(search.row);
            return;
        case RecipientSelection::Search::Outcome::LookUp:
            downloadNivoIDProcess(search.name);
            return;
    }
}

void ContactController::downloadNivoIDProcess(const QString& text) {
    // A second search may start while one runs; each ends on its own.
    ++m_searches;
    m_progressIndicator->show();
    runInBackground(
        this, [text] { return RecipientChoice::lookUp(text); },
        [this, text](const NivoProfile& answer) { downloadFinished(text, answer); });
}

void ContactController::downloadFinished(const QString& text, const NivoProfile& answer) {
    if (--m_searches == 0) {
        m_progressIndicator->hide();
    }
    const std::optional<qsizetype> row = m_selection.downloadFinished(text, answer);
    if (!row) {
        m_prompter.alert(this, RecipientChoice::userDoesNotExist(), answer.StatusText);
        return;
    }
    m_tableViewAvailable->scrollTo(m_selection.availableModel()->index(static_cast<int>(*row), 0));
    m_searchField->clear();
}

void ContactController::nextButtonTapped() {
    if (m_selection.selectedList().isEmpty() &&
        !m_prompter.ask(this, RecipientChoice::proceedWithoutRecipients(),
                        RecipientChoice::noRecipientsSelected())) {
        return;
    }
    Prompter::OpenPanel panel;
    panel.message = RecipientChoice::selectOutputFolder();
    panel.startFolder = NivoGXUtil::getLastOutputEncryptFolder();
    panel.chooseFolders = true;
    panel.canCreateFolders = true;
    const QStringList chosen = m_prompter.open(this, panel);
    if (chosen.isEmpty()) {
        return;
    }
    NivoGXUtil::saveSettings(QString(), QString(), QString(), chosen.constFirst(), QString());
    const QList<Contact> recipients = m_selection.completeSelection();
    m_hub.postSelectionCompleted(recipients);
    close();
}

void ContactController::cancelButtonTapped() {
    close();
}
