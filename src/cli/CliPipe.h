#pragma once

#include <QIODevice>
#include <QString>
#include <memory>

class AtomicFile;

// Standard input and output as the input and output of a run, which works on files. Standard
// input is first copied into a temporary file; a result for standard output is held in another
// until it is complete (a decrypted one until every signature checked out), then copied out.
// Both are files without a name where the system allows (see AtomicFile), else hidden named ones
// that the next run clears, so a run killed at any point leaves nothing behind. Both go in
// blocks, in constant memory.
class CliPipe {
public:
    // How logs and messages name the two streams.
    static const QString kStandardInput;
    static const QString kStandardOutput;

    // `folder` holds the temporary files: a private folder on disk, not a RAM-backed /tmp. From
    // here on a reader that goes away makes a write fail instead of ending the process.
    explicit CliPipe(QString folder);
    ~CliPipe();
    CliPipe(const CliPipe&) = delete;
    CliPipe& operator=(const CliPipe&) = delete;

    [[nodiscard]] static bool standardOutputIsTerminal();

    // Copies all of standard input into a temporary file and gives a path that opens it while
    // this object lives; empty, with `failure` set, when that fails.
    [[nodiscard]] QString takeStandardInput(QString& failure);
    // Where a run puts the result it holds for standard output.
    [[nodiscard]] const QString& folder() const noexcept { return m_folder; }
    // Copies `result` to standard output, as PEM text when `armoured`; "" on success, else the
    // failure.
    [[nodiscard]] static QString release(QIODevice& result, bool armoured);

private:
    QString m_folder;
    std::unique_ptr<AtomicFile> m_input;
};
