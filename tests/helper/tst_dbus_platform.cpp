// The Posted signal contract of the Linux platform services on a real session bus. (The
// application's presence on the bus is driven end to end by tst_helper_e2e.)
#include "platform/DistributedNotificationObserver.h"
#include "platform/DistributedNotificationPoster.h"
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
    // Only the observed names arrive, with their user info; signals off the contract (no user
    // info, or user info of the wrong type) from another client are dropped.
    void postedNotificationsReachObserversOfTheirName()
    {
        const auto observer = DistributedNotificationObserver::create();
        QVERIFY(observer->observe(QStringLiteral("zq.tarvel.request-created")));
        QVERIFY(observer->observe(QStringLiteral("zq.tarvel.debug-window-request")));
        QSignalSpy posted(observer.get(), &DistributedNotificationObserver::notificationPosted);

        QDBusConnection other = otherClient();
        const auto signal = [] {
            return QDBusMessage::createSignal(DBusContract::objectPath, DBusContract::interfaceName,
                                              DBusContract::postedSignal);
        };
        QVERIFY(other.send(signal() << QStringLiteral("zq.tarvel.request-created")));
        QVERIFY(other.send(signal() << QStringLiteral("zq.tarvel.request-created")
                                    << QStringLiteral("not a dictionary")));
        // A call answered means the bus has passed those signals on, ahead of the ones below.
        other.call(QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
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
        QTest::qWait(100);
        QCOMPARE(posted.size(), 2);
    }
};

QTEST_GUILESS_MAIN(DBusPlatformTest)
#include "tst_dbus_platform.moc"
