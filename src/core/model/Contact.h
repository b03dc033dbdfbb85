#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// One person files can be encrypted to. A new contact has every field empty.
struct Contact {
    qint64 ID = 0;        // row number in the contact database
    QString NivoID;       // account name; the database keeps it lower-cased
    QString DisplayName;  // name shown in lists
    QByteArray CertData;  // DER certificate as the account server delivered it

    friend bool operator==(const Contact&, const Contact&) = default;
};
