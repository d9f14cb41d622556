// The preferences window of the real tarvel on the headless desktop: opened from the tray menu,
// measured by the window probe, and changing what an open scratch composer offers at once. Runs
// inside tests/e2e/desktop-session.sh.
#include "PreferencesGeometry.h"
#include "support/keygrabber/KeyGrabberProcess.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

using namespace desktop_test;

namespace {

QRect rectOf(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    return QRect(object.value(u"x").toInt(), object.value(u"y").toInt(), object.value(u"width").toInt(),
                 object.value(u"height").toInt());
}

// left, right, top, bottom
QList<int> frameExtents(const QString &window)
{
    const QString line =
        run(QStringLiteral("xprop"), {QStringLiteral("-id"), window, QStringLiteral("_NET_FRAME_EXTENTS")});
    QList<int> extents;
    for (const QString &part : line.section(u'=', 1).split(u',', Qt::SkipEmptyParts))
        extents.append(part.trimmed().toInt());
    return extents;
}

// What an outside tool does to learn where a window is.
void requestFrame(const QString &target, const QString &answerPath)
{
    run(QStringLiteral("dbus-send"),
        {QStringLiteral("--session"), QStringLiteral("--type=signal"), QStringLiteral("/zq/tarvel"),
         QStringLiteral("zq.tarvel.DistributedNotifications.Posted"),
         QStringLiteral("string:zq.tarvel.debug-window-request"),
         QStringLiteral("dict:string:string:target,%1,response,%2").arg(target, answerPath)});
}

// The key code stored for the system-wide shortcut, -1 for none.
int storedScratchShortcutKeyCode(const Application &app)
{
    const QString text = QSettings(app.settingsFile(), QSettings::IniFormat)
                             .value(QStringLiteral("KeyboardShortcuts_openScratchComposer"))
                             .toString();
    return QJsonDocument::fromJson(text.toUtf8()).object().value(u"carbonKeyCode").toInt(-1);
}

constexpr int kKeyCodeJ = 0x26;
constexpr int kKeyCodeK = 0x28;

} // namespace

class PreferencesEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        QVERIFY(m_root.isValid());
        m_app = std::make_unique<Application>(
            m_root.path(), m_fakes,
            QMap<QString, QString>{{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")},
                                   {QStringLiteral("FAKE_OPENCODE_VERSION_DELAY"), QStringLiteral("0.1")}});
        QSettings(m_app->settingsFile(), QSettings::IniFormat)
            .setValue(QStringLiteral("PreferencesWindowContentSize"), QStringLiteral("{640, 740}"));
        m_app->start();
    }

    // The tray's "Preferences…" opens the window at its remembered size; the probe then answers
    // with its frame, which is the client area xwininfo sees plus the window manager's frame.
    void trayOpensThePreferencesAndTheProbeMeasuresThem()
    {
        m_app->openMenu();
        key(QStringLiteral("Down")); // Quick Tasks
        key(QStringLiteral("Down")); // Preferences…
        key(QStringLiteral("Return"));
        QTRY_VERIFY_WITH_TIMEOUT(!preferencesWindowOf(*m_app).isEmpty(), 10000);
        const QString window = preferencesWindowOf(*m_app);
        QTRY_COMPARE_WITH_TIMEOUT(geometry(window).width, 640, 5000);
        QCOMPARE(geometry(window).height, 740);
        QTest::qWait(300);
        screenshot(QStringLiteral("preferences"), window);

        const QString answer = m_root.filePath(QStringLiteral("frame.json"));
        requestFrame(QStringLiteral("preferences"), answer);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answer), 5000);
        const QByteArray json = readFile(answer);
        QVERIFY2(json.startsWith("{\"target\":\"preferences\",\"windowNumber\":"), json.constData());
        const QJsonObject response = QJsonDocument::fromJson(json).object();
        QCOMPARE(response.value(u"windowNumber").toInteger(), window.toLongLong());
        const Geometry client = geometry(window);
        QCOMPARE(rectOf(response.value(u"contentFrame")),
                 QRect(client.x, client.y, client.width, client.height));
        const QList<int> extents = frameExtents(window);
        QCOMPARE(extents.size(), 4);
        QCOMPARE(rectOf(response.value(u"frame")),
                 QRect(client.x - extents[0], client.y - extents[2], client.width + extents[0] + extents[1],
                       client.height + extents[2] + extents[3]));
        QCOMPARE(rectOf(response.value(u"screenVisibleFrame")), QRect(0, 28, 1280, 772)); // below the tray
        // An unknown target is not answered.
        const QString unknown = m_root.filePath(QStringLiteral("unknown.json"));
        requestFrame(QStringLiteral("errors"), unknown);
        QTest::qWait(500);
        QVERIFY(!QFile::exists(unknown));
    }

    // Another backend and an added preset reach an open scratch composer without reopening it: the
    // new third preset (OpenCode adds one with medium thinking) runs the task.
    void backendAndPresetChangesReachAnOpenComposer()
    {
        const QString composer = m_app->openReadyComposer();
        const QString window = preferencesWindowOf(*m_app);
        QVERIFY(!window.isEmpty());
        activate(window);
        const MeasuredPreferences measured(window);
        measured.click(QStringLiteral("BackendPopup"));
        QTest::qWait(300);
        key(QStringLiteral("Escape")); // the list the click opened
        key(QStringLiteral("Down"));   // Claude
        key(QStringLiteral("Down"));   // OpenCode
        QTRY_VERIFY_WITH_TIMEOUT(
            QFile::exists(m_fakes.recordPath(QStringLiteral("opencode.version-answered"))), 10000);
        measured.click(QStringLiteral("AddPreset"));
        QTest::qWait(500);

        activate(composer);
        type(QStringLiteral("with the added preset"));
        key(QStringLiteral("ctrl+3"));
        key(QStringLiteral("ctrl+Return"));
        const QStringList arguments = m_fakes.nextArguments(QStringLiteral("opencode"));
        QVERIFY2(!arguments.isEmpty(), "opencode did not run");
        QCOMPARE(arguments.constLast(), QStringLiteral("with the added preset"));
        QCOMPARE(arguments.at(arguments.indexOf(QStringLiteral("--variant")) + 1), QStringLiteral("medium"));
    }

    // The summary sits at the foot of the preferences and its button opens the permissions window.
    void permissionsOpenFromThePreferences()
    {
        const QString window = preferencesWindowOf(*m_app);
        activate(window);
        const MeasuredPreferences measured(window);
        measured.scroll(true);
        screenshot(QStringLiteral("preferences-end"), window);
        measured.click(QStringLiteral("OpenPermissions"));
        QString permissions;
        QTRY_VERIFY_WITH_TIMEOUT(
            !(permissions = m_app->otherWindow({window, m_app->composerWindow()})).isEmpty(), 10000);
        QVERIFY(xdotool({QStringLiteral("getwindowname"), permissions}).startsWith(u"Permissions"));
        QTest::qWait(300);
        screenshot(QStringLiteral("permissions"), permissions);
        activate(permissions);
        key(QStringLiteral("ctrl+w"));
        QTRY_VERIFY_WITH_TIMEOUT(m_app->otherWindow({window}).isEmpty(), 5000);
    }

    // A shortcut recorded with real key presses opens a scratch composer while an xterm has the
    // keyboard; one recorded over it replaces it at once. A combination another client holds is
    // refused in the recorder and written to the error log, and the earlier one stays.
    void recordedShortcutWorksFromAnXtermAndAConflictIsReported()
    {
        const QString window = preferencesWindowOf(*m_app);
        QVERIFY(!window.isEmpty());
        const auto record = [&](const QString &keys) {
            activate(window);
            const MeasuredPreferences measured(window);
            measured.scroll(false);
            measured.click(QStringLiteral("GlobalShortcutRecorder"));
            QTest::qWait(300);
            key(keys);
            QTest::qWait(300);
        };
        QProcess xterm;
        xterm.start(QStringLiteral("xterm"), {QStringLiteral("-title"), QStringLiteral("hot key test")});
        QVERIFY(xterm.waitForStarted());
        QString terminal;
        QTRY_VERIFY_WITH_TIMEOUT(!(terminal = windowsOf(xterm.processId()).value(0)).isEmpty(), 10000);
        const auto pressInTerminal = [&](const QString &keys) {
            activate(terminal);
            QTest::qWait(200);
            key(keys);
        };
        const auto expectComposer = [&](bool expected) {
            if (expected) {
                m_app->waitForComposer();
                key(QStringLiteral("Escape"));
                QTRY_VERIFY_WITH_TIMEOUT(m_app->composerWindow().isEmpty(), 5000);
            } else {
                QTest::qWait(1000);
                QVERIFY(m_app->composerWindow().isEmpty());
            }
        };

        record(QStringLiteral("ctrl+alt+k"));
        QCOMPARE(storedScratchShortcutKeyCode(*m_app), kKeyCodeK);
        pressInTerminal(QStringLiteral("ctrl+alt+k"));
        expectComposer(true);

        record(QStringLiteral("ctrl+alt+j"));
        QCOMPARE(storedScratchShortcutKeyCode(*m_app), kKeyCodeJ);
        pressInTerminal(QStringLiteral("ctrl+alt+k"));
        expectComposer(false);
        pressInTerminal(QStringLiteral("ctrl+alt+j"));
        expectComposer(true);

        KeyGrabberProcess other(QStringLiteral("l"), QStringLiteral("ctrl,alt"));
        QVERIFY(other.grabbed());
        record(QStringLiteral("ctrl+alt+l"));
        screenshot(QStringLiteral("preferences-shortcut-conflict"), window);
        QCOMPARE(storedScratchShortcutKeyCode(*m_app), kKeyCodeJ);
        QVERIFY(readFile(m_app->dataFolder() + QStringLiteral("/Errors/errors.json"))
                    .contains("Ctrl+Alt+L is already used by another application."));
        key(QStringLiteral("Escape")); // ends the recording
        pressInTerminal(QStringLiteral("ctrl+alt+j"));
        expectComposer(true);
        xterm.kill();
        xterm.waitForFinished();
    }

    // A size the user gives the window is stored and comes back when the window opens again, here
    // for the window probe.
    void resizedWindowIsRememberedAndRestored()
    {
        const QString window = preferencesWindowOf(*m_app);
        activate(window);
        xdotool({QStringLiteral("windowsize"), window, QStringLiteral("700"), QStringLiteral("600")});
        QTRY_COMPARE_WITH_TIMEOUT(QSettings(m_app->settingsFile(), QSettings::IniFormat)
                                      .value(QStringLiteral("PreferencesWindowContentSize"))
                                      .toString(),
                                  QStringLiteral("{700, 600}"), 5000);
        key(QStringLiteral("ctrl+w"));
        QTRY_VERIFY_WITH_TIMEOUT(preferencesWindowOf(*m_app).isEmpty(), 5000);
        // The probe opens a closed window.
        const QString answer = m_root.filePath(QStringLiteral("reopened.json"));
        requestFrame(QStringLiteral("preferences"), answer);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answer), 10000);
        QCOMPARE(geometry(preferencesWindowOf(*m_app)).width, 700);
        QCOMPARE(geometry(preferencesWindowOf(*m_app)).height, 600);
    }

private:
    QTemporaryDir m_root;
    FakeBackends m_fakes;
    std::unique_ptr<Application> m_app;
};

QTEST_MAIN(PreferencesEndToEndTest)
#include "tst_preferences_e2e.moc"
