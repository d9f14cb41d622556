#include "quicktasks/QuickTaskManager.h"

#include "backends/BackendProfiles.h"
#include "core/Clock.h"
#include "core/JSONCoding.h"
#include "errorlog/ErrorLogManager.h"
#include "platform/Clipboard.h"
#include "platform/FileOpener.h"
#include "quicktasks/ProcessGroupTask.h"
#include "quicktasks/QuickTaskCompletionNotification.h"
#include "quicktasks/QuickTaskError.h"
#include "quicktasks/QuickTaskOutputHandler.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "settings/AppSettings.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QPromise>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>
#include <utility>

using namespace std::chrono_literals;

struct QuickTaskManager::Runtime {
    explicit Runtime(QuickTaskCLIBackend backend)
        : output(backend)
    {
    }

    // Owned by the manager as a QObject child; deleted later, since it finishes from one of
    // its own signals.
    ProcessGroupTask *process = nullptr;
    QuickTaskOutputHandler output;
    bool stopRequested = false;
};

namespace {

template<typename T> QFuture<T> failedFuture(std::exception_ptr error)
{
    QPromise<T> promise;
    QFuture<T> future = promise.future();
    promise.start();
    promise.setException(std::move(error));
    promise.finish();
    return future;
}

void appendSection(QByteArray &text, const QString &title, const QString &value)
{
    text += title.toUtf8() + '\n';
    text += QByteArray(title.size(), '-') + '\n';
    text += value.toUtf8() + '\n';
    text += '\n';
}

bool waitUntil(const std::function<bool()> &condition, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(50ms);
    }
    return true;
}

} // namespace

QuickTaskManager::QuickTaskManager(QuickTaskStore store, ErrorLogManager &errorLog, UserDefaults &defaults,
                                   const Clock &clock, QuickTaskDesktopServices services, QObject *parent)
    : QObject(parent)
    , m_store(std::move(store))
    , m_errorLog(errorLog)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_services(services)
{
    if (UserNotificationCenter *center = m_services.notifications) {
        center->registerCategory(QuickTaskCompletionNotification::categoryIdentifier,
                                 QuickTaskCompletionNotification::categoryActions());
        center->setResponseHandler(
            [self = QPointer<QuickTaskManager>(this)](const UserNotificationResponse &response) {
                if (self)
                    self->handleNotificationResponse(response);
            });
    }
}

QuickTaskManager::~QuickTaskManager()
{
    // The process objects are children of this manager; deleting them kills their groups.
    m_runtimes.clear();
}

void QuickTaskManager::load()
{
    m_sessions = m_store.loadSessions();
    for (const QuickTaskSession &session : std::as_const(m_sessions))
        m_attachments.hold(session.id, session.attachments);
    const bool recovered = normalizeRecoveredSessions();
    sortSessions();
    if (recovered)
        save();
    announceChange();
}

bool QuickTaskManager::normalizeRecoveredSessions()
{
    bool changed = false;
    const QDateTime now = m_clock.now();
    for (QuickTaskSession &session : m_sessions) {
        if (!session.isRunning() || m_runtimes.contains(session.id))
            continue;
        session.status = QuickTaskSession::Status::cancelled;
        if (!session.finishedAt)
            session.finishedAt = now;
        changed = true;
    }
    return changed;
}

QFuture<QUuid> QuickTaskManager::startTask(const QString &prompt,
                                           const std::optional<QuickTaskSourceContext> &sourceContext,
                                           const QList<PromptAttachment> &attachments,
                                           const QuickTaskPreset &preset, QuickTaskCLIBackend backend,
                                           const std::optional<QString> &workingDirectory,
                                           std::function<bool()> stillWanted)
{
    QuickTaskSession prototype;
    prototype.backend = backend;
    prototype.prompt = prompt.trimmed();
    prototype.workingDirectory = workingDirectory.value_or(workingDirectoryForNewTask());
    prototype.attachments = PromptAttachment::normalized(attachments);
    prototype.sourceContext = sourceContext;

    const qsizetype unsupported =
        BackendProfiles::of(backend).unsupportedAttachments(prototype.attachments).size();
    if (unsupported > 0) {
        return failedFuture<QUuid>(
            std::make_exception_ptr(QuickTaskError::unsupportedDirectoryAttachments(backend, unsupported)));
    }
    if (!QFileInfo(prototype.workingDirectory).isDir()) {
        return failedFuture<QUuid>(std::make_exception_ptr(
            QuickTaskError::missingWorkingDirectory(backend, prototype.workingDirectory)));
    }

    return TaskCLIExecutableLocator::prepareLaunch(backend).then(
        this, [this, prototype, preset, stillWanted](const QuickTaskLaunchTarget &target) {
            if (stillWanted && !stillWanted())
                return QUuid();
            return launch(target, prototype, preset);
        });
}

