#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "core/AttachmentStore.h"
#include "core/PromptAttachment.h"
#include "platform/UserNotificationCenter.h"
#include "quicktasks/QuickTaskSession.h"
#include "quicktasks/QuickTaskStore.h"
#include "settings/QuickTaskPreset.h"

#include <QByteArray>
#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>

#include <functional>
#include <map>
#include <memory>
#include <optional>

class Clipboard;
class Clock;
class ErrorLogManager;
class FileOpener;
class ProcessGroupTask;
class UserDefaults;
struct QuickTaskLaunchTarget;
struct QuickTaskOutputUpdate;

// The desktop services a quick-task manager reaches out to. Each may be absent (tests,
// a desktop without a notification server); the matching action then does nothing.
struct QuickTaskDesktopServices {
    UserNotificationCenter *notifications = nullptr;
    Clipboard *clipboard = nullptr;
    FileOpener *fileOpener = nullptr;
};

// Runs prompts in the background through a backend, one session per run: starts and stops
// the processes, keeps the sessions in sessions.json with a transcript and a raw log each,
// records failed tasks in the error log and announces finished ones with a notification.
// Lives on the main thread; nothing here blocks it except stopAllTasksForTermination().
//
// The application owns one, calls load() at start-up and stopAllTasksForTermination()
// when it quits. Every change of the session list is announced by sessionsChanged().
class QuickTaskManager final : public QObject {
    Q_OBJECT

public:
    // How many sessions the status menu lists.
    static constexpr int menuSessionLimit = 8;
    // The error log's source label for failed tasks.
    static inline const QString errorSource = QStringLiteral("Quick Tasks");

    // The notification center, when given, gets the completion category registered and
    // its responses routed to handleNotificationResponse().
    QuickTaskManager(QuickTaskStore store, ErrorLogManager &errorLog, UserDefaults &defaults,
                     const Clock &clock, QuickTaskDesktopServices services = {}, QObject *parent = nullptr);
    // Processes still running are killed with their process groups.
    ~QuickTaskManager() override;

    const QuickTaskStore &store() const noexcept { return m_store; }
    // Every session holds its attachments here; open composers hold theirs in the same store,
    // so a pasted image goes only when neither a session nor a draft still names it.
    AttachmentStore &attachments() noexcept { return m_attachments; }

    // Reads the saved sessions; any still marked running (the application ended while
    // they ran) become cancelled.
    void load();

    // Starts a task: checks the attachments and the working folder (by default
    // workingDirectoryForNewTask()), finds and verifies the backend on a background thread, then
    // launches it there. A folder that is gone is refused, never swapped for another: a task
    // may run with its permission checks off. The future gives the new session's id, or fails
    // with the QuickTaskError or SystemError to show the user; nothing is left behind then.
    // When stillWanted answers false at launch time (the composer was cancelled meanwhile),
    // nothing starts and the id is null.
    QFuture<QUuid> startTask(const QString &prompt,
                             const std::optional<QuickTaskSourceContext> &sourceContext,
                             const QList<PromptAttachment> &attachments, const QuickTaskPreset &preset,
                             QuickTaskCLIBackend backend,
                             const std::optional<QString> &workingDirectory = std::nullopt,
                             std::function<bool()> stillWanted = {});
    // Where the next task runs unless its composer chooses another folder: the last one used
    // or noted, whether or not it still exists, else the home folder.
    QString workingDirectoryForNewTask() const;

    // SIGINT to the task's process group now, SIGTERM at 0.6 s and SIGKILL at 2.0 s while it
    // still runs. The session ends "cancelled" whatever the exit status.
    void stop(const QUuid &id);
    // Asks (through retryRequested) for the session's prompt to be run again; the session
    // itself stays as it is.
    void retry(const QUuid &id);
    // Removes a finished session with its transcript and raw log, and lets go of its
    // attachments. A running session is left alone.
    void dismiss(const QUuid &id);
    void clearFinishedTasks();
    // At application exit, synchronously: SIGINT to every running group, SIGTERM to those
    // left after 0.4 s, SIGKILL after 1.0 s more. The sessions end "cancelled" and are saved,
    // without notifications. Blocks for at most about 1.6 s.
    void stopAllTasksForTermination();

    // Puts the final response on the clipboard; false when there is none.
    bool copyFinalResponse(const QUuid &id);
    // Opens the transcript in the default application; false when that cannot be done.
    bool openTranscript(const QUuid &id);

    // A notification action: "QuickTaskCopyFinalResponse" copies the final response, the
    // default action (a click on the notification) opens the transcript.
    void handleNotificationResponse(const QUuid &sessionId, const QString &actionIdentifier);
    // The same, the session named by the notification's user info.
    void handleNotificationResponse(const UserNotificationResponse &response);

    // Running sessions first, then the others; newest first within each group.
    const QList<QuickTaskSession> &sessions() const noexcept { return m_sessions; }
    std::optional<QuickTaskSession> session(const QUuid &id) const;
    QList<QuickTaskSession> menuSessions(int limit = menuSessionLimit) const;
    int runningSessionCount() const;
    bool hasRunningSessions() const;
    bool hasFinishedSessions() const;

    // Remembers where the next task runs (the folder of the editor request on screen).
    void noteWorkingDirectory(const QString &path);

    // Where a scratch composer opened now should hand the focus back to: the frontmost
    // terminal, as the window system reports it through the provider the application sets.
    using SourceContextProvider = std::function<std::optional<QuickTaskSourceContext>()>;
    void setFrontmostTerminalContextProvider(SourceContextProvider provider);
    std::optional<QuickTaskSourceContext> preferredScratchSourceContext() const;

    // The transcript's opening: prompt, backend, working directory, preset, reasoning and
    // start time, each under its underlined title, then the "Transcript" title.
    static QByteArray transcriptHeader(const QuickTaskSession &session, const QuickTaskPreset &preset);
    // "Prompt: ...", "Working Directory: ...", "Exit: ...", "Last stderr: ..." (the last
    // three lines the backend wrote to standard error, joined with " | ").
    static QString failureDetail(const QuickTaskSession &session, const QStringList &recentStderrLines);

Q_SIGNALS:
    // Any change of sessions(): added, removed, finished, or a new final response.
    void sessionsChanged();
    void runningSessionCountChanged(int count);
    // retry() was asked for this session.
    void retryRequested(const QuickTaskSession &session);

private:
    struct Runtime;

    QUuid launch(const QuickTaskLaunchTarget &target, const QuickTaskSession &prototype,
                 const QuickTaskPreset &preset);
    void handleOutput(const QUuid &id, bool isStandardError, const QByteArray &bytes);
    void applyOutputUpdate(const QUuid &id, Runtime &runtime, const QuickTaskOutputUpdate &update);
    void complete(const QUuid &id, int terminationStatus);
    void removeSessions(const std::function<bool(const QuickTaskSession &)> &shouldRemove);
    // Sessions marked running that no process of ours runs: the application ended under them.
    bool normalizeRecoveredSessions();
    QuickTaskSession *findSession(const QUuid &id);
    void sortSessions();
    void save();
    void announceChange();

    QuickTaskStore m_store;
    ErrorLogManager &m_errorLog;
    UserDefaults &m_defaults;
    const Clock &m_clock;
    QuickTaskDesktopServices m_services;
    SourceContextProvider m_frontmostTerminalContext;
    AttachmentStore m_attachments;
    QList<QuickTaskSession> m_sessions;
    std::map<QUuid, std::unique_ptr<Runtime>> m_runtimes;
    int m_announcedRunningCount = 0;
    bool m_terminating = false;
};
