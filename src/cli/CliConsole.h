#pragma once

#include <QString>
#include <QTextStream>
#include <QtGlobal>
#include <functional>
#include <memory>
#include <optional>

class QSocketNotifier;

// The terminal the tool talks to: standard output for results, standard error for messages and
// the progress bar, and the reading of passwords without echo.
class CliConsole {
public:
    CliConsole();
    ~CliConsole();
    CliConsole(const CliConsole&) = delete;
    CliConsole& operator=(const CliConsole&) = delete;

    [[nodiscard]] QTextStream& out() noexcept { return m_out; }
    [[nodiscard]] QTextStream& err() noexcept { return m_err; }

    // The first line of standard input, without its line ending; none at end of input.
    [[nodiscard]] std::optional<QString> readLine();
    // Asks on the terminal with echo off; none when standard input is no terminal.
    [[nodiscard]] std::optional<QString> readSecret(const QString& prompt);

    // A bar on standard error while a large file is worked on, only when a person watches it.
    void showProgress(qint64 done, qint64 total);
    void endProgress();

    // Until stopped, an interrupt (Ctrl-C, SIGINT) calls `handler` from the event loop instead
    // of ending the process.
    void catchInterrupt(std::function<void()> handler);
    void releaseInterrupt();

private:
    QTextStream m_out;
    QTextStream m_err;
    QTextStream m_in;
    bool m_errIsTerminal = false;
    bool m_progressShown = false;
    int m_lastPercent = -1;
    std::function<void()> m_interruptHandler;
    std::unique_ptr<QSocketNotifier> m_interruptNotifier;
};
