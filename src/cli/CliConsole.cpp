#include "CliConsole.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

// Smaller files finish before a bar would be any help.
constexpr qint64 kProgressThreshold = qint64{4} << 20;
constexpr int kBarWidth = 40;

// Turns terminal echo off for its lifetime.
class EchoOff {
public:
    EchoOff() {
        if (::tcgetattr(STDIN_FILENO, &m_saved) == 0) {
            termios quiet = m_saved;
            quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            // TCSANOW keeps what was typed ahead of the prompt.
            m_active = ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet) == 0;
        }
    }
    ~EchoOff() {
        if (m_active) {
            ::tcsetattr(STDIN_FILENO, TCSANOW, &m_saved);
        }
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    termios m_saved{};
    bool m_active = false;
};

}  // namespace

CliConsole::CliConsole()
    : m_out(stdout), m_err(stderr), m_in(stdin), m_errIsTerminal(::isatty(STDERR_FILENO) != 0) {}

std::optional<QString> CliConsole::readLine() {
    QString line;
    if (!m_in.readLineInto(&line)) {
        return std::nullopt;
    }
    return line;
}

std::optional<QString> CliConsole::readSecret(const QString& prompt) {
    if (::isatty(STDIN_FILENO) == 0) {
        return std::nullopt;
    }
    m_err << prompt << Qt::flush;
    QString secret;
    {
        const EchoOff echoOff;
        // End of input counts as an empty answer, which the field checks refuse.
        secret = readLine().value_or(QString());
    }
    // The newline typed by the user was not echoed.
    m_err << Qt::endl;
    return secret;
}

void CliConsole::showProgress(qint64 done, qint64 total) {
    if (!m_errIsTerminal || total < kProgressThreshold) {
        return;
    }
    const int percent = static_cast<int>(done * 100 / total);
    if (percent == m_lastPercent) {
        return;
    }
    m_lastPercent = percent;
    m_progressShown = true;
    const int filled = percent * kBarWidth / 100;
    m_err << u"\r["_s << QString(filled, u'#') << QString(kBarWidth - filled, u' ') << u"] "_s
          << percent << u'%' << Qt::flush;
}

void CliConsole::endProgress() {
    if (m_progressShown) {
        m_err << u'\r' << QString(kBarWidth + 8, u' ') << u'\r' << Qt::flush;
    }
    m_progressShown = false;
    m_lastPercent = -1;
}
