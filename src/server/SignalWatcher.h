#pragma once

#include <QObject>

class QSocketNotifier;

// Turns the process signals an operator sends into Qt signals on the event loop: SIGHUP into
// reload(), SIGTERM and SIGINT into terminate(). One instance per process.
class SignalWatcher : public QObject {
    Q_OBJECT
public:
    explicit SignalWatcher(QObject* parent = nullptr);
    ~SignalWatcher() override;

    [[nodiscard]] bool isWatching() const noexcept { return m_notifier != nullptr; }

Q_SIGNALS:
    void reload();
    void terminate();

private:
    void readSignal();

    QSocketNotifier* m_notifier = nullptr;
};
