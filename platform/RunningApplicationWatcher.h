#pragma once

#include <QObject>

#include <memory>

// Whether the Tarvel application is running in this session, and when it starts or quits.
// Changes are reported from the moment the watcher exists, so a start that races with
// isRunning() is never missed.
class RunningApplicationWatcher : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // False when running applications cannot be seen at all (on Linux: no session bus).
    virtual bool canObserve() const = 0;
    virtual bool isRunning() const = 0;

    static std::unique_ptr<RunningApplicationWatcher> create(QObject *parent = nullptr);

Q_SIGNALS:
    void applicationDidLaunch();
    void applicationDidTerminate();
};
