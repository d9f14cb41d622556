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
    return run(QStringLiteral("sh"), {QStringLiteral("-c"), command});
}

// The first window of sway's layout tree that is wanted, or an empty object.
QJsonObject swayWindow(const std::function<bool(const QJsonObject &)> &wanted, QJsonObject node = {})
{
    if (node.isEmpty())
        node = QJsonDocument::fromJson(shell(QStringLiteral("swaymsg -t get_tree")).toUtf8()).object();
    if (node.contains(u"pid") && wanted(node))
        return node;
    for (const QString &children : {QStringLiteral("nodes"), QStringLiteral("floating_nodes")}) {
        for (const QJsonValue &child : node.value(children).toArray()) {
            if (const QJsonObject found = swayWindow(wanted, child.toObject()); !found.isEmpty())
                return found;
        }
    }
    return {};
}

QRect rectOf(const QJsonObject &window, QStringView key = u"rect")
{
    const QJsonObject rect = window.value(key).toObject();
    return QRect(rect.value(u"x").toInt(), rect.value(u"y").toInt(), rect.value(u"width").toInt(),
                 rect.value(u"height").toInt());
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
    shell((sway ? QStringLiteral("grim '%1/%2.png'") : QStringLiteral("import -window root '%1/%2.png'"))
              .arg(kArtifacts, name));
}

// foot runs tarvel-edit on prompt.txt as an assistant runs its editor, then reads a line from the
// keyboard into "after": proof that the keyboard came back to the terminal.
struct FootWithHelper final : QProcess {
    FootWithHelper(const QTemporaryDir &root, const Application &app)
    {
        writeFile(root.filePath(QStringLiteral("prompt.txt")), "Draft:");
        setProcessEnvironment(app.environment());
        start(QStringLiteral("foot"),
              {QStringLiteral("sh"), QStringLiteral("-c"),
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
    void init();
    void composerFloatsOverFootUnderSway();
    void trayPreferencesAndDoctorUnderSway();
    void noTrayWarningWithoutAHostUnderSway();
    void composerUnderWeston();
};

void WaylandEndToEndTest::init()
{
    // One program for both sessions: each case runs under the compositor its name ends with.
    const QString compositor = qEnvironmentVariable("TARVEL_WAYLAND_COMPOSITOR");
    if (compositor.isEmpty() ||
        !QString::fromLatin1(QTest::currentTestFunction()).endsWith(compositor, Qt::CaseInsensitive))
        QSKIP("This case runs in the other compositor's session.");
}

void WaylandEndToEndTest::composerFloatsOverFootUnderSway()
{
    QTemporaryDir root;
    Application app(root.path());
    const FootWithHelper foot(root, app);
    const auto isFoot = [&](const QJsonObject &window) {
        return window.value(u"pid").toInteger() == foot.processId();
    };
    const auto isComposer = titled(QStringLiteral("Tarvel Composer"));
    // It has the keyboard as soon as it is up.
    QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isComposer).value(u"focused").toBool(), 15000);
    app.adoptStartedCopy();
    const QJsonObject composer = swayWindow(isComposer);
    const QRect terminal = rectOf(swayWindow(isFoot));
    const QRect panel = rectOf(composer);
    waylandScreenshot(QStringLiteral("wayland-sway-composer"));

    // Floating at its own size, its bottom edge 20 px above the terminal's, centred on it.
    QCOMPARE(composer.value(u"type").toString(), QStringLiteral("floating_con"));
    QVERIFY2(terminal.contains(panel), qPrintable(QStringLiteral("%1,%2").arg(panel.x()).arg(panel.y())));
    QCOMPARE(terminal.bottom() - panel.bottom(), 20);
    QVERIFY(qAbs(terminal.center().x() - panel.center().x()) <= 1);

    // It grows upward with its text, its bottom edge where it was.
    shell(QStringLiteral("wtype ' typed under sway' -k Return 'a second line'"));
    QTRY_VERIFY(rectOf(swayWindow(isComposer)).height() > panel.height());
    QTRY_COMPARE(rectOf(swayWindow(isComposer)).bottom(), panel.bottom());

    shell(QStringLiteral("wtype -M ctrl -k Return -m ctrl"));
    QTRY_COMPARE_WITH_TIMEOUT(readFile(root.filePath(QStringLiteral("status"))), QByteArray("0\n"), 5000);
    QCOMPARE(readFile(root.filePath(QStringLiteral("prompt.txt"))),
             QByteArray("Draft: typed under sway\na second line"));

    // The keyboard is the terminal's again.
    QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isFoot).value(u"focused").toBool(), 5000);
    shell(QStringLiteral("wtype back -k Return"));
    QTRY_COMPARE(readFile(root.filePath(QStringLiteral("after"))), QByteArray("back\n"));
}

