#pragma once

#include <QString>
#include <QTemporaryDir>
#include <memory>

// Standard input and output as the input and output of a run, which works on files. Standard
// input is first copied into an unnamed temporary file; a result for standard output is made in
// a private folder, where it appears only complete (a decrypted one only after every signature
// checked out), and is then unlinked and copied out. Both go in blocks, in constant memory.
class CliPipe {
public:
    // How logs and messages name the two streams.
    static const QString kStandardInput;
    static const QString kStandardOutput;

    // `folder` holds the temporary files: a private folder on disk, not a RAM-backed /tmp.
    explicit CliPipe(QString folder);
    ~CliPipe();
    CliPipe(const CliPipe&) = delete;
    CliPipe& operator=(const CliPipe&) = delete;

    [[nodiscard]] static bool standardOutputIsTerminal();

    // Copies all of standard input into an unnamed file and gives a path that opens it; empty,
    // with `failure` set, when that fails.
    [[nodiscard]] QString takeStandardInput(QString& failure);
    // The private folder for the run's output; empty, with `failure` set, when it cannot be made.
    [[nodiscard]] QString outputFolder(QString& failure);
    // Copies the file at `path` to standard output, removing its name first; "" on success,
    // else the failure.
    [[nodiscard]] static QString release(const QString& path);
    // The same for a protected file, written out as PEM text.
    [[nodiscard]] static QString releaseArmoured(const QString& path);
    // Puts the protected file at `path` into `folder` as PEM text, under its name or, when that
    // is taken, the next free one, which `placedPath` then gives; removes the file at `path`.
    // "" on success, else the failure.
    [[nodiscard]] static QString placeArmoured(const QString& path, const QString& folder,
                                               QString& placedPath);

private:
    QString m_folder;
    int m_inputFd = -1;
    std::unique_ptr<QTemporaryDir> m_outputFolder;
};
