// The status menu: its layout rules, and what the presenter puts in a session's row.
#include "app/RelativeDateFormatter.h"
#include "app/RequestIntake.h"
#include "app/StatusMenuModel.h"
#include "app/TrayMenuPresenter.h"
#include "core/UserDefaults.h"
#include "errorlog/ErrorLogManager.h"
#include "quicktasks/QuickTaskManager.h"
#include "quicktasks/QuickTaskStore.h"
#include "support/ManualClock.h"
#include "support/TestEnvironment.h"

#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
using Kind = StatusMenuEntry::Kind;

QStringList titles(const QList<StatusMenuEntry> &entries)
{
    QStringList result;
    for (const StatusMenuEntry &entry : entries)
        result.append(entry.kind == Kind::separator ? u"---"_s : entry.title);
    return result;
}

} // namespace

class StatusMenuModelTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void menuRules()
    {
        StatusMenuState state;
        int scans = 0;
        state.hasWaitingRequests = [&] {
            ++scans;
            return false;
        };
        const QStringList idle = titles(StatusMenuModel::build(state));
        QCOMPARE(idle.constFirst(), u"Quick Tasks"_s);
        QCOMPARE(idle.constLast(), u"Quit Tarvel"_s);
        QVERIFY(!idle.contains(u"Errors"_s));
        QVERIFY(!idle.contains(u"Resume Waiting Edit"_s));
        QCOMPARE(idle.at(idle.indexOf(u"Preferences\u2026"_s) - 1), u"---"_s);
        QCOMPARE(scans, 1);
        QVERIFY(!idle.contains(u"Set Up Editor\u2026"_s));
        state.editorSetupNeeded = true;
        const QStringList setUp = titles(StatusMenuModel::build(state));
        QCOMPARE(setUp.at(setUp.indexOf(u"Preferences\u2026"_s) + 1), u"Set Up Editor\u2026"_s);
        state.editorSetupNeeded = false;

        // The request on screen names its folder; nothing can be resumed while one is edited.
        state.isEditingRequest = true;
        state.editingRequestCwd = u"/home/u/project/"_s;
        state.queuedRequestCount = 2;
        state.hasErrors = true;
        QStringList busy = titles(StatusMenuModel::build(state));
        QVERIFY(busy.contains(u"Editing project"_s));
        QVERIFY(busy.contains(u"2 queued request(s)"_s));
        QVERIFY(busy.contains(u"Errors"_s));
        QVERIFY(!busy.contains(u"Resume Waiting Edit"_s));
        state.editingRequestCwd.reset();
        QVERIFY(titles(StatusMenuModel::build(state)).contains(u"Editing scratch"_s));

        // Queued requests, or ones found only on disk, can be resumed when none is on screen.
        state.isEditingRequest = false;
        QVERIFY(titles(StatusMenuModel::build(state)).contains(u"Resume Waiting Edit"_s));
        state.queuedRequestCount = 0;
        state.hasWaitingRequests = [] {
            return true;
        };
        QVERIFY(titles(StatusMenuModel::build(state)).contains(u"Resume Waiting Edit"_s));

        // Session rows, then "Clear Finished Tasks" after a separator of its own.
        state = StatusMenuState();
        state.sessionIds = {QUuid::createUuid(), QUuid::createUuid()};
        state.hasFinishedSessions = true;
        const QList<StatusMenuEntry> entries = StatusMenuModel::build(state);
        QCOMPARE(entries.at(1).kind, Kind::sessionRow);
        QCOMPARE(entries.at(1).sessionId, state.sessionIds.at(0));
        QCOMPARE(entries.at(2).sessionId, state.sessionIds.at(1));
        QCOMPARE(entries.at(3).identifier, StatusMenuIdentifiers::quickTaskClearFinishedSeparator);
        QCOMPARE(entries.at(4).identifier, StatusMenuIdentifiers::quickTaskClearFinishedItem);
        // Separators never double up or dangle at either end.
        for (int index = 1; index < entries.size(); ++index)
            QVERIFY(entries.at(index).kind != Kind::separator ||
                    entries.at(index - 1).kind != Kind::separator);
        const StatusMenuEntry sep{Kind::separator, {}, {}, {}, {}, true};
        const StatusMenuEntry item{Kind::action, u"x"_s, {}, {}, {}, true};
        QCOMPARE(titles(StatusMenuModel::normalizeSeparators({sep, item, sep, sep, item, sep})),
                 (QStringList{u"x"_s, u"---"_s, u"x"_s}));
    }

    void sessionRowsFollowTheSession()
    {
        TestEnvironment environment;
        ManualClock clock(QDateTime(QDate(2026, 3, 1), QTime(9, 0), Qt::UTC));
        UserDefaults defaults(environment.path(u"defaults.ini"_s));
        ErrorLogManager errorLog(clock);
        const QuickTaskStore store;
        QuickTaskSession done;
        done.id = QUuid::createUuid();
        done.backend = QuickTaskCLIBackend::claude;
        done.prompt = u"Summarise\nthe release notes for the team in three short sentences"_s;
        done.startedAt = clock.now().addSecs(-900);
        done.finishedAt = clock.now().addSecs(-480);
        done.status = QuickTaskSession::Status::succeeded;
        QuickTaskSession failed = done;
        failed.id = QUuid::createUuid();
        failed.status = QuickTaskSession::Status::failed;
        done.finalResponse = u"Done."_s;
        store.saveSessions({done, failed});
        QuickTaskManager tasks(store, errorLog, defaults, clock);
        tasks.load();
        RequestIntake intake(errorLog, clock);
        TrayMenuPresenter presenter(tasks, intake, errorLog, clock);

        using Action = SessionMenuRow::Action;
        const SessionMenuRow row = *presenter.sessionRow(done.id);
        // One line, cut to fit; the age counts from the end, not the start.
        QVERIFY(!row.title.contains(u'\n'));
        QVERIFY(row.title.size() < done.prompt.size());
        QCOMPARE(row.detail, u"Claude \u00b7 Succeeded \u00b7 8 minutes ago"_s);
        QCOMPARE(row.actions, (QList<Action>{Action::copy, Action::retry, Action::remove}));
        QCOMPARE(presenter.sessionRow(failed.id)->actions, (QList<Action>{Action::retry, Action::remove}));
        // Delete keeps the menu open and takes the row out: tst_quicktask_e2e clicks it.
    }

    // Each unit, singular and plural, at its boundaries; ahead of now too.
    void relativeTimestamps()
    {
        const QDateTime now(QDate(2026, 5, 1), QTime(12, 0), Qt::UTC);
        const int secondsAgo[] = {0, 1, 59, 60, 3599, 7200, 86400, 15 * 86400, 800 * 86400, -300};
        const QStringList texts{
            u"now"_s,         u"1 second ago"_s, u"59 seconds ago"_s, u"1 minute ago"_s, u"59 minutes ago"_s,
            u"2 hours ago"_s, u"1 day ago"_s,    u"2 weeks ago"_s,    u"2 years ago"_s,  u"in 5 minutes"_s};
        for (qsizetype row = 0; row < texts.size(); ++row)
            QCOMPARE(RelativeDateFormatter::localizedString(now.addSecs(-secondsAgo[row]), now), texts[row]);
    }
};

QTEST_GUILESS_MAIN(StatusMenuModelTest)
#include "tst_statusmenumodel.moc"
