// The Linux answers: the notification server on a real session bus with Tarvel's own switch, the
// recogniser's answers, and which settings programs are tried, in which order.
#include "FakePermissionPlatform.h"
#include "platform/linux/LinuxPermissionPlatform.h"
#include "support/FakeSpeechRecognizer.h"

#include <QDBusConnection>
#include <QtTest>

using namespace Qt::StringLiterals;
using Access = PlatformPermissionState::Access;
using Page = PermissionSettingsPage;

namespace {

// Settings programs are "installed" under /opt/bin when listed; those in `starting` start.
struct Fixture {
    FakeSpeechRecognizer recognizer;
    bool switchOn = true;
    QStringList installed, starting, launched;
    LinuxPermissionPlatform platform{
        recognizer,
        {[this] { return switchOn; },
         [this] {
             switchOn = true;
         }},
        [this](const QString &program) {
            return installed.contains(program) ? u"/opt/bin/"_s + program : QString();
        },
        [this](const SettingsCommand &command) {
            launched.append((QStringList{command.program.mid(9)} + command.arguments).join(u' '));
            return starting.contains(command.program.mid(9));
        }};
};

} // namespace

class LinuxPermissionPlatformTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void notificationsNeedServerAndSwitchSpeechItsModel()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        QVERIFY2(bus.isConnected(), "the test runs inside dbus-run-session");
        Fixture fixture;
        QCOMPARE(awaited(fixture.platform.notificationAuthorizationStatus()).result().access, Access::denied);

        QVERIFY(bus.registerService(u"org.freedesktop.Notifications"_s));
        QCOMPARE(awaited(fixture.platform.notificationAuthorizationStatus()).result().access,
                 Access::authorized);
        fixture.switchOn = false;
        QCOMPARE(awaited(fixture.platform.notificationAuthorizationStatus()).result().access, Access::denied);
        awaited(fixture.platform.requestNotificationsAuthorization());
        QCOMPARE(awaited(fixture.platform.notificationAuthorizationStatus()).result().access,
                 Access::authorized);
        QVERIFY(bus.unregisterService(u"org.freedesktop.Notifications"_s));

        // Speech recognition needs its model, and its settings page says how to get it.
        fixture.recognizer.unavailable = u"Install pocketsphinx-en-us."_s;
        QCOMPARE(fixture.platform.speechRecognitionState().access, Access::denied);
        QCOMPARE(awaited(fixture.platform.openSettings(Page::speechRecognition)).result(),
                 fixture.recognizer.unavailable);
    }

    // The settings programs tried for each page, in order, until one starts; where none does, the
    // user is told where to look.
    void settingsPrograms()
    {
        const QStringList every{u"xfce4-settings-manager"_s, u"pavucontrol"_s,    u"systemsettings5"_s,
                                u"gnome-control-center"_s,   u"systemsettings"_s, u"xfce4-notifyd-config"_s};
        for (const auto &[page, installed, starting, tried] :
             {std::tuple{Page::notifications, every, QString(),
                         QStringList{u"gnome-control-center notifications"_s,
                                     u"systemsettings kcm_notifications"_s,
                                     u"systemsettings5 kcm_notifications"_s, u"xfce4-notifyd-config"_s,
                                     u"xfce4-settings-manager"_s}},
              std::tuple{Page::notifications, QStringList{u"xfce4-settings-manager"_s, u"systemsettings5"_s},
                         u"systemsettings5"_s, QStringList{u"systemsettings5 kcm_notifications"_s}},
              std::tuple{Page::microphone, every, u"pavucontrol"_s,
                         QStringList{u"gnome-control-center sound"_s, u"systemsettings kcm_pulseaudio"_s,
                                     u"systemsettings5 kcm_pulseaudio"_s, u"pavucontrol"_s}},
              std::tuple{Page::screenRecording, every, QString(), QStringList()},
              std::tuple{Page::filesAndFolders, every, QString(), QStringList()}}) {
            Fixture fixture;
            fixture.installed = installed;
            fixture.starting = {starting};
            const QString whereToLook = awaited(fixture.platform.openSettings(page)).result();
            QCOMPARE(fixture.launched, tried);
            QCOMPARE(whereToLook, starting.isEmpty() ? LinuxSettingsPages::whereToLook(page) : QString());
            QVERIFY(starting.isEmpty() != whereToLook.isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(LinuxPermissionPlatformTest)
#include "tst_linuxpermissionplatform.moc"
