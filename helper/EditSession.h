#pragma once

#include "core/ComposerRequest.h"
#include "platform/ApplicationLauncher.h"

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>

class DistributedNotificationPoster;
class EditedFile;
class RunningApplicationWatcher;

// One round of editing through the Tarvel application: write the request, wake the
// application (starting it when needed), wait for the response and apply it. When no
// application is there to answer, the request is withdrawn and the caller runs a
// terminal editor.
class EditSession final : public QObject {
    Q_OBJECT

public:
    struct Services {
        std::unique_ptr<DistributedNotificationPoster> poster;
        // Must exist before start(), so that an application starting meanwhile is seen.
        std::unique_ptr<RunningApplicationWatcher> applicationWatcher;
        std::function<ApplicationLauncher::Outcome()> launchApplication;
    };

    enum class Ending { exit, useFallbackEditor };

    EditSession(EditedFile &file, Services services, QObject *parent = nullptr);
    ~EditSession() override;

    // Writes the request and starts waiting; may finish at once. Throws TarvelError when
    // the request cannot be written.
    void start();
    // SIGINT, SIGTERM or SIGHUP: withdraw and end with 128 + the signal number.
    void interrupt(int signalNumber);

    bool isFinished() const { return m_state == State::finished; }
    Ending ending() const { return m_ending; }
    int exitCode() const { return m_exitCode; }
    // Why the application could not be used, as a short phrase.
    const QString &fallbackReason() const { return m_fallbackReason; }

Q_SIGNALS:
    void finished();

private:
    enum class State { idle, waitingForApplication, waitingForResponse, finished };

    void applicationDidLaunch();
    void applicationDidTerminate();
    void applicationStartTimedOut();
    // Up to 5 seconds for an application to own the bus name, then the fallback editor.
    void waitForApplication(const QString &reasonIfNone);
    void checkForResponse();
    void collectResponse();
    void useFallbackEditor(const QString &reason);
    void finish(int exitCode, const QString &message = {});

    EditedFile &m_file;
    Services m_services;
    ComposerRequest m_request;
    State m_state = State::idle;
    Ending m_ending = Ending::exit;
    int m_exitCode = 0;
    QString m_fallbackReason;
    QString m_reasonIfNoApplication;
    QFileSystemWatcher m_responsesWatcher;
    QTimer m_applicationStartTimer;
};