void WaylandEndToEndTest::trayPreferencesAndDoctorUnderSway()
{
    QTemporaryDir root;
    Application app(root.path());
    QSettings settings(app.settingsFile(), QSettings::IniFormat);
    settings.setValue(QStringLiteral("PreferencesWindowContentSize"), QStringLiteral("{700, 500}"));
    // Ctrl+Alt+K as the settings keep it: the Mac's Command-Option-K.
    settings.setValue(QStringLiteral("KeyboardShortcuts_openScratchComposer"),
                      QStringLiteral("{\"carbonKeyCode\":40,\"carbonModifiers\":2304}"));
    settings.sync();
    // Its StatusNotifierItem is in swaybar's tray.
    app.start();
    waylandScreenshot(QStringLiteral("wayland-sway-tray"));

    shell(QStringLiteral(
              "dbus-send --session --type=signal /zq/tarvel zq.tarvel.DistributedNotifications.Posted "
              "string:zq.tarvel.debug-window-request dict:string:string:target,preferences,response,%1")
              .arg(root.filePath(QStringLiteral("probe"))));
    const auto isPreferences = titled(QStringLiteral("Preferences"));
    QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isPreferences).value(u"focused").toBool(), 10000);
    QTRY_VERIFY(QFile::exists(root.filePath(QStringLiteral("probe"))));
    waylandScreenshot(QStringLiteral("wayland-sway-preferences"));
    QCOMPARE(swayWindow(isPreferences).value(u"type").toString(), QStringLiteral("floating_con"));
    QCOMPARE(rectOf(swayWindow(isPreferences), u"window_rect").size(), QSize(700, 500));

    // doctor names the tray's host, and the line for sway's configuration with the running tarvel, as
    // no tarvel on PATH is this one.
    QProcess doctor;
    doctor.setProcessEnvironment(app.environment());
    doctor.start(kTarvel, {QStringLiteral("doctor")});
    QVERIFY(doctor.waitForFinished(20000));
    const QString report = QString::fromUtf8(doctor.readAllStandardOutput());
    QVERIFY2(report.contains(u"swaybar\u2019s StatusNotifierItem host is running") &&
                 report.contains(u"with the window manager's IPC socket") &&
                 report.contains(QStringLiteral("\u201cbindsym Ctrl+Alt+k exec %1\u201d")
                                     .arg(QFileInfo(kTarvel).canonicalFilePath())),
             qPrintable(report));
}

void WaylandEndToEndTest::noTrayWarningWithoutAHostUnderSway()
{
    QTemporaryDir root;
    const Application app(root.path());
    // A bus of its own, where no tray host listens: Qt falls back to an XEmbed tray there. A second
    // start opens a quick-task composer in the first, whose start-up is then behind it.
    QProcess session;
    session.setProcessEnvironment(app.environment());
    session.start(
        QStringLiteral("dbus-run-session"),
        {QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"),
         QStringLiteral("'%1' 2>'%2' & until dbus-send --session --print-reply --dest=org.freedesktop.DBus "
                        "/ org.freedesktop.DBus.NameHasOwner string:zq.tarvel | grep -q true; do "
                        "sleep 0.1; done; '%1'; wait")
             .arg(kTarvel, root.filePath(QStringLiteral("errors")))});
    const auto isScratch = titled(QStringLiteral("Tarvel Quick Task"));
    QTRY_VERIFY_WITH_TIMEOUT(!swayWindow(isScratch).isEmpty(), 15000);
    ::kill(pid_t(swayWindow(isScratch).value(u"pid").toInteger()), SIGTERM);
    QVERIFY(session.waitForFinished(10000));
    const QByteArray errors = readFile(root.filePath(QStringLiteral("errors")));
    QVERIFY2(!errors.contains("systemTrayWindowChanged"), errors.constData());
}

void WaylandEndToEndTest::composerUnderWeston()
{
    QTemporaryDir root;
    Application app(root.path());
    const FootWithHelper foot(root, app);
    // weston-debug lists top-level surfaces front-most first.
    const auto sceneGraph = [] {
        return shell(QStringLiteral("weston-debug scene-graph"));
    };
    static const QRegularExpression toplevel(QStringLiteral(
        "role xdg_toplevel, PID \\d+, [^\\n]*top-level window '([^'\\n]*)' of (\\S+), [^\\n]*\\n"
        "\\s*position: \\((\\d+), (\\d+)\\) -> \\((\\d+), (\\d+)\\)"));
    QTRY_VERIFY_WITH_TIMEOUT(toplevel.match(sceneGraph()).captured(1).startsWith(u"Tarvel Composer"), 15000);
    app.adoptStartedCopy(false); // weston has no tray
    waylandScreenshot(QStringLiteral("wayland-weston-composer"));
    // weston places new windows itself: a panel of its own size, in front of the terminal.
    const QRegularExpressionMatch composer = toplevel.match(sceneGraph());
    QCOMPARE(composer.captured(2), QStringLiteral("zq.tarvel"));
    QVERIFY(composer.captured(5).toInt() - composer.captured(3).toInt() < 1280 / 2);
    qInfo("weston put the composer at %s,%s", qPrintable(composer.captured(3)),
          qPrintable(composer.captured(4)));

    // weston gives a new window the keyboard, and gives it back once the closed panel has faded out.
    type(QStringLiteral(" typed under weston"));
    key(QStringLiteral("ctrl+Return"));
    QTRY_COMPARE_WITH_TIMEOUT(readFile(root.filePath(QStringLiteral("status"))), QByteArray("0\n"), 5000);
    QCOMPARE(readFile(root.filePath(QStringLiteral("prompt.txt"))), QByteArray("Draft: typed under weston"));
    QTRY_VERIFY(!sceneGraph().contains(u"role xdg_toplevel, PID 0,"));
    type(QStringLiteral("back\n"));
    QTRY_COMPARE(readFile(root.filePath(QStringLiteral("after"))), QByteArray("back\n"));
}

QTEST_GUILESS_MAIN(WaylandEndToEndTest)
#include "tst_wayland_e2e.moc"
