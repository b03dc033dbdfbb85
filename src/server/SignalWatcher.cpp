#include "server/SignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// The handler may do nothing but write the signal's number down this pair of sockets.
int g_pipe[2] = {-1, -1};

extern "C" void onSignal(int number) {
    const unsigned char byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[0], &byte, 1);
}

}  // namespace

SignalWatcher::SignalWatcher(QObject* parent) : QObject(parent) {
    if (g_pipe[0] != -1 || ::socketpair(AF_UNIX, SOCK_STREAM, 0, g_pipe) != 0) {
        return;
    }
    m_notifier = new QSocketNotifier(g_pipe[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalWatcher::readSignal);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGHUP, SIGTERM, SIGINT}) {
        sigaction(number, &action, nullptr);
    }
}

SignalWatcher::~SignalWatcher() {
    if (m_notifier == nullptr) {
        return;
    }
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGHUP, SIGTERM, SIGINT}) {
        sigaction(number, &action, nullptr);
    }
    delete m_notifier;
    ::close(g_pipe[0]);
    ::close(g_pipe[1]);
    g_pipe[0] = g_pipe[1] = -1;
}

void SignalWatcher::readSignal() {
    unsigned char number = 0;
    if (::read(g_pipe[1], &number, 1) != 1) {
        return;
    }
    if (number == SIGHUP) {
        Q_EMIT reload();
    } else {
        Q_EMIT terminate();
    }
}
