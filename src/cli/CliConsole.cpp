#include "CliConsole.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
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

// The pipe through which the signal handler wakes the event loop: the handler may do nothing
// else safely.
int g_interruptPipe[2] = {-1, -1};

extern "C" void noteInterrupt(int) {
    const int saved = errno;
    const char byte = 1;
    (void)!::write(g_interruptPipe[1], &byte, 1);
    errno = saved;
}

}  // namespace

CliConsole::~CliConsole() {
    releaseInterrupt();
}

void CliConsole::catchInterrupt(std::function<void()> handler) {
    m_interruptHandler = std::move(handler);
    if (g_interruptPipe[0] < 0 && ::pipe2(g_interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    if (!m_interruptNotifier) {
        m_interruptNotifier =
            std::make_unique<QSocketNotifier>(g_interruptPipe[0], QSocketNotifier::Read);
        QObject::connect(m_interruptNotifier.get(), &QSocketNotifier::activated,
                         m_interruptNotifier.get(), [this] {
                             char bytes[16];
                             while (::read(g_interruptPipe[0], bytes, sizeof bytes) > 0) {
                             }
                             if (m_interruptHandler) {
                                 m_interruptHandler();
                             }
                         });
    }
    m_interruptNotifier->setEnabled(true);
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
}

void CliConsole::releaseInterrupt() {
    if (!m_interruptHandler) {
        return;
    }
    ::signal(SIGINT, SIG_DFL);
    m_interruptHandler = nullptr;
    if (m_interruptNotifier) {
        m_interruptNotifier->setEnabled(false);
    }
}

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
