#include "session/RecipientSelection.h"

#include "contacts/ContactTableModel.h"
#include "session/NivoGXUtil.h"
#include "session/RecipientChoice.h"

using namespace Qt::Literals::StringLiterals;

const QString RecipientSelection::kAvailableColumn = u"NIVOID_A"_s;
const QString RecipientSelection::kSelectedColumn = u"NIVOID_S"_s;

namespace {

const char* const kAvailableTitle = QT_TRANSLATE_NOOP("RecipientSelection", "Contacts");
const char* const kSelectedTitle = QT_TRANSLATE_NOOP("RecipientSelection", "Recipients");

bool inRange(qsizetype row, const QList<Contact>& list) {
    return row >= 0 && row < list.size();
}

}  // namespace

RecipientSelection::RecipientSelection(QObject* parent)
    : QObject(parent),
      m_contactList(NivoGXUtil::getContactList()),
      m_selectedList(RecipientChoice::lastChoice(m_contactList)),
      m_availableModel(
          new ContactTableModel(m_contactList, kAvailableColumn, tr(kAvailableTitle), this)),
      m_selectedModel(
          new ContactTableModel(m_selectedList, kSelectedColumn, tr(kSelectedTitle), this)) {
    RecipientChoice::sortByNivoId(m_contactList);
    RecipientChoice::sortByNivoId(m_selectedList);
}

// The models read the lists; they go first, while the lists still exist.
RecipientSelection::~RecipientSelection() {
    delete m_availableModel;
    delete m_selectedModel;
}

void RecipientSelection::clickInAvailableTable(qsizetype selectedRow) {
    if (inRange(selectedRow, m_contactList)) {
        m_aRowSelected = selectedRow;
    }
}

void RecipientSelection::clickInSelectedTable(qsizetype selectedRow) {
    if (inRange(selectedRow, m_selectedList)) {
        m_sRowSelected = selectedRow;
    }
}

bool RecipientSelection::addContact(qsizetype availableRow) {
    if (!inRange(availableRow, m_contactList)) {
        return false;
    }
    const Contact& contact = m_contactList.at(availableRow);
    if (RecipientChoice::indexOf(m_selectedList, contact.NivoID) >= 0) {
        return false;
    }
    m_selectedList.append(contact);
    RecipientChoice::sortByNivoId(m_selectedList);
    m_selectedModel->reloadData();
    return true;
}

void RecipientSelection::handleDeleteAEntry() {
    if (!inRange(m_aRowSelected, m_contactList)) {
        return;
    }
    const Contact contact = m_contactList.at(m_aRowSelected);
    if (const qsizetype chosen = RecipientChoice::indexOf(m_selectedList, contact.NivoID);
        chosen >= 0) {
        m_selectedList.removeAt(chosen);
        m_selectedModel->reloadData();
    }
    NivoGXUtil::deleteContact(contact.ID);
    m_contactList.removeAt(m_aRowSelected);
    m_availableModel->reloadData();
}

void RecipientSelection::handleDeleteSEntry() {
    if (!inRange(m_sRowSelected, m_selectedList)) {
        return;
    }
    m_selectedList.removeAt(m_sRowSelected);
    m_selectedModel->reloadData();
}

void RecipientSelection::handleImportComplete() {
    m_contactList = NivoGXUtil::getContactList();
    RecipientChoice::sortByNivoId(m_contactList);
    m_availableModel->reloadData();
}

RecipientSelection::Search RecipientSelection::searchNivoID(const QString& typed) const {
    const QString name = RecipientChoice::normalized(typed);
    if (RecipientChoice::isSelf(name)) {
        return {Search::Outcome::Self, name};
    }
    if (const qsizetype row = RecipientChoice::indexOf(m_contactList, name); row >= 0) {
        return {Search::Outcome::Existing, name, row};
    }
    return {Search::Outcome::LookUp, name};
}

std::optional<qsizetype> RecipientSelection::downloadFinished(const QString& name,
                                                              const NivoProfile& answer) {
    const std::optional<Contact> found = RecipientChoice::addLookedUp(name, answer);
    if (!found) {
        return std::nullopt;
    }
    // Two searches for the same person may both come back: the database kept one row, and so
    // does the list.
    if (const qsizetype known = RecipientChoice::indexOf(m_contactList, name); known >= 0) {
        m_contactList[known] = *found;
    } else {
        m_contactList.append(*found);
        RecipientChoice::sortByNivoId(m_contactList);
    }
    m_availableModel->reloadData();
    return RecipientChoice::indexOf(m_contactList, name);
}

QList<Contact> RecipientSelection::completeSelection() const {
    RecipientChoice::rememberChoice(m_selectedList);
    return m_selectedList;
}
