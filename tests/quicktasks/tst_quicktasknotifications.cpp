// Completion notifications through a stand-in notification server on a private session
// bus: what is shown, and what the Copy and default actions do.
#include "QuickTaskManagerFixture.h"

#include "core/JSONCoding.h"
#include "platform/GuiClipboard.h"
#include "platform/linux/FreedesktopNotificationCenter.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QGuiApplication>
#include <QtTest>

namespace {

struct NotifyCall {
    uint replacesId = 0;
    QString summary;
    QString body;
    QStringList actions;
    int timeout = 0;
};

// org.freedesktop.Notifications as far as Tarvel uses it, on a connection of its own.
class FakeNotificationServer final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    explicit FakeNotificationServer(QStringList capabilities)
        : m_capabilities(std::move(capabilities))
    {
    }

    bool start()
    {
        m_connection =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("fake-notifications"));
        return m_connection.registerObject(FreedesktopNotificationCenter::objectPath, this,
                                           QDBusConnection::ExportAllSlots |
                                               QDBusConnection::ExportAllSignals) &&
               m_connection.registerService(FreedesktopNotificationCenter::serviceName);
    }
    ~FakeNotificationServer() override
    {
        m_connection.unregisterService(FreedesktopNotificationCenter::serviceName);
        m_connection.unregisterObject(FreedesktopNotificationCenter::objectPath);
        QDBusConnection::disconnectFromBus(QStringLiteral("fake-notifications"));
    }

    QList<NotifyCall> notified;
    QList<uint> closed;

public Q_SLOTS:
    QStringList GetCapabilities() { return m_capabilities; }
    uint Notify(const QString &, uint replacesId, const QString &, const QString &summary,
                const QString &body, const QStringList &actions, const QVariantMap &, int timeout)
    {
        notified.append(NotifyCall{replacesId, summary, body, actions, timeout});
        return replacesId != 0 ? replacesId : ++m_lastId;
    }
    void CloseNotification(uint id)
    {
        closed.append(id);
        Q_EMIT NotificationClosed(id, 3);
    }

Q_SIGNALS:
    void ActionInvoked(uint id, const QString &actionKey);
    void NotificationClosed(uint id, uint reason);

private:
    QStringList m_capabilities;
    QDBusConnection m_connection{QString()};
    uint m_lastId = 100;
};

// A manager wired to the real notification center and the real (offscreen) clipboard.
struct NotifyingManager {
    NotifyingManager()
        : fixture({&center, &clipboard, &opener})
    {
    }
    std::optional<QUuid> finishTask(const QString &prompt, const QStringList &steps = {})
    {
        if (!steps.isEmpty())
            fixture.useSteps(steps);
        const std::optional<QUuid> id = fixture.start(QuickTaskCLIBackend::claude, prompt);
        if (!id || !fixture.waitUntilFinished(*id))
            return std::nullopt;
        return id;
    }

    FreedesktopNotificationCenter center;
    GuiClipboard clipboard;
    RecordingFileOpener opener;
    QuickTaskManagerFixture fixture;
};

} // namespace

class QuickTaskNotificationsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("No session bus; this test runs under dbus-run-session.");
    }

    // A server that reads markup gets the text escaped, so it shows what was written; Copy
    // takes the answer as written, the click opens the transcript.
    void copyAndClickActOnTheirTask()
    {
        FakeNotificationServer server({QStringLiteral("actions"), QStringLiteral("body-markup")});
        QVERIFY(server.start());
        NotifyingManager tarvel;
        tarvel.clipboard.setText(QStringLiteral("before"));

        const std::optional<QUuid> id =
            tarvel.finishTask(QStringLiteral("Check a<b && c"), {QStringLiteral("out <b>bold</b>\\n")});
        QVERIFY(id);
        QVERIFY(QTest::qWaitFor([&] { return server.notified.size() == 1; }, 5000));
        const NotifyCall call = server.notified.constFirst();
        QCOMPARE(call.replacesId, 0u);
        QCOMPARE(call.summary, QStringLiteral("Claude task Succeeded"));
        // The subtitle line, then the body.
        QCOMPARE(
            call.body,
            QStringLiteral("Check a&lt;b &amp;&amp; c\nCheck a&lt;b &amp;&amp; c\n&lt;b&gt;bold&lt;/b&gt;"));
        QCOMPARE(call.actions,
                 (QStringList{QStringLiteral("default"), QStringLiteral("Open"),
                              QStringLiteral("QuickTaskCopyFinalResponse"), QStringLiteral("Copy")}));
        QCOMPARE(call.timeout, -1);

        Q_EMIT server.ActionInvoked(101, QStringLiteral("QuickTaskCopyFinalResponse"));
        QVERIFY(QTest::qWaitFor([&] { return server.closed == QList<uint>{101}; }, 5000));
        QCOMPARE(tarvel.clipboard.text(), QStringLiteral("<b>bold</b>"));
        QVERIFY(tarvel.opener.opened.isEmpty());

        // Its server id is forgotten: a repeated click (or another application's) is ignored.
        Q_EMIT server.ActionInvoked(101, QStringLiteral("default"));
        Q_EMIT server.ActionInvoked(7, QStringLiteral("default"));
        QTest::qWait(200);
        QVERIFY(tarvel.opener.opened.isEmpty());
        QCOMPARE(server.closed.size(), 1);

        const std::optional<QUuid> failed =
            tarvel.finishTask(QStringLiteral("Fail"), {QStringLiteral("exit 2")});
        QVERIFY(failed);
        QVERIFY(QTest::qWaitFor([&] { return server.notified.size() == 2; }, 5000));
        Q_EMIT server.ActionInvoked(102, QStringLiteral("default"));
        QVERIFY(QTest::qWaitFor([&] { return server.closed == QList<uint>{101, 102}; }, 5000));
        QCOMPARE(tarvel.opener.opened, QStringList{tarvel.fixture.manager->store().transcriptURL(*failed)});
    }

    void aMissingServerIsNoErrorAndALaterOneIsUsed()
    {
        QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(
            FreedesktopNotificationCenter::serviceName));
        NotifyingManager tarvel;
        const std::optional<QUuid> id = tarvel.finishTask(QStringLiteral("Nobody listens"));
        QVERIFY(id);
        QTest::qWait(300);
        QCOMPARE(tarvel.fixture.manager->session(*id)->status, QuickTaskSession::Status::succeeded);
        QVERIFY(tarvel.fixture.errorLog->entries().isEmpty());

        FakeNotificationServer server({});
        QVERIFY(server.start());
        const std::optional<QUuid> heard = tarvel.finishTask(QStringLiteral("Now <somebody> does"));
        QVERIFY(heard);
        QVERIFY(QTest::qWaitFor([&] { return server.notified.size() == 1; }, 5000));
        // Without markup support the text goes as it is.
        QCOMPARE(server.notified.constFirst().body,
                 QStringLiteral("Now <somebody> does\nNow <somebody> does\nFake answer."));

        // Posting under the same identifier replaces it; without a category there is no Copy.
        QTest::qWait(100); // the server id comes back with the reply
        UserNotificationRequest again;
        again.identifier = JSONCoding::encodeUuid(*heard);
        tarvel.center.post(again);
        QVERIFY(QTest::qWaitFor([&] { return server.notified.size() == 2; }, 5000));
        QCOMPARE(server.notified.at(1).replacesId, 101u);
        QCOMPARE(server.notified.at(1).actions,
                 (QStringList{QStringLiteral("default"), QStringLiteral("Open")}));

        // Dismissing the task takes its notification away.
        QTest::qWait(100);
        tarvel.fixture.manager->dismiss(*heard);
        QVERIFY(QTest::qWaitFor([&] { return server.closed == QList<uint>{101}; }, 5000));
    }
};

QTEST_MAIN(QuickTaskNotificationsTest)
#include "tst_quicktasknotifications.moc"
