#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include "contacts/Contact.h"

class CliMessages;

// A run of the processing over the files of one command: two small ones at a time, their
// results printed in the order given.
class CliBatch {
public:
    // The files, each named in messages as `names` does, and the folder below the output one
    // (made as needed) that its output goes to ("" for the output folder itself).
    struct Files {
        QStringList paths;
        QStringList names;
        QStringList subFolders;
    };
    struct Settings {
        bool toEncrypt = true;
        QString password;
        QList<Contact> recipients;
        QString outputFolder;
        bool json = false;      // a JSON object per file
        bool toStdout = false;  // the result goes on to standard output
        bool armoured = false;
        bool requireVerified = false;
    };

    explicit CliBatch(CliMessages& messages) : m_messages(messages) {}

    // Runs the files and prints their results. Failure when any of them failed. An interrupt
    // cancels the runs under way, starts no more and gives Interrupted.
    [[nodiscard]] int run(const Files& files, const Settings& settings);
    // Whether any output went to the folder.
    [[nodiscard]] bool placed() const noexcept { return m_placed; }

private:
    CliMessages& m_messages;
    bool m_placed = false;
};
