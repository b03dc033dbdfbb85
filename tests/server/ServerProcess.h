#pragma once

// A nivogx-server program started by a test (NIVOGX_SERVER_PATH), as an operator runs it: its
// base URL once it listens, what it printed, and a stop (SIGTERM, then a kill) when it goes.
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <csignal>

class ServerProcess {
public:
    static constexpr int kBoundMs = 30'000;

    ServerProcess() = default;
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;
    ~ServerProcess() { stop(); }

    // Starts the program to serve; returns its base URL, or empty when it did not come up.
    QString start(const QStringList& arguments, const QProcessEnvironment& environment =
                                                    QProcessEnvironment::systemEnvironment()) {
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(NIVOGX_SERVER_PATH), arguments);
        QElapsedTimer timer;
        timer.start();
        while (!out.contains('\n') && timer.elapsed() < kBoundMs &&
               process.waitForReadyRead(kBoundMs)) {
            out += process.readAllStandardOutput();
        }
        url = QRegularExpression(QStringLiteral("(https://\\S+)"))
                  .match(QString::fromUtf8(out))
                  .captured(1);
        return url;
    }

    // Waits (bounded) for `text` in what the program logs on standard error.
    bool logged(const QByteArray& text) {
        QElapsedTimer timer;
        timer.start();
        while (!log.contains(text) && timer.elapsed() < kBoundMs) {
            process.waitForReadyRead(200);
            log += process.readAllStandardError();
        }
        return log.contains(text);
    }

    void signal(int number) const { ::kill(static_cast<pid_t>(process.processId()), number); }

    // Asks the program to stop and waits; kills it when it does not. Keeps what it printed.
    void stop() {
        if (process.state() != QProcess::NotRunning) {
            signal(SIGTERM);
            if (!process.waitForFinished(kBoundMs)) {
                process.kill();
                process.waitForFinished();
            }
        }
        out += process.readAllStandardOutput();
        log += process.readAllStandardError();
    }

    QProcess process;
    QString url;
    QByteArray out;  // standard output so far
    QByteArray log;  // standard error so far
};
