// Tarvel as a native Wayland client, in the sessions of tests/e2e/desktop-session.sh --wayland. Under
// sway the IPC tree says where each window is, whether it floats and which has the keyboard, and
// wtype types; under weston, weston-debug prints the scene graph and keys come through its X11 back
// end. foot runs tarvel-edit, which starts Tarvel as on a first use.
#include "DesktopTestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace desktop_test;

namespace {

QString shell(const QString &command)
{
    return run(u"sh"_s, {u"-c"_s, command});
}

// The first window of sway's layout tree that is wanted, or an empty object.
QJsonObject swayWindow(const std::function<bool(const QJsonObject &)> &wanted, QJsonObject node = {})
{
    if (node.isEmpty())
        node = QJsonDocument::fromJson(shell(u"swaymsg -t get_tree"_s).toUtf8()).object();
    if (node.contains(u"pid") && wanted(node))
        return node;
    for (const QString &children : {u"nodes"_s, u"floating_nodes"_s}) {
        for (const QJsonValue &child : node.value(children).toArray()) {
            if (const QJsonObject found = swayWindow(wanted, child.toObject()); !found.isEmpty())
                return found;
        }
    }
    return {};
}

std::function<bool(const QJsonObject &)> titled(const QString &title)
{
    return [title](const QJsonObject &window) {
        return window.value(u"name").toString().startsWith(title);
    };
}

void waylandScreenshot(const QString &name)
{
    QDir().mkpath(kArtifacts);
    const bool sway = qEnvironmentVariable("TARVEL_WAYLAND_COMPOSITOR") == u"sway";
    shell((sway ? u"grim '%1/%2.png'"_s : u"import -window root '%1/%2.png'"_s).arg(kArtifacts, name));
}

// foot runs tarvel-edit on prompt.txt as an assistant runs its editor, then reads a line from the
// keyboard into "after": proof that the keyboard came back to the terminal.
struct FootWithHelper final : QProcess {
    FootWithHelper(const QTemporaryDir &root, const Application &app)
    {
        writeFile(root.filePath(u"prompt.txt"_s), "Draft:");
        setProcessEnvironment(app.environment());
        start(u"foot"_s,
              {u"sh"_s, u"-c"_s,
               QStringLiteral(
                   "cd '%1'; '%2' prompt.txt; echo $? > status; read line; echo $line > after; sleep 600")
                   .arg(root.path(), kTarvelEdit)});
        waitForStarted();
    }
    ~FootWithHelper() override
    {
        kill();
        waitForFinished();
    }
};

} // namespace

class WaylandEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        // One program for both sessions: each case runs under the compositor its name ends with.
        const QString compositor = qEnvironmentVariable("TARVEL_WAYLAND_COMPOSITOR");
        if (compositor.isEmpty() ||
            !QString::fromLatin1(QTest::currentTestFunction()).endsWith(compositor, Qt::CaseInsensitive))
            QSKIP("This case runs in the other compositor's session.");
    }

    // foot's tarvel-edit starts Tarvel, whose composer floats over foot; its tray icon is in swaybar's

    // tray, the window probe opens the preferences floating at their remembered size, and doctor names

    // the tray's host and sway's line for the shortcut.

    void composerTrayPreferencesAndDoctorUnderSway()
    {
        QTemporaryDir root;
        Application app(root.path());
        app.setSetting(u"PreferencesWindowContentSize"_s, u"{700, 500}"_s);
        // Ctrl+Alt+K as the settings keep it: the Mac's Command-Option-K.
        app.setSetting(u"KeyboardShortcuts_openScratchComposer"_s,
                       u"{\"carbonKeyCode\":40,\"carbonModifiers\":2304}"_s);
        const FootWithHelper foot(root, app);
        const auto isFoot = [&](const QJsonObject &window) {
            return window.value(u"pid").toInteger() == foot.processId();
        };
        const auto isComposer = titled(u"Tarvel Composer"_s);
        // It has the keyboard as soon as it is up.
        QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isComposer).value(u"focused").toBool(), 15000);
        app.adoptStartedCopy();
        const QJsonObject composer = swayWindow(isComposer);
        const QRect terminal = rectOf(swayWindow(isFoot)[u"rect"]);
        const QRect panel = rectOf(composer[u"rect"]);
        waylandScreenshot(u"wayland-sway-composer"_s);

        // Floating at its own size, its bottom edge 20 px above the terminal's, centred on it.
        QCOMPARE(composer.value(u"type").toString(), u"floating_con"_s);
        QVERIFY2(terminal.contains(panel), qPrintable(u"%1,%2"_s.arg(panel.x()).arg(panel.y())));
        QCOMPARE(terminal.bottom() - panel.bottom(), 20);
        QVERIFY(qAbs(terminal.center().x() - panel.center().x()) <= 1);

        // It grows upward with its text, its bottom edge where it was.
        shell(u"wtype ' typed under sway' -k Return 'a second line'"_s);
        QTRY_VERIFY(rectOf(swayWindow(isComposer)[u"rect"]).height() > panel.height());
        QTRY_COMPARE(rectOf(swayWindow(isComposer)[u"rect"]).bottom(), panel.bottom());

        shell(u"wtype -M ctrl -k Return -m ctrl"_s);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(root.filePath(u"status"_s)), QByteArray("0\n"), 5000);
        QCOMPARE(readFile(root.filePath(u"prompt.txt"_s)),
                 QByteArray("Draft: typed under sway\na second line"));

        // The keyboard is the terminal's again.
        QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isFoot).value(u"focused").toBool(), 5000);
        shell(u"wtype back -k Return"_s);
        QTRY_COMPARE(readFile(root.filePath(u"after"_s)), QByteArray("back\n"));
        waylandScreenshot(u"wayland-sway-tray"_s);

        requestFrame(u"preferences"_s, root.filePath(u"probe"_s));
        const auto isPreferences = titled(u"Preferences"_s);
        QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isPreferences).value(u"focused").toBool(), 10000);
        QTRY_VERIFY(QFile::exists(root.filePath(u"probe"_s)));
        waylandScreenshot(u"wayland-sway-preferences"_s);
        QCOMPARE(swayWindow(isPreferences).value(u"type").toString(), u"floating_con"_s);
        QCOMPARE(rectOf(swayWindow(isPreferences)[u"window_rect"]).size(), QSize(700, 500));

        // doctor names the tray's host, and the line for sway's configuration with the running tarvel, as
        // no tarvel on PATH is this one.
        QProcess doctor;
        doctor.setProcessEnvironment(app.environment());
        doctor.start(kTarvel, {u"doctor"_s});
        QVERIFY(doctor.waitForFinished(20000));
        const QString report = QString::fromUtf8(doctor.readAllStandardOutput());
        QVERIFY2(report.contains(u"swaybar\u2019s StatusNotifierItem host is running") &&
                     report.contains(u"with the window manager's IPC socket") &&
                     report.contains(u"\u201cbindsym Ctrl+Alt+k exec %1\u201d"_s.arg(
                         QFileInfo(kTarvel).canonicalFilePath())),
                 qPrintable(report));
    }

    void noTrayWarningWithoutAHostUnderSway()
    {
        QTemporaryDir root;
        const Application app(root.path());
        // A bus of its own, where no tray host listens: Qt falls back to an XEmbed tray there. A second
        // start opens a quick-task composer in the first, whose start-up is then behind it.
        QProcess session;
        session.setProcessEnvironment(app.environment());
        session.start(
            u"dbus-run-session"_s,
            {u"--"_s, u"sh"_s, u"-c"_s,
             QStringLiteral(
                 "'%1' 2>'%2' & until dbus-send --session --print-reply --dest=org.freedesktop.DBus "
                 "/ org.freedesktop.DBus.NameHasOwner string:zq.tarvel | grep -q true; do "
                 "sleep 0.1; done; '%1'; wait")
                 .arg(kTarvel, root.filePath(u"errors"_s))});
        const auto isScratch = titled(u"Tarvel Quick Task"_s);
        QTRY_VERIFY_WITH_TIMEOUT(!swayWindow(isScratch).isEmpty(), 15000);
        ::kill(pid_t(swayWindow(isScratch).value(u"pid").toInteger()), SIGTERM);
        QVERIFY(session.waitForFinished(10000));
        const QByteArray errors = readFile(root.filePath(u"errors"_s));
        QVERIFY2(!errors.contains("systemTrayWindowChanged"), errors.constData());
    }

    void composerUnderWeston()
    {
        QTemporaryDir root;
        Application app(root.path());
        const FootWithHelper foot(root, app);
        // weston-debug lists top-level surfaces front-most first.
        const auto sceneGraph = [] {
            return shell(u"weston-debug scene-graph"_s);
        };
        static const QRegularExpression toplevel(QStringLiteral(
            "role xdg_toplevel, PID \\d+, [^\\n]*top-level window '([^'\\n]*)' of (\\S+), [^\\n]*\\n"
            "\\s*position: \\((\\d+), (\\d+)\\) -> \\((\\d+), (\\d+)\\)"));
        QTRY_VERIFY_WITH_TIMEOUT(toplevel.match(sceneGraph()).captured(1).startsWith(u"Tarvel Composer"),
                                 15000);
        app.adoptStartedCopy(false); // weston has no tray
        waylandScreenshot(u"wayland-weston-composer"_s);
        // weston places new windows itself: a panel of its own size, in front of the terminal.
        const QRegularExpressionMatch composer = toplevel.match(sceneGraph());
        QCOMPARE(composer.captured(2), u"zq.tarvel"_s);
        QVERIFY(composer.captured(5).toInt() - composer.captured(3).toInt() < 1280 / 2);
        qInfo("weston put the composer at %s,%s", qPrintable(composer.captured(3)),
              qPrintable(composer.captured(4)));

        // weston gives a new window the keyboard, and gives it back once the closed panel has faded out.
        type(u" typed under weston"_s);
        key(u"ctrl+Return"_s);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(root.filePath(u"status"_s)), QByteArray("0\n"), 5000);
        QCOMPARE(readFile(root.filePath(u"prompt.txt"_s)), QByteArray("Draft: typed under weston"));
        QTRY_VERIFY(!sceneGraph().contains(u"role xdg_toplevel, PID 0,"));
        type(u"back\n"_s);
        QTRY_COMPARE(readFile(root.filePath(u"after"_s)), QByteArray("back\n"));
    }
};

QTEST_GUILESS_MAIN(WaylandEndToEndTest)
#include "tst_wayland_e2e.moc"
