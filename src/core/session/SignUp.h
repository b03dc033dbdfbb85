#pragma once

#include <QCoreApplication>
#include <QString>
#include <optional>

#include "account/AccountAlert.h"

// The rules of creating an account, shared by every front end: the checks of the typed fields
// and the server request. Only the name and the password are asked for; the rest of the account
// data is derived from the name.
class SignUp {
    Q_DECLARE_TR_FUNCTIONS(SignUp)

public:
    SignUp() = delete;

    [[nodiscard]] static QString registering();
    [[nodiscard]] static QString registrationFailed();

    // The first problem of the (trimmed) fields, or none when the request may be sent.
    [[nodiscard]] static std::optional<AccountAlert> checkFields(const QString& loginName,
                                                                 const QString& password,
                                                                 const QString& retypedPassword);
    [[nodiscard]] static QString emailFor(const QString& loginName);
    // Creates the account at the server; "" on success, else the text to show. Blocks: call it
    // on a worker thread.
    [[nodiscard]] static QString createAccount(const QString& loginName, const QString& password);
};
