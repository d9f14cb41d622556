#include "app/TrayMenuPresenter.h"

#include "app/RelativeDateFormatter.h"
#include "app/RequestIntake.h"
#include "backends/BackendProfiles.h"
#include "core/AppConstants.h"
#include "core/Clock.h"
#include "core/TarvelError.h"
#include "errorlog/ErrorLogManager.h"
#include "quicktasks/QuickTaskCompletionNotification.h"
#include "quicktasks/QuickTaskManager.h"

#include <QTimer>

QString SessionMenuRow::actionTitle(Action action)
{
    switch (action) {
    case Action::copy:
        return QStringLiteral("Copy");
    case Action::retry:
        return QStringLiteral("Retry");
    case Action::remove:
        return QStringLiteral("Delete");
    case Action::stop:
        return QStringLiteral("Stop");
    }
    return {};
}

bool SessionMenuRow::dismissesMenu(Action action)
{
    return action != Action::remove;
}

TrayMenuPresenter::TrayMenuPresenter(QuickTaskManager &tasks, RequestIntake &intake,
                                     ErrorLogManager &errorLog, const Clock &clock, QObject *parent)
    : QObject(parent)
    , m_tasks(tasks)
    , m_intake(intake)
    , m_errorLog(errorLog)
    , m_clock(clock)
{
    // Later, not now: a row's own Delete button gets here from inside its click, and the
    // menu must neither lose that button under the click nor close.
    connect(&m_tasks, &QuickTaskManager::sessionsChanged, this,
            [this] { QTimer::singleShot(0, this, &TrayMenuPresenter::menuChanged); });
    connect(&m_errorLog, &ErrorLogManager::errorLogDidChange, this, &TrayMenuPresenter::menuChanged);
}

StatusMenuState TrayMenuPresenter::menuState(const std::optional<ComposerRequest> &editing) const
{
    StatusMenuState state;
    state.isEditingRequest = editing.has_value();
    if (editing)
        state.editingRequestCwd = editing->cwd;
    state.queuedRequestCount = int(m_intake.queuedRequests().size());
    const std::optional<QUuid> onScreen = editing ? std::optional<QUuid>(editing->id) : std::nullopt;
    state.hasWaitingRequests = [this, onScreen] {
        try {
            return !m_intake.recoverablePendingRequests(onScreen).isEmpty();
        } catch (const TarvelError &) {
            return false;
        }
    };
    for (const QuickTaskSession &session : m_tasks.menuSessions())
        state.sessionIds.append(session.id);
    state.hasFinishedSessions = m_tasks.hasFinishedSessions();
    state.hasErrors = !m_errorLog.entries().isEmpty();
    state.applicationDisplayName = AppConstants::appName;
    return state;
}

std::optional<SessionMenuRow> TrayMenuPresenter::sessionRow(const QUuid &id) const
{
    const std::optional<QuickTaskSession> session = m_tasks.session(id);
    if (!session)
        return std::nullopt;
    SessionMenuRow row{sessionTitle(*session), sessionDetail(*session), {}};
    using Action = SessionMenuRow::Action;
    if (session->hasFinalResponse())
        row.actions.append(Action::copy);
    if (session->isRunning())
        row.actions.append(Action::stop);
    else
        row.actions.append({Action::retry, Action::remove});
    return row;
}

void TrayMenuPresenter::perform(const QUuid &id, SessionMenuRow::Action action)
{
    switch (action) {
    case SessionMenuRow::Action::copy:
        m_tasks.copyFinalResponse(id);
        break;
    case SessionMenuRow::Action::retry:
        m_tasks.retry(id);
        break;
    case SessionMenuRow::Action::remove:
        m_tasks.dismiss(id);
        break;
    case SessionMenuRow::Action::stop:
        m_tasks.stop(id);
        break;
    }
}

void TrayMenuPresenter::openTranscript(const QUuid &id)
{
    m_tasks.openTranscript(id);
}

void TrayMenuPresenter::clearFinishedTasks()
{
    m_tasks.clearFinishedTasks();
}

QString TrayMenuPresenter::sessionTitle(const QuickTaskSession &session)
{
    return QuickTaskCompletionNotification::truncated(
        QuickTaskCompletionNotification::singleLine(session.prompt),
        QuickTaskCompletionNotification::bodyPromptLimit);
}

QString TrayMenuPresenter::sessionDetail(const QuickTaskSession &session) const
{
    // When it finished (or started, while it runs), relative to now: "2 minutes ago".
    const QString when =
        RelativeDateFormatter::localizedString(session.finishedAt.value_or(session.startedAt), m_clock.now());
    return QStringList{BackendProfiles::of(session.backend).displayTitle(),
                       QuickTaskSession::statusTitle(session.status), when}
        .join(QStringLiteral(" \u00b7 "));
}
