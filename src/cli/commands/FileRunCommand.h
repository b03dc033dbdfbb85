#pragma once

#include <QList>
#include <memory>

#include "CliBatch.h"
#include "CliCommand.h"
#include "model/Contact.h"

class CliAccount;
class CliPipe;

// What encrypt and decrypt share: the files (folders with -R, "-" for standard input), the
// output folder, the password, and the run over them. Their options follow the command's own.
class FileRunCommand : public CliCommand {
public:
    ~FileRunCommand() override;

protected:
    FileRunCommand(CliMessages& messages, CliAccount& account, QString name, QString summary,
                   bool toEncrypt);

    void declareLast() override;

    // Takes the files and the password. The exit code when the command ends here; none when it
    // goes on.
    [[nodiscard]] std::optional<int> takeFiles();
    // The run's output folder, remembered for next time: a private one for standard output,
    // else -o, else the remembered one, else the current folder. Empty, with the message
    // printed, on failure.
    [[nodiscard]] QString takeOutputFolder();
    // Runs the files into `folder`. A folder where every file failed is not offered again.
    [[nodiscard]] int runFiles(const QString& folder, const QList<Contact>& recipients,
                               bool armoured, bool requireVerified);

    [[nodiscard]] CliAccount& account() noexcept { return m_account; }

private:
    [[nodiscard]] QString rememberedFolder() const;
    [[nodiscard]] QString runFolder();
    [[nodiscard]] QString preparePipe();

    CliAccount& m_account;
    const bool m_toEncrypt;
    CliBatch::Files m_files;
    QString m_password;
    bool m_toStdout = false;
    QString m_previousFolder;
    std::unique_ptr<CliPipe> m_pipe;

    const QCommandLineOption m_output{
        {QStringLiteral("o"), QStringLiteral("output")},
        QStringLiteral("Folder for the results (remembered for next time)."),
        QStringLiteral("dir")};
    const QCommandLineOption m_recursive{
        {QStringLiteral("R"), QStringLiteral("recursive")},
        QStringLiteral("Take the files under each folder given, at any depth, leaving out hidden "
                       "files and symbolic links; outputs keep their places below the folder's "
                       "name.")};
    const QCommandLineOption m_passwordStdin{
        QStringLiteral("password-stdin"),
        QStringLiteral(
            "When no password is stored, read it from the first line of standard input.")};
    const QCommandLineOption m_stdout{
        QStringLiteral("stdout"),
        QStringLiteral(
            "Write the result to standard output (as an input of - does); one file only.")};
};
