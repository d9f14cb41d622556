// The status menu: its layout rules, and what the presenter puts in a session's row.
#include "app/RelativeDateFormatter.h"
#include "app/RequestIntake.h"
#include "app/StatusMenuModel.h"
#include "app/TrayMenuPresenter.h"
#include "core/Clock.h"
#include "core/UserDefaults.h"
#include "errorlog/ErrorLogManager.h"
#include "quicktasks/QuickTaskManager.h"
#include "quicktasks/QuickTaskStore.h"
#include "support/TestEnvironment.h"

#include <QtTest>

namespace {
using Kind = StatusMenuEntry::Kind;

QStringList titles(const QList<StatusMenuEntry> &entries)
{
    QStringList result;
    for (const StatusMenuEntry &entry : entries)
        result.append(entry.kind == Kind::separator ? QStringLiteral("---") : entry.title);
    return result;
}

class FixedClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime(QDate(2026, 3, 1), QTime(9, 0), Qt::UTC); }
};
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
        QCOMPARE(idle.constFirst(), QStringLiteral("Quick Tasks"));
        QCOMPARE(idle.constLast(), QStringLiteral("Quit Tarvel"));
        QVERIFY(!idle.contains(QStringLiteral("Errors")));
        QVERIFY(!idle.contains(QStringLiteral("Resume Waiting Edit")));
        QCOMPARE(idle.at(idle.indexOf(QStringLiteral("Preferences\u2026")) - 1), QStringLiteral("---"));
        QCOMPARE(scans, 1);
        QVERIFY(!idle.contains(QStringLiteral("Set Up Editor\u2026")));
        state.editorSetupNeeded = true;
        const QStringList setUp = titles(StatusMenuModel::build(state));
        QCOMPARE(setUp.at(setUp.indexOf(QStringLiteral("Preferences\u2026")) + 1),
                 QStringLiteral("Set Up Editor\u2026"));
        state.editorSetupNeeded = false;

        // The request on screen names its folder; nothing can be resumed while one is edited.
        state.isEditingRequest = true;
        state.editingRequestCwd = QStringLiteral("/home/u/project/");
        state.queuedRequestCount = 2;
        state.hasErrors = true;
        QStringList busy = titles(StatusMenuModel::build(state));
        QVERIFY(busy.contains(QStringLiteral("Editing project")));
        QVERIFY(busy.contains(QStringLiteral("2 queued request(s)")));
        QVERIFY(busy.contains(QStringLiteral("Errors")));
        QVERIFY(!busy.contains(QStringLiteral("Resume Waiting Edit")));
        state.editingRequestCwd.reset();
        QVERIFY(titles(StatusMenuModel::build(state)).contains(QStringLiteral("Editing scratch")));

        // Queued requests, or ones found only on disk, can be resumed when none is on screen.
        state.isEditingRequest = false;
        QVERIFY(titles(StatusMenuModel::build(state)).contains(QStringLiteral("Resume Waiting Edit")));
        state.queuedRequestCount = 0;
        state.hasWaitingRequests = [] {
            return true;
        };
        QVERIFY(titles(StatusMenuModel::build(state)).contains(QStringLiteral("Resume Waiting Edit")));
    }

    void sessionsAndSeparators()
    {
        StatusMenuState state;
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
        const StatusMenuEntry item{Kind::action, QStringLiteral("x"), {}, {}, {}, true};
        QCOMPARE(titles(StatusMenuModel::normalizeSeparators({sep, item, sep, sep, item, sep})),
                 (QStringList{QStringLiteral("x"), QStringLiteral("---"), QStringLiteral("x")}));
    }

    void sessionRowsFollowTheSession()
    {
        TestEnvironment environment;
        FixedClock clock;
        UserDefaults defaults(environment.path(QStringLiteral("defaults.ini")));
        ErrorLogManager errorLog(clock);
        const QuickTaskStore store;
        QuickTaskSession done;
        done.id = QUuid::createUuid();
        done.backend = QuickTaskCLIBackend::claude;
        done.prompt = QStringLiteral("Summarise\nthe release notes for the team in three short sentences");
        done.startedAt = clock.now().addSecs(-900);
        done.finishedAt = clock.now().addSecs(-480);
        done.status = QuickTaskSession::Status::succeeded;
        QuickTaskSession failed = done;
        failed.id = QUuid::createUuid();
        failed.status = QuickTaskSession::Status::failed;
        done.finalResponse = QStringLiteral("Done.");
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
        QCOMPARE(row.detail, QStringLiteral("Claude \u00b7 Succeeded \u00b7 8 minutes ago"));
        QCOMPARE(row.actions, (QList<Action>{Action::copy, Action::retry, Action::remove}));
        QCOMPARE(presenter.sessionRow(failed.id)->actions, (QList<Action>{Action::retry, Action::remove}));
        QVERIFY(!SessionMenuRow::dismissesMenu(Action::remove)); // the menu stays on the other rows

        QSignalSpy changed(&presenter, &TrayMenuPresenter::menuChanged);
        presenter.perform(failed.id, Action::remove);
        QVERIFY(!presenter.sessionRow(failed.id));
        QTRY_COMPARE(changed.count(), 1); // later, not under the row's own click
        QCOMPARE(presenter.menuState(std::nullopt).sessionIds, QList<QUuid>{done.id});
    }

    void relativeTimestamps_data()
    {
        QTest::addColumn<int>("secondsAgo");
        QTest::addColumn<QString>("text");
        QTest::newRow("now") << 0 << QStringLiteral("now");
        QTest::newRow("one second") << 1 << QStringLiteral("1 second ago");
        QTest::newRow("seconds") << 59 << QStringLiteral("59 seconds ago");
        QTest::newRow("a minute") << 60 << QStringLiteral("1 minute ago");
        QTest::newRow("not yet an hour") << 3599 << QStringLiteral("59 minutes ago");
        QTest::newRow("hours") << 7200 << QStringLiteral("2 hours ago");
        QTest::newRow("a day") << 86400 << QStringLiteral("1 day ago");
        QTest::newRow("weeks") << 15 * 86400 << QStringLiteral("2 weeks ago");
        QTest::newRow("years") << 800 * 86400 << QStringLiteral("2 years ago");
        QTest::newRow("ahead") << -300 << QStringLiteral("in 5 minutes");
    }
    void relativeTimestamps()
    {
        QFETCH(int, secondsAgo);
        QFETCH(QString, text);
        const QDateTime now(QDate(2026, 5, 1), QTime(12, 0), Qt::UTC);
        QCOMPARE(RelativeDateFormatter::localizedString(now.addSecs(-secondsAgo), now), text);
    }
};

QTEST_GUILESS_MAIN(StatusMenuModelTest)
#include "tst_statusmenumodel.moc"