QString QuickTaskManager::workingDirectoryForNewTask() const
{
    const std::optional<QString> last = AppSettings(m_defaults).quickTaskLastWorkingDirectory();
    return last && !last->isEmpty() ? *last : QDir::homePath();
}

QUuid QuickTaskManager::launch(const QuickTaskLaunchTarget &target, const QuickTaskSession &prototype,
                               const QuickTaskPreset &preset)
{
    AppSettings(m_defaults).setQuickTaskLastWorkingDirectory(prototype.workingDirectory);

    QuickTaskSession session = prototype;
    session.id = QUuid::createUuid();
    session.startedAt = m_clock.now();
    session.status = QuickTaskSession::Status::running;
    const QUuid id = session.id;

    auto runtime = std::make_unique<Runtime>(session.backend);
    runtime->process = new ProcessGroupTask(
        target.executablePath,
        BackendProfiles::of(session.backend)
            .quickTaskArguments(session.prompt, session.workingDirectory, session.attachments, preset),
        session.workingDirectory, target.environment, this);
    ProcessGroupTask *process = runtime->process;

    try {
        m_store.createSessionFiles(id, transcriptHeader(session, preset));
    } catch (const SystemError &) {
        // The task can run without its transcript; the appends fail quietly as well.
    }

    m_attachments.hold(id, session.attachments);
    m_sessions.prepend(session);
    sortSessions();
    m_runtimes.emplace(id, std::move(runtime));
    save();
    announceChange();

    connect(process, &ProcessGroupTask::standardOutputReceived, this,
            [this, id](const QByteArray &bytes) { handleOutput(id, false, bytes); });
    connect(process, &ProcessGroupTask::standardErrorReceived, this,
            [this, id](const QByteArray &bytes) { handleOutput(id, true, bytes); });
    connect(process, &ProcessGroupTask::finished, this, [this, id](int status) { complete(id, status); });

    try {
        process->run();
    } catch (const TarvelError &) {
        m_runtimes.erase(id);
        process->deleteLater();
        m_sessions.removeIf([&](const QuickTaskSession &candidate) { return candidate.id == id; });
        m_attachments.release(id);
        m_store.removeSessionFiles(id);
        save();
        announceChange();
        throw;
    }
    return id;
}

void QuickTaskManager::handleOutput(const QUuid &id, bool isStandardError, const QByteArray &bytes)
{
    const auto it = m_runtimes.find(id);
    if (it == m_runtimes.end())
        return;
    Runtime &runtime = *it->second;
    applyOutputUpdate(
        id, runtime,
        runtime.output.consume(isStandardError ? OutputStream::standardError : OutputStream::standardOutput,
                               bytes));
}

void QuickTaskManager::applyOutputUpdate(const QUuid &id, Runtime &runtime,
                                         const QuickTaskOutputUpdate &update)
{
    if (!update.rawLogText.isEmpty())
        m_store.appendRawLog(id, update.rawLogText);
    if (!update.transcriptText.isEmpty())
        m_store.appendTranscript(id, update.transcriptText);
    if (!update.threadIDChanged && !update.finalResponseChanged)
        return;
    QuickTaskSession *session = findSession(id);
    if (!session)
        return;
    if (update.threadIDChanged)
        session->threadID = runtime.output.threadID();
    if (update.finalResponseChanged)
        session->finalResponse = runtime.output.finalResponse();
    save();
    announceChange();
}

void QuickTaskManager::complete(const QUuid &id, int terminationStatus)
{
    const auto it = m_runtimes.find(id);
    if (it == m_runtimes.end())
        return;
    std::unique_ptr<Runtime> runtime = std::move(it->second);
    m_runtimes.erase(it);
    runtime->process->deleteLater();

    applyOutputUpdate(id, *runtime, runtime->output.finish());

    QuickTaskSession *found = findSession(id);
    if (!found)
        return;
    QuickTaskSession &session = *found;
    if (runtime->stopRequested)
        session.status = QuickTaskSession::Status::cancelled;
    else if (terminationStatus == 0)
        session.status = QuickTaskSession::Status::succeeded;
    else
        session.status = QuickTaskSession::Status::failed;
    session.finishedAt = m_clock.now();
    session.exitStatus = terminationStatus;
    session.finalResponse = runtime->output.finalResponse();
    const QuickTaskSession finished = session;
    sortSessions();
    save();

    m_store.appendTranscript(id, QStringLiteral("\nStatus: %1\nExit: %2\n")
                                     .arg(QuickTaskSession::statusTitle(finished.status))
                                     .arg(terminationStatus)
                                     .toUtf8());

    if (finished.status == QuickTaskSession::Status::failed) {
        m_errorLog.record(
            QStringLiteral("%1 task failed").arg(BackendProfiles::of(finished.backend).displayTitle()),
            failureDetail(finished, runtime->output.recentStderrLines()), errorSource);
    }

    // Nobody could act on a notification posted while the application quits.
    if (!m_terminating && m_services.notifications &&
        AppSettings(m_defaults).areCompletionNotificationsEnabled())
        m_services.notifications->post(QuickTaskCompletionNotification::request(finished));

    announceChange();
}

