#include "contacts/RecipientChooser.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "shell/Background.h"
#include "contacts/RecipientChoice.h"
#include "shell/NotificationHub.h"
#include "shell/Prompter.h"
#include "storage/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kTitle = QT_TRANSLATE_NOOP("RecipientChooser", "Recipients");
const char* const kHeading =
    QT_TRANSLATE_NOOP("RecipientChooser", "Choose who may open the encrypted files:");
const char* const kHint = QT_TRANSLATE_NOOP(
    "RecipientChooser", "A click chooses a contact, a second click leaves it out.");
const char* const kSearchPlaceholder =
    QT_TRANSLATE_NOOP("RecipientChooser", "NIVO ID to find or add");
const char* const kFind = QT_TRANSLATE_NOOP("RecipientChooser", "Find");
const char* const kCancel = QT_TRANSLATE_NOOP("RecipientChooser", "Cancel");
const char* const kNext = QT_TRANSLATE_NOOP("RecipientChooser", "Next");

void sortByNivoId(QList<Contact>& contacts) {
    std::stable_sort(contacts.begin(), contacts.end(), [](const Contact& a, const Contact& b) {
        return a.NivoID.compare(b.NivoID, Qt::CaseInsensitive) < 0;
    });
}

}  // namespace

RecipientChooser::RecipientChooser(NotificationHub& hub, Prompter& prompter, QWidget* parent)
    // Floats above the main window, like the other windows of a run.
    : QWidget(parent, Qt::Tool | Qt::WindowStaysOnTopHint),
      m_hub(hub),
      m_prompter(prompter),
      m_tableViewAvailable(new QListWidget(this)),
      m_searchField(new QLineEdit(this)),
      m_progressIndicator(new QProgressBar(this)) {
    setObjectName(u"RecipientChooser"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr(kTitle));
    m_tableViewAvailable->setObjectName(u"tableViewAvailable"_s);
    m_searchField->setObjectName(u"searchField"_s);
    m_progressIndicator->setObjectName(u"progressIndicator"_s);
    // A click toggles one contact; no modifier keys needed to choose several.
    m_tableViewAvailable->setSelectionMode(QAbstractItemView::MultiSelection);
    m_tableViewAvailable->setSpacing(2);
    m_searchField->setPlaceholderText(tr(kSearchPlaceholder));
    m_searchField->setClearButtonEnabled(true);
    m_progressIndicator->setRange(0, 0);
    m_progressIndicator->setTextVisible(false);
    m_progressIndicator->setMaximumHeight(10);
    m_progressIndicator->setFixedWidth(80);
    QSizePolicy keepSpace = m_progressIndicator->sizePolicy();
    keepSpace.setRetainSizeWhenHidden(true);
    m_progressIndicator->setSizePolicy(keepSpace);
    m_progressIndicator->hide();

    auto* find = new QPushButton(tr(kFind), this);
    auto* cancel = new QPushButton(tr(kCancel), this);
    auto* next = new QPushButton(tr(kNext), this);
    find->setObjectName(u"findButton"_s);
    cancel->setObjectName(u"cancelButton"_s);
    next->setObjectName(u"nextButton"_s);
    find->setAutoDefault(false);
    cancel->setAutoDefault(false);
    next->setAutoDefault(false);
    const auto search = [this] { searchNivoID(m_searchField->text()); };
    connect(find, &QPushButton::clicked, this, search);
    connect(m_searchField, &QLineEdit::returnPressed, this, search);
    connect(cancel, &QPushButton::clicked, this, &RecipientChooser::cancelButtonTapped);
    connect(next, &QPushButton::clicked, this, &RecipientChooser::nextButtonTapped);

    auto* searchRow = new QHBoxLayout;
    searchRow->addWidget(m_searchField, 1);
    searchRow->addWidget(find);
    searchRow->addWidget(m_progressIndicator);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cancel);
    buttons->addWidget(next);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr(kHeading), this));
    auto* hint = new QLabel(tr(kHint), this);
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(hint);
    layout->addWidget(m_tableViewAvailable, 1);
    layout->addLayout(searchRow);
    layout->addLayout(buttons);
    resize(360, 420);

    m_contactList = NivoGXUtil::getContactList();
    sortByNivoId(m_contactList);
    reloadContacts(RecipientChoice::lastChoice(m_contactList));
}

QList<Contact> RecipientChooser::selectedList() const {
    QList<Contact> chosen;
    for (int row = 0; row < m_contactList.size(); ++row) {
        if (m_tableViewAvailable->item(row)->isSelected()) {
            chosen.append(m_contactList.at(row));
        }
    }
    return chosen;
}

void RecipientChooser::reloadContacts(const QList<Contact>& chosen) {
    m_tableViewAvailable->clear();
    for (const Contact& contact : m_contactList) {
        auto* item = new QListWidgetItem(contact.NivoID, m_tableViewAvailable);
        if (contact.DisplayName != contact.NivoID && !contact.DisplayName.isEmpty()) {
            item->setToolTip(contact.DisplayName);
        }
        item->setSelected(std::any_of(chosen.cbegin(), chosen.cend(),
                                      [&](const Contact& c) { return c.ID == contact.ID; }));
    }
}

void RecipientChooser::selectRow(int row) {
    QListWidgetItem* item = m_tableViewAvailable->item(row);
    item->setSelected(true);
    m_tableViewAvailable->setCurrentItem(item, QItemSelectionModel::Select);
    m_tableViewAvailable->scrollToItem(item);
}

void RecipientChooser::searchNivoID(const QString& text) {
    const QString name = RecipientChoice::normalized(text);
    if (RecipientChoice::isSelf(name)) {
        m_prompter.alert(this, RecipientChoice::unableToAddSelf(), QString());
        return;
    }
    if (const qsizetype row = RecipientChoice::indexOf(m_contactList, name); row >= 0) {
        selectRow(static_cast<int>(row));
        return;
    }
    downloadNivoIDProcess(name);
}

void RecipientChooser::downloadNivoIDProcess(const QString& text) {
    ++m_searches;
    m_progressIndicator->show();
    runInBackground(
        this, [text] { return RecipientChoice::lookUp(text); },
        [this, text](const NivoProfile& answer) { downloadFinished(text, answer); });
}

void RecipientChooser::downloadFinished(const QString& text, const NivoProfile& answer) {
    if (--m_searches == 0) {
        m_progressIndicator->hide();
    }
    // Two searches for the same person may both come back; the second finds the first's row.
    if (const qsizetype row = RecipientChoice::indexOf(m_contactList, text); row >= 0) {
        selectRow(static_cast<int>(row));
        return;
    }
    const auto contact = RecipientChoice::addLookedUp(text, answer);
    if (!contact) {
        m_prompter.alert(this, RecipientChoice::userDoesNotExist(), answer.StatusText);
        return;
    }
    const QList<Contact> chosen = selectedList();
    m_contactList.append(*contact);
    sortByNivoId(m_contactList);
    reloadContacts(chosen);
    m_searchField->clear();
}

void RecipientChooser::nextButtonTapped() {
    const QList<Contact> recipients = selectedList();
    if (recipients.isEmpty() && !m_prompter.ask(this, RecipientChoice::proceedWithoutRecipients(),
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
    RecipientChoice::rememberChoice(recipients);
    m_hub.postSelectionCompleted(recipients);
    close();
}

void RecipientChooser::cancelButtonTapped() {
    close();
}
