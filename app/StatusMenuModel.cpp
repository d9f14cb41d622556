#include "app/StatusMenuModel.h"

#include <QFileInfo>

namespace StatusMenuModel {
namespace {
using Kind = StatusMenuEntry::Kind;
using Action = StatusMenuEntry::Action;

StatusMenuEntry action(const QString &title, Action action, bool enabled = true)
{
    return {Kind::action, title, action, QString(), QUuid(), enabled};
}

StatusMenuEntry separator(const QString &identifier = QString())
{
    return {Kind::separator, QString(), Action::none, identifier, QUuid(), true};
}

StatusMenuEntry text(const QString &title)
{
    return {Kind::disabledText, title, Action::none, QString(), QUuid(), false};
}

QString lastPathComponent(const QString &path)
{
    QString trimmed = path;
    while (trimmed.size() > 1 && trimmed.endsWith(u'/'))
        trimmed.chop(1);
    const QString name = QFileInfo(trimmed).fileName();
    return name.isEmpty() ? trimmed : name;
}
} // namespace

QList<StatusMenuEntry> build(const StatusMenuState &state)
{
    QList<StatusMenuEntry> entries;
    entries.append(action(QStringLiteral("Quick Tasks"), Action::openScratchComposer));
    for (const QUuid &id : state.sessionIds)
        entries.append(
            {Kind::sessionRow, QString(), Action::none, StatusMenuIdentifiers::quickTaskSession, id, true});
    if (state.hasFinishedSessions) {
        entries.append(separator(StatusMenuIdentifiers::quickTaskClearFinishedSeparator));
        StatusMenuEntry clear = action(QStringLiteral("Clear Finished Tasks"), Action::clearFinishedTasks);
        clear.identifier = StatusMenuIdentifiers::quickTaskClearFinishedItem;
        entries.append(clear);
    }
    if (state.isEditingRequest) {
        entries.append(separator());
        const QString where = state.editingRequestCwd && !state.editingRequestCwd->isEmpty()
                                  ? lastPathComponent(*state.editingRequestCwd)
                                  : QStringLiteral("scratch");
        entries.append(text(QStringLiteral("Editing ") + where));
    }
    if (state.queuedRequestCount > 0) {
        entries.append(separator());
        entries.append(text(QStringLiteral("%1 queued request(s)").arg(state.queuedRequestCount)));
    }
    if (!state.isEditingRequest &&
        (state.queuedRequestCount > 0 || (state.hasWaitingRequests && state.hasWaitingRequests())))
        entries.append(action(QStringLiteral("Resume Waiting Edit"), Action::checkPendingRequests));
    if (shouldInsertSeparatorBeforePreferences(entries))
        entries.append(separator());
    entries.append(
        action(QStringLiteral("Preferences\u2026"), Action::openPreferences, state.preferencesAvailable));
    if (state.editorSetupNeeded)
        entries.append(action(QStringLiteral("Set Up Editor\u2026"), Action::setUpEditor));
    if (state.hasErrors)
        entries.append(action(QStringLiteral("Errors"), Action::openErrors));
    entries.append(separator());
    entries.append(action(QStringLiteral("Quit ") + state.applicationDisplayName, Action::quit));
    return normalizeSeparators(entries);
}

QList<StatusMenuEntry> normalizeSeparators(QList<StatusMenuEntry> entries)
{
    QList<StatusMenuEntry> result;
    for (StatusMenuEntry &entry : entries) {
        if (entry.kind == Kind::separator && (result.isEmpty() || result.constLast().kind == Kind::separator))
            continue;
        result.append(std::move(entry));
    }
    while (!result.isEmpty() && result.constLast().kind == Kind::separator)
        result.removeLast();
    return result;
}

bool shouldInsertSeparatorBeforePreferences(const QList<StatusMenuEntry> &entries)
{
    // Preferences open a section of their own unless one was just opened.
    return !entries.isEmpty() && entries.constLast().kind != Kind::separator;
}

} // namespace StatusMenuModel
