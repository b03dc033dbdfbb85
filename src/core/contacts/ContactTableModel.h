#pragma once

#include <QAbstractTableModel>
#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include "model/Contact.h"

// One list of contacts as a one-column table of NIVO IDs; a contact whose stored certificate the
// account service does not stand behind is drawn in orange. The tooltip gives the whole NIVO ID,
// however narrow the column, then the display name where it differs and the certificate's
// problem, one a line.
// The column carries an identifier
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

    // "" when the contact's certificate verifies, else why not; remembered per certificate.
    [[nodiscard]] QString certificateProblem(const Contact& contact) const;

private:
    const QList<Contact>& m_contacts;
    mutable QHash<QByteArray, QString> m_problems;
    QString m_identifier;
    QString m_title;
};
