#pragma once

#include <QObject>

#include <memory>

class QSocketNotifier;

// Turns SIGINT, SIGTERM and SIGHUP into a Qt signal on the main thread. The handler only
// write()s the signal number into a pipe; everything else happens in the event loop.
// One instance per process.
class InterruptWatcher final : public QObject {
    Q_OBJECT

public:
    explicit InterruptWatcher(QObject *parent = nullptr);
    ~InterruptWatcher() override;

    // Puts the default handlers back and unblocks every signal, for exec().
    static void restoreDefaultDispositions();

Q_SIGNALS:
    void interrupted(int signalNumber);

private:
    void drainPipe();

    std::unique_ptr<QSocketNotifier> m_notifier;
};
