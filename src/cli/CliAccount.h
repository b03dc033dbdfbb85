#pragma once

#include <QString>

#include "model/Contact.h"

class CliMessages;

// The signed-in user as the commands need them: the password asked for, the sign-in required,
// the contacts opened and recipients found. Each step reports its own failure.
class CliAccount {
public:
    explicit CliAccount(CliMessages& messages) : m_messages(messages) {}

    // The password from the first line of standard input, or typed (twice when `confirm`).
    [[nodiscard]] bool readPassword(bool fromStdin, bool confirm, QString& password,
                                    QString& retyped);
    // Tells that nobody is signed in.
    void reportNotSignedIn();
    // Loads the signed-in user's profile and opens the contacts; reports when nobody is.
    [[nodiscard]] bool requireSignIn();
    // The same for a processing run, which also needs the password: the stored one, else one
    // asked for when the key files are there.
    [[nodiscard]] bool prepareRun(bool passwordFromStdin, QString& password);
    // The contact with a typed NIVO ID; an unknown one is looked up on the server and kept.
    // Reports a refusal and returns false.
    [[nodiscard]] bool findRecipient(const QString& typed, Contact& contact, bool& added);

private:
    CliMessages& m_messages;
};
