#pragma once

#include <QObject>

#include <memory>

class QSocketNotifier;
class SignalPipe;

// Turns SIGINT, SIGTERM and SIGHUP into a Qt signal on the main thread. One instance per process.
class InterruptWatcher final : public QObject {
    Q_OBJECT

public:
    // Throws SystemError when the pipe cannot be made.
    explicit InterruptWatcher(QObject *parent = nullptr);
    ~InterruptWatcher() override;

Q_SIGNALS:
    void interrupted(int signalNumber);

private:
    std::unique_ptr<SignalPipe> m_pipe;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
