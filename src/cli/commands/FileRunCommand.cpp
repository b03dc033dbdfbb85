#include "FileRunCommand.h"

#include <QDir>
#include <QFileInfo>
#include <utility>

#include "CliAccount.h"
#include "CliMessages.h"
#include "CliPipe.h"
#include "log/VisibleText.h"
#include "processing/FileListModel.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kStdinName = u"-"_s;
const QString kFolderWithoutRecursive = u"%1 is a folder; -R takes the files under it."_s;
const QString kNoFiles = u"No files given."_s;
const QString kNoFilesInFolders = u"No files in the folders given."_s;
const QString kOneFileToStdout = u"Standard input and output take a single file."_s;
const QString kNoJsonToStdout = u"--json cannot share standard output with the result."_s;
const QString kPasswordAndStdin = u"--password-stdin cannot share standard input with the file."_s;
const QString kStdoutIsTerminal =
    u"Standard output is a terminal; redirect it to a file or a program, or leave out --stdout."_s;
const QString kNoSuchFolder = u"No such folder: %1"_s;

}  // namespace

FileRunCommand::FileRunCommand(CliMessages& messages, CliAccount& account, QString name,
                               QString summary, bool toEncrypt)
    : CliCommand(messages, std::move(name), std::move(summary)),
      m_account(account),
      m_toEncrypt(toEncrypt) {}

FileRunCommand::~FileRunCommand() = default;

void FileRunCommand::declareLast() {
    declare(m_output);
    declare(m_recursive);
    (void)jsonOption();
    declare(m_passwordStdin);
    declare(m_stdout);
    argument(u"files"_s, u"Files to process; with -R, folders too."_s, u"FILE..."_s);
}

std::optional<int> FileRunCommand::takeFiles() {
    const QStringList given = positional();
    if (given.isEmpty()) {
        return usageError(kNoFiles);
    }
    const bool json = messages().json();
    const bool fromStdin = given.contains(kStdinName);
    m_toStdout = parser().isSet(m_stdout) || fromStdin;
    bool folderGiven = false;
    for (const QString& path : given) {
        if (path == kStdinName || !QFileInfo(path).isDir()) {
            m_files.paths.append(path);
            m_files.subFolders.append(QString());
            continue;
        }
        if (!parser().isSet(m_recursive)) {
            messages().usageError(kFolderWithoutRecursive.arg(VisibleText::of(path)), QString());
            return UsageError;
        }
        // The desktop's Add Folder rule: the files keep their places below the folder's name.
        folderGiven = true;
        for (const QString& file : FileListModel::filesInFolder(path)) {
            m_files.paths.append(file);
            m_files.subFolders.append(FileListModel::subFolderOf(path, file));
        }
    }
    if (m_toStdout) {
        if (given.size() != 1 || folderGiven) {
            return usageError(kOneFileToStdout);
        }
        if (json) {
            return usageError(kNoJsonToStdout);
        }
        if (fromStdin && parser().isSet(m_passwordStdin)) {
            return usageError(kPasswordAndStdin);
        }
        if (CliPipe::standardOutputIsTerminal()) {
            messages().usageError(kStdoutIsTerminal, QString());
            return UsageError;
        }
    }
    if (m_files.paths.isEmpty()) {
        messages().say(kNoFilesInFolders);
        return Failure;
    }
    if (!m_account.prepareRun(parser().isSet(m_passwordStdin), m_password)) {
        return Failure;
    }
    m_files.names = m_files.paths;
    return std::nullopt;
}

QString FileRunCommand::rememberedFolder() const {
    return m_toEncrypt ? NivoGXUtil::getLastOutputEncryptFolder()
                       : NivoGXUtil::getLastOutputDecryptFolder();
}

QString FileRunCommand::takeOutputFolder() {
    const QString folder = m_toStdout ? preparePipe() : runFolder();
    if (folder.isEmpty()) {
        return {};
    }
    // Remembered before the run, so that the next start clears what a killed run left there.
    m_previousFolder = rememberedFolder();
    if (!m_toStdout) {
        if (m_toEncrypt) {
            NivoGXUtil::saveSettings(QString(), QString(), QString(), folder, QString());
        } else {
            NivoGXUtil::saveSettings(QString(), QString(), QString(), QString(), folder);
        }
    }
    return folder;
}

QString FileRunCommand::preparePipe() {
    m_pipe = std::make_unique<CliPipe>(NivoGXUtil::applicationFolder());
    if (m_files.paths.constFirst() == kStdinName) {
        QString failure;
        const QString path = m_pipe->takeStandardInput(failure);
        if (path.isEmpty()) {
            messages().say(failure);
            return {};
        }
        m_files.paths = {path};
        m_files.names = {CliPipe::kStandardInput};
    }
    return m_pipe->folder();
}

QString FileRunCommand::runFolder() {
    const QString given = parser().value(m_output);
    const QString remembered = rememberedFolder();
    QString folder = given.isEmpty() ? remembered : given;
    if (folder.isEmpty() || !QFileInfo(folder).isDir()) {
        // A remembered folder that has gone away is no reason to fail.
        folder = given.isEmpty() ? QDir::currentPath() : given;
    }
    if (!QFileInfo(folder).isDir()) {
        messages().say(kNoSuchFolder.arg(VisibleText::of(given)));
        return {};
    }
    return QFileInfo(folder).absoluteFilePath();
}

int FileRunCommand::runFiles(const QString& folder, const QList<Contact>& recipients, bool armoured,
                             bool requireVerified) {
    CliBatch::Settings settings;
    settings.toEncrypt = m_toEncrypt;
    settings.password = m_password;
    settings.recipients = recipients;
    settings.outputFolder = folder;
    settings.json = messages().json();
    settings.toStdout = m_toStdout;
    settings.armoured = armoured;
    settings.requireVerified = requireVerified;
    CliBatch batch(messages(), m_files, settings);
    const int exit = batch.run();
    if (!batch.placed() && exit != Success && !m_toStdout) {
        NivoGXUtil::setLastOutputFolder(m_toEncrypt, m_previousFolder);
    }
    return exit;
}
