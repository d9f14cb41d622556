#pragma once

#include "app/StatusMenuModel.h"
#include "core/ComposerRequest.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>

#include <optional>

class Clock;
class ErrorLogManager;
class QuickTaskManager;
class RequestIntake;
struct QuickTaskSession;

// One quick-task session's row in the status menu: the prompt, "<backend> · <status> ·
// <relative time>", and the inline buttons its state allows.
struct SessionMenuRow {
    enum class Action { copy, retry, remove, stop };

    QString title;
    QString detail;
    QList<Action> actions;

    static QString actionTitle(Action action);
    // Delete leaves the menu open on the remaining rows; the others close it.
    static bool dismissesMenu(Action action);
};

// What the status menu shows and what its rows do. Logic only: the tray view asks it for
// the menu's state and rows and hands their clicks back.
class TrayMenuPresenter final : public QObject {
    Q_OBJECT

public:
    TrayMenuPresenter(QuickTaskManager &tasks, RequestIntake &intake, ErrorLogManager &errorLog,
                      const Clock &clock, QObject *parent = nullptr);

    StatusMenuState menuState(const std::optional<ComposerRequest> &editing) const;
    // Nothing when the session is gone.
    std::optional<SessionMenuRow> sessionRow(const QUuid &id) const;
    void perform(const QUuid &id, SessionMenuRow::Action action);
    void openTranscript(const QUuid &id);
    void clearFinishedTasks();

    static QString sessionTitle(const QuickTaskSession &session);
    QString sessionDetail(const QuickTaskSession &session) const;

Q_SIGNALS:
    // The menu's rows or items changed; an open menu rebuilds.
    void menuChanged();

private:
    QuickTaskManager &m_tasks;
    RequestIntake &m_intake;
    ErrorLogManager &m_errorLog;
    const Clock &m_clock;
};
