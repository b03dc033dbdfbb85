#pragma once

#include <QString>
#include <QStringList>
#include <optional>

#include "contacts/ContactDB.h"
#include "model/NivoProfile.h"

// What runs need from the signed-in user's session: the key pair and its password, the user's
// NIVO ID, the remembered output folders, the contact database that names a known sender, and
// the activity log. The session layer provides it; a run's work may still write its log line
// after the controller that started it is gone, so runs share ownership of it.
class RunEnvironment {
public:
    virtual ~RunEnvironment() = default;

    // None when nobody is signed in.
    [[nodiscard]] virtual std::optional<NivoProfile> profile() const = 0;
    [[nodiscard]] virtual QString password() const = 0;
    [[nodiscard]] virtual QString userNivoId() const = 0;
    // Null when never set.
    [[nodiscard]] virtual QString outputFolder(bool toEncrypt) const = 0;
    // "" forgets it.
    virtual void setOutputFolder(bool toEncrypt, const QString& folder) = 0;
    // A copy that may be used on a worker thread; none when nobody is signed in.
    [[nodiscard]] virtual std::optional<ContactDB> contacts() const = 0;
    virtual void writeToLog(const QString& operationType, const QString& filePath,
                            const QStringList& recipients, const QString& status) = 0;
};