void QuickTaskManager::stop(const QUuid &id)
{
    const auto it = m_runtimes.find(id);
    if (it == m_runtimes.end() || it->second->stopRequested)
        return;
    it->second->stopRequested = true;
    it->second->process->stop(StopSchedules::quickTask());
}

void QuickTaskManager::retry(const QUuid &id)
{
    if (const std::optional<QuickTaskSession> found = session(id))
        Q_EMIT retryRequested(*found);
}

void QuickTaskManager::dismiss(const QUuid &id)
{
    removeSessions([&](const QuickTaskSession &session) { return session.id == id; });
}

void QuickTaskManager::clearFinishedTasks()
{
    removeSessions([](const QuickTaskSession &) { return true; });
}

void QuickTaskManager::removeSessions(const std::function<bool(const QuickTaskSession &)> &shouldRemove)
{
    QList<QuickTaskSession> removed;
    QList<QuickTaskSession> kept;
    for (const QuickTaskSession &session : std::as_const(m_sessions)) {
        if (!session.isRunning() && shouldRemove(session))
            removed.append(session);
        else
            kept.append(session);
    }
    if (removed.isEmpty())
        return;
    m_sessions = kept;
    save();

    for (const QuickTaskSession &session : std::as_const(removed)) {
        m_store.removeSessionFiles(session.id);
        m_attachments.release(session.id);
        if (m_services.notifications)
            m_services.notifications->remove(JSONCoding::encodeUuid(session.id));
    }
    announceChange();
}

void QuickTaskManager::stopAllTasksForTermination()
{
    m_terminating = true;
    QList<QPointer<ProcessGroupTask>> processes;
    for (auto &[id, runtime] : m_runtimes) {
        if (!runtime->stopRequested) {
            runtime->stopRequested = true;
            // Marks the task stopped, so what its leader leaves behind in the group is killed
            // when it exits; the rest of the escalation happens here, without the event loop.
            runtime->process->stop(StopSchedule{StopStep{0ms, SIGINT}});
        } else {
            runtime->process->signalGroup(SIGINT);
        }
        processes.append(runtime->process);
    }
    if (processes.isEmpty())
        return;

    const auto allExited = [&processes] {
        return std::none_of(
            processes.cbegin(), processes.cend(),
            [](const QPointer<ProcessGroupTask> &process) { return process && process->isRunning(); });
    };
    const auto signalRemaining = [&processes](int signal) {
        for (const QPointer<ProcessGroupTask> &process : std::as_const(processes)) {
            if (process)
                process->signalGroup(signal);
        }
    };
    if (!waitUntil(allExited, 400ms)) {
        signalRemaining(SIGTERM);
        if (!waitUntil(allExited, 1000ms)) {
            signalRemaining(SIGKILL);
            waitUntil(allExited, 200ms);
        }
    }

    // The event loop may never run again: finish the sessions now, so they are saved as
    // cancelled with their last output.
    for (const QPointer<ProcessGroupTask> &process : std::as_const(processes)) {
        if (process)
            process->finishIfExited();
    }
}

bool QuickTaskManager::copyFinalResponse(const QUuid &id)
{
    const std::optional<QuickTaskSession> found = session(id);
    if (!found || !found->hasFinalResponse() || !m_services.clipboard)
        return false;
    m_services.clipboard->setText(*found->finalResponse);
    return true;
}

bool QuickTaskManager::openTranscript(const QUuid &id)
{
    if (!session(id) || !m_services.fileOpener)
        return false;
    return m_services.fileOpener->openInDefaultApplication(m_store.transcriptURL(id));
}

void QuickTaskManager::handleNotificationResponse(const QUuid &sessionId, const QString &actionIdentifier)
{
    if (actionIdentifier == QuickTaskCompletionNotification::copyFinalResponseActionIdentifier)
        copyFinalResponse(sessionId);
    else if (actionIdentifier == UserNotificationCenter::defaultActionIdentifier)
        openTranscript(sessionId);
}

