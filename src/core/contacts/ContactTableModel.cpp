#include "contacts/ContactTableModel.h"

#include <QColor>
#include <QCoreApplication>
#include <utility>

#include "contacts/ContactDB.h"

namespace {
const char* const kNotVerified =
    QT_TRANSLATE_NOOP("ContactTableModel", "Certificate not verified: %1");
const QColor kWarningColour(0xd0, 0x6a, 0x00);
}  // namespace

ContactTableModel::ContactTableModel(const QList<Contact>& contacts, QString identifier,
                                     QString title, QObject* parent)
    : QAbstractTableModel(parent),
      m_contacts(contacts),
      m_identifier(std::move(identifier)),
      m_title(std::move(title)) {}

void ContactTableModel::reloadData() {
    beginResetModel();
    endResetModel();
}

int ContactTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_contacts.size());
}

int ContactTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : 1;
}

QVariant ContactTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.column() != 0 || index.row() < 0 ||
        index.row() >= m_contacts.size()) {
        return {};
    }
    const Contact& contact = m_contacts.at(index.row());
    switch (role) {
        case Qt::DisplayRole:
            return contact.NivoID;
        case Qt::ToolTipRole: {
            QStringList lines{contact.NivoID};
            // The display name says more only where it differs from the account name.
            if (contact.DisplayName != contact.NivoID) {
                lines.append(contact.DisplayName);
            }
            if (const QString problem = certificateProblem(contact); !problem.isEmpty()) {
                lines.append(tr(kNotVerified).arg(problem));
            }
            return lines.join(u'\n');
        }
        case Qt::ForegroundRole:
            return certificateProblem(contact).isEmpty() ? QVariant() : QVariant(kWarningColour);
        default:
            return {};
    }
}

QString ContactTableModel::certificateProblem(const Contact& contact) const {
    const QByteArray key = contact.NivoID.toUtf8() + '\0' + contact.CertData;
    auto known = m_problems.constFind(key);
    if (known == m_problems.cend()) {
        known = m_problems.insert(key, ContactDB::certificateProblem(contact));
    }
    return *known;
}

QVariant ContactTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || section != 0) {
        return {};
    }
    if (role == Qt::DisplayRole) {
        return m_title;
    }
    if (role == IdentifierRole) {
        return m_identifier;
    }
    return {};
}
