// The Linux platform services that tarvel-edit and the application share, on a real
// session bus: the Posted signal contract and the application's presence.
#include "platform/DistributedNotificationObserver.h"
#include "platform/DistributedNotificationPoster.h"
#include "platform/RunningApplicationWatcher.h"
#include "platform/linux/DBusContract.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QSignalSpy>
#include <QtTest>

namespace {

// A second client of the bus, as another process would be.
QDBusConnection otherClient()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("other-client"));
}

} // namespace

class DBusPlatformTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void postedNotificationsReachObserversOfTheirName()
    {
        const auto observer = DistributedNotificationObserver::create();
        QVERIFY(observer->observe(QStringLiteral("zq.tarvel.request-created")));
        QVERIFY(observer->observe(QStringLiteral("zq.tarvel.debug-window-request")));
        QSignalSpy posted(observer.get(), &DistributedNotificationObserver::notificationPosted);

        const auto poster = DistributedNotificationPoster::create();
        QVERIFY(poster->isAvailable());
        QVERIFY(poster->post(QStringLiteral("zq.tarvel.unrelated")));
        QVERIFY(poster->post(QStringLiteral("zq.tarvel.request-created")));
        const DistributedNotificationUserInfo userInfo{
            {QStringLiteral("pid"), QStringLiteral("4242")},
            {QStringLiteral("note"), QStringLiteral("caf\u00e9 / \u2713")}};
        QVERIFY(poster->post(QStringLiteral("zq.tarvel.debug-window-request"), userInfo));

        QTRY_COMPARE(posted.size(), 2);
        QCOMPARE(posted.at(0).at(0).toString(), QStringLiteral("zq.tarvel.request-created"));
        QCOMPARE(posted.at(0).at(1).value<DistributedNotificationUserInfo>(),
                 DistributedNotificationUserInfo());
        QCOMPARE(posted.at(1).at(0).toString(), QStringLiteral("zq.tarvel.debug-window-request"));
        QCOMPARE(posted.at(1).at(1).value<DistributedNotificationUserInfo>(), userInfo);
    }

    void signalsOffTheContractAreIgnored()
    {
        const auto observer = DistributedNotificationObserver::create();
        QVERIFY(observer->observe(QStringLiteral("zq.tarvel.request-created")));
        QSignalSpy posted(observer.get(), &DistributedNotificationObserver::notificationPosted);

        QDBusConnection other = otherClient();
        // Missing user info, and user info of the wrong type.
        QDBusMessage bare = QDBusMessage::createSignal(DBusContract::objectPath, DBusContract::interfaceName,
                                                       DBusContract::postedSignal);
        bare << QStringLiteral("zq.tarvel.request-created");
        QVERIFY(other.send(bare));
        QDBusMessage wrongType = QDBusMessage::createSignal(
            DBusContract::objectPath, DBusContract::interfaceName, DBusContract::postedSignal);
        wrongType << QStringLiteral("zq.tarvel.request-created") << QStringLiteral("not a dictionary");
        QVERIFY(other.send(wrongType));
        // A well-formed one afterwards proves the others were delivered and dropped.
        QDBusMessage good = QDBusMessage::createSignal(DBusContract::objectPath, DBusContract::interfaceName,
                                                       DBusContract::postedSignal);
        DBusContract::registerTypes();
        good << QStringLiteral("zq.tarvel.request-created")
             << QVariant::fromValue(DistributedNotificationUserInfo());
        QVERIFY(other.send(good));

        QTRY_COMPARE(posted.size(), 1);
        QTest::qWait(100);
        QCOMPARE(posted.size(), 1);
    }

    void applicationPresenceFollowsTheBusName()
    {
        const auto watcher = RunningApplicationWatcher::create();
        QVERIFY(watcher->canObserve());
        QVERIFY(!watcher->isRunning());
        QSignalSpy launched(watcher.get(), &RunningApplicationWatcher::applicationDidLaunch);
        QSignalSpy terminated(watcher.get(), &RunningApplicationWatcher::applicationDidTerminate);

        QDBusConnection application = otherClient();
        QVERIFY(application.registerService(DBusContract::serviceName));
        QTRY_COMPARE(launched.size(), 1);
        QVERIFY(watcher->isRunning());
        // A second copy cannot take the name while the first holds it.
        QVERIFY(!QDBusConnection::sessionBus().registerService(DBusContract::serviceName));

        QVERIFY(application.unregisterService(DBusContract::serviceName));
        QTRY_COMPARE(terminated.size(), 1);
        QVERIFY(!watcher->isRunning());
        QCOMPARE(launched.size(), 1);
    }
};

QTEST_GUILESS_MAIN(DBusPlatformTest)
#include "tst_dbus_platform.moc"
