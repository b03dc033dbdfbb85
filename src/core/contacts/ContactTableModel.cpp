#include "contacts/ContactTableModel.h"

#include <utility>

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
        case Qt::ToolTipRole:
            // The display name says more only where it differs from the account name.
            return contact.DisplayName != contact.NivoID ? contact.DisplayName : QString();
        default:
            return {};
    }
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