void QuickTaskManager::handleNotificationResponse(const UserNotificationResponse &response)
{
    const std::optional<QUuid> id =
        JSONCoding::parseUuid(response.userInfo.value(QuickTaskCompletionNotification::sessionIdentifierKey));
    if (id)
        handleNotificationResponse(*id, response.actionIdentifier);
}

std::optional<QuickTaskSession> QuickTaskManager::session(const QUuid &id) const
{
    for (const QuickTaskSession &session : m_sessions) {
        if (session.id == id)
            return session;
    }
    return std::nullopt;
}

QList<QuickTaskSession> QuickTaskManager::menuSessions(int limit) const
{
    return m_sessions.mid(0, std::max(limit, 0));
}

int QuickTaskManager::runningSessionCount() const
{
    return static_cast<int>(
        std::count_if(m_sessions.cbegin(), m_sessions.cend(),
                      [](const QuickTaskSession &session) { return session.isRunning(); }));
}

bool QuickTaskManager::hasRunningSessions() const
{
    return runningSessionCount() > 0;
}

bool QuickTaskManager::hasFinishedSessions() const
{
    return std::any_of(m_sessions.cbegin(), m_sessions.cend(),
                       [](const QuickTaskSession &session) { return !session.isRunning(); });
}

void QuickTaskManager::noteWorkingDirectory(const QString &path)
{
    if (!path.isEmpty())
        AppSettings(m_defaults).setQuickTaskLastWorkingDirectory(path);
}

void QuickTaskManager::setFrontmostTerminalContextProvider(SourceContextProvider provider)
{
    m_frontmostTerminalContext = std::move(provider);
}

std::optional<QuickTaskSourceContext> QuickTaskManager::preferredScratchSourceContext() const
{
    return m_frontmostTerminalContext ? m_frontmostTerminalContext() : std::nullopt;
}

QByteArray QuickTaskManager::transcriptHeader(const QuickTaskSession &session, const QuickTaskPreset &preset)
{
    QByteArray text;
    appendSection(text, QStringLiteral("Prompt"), session.prompt);
    appendSection(text, QStringLiteral("Backend"), BackendProfiles::of(session.backend).displayTitle());
    appendSection(text, QStringLiteral("Working Directory"), session.workingDirectory);
    appendSection(text, QStringLiteral("Preset"),
                  preset.model.isEmpty() ? QStringLiteral("default") : preset.model);
    appendSection(text, QStringLiteral("Reasoning"), preset.reasoningEffort);
    appendSection(text, QStringLiteral("Started"), JSONCoding::encodeDate(session.startedAt));
    text += "Transcript\n----------\n";
    return text;
}

QString QuickTaskManager::failureDetail(const QuickTaskSession &session, const QStringList &recentStderrLines)
{
    QStringList lines;
    for (const QString &line : recentStderrLines) {
        if (!line.trimmed().isEmpty())
            lines.append(line);
    }
    const QString excerpt = lines.mid(std::max<qsizetype>(lines.size() - 3, 0)).join(QStringLiteral(" | "));
    return QStringList{
        QStringLiteral("Prompt: ") + session.prompt,
        QStringLiteral("Working Directory: ") + session.workingDirectory,
        QStringLiteral("Exit: ") + QString::number(session.exitStatus.value_or(0)),
        QStringLiteral("Last stderr: ") + (excerpt.isEmpty() ? QStringLiteral("none") : excerpt),
    }
        .join(u'\n');
}

QuickTaskSession *QuickTaskManager::findSession(const QUuid &id)
{
    for (QuickTaskSession &session : m_sessions) {
        if (session.id == id)
            return &session;
    }
    return nullptr;
}

void QuickTaskManager::sortSessions()
{
    std::stable_sort(m_sessions.begin(), m_sessions.end(),
                     [](const QuickTaskSession &a, const QuickTaskSession &b) {
                         if (a.isRunning() != b.isRunning())
                             return a.isRunning();
                         return a.startedAt > b.startedAt;
                     });
}

void QuickTaskManager::save()
{
    try {
        m_store.saveSessions(m_sessions);
    } catch (const SystemError &) {
        // The list on screen stays right; the next change tries again.
    }
}

void QuickTaskManager::announceChange()
{
    Q_EMIT sessionsChanged();
    const int running = runningSessionCount();
    if (running != m_announcedRunningCount) {
        m_announcedRunningCount = running;
        Q_EMIT runningSessionCountChanged(running);
    }
}
