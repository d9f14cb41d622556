#pragma once

#include "platform/RunningApplicationWatcher.h"

#include <QDBusServiceWatcher>

// The application is running while some connection owns its bus name.
class DBusRunningApplicationWatcher final : public RunningApplicationWatcher {
    Q_OBJECT

public:
    explicit DBusRunningApplicationWatcher(QObject *parent = nullptr);

    bool canObserve() const override;
    bool isRunning() const override;

private:
    QDBusServiceWatcher m_watcher;
};
