// The status menu's layout rules.
#include "app/StatusMenuModel.h"

#include <QtTest>

namespace {
QStringList render(const QList<StatusMenuEntry> &entries)
{
    QStringList lines;
    for (const StatusMenuEntry &entry : entries) {
        switch (entry.kind) {
        case StatusMenuEntry::Kind::separator:
            lines.append(QStringLiteral("---"));
            break;
        case StatusMenuEntry::Kind::sessionRow:
            lines.append(QStringLiteral("[session]"));
            break;
        case StatusMenuEntry::Kind::disabledText:
            lines.append(QStringLiteral("(") + entry.title + u')');
            break;
        case StatusMenuEntry::Kind::action:
            lines.append(entry.enabled ? entry.title : QStringLiteral("(") + entry.title + u')');
            break;
        }
    }
    return lines;
}
} // namespace

class StatusMenuModelTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void idleMenu()
    {
        StatusMenuState state;
        int scans = 0;
        state.hasWaitingRequests = [&] {
            ++scans;
            return false;
        };
        QCOMPARE(render(StatusMenuModel::build(state)),
                 (QStringList{QStringLiteral("Quick Tasks"), QStringLiteral("---"),
                              QStringLiteral("(Preferences\u2026)"), QStringLiteral("---"),
                              QStringLiteral("Quit Tarvel")}));
        QCOMPARE(scans, 1);

        // The first error brings the Errors item.
        state.hasErrors = true;
        state.preferencesAvailable = true;
        QVERIFY(render(StatusMenuModel::build(state)).contains(QStringLiteral("Errors")));
        QVERIFY(render(StatusMenuModel::build(state)).contains(QStringLiteral("Preferences\u2026")));
    }

    void editingAndQueuedRequests_data()
    {
        QTest::addColumn<bool>("editing");
        QTest::addColumn<QString>("cwd");
        QTest::addColumn<int>("queued");
        QTest::addColumn<bool>("waitingOnDisk");
        QTest::addColumn<QStringList>("expected");
        const QString quick = QStringLiteral("Quick Tasks");
        const QString sep = QStringLiteral("---");
        const QString prefs = QStringLiteral("(Preferences\u2026)");
        const QString quit = QStringLiteral("Quit Tarvel");
        QTest::newRow("editing with cwd, two queued")
            << true << QStringLiteral("/home/u/project/") << 2 << false
            << QStringList{quick,
                           sep,
                           QStringLiteral("(Editing project)"),
                           sep,
                           QStringLiteral("(2 queued request(s))"),
                           sep,
                           prefs,
                           sep,
                           quit};
        QTest::newRow("editing without cwd")
            << true << QString() << 0 << true
            << QStringList{quick, sep, QStringLiteral("(Editing scratch)"), sep, prefs, sep, quit};
        QTest::newRow("queued but nothing on screen")
            << false << QString() << 1 << false << QStringList{quick,
                                                               sep,
                                                               QStringLiteral("(1 queued request(s))"),
                                                               QStringLiteral("Resume Waiting Edit"),
                                                               sep,
                                                               prefs,
                                                               sep,
                                                               quit};
        QTest::newRow("waiting only on disk")
            << false << QString() << 0 << true
            << QStringList{quick, QStringLiteral("Resume Waiting Edit"), sep, prefs, sep, quit};
    }
    void editingAndQueuedRequests()
    {
        QFETCH(bool, editing);
        QFETCH(QString, cwd);
        QFETCH(int, queued);
        QFETCH(bool, waitingOnDisk);
        QFETCH(QStringList, expected);
        StatusMenuState state;
        state.isEditingRequest = editing;
        if (!cwd.isEmpty())
            state.editingRequestCwd = cwd;
        state.queuedRequestCount = queued;
        state.hasWaitingRequests = [=] {
            return waitingOnDisk;
        };
        QCOMPARE(render(StatusMenuModel::build(state)), expected);
    }

    void sessionsAndClearFinished()
    {
        StatusMenuState state;
        state.sessionIds = {QUuid::createUuid(), QUuid::createUuid()};
        state.hasFinishedSessions = true;
        const QList<StatusMenuEntry> entries = StatusMenuModel::build(state);
        QCOMPARE(render(entries), (QStringList{QStringLiteral("Quick Tasks"), QStringLiteral("[session]"),
                                               QStringLiteral("[session]"), QStringLiteral("---"),
                                               QStringLiteral("Clear Finished Tasks"), QStringLiteral("---"),
                                               QStringLiteral("(Preferences\u2026)"), QStringLiteral("---"),
                                               QStringLiteral("Quit Tarvel")}));
        QCOMPARE(entries.at(1).sessionId, state.sessionIds.at(0));
        QCOMPARE(entries.at(3).identifier, StatusMenuIdentifiers::quickTaskClearFinishedSeparator);
        QCOMPARE(entries.at(4).identifier, StatusMenuIdentifiers::quickTaskClearFinishedItem);
    }

    void separatorsNeverDoubleOrDangle()
    {
        using Kind = StatusMenuEntry::Kind;
        const StatusMenuEntry sep{Kind::separator, {}, {}, {}, {}, true};
        const StatusMenuEntry item{Kind::action, QStringLiteral("x"), {}, {}, {}, true};
        QCOMPARE(render(StatusMenuModel::normalizeSeparators({sep, item, sep, sep, item, sep})),
                 (QStringList{QStringLiteral("x"), QStringLiteral("---"), QStringLiteral("x")}));
    }
};

QTEST_GUILESS_MAIN(StatusMenuModelTest)
#include "tst_statusmenumodel.moc"
