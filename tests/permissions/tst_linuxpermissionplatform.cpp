// The Linux answers: the notification server on a real session bus with Tarvel's own switch, the
// recogniser's answers, and which settings programs are tried, in which order.
#include "FakePermissionPlatform.h"
#include "platform/SpeechRecognizer.h"
#include "platform/linux/LinuxPermissionPlatform.h"

#include <QDBusConnection>
#include <QtTest>

using namespace Qt::StringLiterals;
using Access = PlatformPermissionState::Access;
using Page = PermissionSettingsPage;

Q_DECLARE_METATYPE(Page)

namespace {

class FakeSpeechRecognizer final : public SpeechRecognizer {
public:
    Access speech = Access::authorized;
    Access microphone = Access::authorized;
    QString reason;

    Access speechRecognitionAccess() const override { return speech; }
    Access microphoneAccess() const override { return microphone; }
    void requestSpeechRecognitionAccess(std::function<void(bool)> answer) override { answer(true); }
    void requestMicrophoneAccess(std::function<void(bool)> answer) override { answer(true); }
    QString unavailableReason() const override { return reason; }
    void start() override {}
    void finishAudio() override {}
    void cancel() override {}
};

struct Fixture {
    FakeSpeechRecognizer recognizer;
    bool switchOn = true;
    QStringList installed;
    // Programs that start; the others fail to.
    QStringList starting;
    QStringList launched;
    LinuxPermissionPlatform platform{
        recognizer,
        {[this] { return switchOn; },
         [this] {
             switchOn = true;
         }},
        [this](const QString &program) {
            return installed.contains(program) ? u"/usr/bin/"_s + program : QString();
        },
        [this](const SettingsCommand &command) {
            launched.append((QStringList{command.program} + command.arguments).join(u' '));
            return starting.contains(QFileInfo(command.program).fileName());
        }};
};

const QStringList everySettingsProgram{u"gnome-control-center"_s,   u"systemsettings"_s,
                                       u"systemsettings5"_s,        u"xfce4-notifyd-config"_s,
                                       u"xfce4-settings-manager"_s, u"pavucontrol"_s};

} // namespace

class LinuxPermissionPlatformTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void notificationsNeedServerAndSwitch()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        QVERIFY2(bus.isConnected(), "the test runs inside dbus-run-session");
        Fixture fixture;

        PlatformPermissionState state = awaited(fixture.platform.notificationState()).result();
        QCOMPARE(state.access, Access::denied);
        QVERIFY(state.note.contains(u"No notification server"_s));

        QVERIFY(bus.registerService(u"org.freedesktop.Notifications"_s));
        state = awaited(fixture.platform.notificationState()).result();
        QCOMPARE(state.access, Access::authorized);
        QVERIFY(state.note.isEmpty());

        fixture.switchOn = false;
        state = awaited(fixture.platform.notificationState()).result();
        QCOMPARE(state.access, Access::denied);
        QVERIFY(state.note.contains(u"turned off"_s));

        awaited(fixture.platform.requestNotifications());
        QVERIFY(fixture.switchOn);
        QCOMPARE(awaited(fixture.platform.notificationState()).result().access, Access::authorized);
        QVERIFY(bus.unregisterService(u"org.freedesktop.Notifications"_s));
    }

    void speechNeedsItsModel()
    {
        Fixture fixture;
        QCOMPARE(fixture.platform.speechRecognitionState().access, Access::authorized);
        fixture.recognizer.reason = u"Install pocketsphinx-en-us."_s;
        const PlatformPermissionState state = fixture.platform.speechRecognitionState();
        QCOMPARE(state.access, Access::denied);
        QCOMPARE(state.note, fixture.recognizer.reason);
        QCOMPARE(awaited(fixture.platform.openSettings(Page::speechRecognition)).result(),
                 fixture.recognizer.reason);

        fixture.recognizer.microphone = SpeechRecognizer::Access::denied;
        QCOMPARE(fixture.platform.microphoneState().access, Access::denied);
        QVERIFY(!fixture.platform.microphoneState().note.isEmpty());
    }

    void settingsCandidates_data()
    {
        QTest::addColumn<Page>("page");
        QTest::addColumn<QStringList>("installed");
        QTest::addColumn<QStringList>("candidates");

        QTest::newRow("notifications, all installed")
            << Page::notifications << everySettingsProgram
            << QStringList{u"gnome-control-center notifications"_s, u"systemsettings kcm_notifications"_s,
                           u"systemsettings5 kcm_notifications"_s, u"xfce4-notifyd-config"_s,
                           u"xfce4-settings-manager"_s};
        QTest::newRow("notifications, Plasma 5 and Xfce")
            << Page::notifications << QStringList{u"xfce4-settings-manager"_s, u"systemsettings5"_s}
            << QStringList{u"systemsettings5 kcm_notifications"_s, u"xfce4-settings-manager"_s};
        QTest::newRow("microphone, all installed")
            << Page::microphone << everySettingsProgram
            << QStringList{u"gnome-control-center sound"_s, u"systemsettings kcm_pulseaudio"_s,
                           u"systemsettings5 kcm_pulseaudio"_s, u"pavucontrol"_s};
        QTest::newRow("microphone, Xfce")
            << Page::microphone << everySettingsProgram.sliced(3) << QStringList{u"pavucontrol"_s};
        QTest::newRow("notifications, none installed")
            << Page::notifications << QStringList() << QStringList();
        for (Page page : {Page::speechRecognition, Page::screenRecording, Page::filesAndFolders})
            QTest::addRow("nothing grants page %d", int(page))
                << page << everySettingsProgram << QStringList();
    }

    void settingsCandidates()
    {
        QFETCH(Page, page);
        QFETCH(QStringList, installed);
        QStringList found;
        const auto lookup = [&](const QString &program) {
            return installed.contains(program) ? u"/opt/bin/"_s + program : QString();
        };
        for (const SettingsCommand &command : LinuxSettingsPages::candidates(page, lookup)) {
            QVERIFY(command.program.startsWith(u"/opt/bin/"_s));
            found.append((QStringList{QFileInfo(command.program).fileName()} + command.arguments).join(u' '));
        }
        QTEST(found, "candidates");
    }

    void openSettingsFallsThroughToWhereToLook()
    {
        Fixture fixture;
        fixture.installed = {u"gnome-control-center"_s, u"systemsettings5"_s, u"pavucontrol"_s};
        fixture.starting = {u"pavucontrol"_s};
        QCOMPARE(awaited(fixture.platform.openSettings(Page::microphone)).result(), QString());
        QCOMPARE(fixture.launched,
                 (QStringList{u"/usr/bin/gnome-control-center sound"_s,
                              u"/usr/bin/systemsettings5 kcm_pulseaudio"_s, u"/usr/bin/pavucontrol"_s}));

        fixture.launched.clear();
        fixture.starting.clear();
        const QString whereToLook = awaited(fixture.platform.openSettings(Page::microphone)).result();
        QCOMPARE(fixture.launched.size(), 3);
        QCOMPARE(whereToLook, LinuxSettingsPages::whereToLook(Page::microphone));
        QVERIFY(!whereToLook.isEmpty());
    }
};

QTEST_GUILESS_MAIN(LinuxPermissionPlatformTest)
#include "tst_linuxpermissionplatform.moc"
