#pragma once

#include <QCommandLineParser>
#include <QList>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

#include "CliConsole.h"
#include "CliPipe.h"
#include "contacts/Contact.h"

// The commands of nivogx-cli over the core, on the same folders, database, log and credential
// store as the desktop app. Each command parses its own arguments and returns the exit status:
// 0 when everything succeeded, 1 when an operation failed, 2 for a usage error.
class NivoCli {
public:
    static const QString kApplicationName;

    enum Exit { Success = 0, Failure = 1, UsageError = 2, Interrupted = 130 };

    explicit NivoCli(CliConsole& console) : m_console(console) {}

    // `arguments` as the process got them, program name first.
    [[nodiscard]] int run(const QStringList& arguments);

private:
    struct Command;
    [[nodiscard]] static const QList<Command>& commands();
    [[nodiscard]] static const Command* findCommand(const QString& name);

    int signup(const QStringList& arguments);
    int signin(const QStringList& arguments);
    int signout(const QStringList& arguments);
    int whoami(const QStringList& arguments);
    int encrypt(const QStringList& arguments);
    int decrypt(const QStringList& arguments);
    int contacts(const QStringList& arguments);
    int profile(const QStringList& arguments);
    int log(const QStringList& arguments);
    int inspect(const QStringList& arguments);

    // Parses the current command's arguments, checking the number of positional ones when
    // given. The exit code when the command ends here: --help answered, or a usage error
    // reported; none when the command goes on.
    [[nodiscard]] std::optional<int> parse(QCommandLineParser& parser, const QStringList& arguments,
                                           std::optional<qsizetype> positionalCount = std::nullopt);
    // The command's help, its name in the usage line.
    [[nodiscard]] QString helpText(const QCommandLineParser& parser) const;
    // Reports a usage error on standard error, followed by the help, and gives UsageError.
    int usageError(const QString& message, const QString& usage);
    [[nodiscard]] static QString globalHelp();

    // The password from the first line of standard input, or typed twice when `confirm`.
    [[nodiscard]] bool readPassword(bool fromStdin, bool confirm, QString& password,
                                    QString& retyped);
    // Loads the signed-in user's profile and opens the contacts; reports when nobody is.
    [[nodiscard]] bool requireSignIn();
    // The same for a processing run, which also needs the password: the stored one, else one
    // asked for when the key files are there.
    [[nodiscard]] bool prepareRun(bool passwordFromStdin, QString& password);
    // Adds the options encrypt and decrypt share (after the command's own), parses, and gets the
    // files and the password. With -R a folder stands for the files under it, each with the
    // folders from the given one's name down to it in `subFolders` ("" for a file given). The
    // exit code when the command ends here; none when it goes on.
    [[nodiscard]] std::optional<int> parseFileRun(QCommandLineParser& parser,
                                                  const QStringList& arguments, QStringList& files,
                                                  QStringList& subFolders, QString& password);
    // The run's output folder (-o, else the remembered one, else the current folder); empty,
    // with the message printed, when -o names no folder.
    [[nodiscard]] QString runFolder(const QCommandLineParser& parser, const QString& remembered);
    // For a run on standard input or output: the private folder where its output is held, and
    // standard input in place of "-" (named so in `names`). Empty, with the message printed, on
    // failure.
    [[nodiscard]] QString preparePipe(QStringList& files, QStringList& names);
    // A message on standard error, each line after the program's name; with --json, a failure
    // object ({"error", "detail"}) on standard output instead.
    void printAlert(const QString& message, const QString& informativeText);
    void say(const QString& message);
    // A warning: on standard error after the program's name, also with --json.
    void warn(const QString& message);
    // Subject, issuer, validity and fingerprint of a DER certificate, a line each.
    void printCertificate(const QByteArray& der);
    // The contact with a typed NIVO ID; an unknown one is looked up on the server and kept.
    // Reports a refusal and returns false.
    [[nodiscard]] bool findRecipient(const QString& typed, Contact& contact, bool& added);

    // Runs the files through the processing run, two small ones at a time, and prints their
    // results in the order given, naming each input as `names` does; each output goes to the
    // folder of `subFolders` (made as needed) under the output folder. Failure when any of them
    // failed. An interrupt cancels the runs under way, starts no more and gives Interrupted.
    // `placed` says whether any output went to the folder. With a pipe, the result goes on to
    // standard output.
    [[nodiscard]] int processFiles(const QStringList& files, const QStringList& names,
                                   const QStringList& subFolders, const QString& password,
                                   const QList<Contact>& recipients, const QString& outputFolder,
                                   bool toEncrypt, bool json, bool& placed);

    CliConsole& m_console;
    const Command* m_command = nullptr;  // the one being run
    bool m_requireVerified = false;      // decrypt --require-verified
    bool m_json = false;                 // the command has --json set
    bool m_toStdout = false;             // the result goes to standard output
    bool m_armor = false;                // encrypt --armor
    std::unique_ptr<CliPipe> m_pipe;     // standard input and output of such a run
};
