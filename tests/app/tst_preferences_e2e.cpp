// The preferences window of the real tarvel on the headless desktop: opened from the tray menu,
// measured by the window probe, and changing what an open scratch composer offers at once. Runs
// inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"

#include "core/UserDefaults.h"
#include "preferences/PreferencesWindow.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/keygrabber/KeyGrabberProcess.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QScrollArea>
#include <QScrollBar>
#include <QTemporaryDir>

using namespace desktop_test;

namespace {
QString preferencesWindowOf(const Application &app)
{
    return app.window([](const QString &id) {
        return xdotool({u"getwindowname"_s, id}).startsWith(u"Preferences");
    });
}

// Where the preferences window's controls sit: the same window is built in this process at the
// real one's size (same display, style and fonts) and measured, like the tray menu's rows. The
// real one is activated for what comes.
class MeasuredPreferences final {
public:
    explicit MeasuredPreferences(const QString &realWindow)
        : m_origin(geometry(realWindow))
    {
        activate(realWindow);
        m_window.setAttribute(Qt::WA_DontShowOnScreen); // laid out, never mapped
        m_window.resize(m_origin.width, m_origin.height);
        m_window.show();
        QCoreApplication::processEvents();
    }

    // Scrolls both windows to their top or end, with the wheel over the real one's scroll bar (over
    // the content a wheel would turn pop-ups). At either end the measured positions hold even where
    // the content differs further away.
    void scroll(bool toEnd) const
    {
        QScrollBar *bar = m_window.findChild<QScrollArea *>()->verticalScrollBar();
        bar->setValue(toEnd ? bar->maximum() : 0);
        const QPoint overBar = bar->mapTo(&m_window, bar->rect().center());
        xdotool({u"mousemove"_s, QString::number(m_origin.x + overBar.x()),
                 QString::number(m_origin.y + overBar.y()), u"click"_s, u"--repeat"_s, u"40"_s, u"--delay"_s,
                 u"5"_s, toEnd ? u"5"_s : u"4"_s});
        QTest::qWait(300);
    }

    // Clicks the centre of the named control in the real window.
    void click(const QString &objectName) const
    {
        const auto *widget = m_window.findChild<QWidget *>(objectName);
        QVERIFY2(widget, qPrintable(objectName));
        const QPoint centre = widget->mapTo(&m_window, widget->rect().center());
        desktop_test::click(m_origin.x + centre.x(), m_origin.y + centre.y());
    }

private:
    Geometry m_origin;
    QTemporaryDir m_folder;
    UserDefaults m_defaults{m_folder.filePath(u"Tarvel.conf"_s)};
    KeyboardShortcuts m_shortcuts{m_defaults};
    PreferencesWindow m_window{m_defaults, m_shortcuts, nullptr};
};

// The key code stored for the system-wide shortcut, -1 for none.
int storedScratchShortcutKeyCode(const Application &app)
{
    const QString text = app.setting(u"KeyboardShortcuts_openScratchComposer"_s).toString();
    return QJsonDocument::fromJson(text.toUtf8())[u"carbonKeyCode"].toInt(-1);
}

constexpr int kKeyCodeJ = 0x26;
constexpr int kKeyCodeK = 0x28;

} // namespace

class PreferencesEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        m_app = std::make_unique<Application>(m_root.path(), m_fakes);
        m_app->setSetting(u"PreferencesWindowContentSize"_s, u"{640, 740}"_s);
        m_app->start();
    }

    // The tray's "Preferences…" opens the window at its remembered size; the probe then answers
    // with its frame, which is the client area xwininfo sees plus the window manager's frame.
    void trayOpensThePreferencesAndTheProbeMeasuresThem()
    {
        m_app->chooseFromMenu(2); // Preferences…
        const QString window = waitForWindow([this] { return preferencesWindowOf(*m_app); });
        QTRY_COMPARE_WITH_TIMEOUT(geometry(window).rect().size(), QSize(640, 740), 5000);
        QTest::qWait(300);
        screenshot(u"preferences"_s, window);

        const QString answer = m_root.filePath(u"frame.json"_s);
        requestFrame(u"preferences"_s, answer);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answer), 5000);
        const QByteArray json = readFile(answer);
        QVERIFY2(json.startsWith("{\"target\":\"preferences\",\"windowNumber\":"), json.constData());
        const QJsonObject response = QJsonDocument::fromJson(json).object();
        QCOMPARE(response.value(u"windowNumber").toInteger(), window.toLongLong());
        QCOMPARE(rectOf(response.value(u"contentFrame")), geometry(window).rect());
        QVERIFY(frameGeometry(window) != geometry(window).rect()); // openbox's frame is around it
        QCOMPARE(rectOf(response.value(u"frame")), frameGeometry(window));
        QCOMPARE(rectOf(response.value(u"screenVisibleFrame")), QRect(0, 28, 1280, 772)); // below the tray
        // An unknown target is not answered.
        const QString unknown = m_root.filePath(u"unknown.json"_s);
        requestFrame(u"errors"_s, unknown);
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
        const MeasuredPreferences measured(window);
        measured.click(u"BackendPopup"_s);
        QTest::qWait(300);
        key(u"Escape"_s); // the list the click opened
        key(u"Down"_s);   // Claude
        key(u"Down"_s);   // OpenCode
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(m_fakes.recordPath(u"opencode.version-answered"_s)), 10000);
        measured.click(u"AddPreset"_s);
        QTest::qWait(500);

        activate(composer);
        type(u"with the added preset"_s);
        key(u"ctrl+3"_s);
        key(u"ctrl+Return"_s);
        const QStringList arguments = m_fakes.nextArguments(u"opencode"_s);
        QVERIFY2(!arguments.isEmpty(), "opencode did not run");
        QCOMPARE(arguments.constLast(), u"with the added preset"_s);
        QCOMPARE(arguments.at(arguments.indexOf(u"--variant"_s) + 1), u"medium"_s);
    }

    // The summary sits at the foot of the preferences and its button opens the permissions window.
    void permissionsOpenFromThePreferences()
    {
        const QString window = preferencesWindowOf(*m_app);
        const MeasuredPreferences measured(window);
        measured.scroll(true);
        screenshot(u"preferences-end"_s, window);
        measured.click(u"OpenPermissions"_s);
        const QString permissions = waitForWindow([&] {
            return m_app->otherWindow({window, m_app->composerWindow()});
        });
        QVERIFY(xdotool({u"getwindowname"_s, permissions}).startsWith(u"Permissions"));
        QTest::qWait(300);
        screenshot(u"permissions"_s, permissions);
        activate(permissions);
        key(u"ctrl+w"_s);
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
            const MeasuredPreferences measured(window);
            measured.scroll(false);
            measured.click(u"GlobalShortcutRecorder"_s);
            QTest::qWait(300);
            key(keys);
            QTest::qWait(300);
        };
        Xterm xterm;
        xterm.start(u"xterm"_s, {u"-title"_s, u"hot key test"_s});
        QVERIFY(xterm.waitForStarted());
        const QString terminal = waitForWindow([&] { return xterm.window(); });
        const auto pressInTerminal = [&](const QString &keys) {
            activate(terminal);
            QTest::qWait(200);
            key(keys);
        };
        const auto expectComposer = [&](bool expected) {
            if (expected) {
                m_app->waitForComposer();
                key(u"Escape"_s);
                QTRY_VERIFY_WITH_TIMEOUT(m_app->composerWindow().isEmpty(), 5000);
            } else {
                QTest::qWait(1000);
                QVERIFY(m_app->composerWindow().isEmpty());
            }
        };

        record(u"ctrl+alt+k"_s);
        QCOMPARE(storedScratchShortcutKeyCode(*m_app), kKeyCodeK);
        pressInTerminal(u"ctrl+alt+k"_s);
        expectComposer(true);

        record(u"ctrl+alt+j"_s);
        QCOMPARE(storedScratchShortcutKeyCode(*m_app), kKeyCodeJ);
        pressInTerminal(u"ctrl+alt+k"_s);
        expectComposer(false);
        pressInTerminal(u"ctrl+alt+j"_s);
        expectComposer(true);

        KeyGrabberProcess other(u"l"_s, u"ctrl,alt"_s);
        QVERIFY(other.grabbed());
        record(u"ctrl+alt+l"_s);
        screenshot(u"preferences-shortcut-conflict"_s, window);
        QCOMPARE(storedScratchShortcutKeyCode(*m_app), kKeyCodeJ);
        QVERIFY(readFile(m_app->dataFolder() + u"/Errors/errors.json"_s)
                    .contains("Ctrl+Alt+L is already used by another application."));
        key(u"Escape"_s); // ends the recording
        pressInTerminal(u"ctrl+alt+j"_s);
        expectComposer(true);
    }

    // A size the user gives the window is stored and comes back when the window opens again, here
    // for the window probe.
    void resizedWindowIsRememberedAndRestored()
    {
        const QString window = preferencesWindowOf(*m_app);
        activate(window);
        xdotool({u"windowsize"_s, window, u"700"_s, u"600"_s});
        QTRY_COMPARE_WITH_TIMEOUT(m_app->setting(u"PreferencesWindowContentSize"_s).toString(),
                                  u"{700, 600}"_s, 5000);
        key(u"ctrl+w"_s);
        QTRY_VERIFY_WITH_TIMEOUT(preferencesWindowOf(*m_app).isEmpty(), 5000);
        // The probe opens a closed window.
        const QString answer = m_root.filePath(u"reopened.json"_s);
        requestFrame(u"preferences"_s, answer);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answer), 10000);
        QCOMPARE(geometry(preferencesWindowOf(*m_app)).rect().size(), QSize(700, 600));
    }

private:
    QTemporaryDir m_root;
    FakeBackends m_fakes;
    std::unique_ptr<Application> m_app;
};

QTEST_MAIN(PreferencesEndToEndTest)
#include "tst_preferences_e2e.moc"
