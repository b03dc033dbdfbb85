#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include "model/Contact.h"
#include "processing/BatchRunner.h"

class CliConsole;
class CliMessages;
class ProcessController;
class QEventLoop;

// A run of the processing over the files of one command: two small ones at a time (a large one
// alone), their results printed in the order given.
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

    CliBatch(CliMessages& messages, const Files& files, const Settings& settings);
    ~CliBatch();
    CliBatch(const CliBatch&) = delete;
    CliBatch& operator=(const CliBatch&) = delete;

    // Runs the files and prints their results. Failure when any of them failed. An interrupt
    // cancels the runs under way, starts no more and gives Interrupted.
    [[nodiscard]] int run();
    // Whether any output went to the folder.
    [[nodiscard]] bool placed() const noexcept { return m_placed; }

private:
    // Sets the options of the command on the run of file `index`.
    void prepare(qsizetype index, ProcessController& controller) const;
    void printLine(const QString& name, const BatchRunner::Result& result);
    void interrupt();

    CliMessages& m_messages;
    CliConsole& m_console;
    const Files& m_files;
    const Settings& m_settings;
    QString m_userNivoId;
    // While run() waits.
    QEventLoop* m_loop = nullptr;
    BatchRunner* m_runner = nullptr;
    bool m_allSucceeded = true;
    bool m_interrupted = false;
    bool m_placed = false;
};
