#pragma once

#include <QByteArray>
#include <QString>

// The signed-in user's profile. Every field is optional: a null QString or QByteArray means
// "absent", so an empty profile has every field absent.
struct NivoProfile {
    QString LoginName;   // as the server or the profile file holds it (lower case)
    QString StatusText;  // outcome of the operation that produced the record; "" = success
    QString SyncDate;    // "yyyy-MM-dd" of the server fetch
    QString SyncTime;    // "HH:mm:ss" of the same instant
    QByteArray Pfx;      // PKCS#12: private key and certificate, protected by the account password
    QByteArray Cer;      // the user's DER certificate

    // A usable profile carries both key material parts and no failure text; anything else is a
    // failed result that only carries StatusText.
    [[nodiscard]] bool isUsable() const noexcept {
        return !Cer.isEmpty() && !Pfx.isEmpty() && StatusText.isEmpty();
    }

    // Builds a failed result carrying only its message.
    [[nodiscard]] static NivoProfile failure(const QString& statusText) {
        NivoProfile p;
        p.StatusText = statusText;
        return p;
    }

    friend bool operator==(const NivoProfile&, const NivoProfile&) = default;
};
