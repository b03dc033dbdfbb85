#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>
#include <vector>

#include "crypto/SenderVerdict.h"
#include "model/Contact.h"
#include "model/NivoProfile.h"

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
    // What a file's run left for its result line, kept until the files before it are printed.
    struct Run {
        bool done = false;
        QString outcome;
        QString reservedPath;  // the name chosen at the start, kept from the other runs
        QString outputPath;
        SenderVerdict sender;
    };

    void startMore();
    void start(bool large);
    void completed(size_t index, const QString& result);
    void printLine(const QString& name, const Run& run);
    void interrupt();

    CliMessages& m_messages;
    CliConsole& m_console;
    const Files& m_files;
    const Settings& m_settings;
    std::optional<NivoProfile> m_profile;
    QString m_userNivoId;
    QEventLoop* m_loop = nullptr;  // while run() waits

    std::vector<Run> m_runs;
    // A controller runs one file. One that has reported is kept until the next one reports, as
    // it is still sending its signal when it does.
    std::vector<std::unique_ptr<ProcessController>> m_controllers;
    std::unique_ptr<ProcessController> m_retired;
    // The outputs of the runs under way, which only appear once complete.
    QSet<QString> m_outputsInUse;
    size_t m_started = 0;
    size_t m_printed = 0;
    size_t m_underWay = 0;
    bool m_largeUnderWay = false;
    bool m_allSucceeded = true;
    bool m_interrupted = false;
    bool m_placed = false;
};
