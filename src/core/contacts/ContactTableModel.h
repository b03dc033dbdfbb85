#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QString>

#include "contacts/Contact.h"

// One list of contacts as a one-column table of NIVO IDs. The column carries an identifier
// (header data under IdentifierRole) so that the recipient window's two tables can be told
// apart; a row past the end shows nothing. The model does not own the list: its owner changes
// the list and then calls reloadData(), as a table is told to reload.
class ContactTableModel final : public QAbstractTableModel {
    Q_OBJECT

public:
    static constexpr int IdentifierRole = Qt::UserRole + 1;

    ContactTableModel(const QList<Contact>& contacts, QString identifier, QString title,
                      QObject* parent = nullptr);

    [[nodiscard]] const QString& identifier() const noexcept { return m_identifier; }
    void reloadData();

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation,
                                      int role) const override;

private:
    const QList<Contact>& m_contacts;
    QString m_identifier;
    QString m_title;
};
