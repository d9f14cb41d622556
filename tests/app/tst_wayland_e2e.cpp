// Tarvel as a native Wayland client, in the private sessions of tests/e2e/wayland-session.sh. Under
// sway the IPC tree says where each window is, whether it floats and which has the keyboard, and
// wtype types; under weston, weston-debug prints the scene graph and keys come through its X11 back
// end. A terminal (foot) runs tarvel-edit, which starts Tarvel as on a first use.
#include "DesktopTestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace desktop_test;

namespace {

// A window in sway's layout tree.
struct SwayWindow {
    qint64 pid = 0;
    QString appId;
    QString title;
    // Without the title bar; a floating panel without border is exactly its surface.
    QRect rect;
    QSize content;
    bool floating = false;
    bool focused = false;
};

void collectSwayWindows(const QJsonObject &node, QList<SwayWindow> &windows)
{
    if (node.contains(u"pid")) {
        const QJsonObject rect = node.value(u"rect").toObject();
        const QJsonObject content = node.value(u"window_rect").toObject();
        windows.append({qint64(node.value(u"pid").toDouble()), node.value(u"app_id").toString(),
                        node.value(u"name").toString(),
                        QRect(rect.value(u"x").toInt(), rect.value(u"y").toInt(),
                              rect.value(u"width").toInt(), rect.value(u"height").toInt()),
                        QSize(content.value(u"width").toInt(), content.value(u"height").toInt()),
                        node.value(u"type").toString() == u"floating_con", node.value(u"focused").toBool()});
    }
    for (const QString &children : {QStringLiteral("nodes"), QStringLiteral("floating_nodes")}) {
        for (const QJsonValue &child : node.value(children).toArray())
            collectSwayWindows(child.toObject(), windows);
    }
}

std::optional<SwayWindow> swayWindow(const std::function<bool(const SwayWindow &)> &wanted)
{
    QList<SwayWindow> windows;
    const QByteArray tree =
        run(QStringLiteral("swaymsg"), {QStringLiteral("-t"), QStringLiteral("get_tree")}).toUtf8();
    collectSwayWindows(QJsonDocument::fromJson(tree).object(), windows);
    for (const SwayWindow &window : windows) {
        if (wanted(window))
            return window;
    }
    return std::nullopt;
}

bool isComposer(const QString &title)
{
    return title.startsWith(u"Tarvel Composer");
}

// A top-level surface in weston's scene graph, front-most first.
struct WestonWindow {
    qint64 pid = 0;
    QString title;
    QString appId;
    QRect rect;
};

QList<WestonWindow> westonWindows()
{
    static const QRegularExpression view(
        QStringLiteral("role xdg_toplevel, PID (\\d+), [^\\n]*top-level window '([^'\\n]*)' of (\\S+), "
                       "[^\\n]*\\n\\s*position: \\((-?\\d+), (-?\\d+)\\) -> \\((-?\\d+), (-?\\d+)\\)"));
    QList<WestonWindow> windows;
    const QString graph = run(QStringLiteral("weston-debug"), {QStringLiteral("scene-graph")});
    for (auto match = view.globalMatch(graph); match.hasNext();) {
        const QRegularExpressionMatch found = match.next();
        const QPoint topLeft(found.captured(4).toInt(), found.captured(5).toInt());
        const QPoint end(found.captured(6).toInt(), found.captured(7).toInt());
        windows.append({found.captured(1).toLongLong(), found.captured(2), found.captured(3),
                        QRect(topLeft, end - QPoint(1, 1))});
    }
    return windows;
}

void wtype(const QStringList &arguments)
{
    run(QStringLiteral("wtype"), arguments);
}

void waylandScreenshot(const QString &name)
{
    QDir().mkpath(kArtifacts);
    const QString file = kArtifacts + u'/' + name + QStringLiteral(".png");
    if (qEnvironmentVariable("TARVEL_WAYLAND_COMPOSITOR") == u"sway")
        run(QStringLiteral("grim"), {file});
    else
        run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), file});
}

// foot running tarvel-edit on a file, as an assistant runs its editor; then one line read from the
// keyboard, which shows that the keyboard came back to the terminal.
class FootWithHelper final {
public:
    FootWithHelper(const QTemporaryDir &root, const Application &app, const QByteArray &text)
        : m_file(root.filePath(QStringLiteral("prompt.txt")))
        , m_status(root.filePath(QStringLiteral("status")))
        , m_after(root.filePath(QStringLiteral("after")))
    {
        writeFile(m_file, text);
        m_foot.setProcessEnvironment(app.environment());
        m_foot.start(QStringLiteral("foot"),
                     {QStringLiteral("sh"), QStringLiteral("-c"),
                      QStringLiteral("'%1' '%2'; echo $? > '%3'; read line; echo \"$line\" > '%4'; sleep 600")
                          .arg(kTarvelEdit, m_file, m_status, m_after)});
        m_foot.waitForStarted();
    }
    ~FootWithHelper()
    {
        m_foot.kill();
        m_foot.waitForFinished();
    }

    qint64 pid() const { return m_foot.processId(); }
    QByteArray text() const { return readFile(m_file); }
    QByteArray status() const { return readFile(m_status).trimmed(); }
    QByteArray lineTypedAfter() const { return readFile(m_after).trimmed(); }

private:
    QString m_file;
    QString m_status;
    QString m_after;
    QProcess m_foot;
};

} // namespace

class WaylandEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void composerFloatsOverFootUnderSway();
    void trayAndPreferencesUnderSway();
    void noTrayWarningWithoutAHostUnderSway();
    void doctorUnderSway();
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
    FootWithHelper foot(root, app, "Draft:");
    const auto isFoot = [&](const SwayWindow &window) {
        return window.pid == foot.pid();
    };
    const auto isComposerWindow = [](const SwayWindow &window) {
        return isComposer(window.title);
    };
    QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isComposerWindow), 15000);
    app.adoptStartedCopy();
    const SwayWindow terminal = *swayWindow(isFoot);
    // The composer has the keyboard as soon as it is up.
    QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isComposerWindow)->focused, 5000);
    const SwayWindow composer = *swayWindow(isComposerWindow);
    waylandScreenshot(QStringLiteral("wayland-sway-composer"));

    // Floating at its own size, its bottom edge 20 px above the terminal's, centred on it.
    QVERIFY(composer.floating);
    QVERIFY2(terminal.rect.contains(composer.rect), qPrintable(QStringLiteral("%1,%2 %3x%4")
                                                                   .arg(composer.rect.x())
                                                                   .arg(composer.rect.y())
                                                                   .arg(composer.rect.width())
                                                                   .arg(composer.rect.height())));
    QCOMPARE(terminal.rect.bottom() - composer.rect.bottom(), 20);
    QVERIFY(qAbs(terminal.rect.center().x() - composer.rect.center().x()) <= 1);

    wtype({QStringLiteral(" typed under sway")});
    wtype({QStringLiteral("-k"), QStringLiteral("Return")});
    wtype({QStringLiteral("a second line")});
    // It grows upward with its text, its bottom edge where it was.
    QTRY_VERIFY(swayWindow(isComposerWindow)->rect.height() > composer.rect.height());
    QTRY_COMPARE(swayWindow(isComposerWindow)->rect.bottom(), composer.rect.bottom());

    wtype({QStringLiteral("-M"), QStringLiteral("ctrl"), QStringLiteral("-k"), QStringLiteral("Return"),
           QStringLiteral("-m"), QStringLiteral("ctrl")});
    QTRY_COMPARE_WITH_TIMEOUT(foot.status(), QByteArray("0"), 5000);
    QCOMPARE(foot.text(), QByteArray("Draft: typed under sway\na second line"));

    // The keyboard is the terminal's again.
    QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isFoot)->focused, 5000);
    wtype({QStringLiteral("back")});
    wtype({QStringLiteral("-k"), QStringLiteral("Return")});
    QTRY_COMPARE(foot.lineTypedAfter(), QByteArray("back"));
}

void WaylandEndToEndTest::trayAndPreferencesUnderSway()
{
    QTemporaryDir root;
    Application app(root.path());
    QSettings(app.settingsFile(), QSettings::IniFormat)
        .setValue(QStringLiteral("PreferencesWindowContentSize"), QStringLiteral("{700, 500}"));
    // Its StatusNotifierItem is in swaybar's tray.
    app.start();
    waylandScreenshot(QStringLiteral("wayland-sway-tray"));

    const QString probe = root.filePath(QStringLiteral("probe.json"));
    run(QStringLiteral("dbus-send"),
        {QStringLiteral("--session"), QStringLiteral("--type=signal"), QStringLiteral("/zq/tarvel"),
         QStringLiteral("zq.tarvel.DistributedNotifications.Posted"),
         QStringLiteral("string:zq.tarvel.debug-window-request"),
         QStringLiteral("dict:string:string:target,preferences,response,") + probe});
    const auto isPreferences = [&](const SwayWindow &window) {
        return window.pid == app.pid() && window.title.startsWith(u"Preferences");
    };
    QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isPreferences), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(probe), 5000);
    const SwayWindow preferences = *swayWindow(isPreferences);
    waylandScreenshot(QStringLiteral("wayland-sway-preferences"));
    QVERIFY(preferences.floating);
    QCOMPARE(preferences.content, QSize(700, 500));
    QVERIFY(preferences.focused);
}

void WaylandEndToEndTest::noTrayWarningWithoutAHostUnderSway()
{
    QTemporaryDir root;
    const Application app(root.path());
    // A bus of its own, where no tray host listens: Qt falls back to an XEmbed tray there.
    const QString errors = root.filePath(QStringLiteral("errors"));
    QProcess session;
    session.setProcessEnvironment(app.environment());
    session.start(
        QStringLiteral("dbus-run-session"),
        {QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"),
         QStringLiteral("'%1' 2>'%2' & until dbus-send --session --print-reply --dest=org.freedesktop.DBus "
                        "/org/freedesktop/DBus org.freedesktop.DBus.NameHasOwner string:zq.tarvel | "
                        "grep -q true; do sleep 0.1; done; '%1'; wait")
             .arg(kTarvel, errors)});
    // The second start opened a quick-task composer in the first: its start-up is behind it.
    const auto isScratch = [](const SwayWindow &window) {
        return window.title.startsWith(u"Tarvel Quick Task");
    };
    QTRY_VERIFY_WITH_TIMEOUT(swayWindow(isScratch), 15000);
    ::kill(pid_t(swayWindow(isScratch)->pid), SIGTERM);
    QVERIFY(session.waitForFinished(10000));
    QVERIFY2(!readFile(errors).contains("systemTrayWindowChanged"), readFile(errors).constData());
}

void WaylandEndToEndTest::doctorUnderSway()
{
    QTemporaryDir root;
    const Application app(root.path());
    // Ctrl+Alt+K as the settings keep it: the Mac's Command-Option-K.
    QSettings(app.settingsFile(), QSettings::IniFormat)
        .setValue(QStringLiteral("KeyboardShortcuts_openScratchComposer"),
                  QStringLiteral("{\"carbonKeyCode\":40,\"carbonModifiers\":2304}"));
    QProcess doctor;
    doctor.setProcessEnvironment(app.environment());
    doctor.start(kTarvel, {QStringLiteral("doctor")});
    QVERIFY(doctor.waitForFinished(20000));
    const QString report = QString::fromUtf8(doctor.readAllStandardOutput());
    QVERIFY2(report.contains(u"swaybar\u2019s StatusNotifierItem host is running"), qPrintable(report));
    QVERIFY2(report.contains(u"with the window manager's IPC socket"), qPrintable(report));
    // The command is the running tarvel, as no tarvel on PATH is this one.
    const QString line =
        QStringLiteral("\u201cbindsym Ctrl+Alt+k exec %1\u201d").arg(QFileInfo(kTarvel).canonicalFilePath());
    QVERIFY2(report.contains(line), qPrintable(report));
}

void WaylandEndToEndTest::composerUnderWeston()
{
    QTemporaryDir root;
    Application app(root.path());
    FootWithHelper foot(root, app, "Draft:");
    const auto composer = [] {
        for (const WestonWindow &window : westonWindows()) {
            if (isComposer(window.title))
                return std::optional<WestonWindow>(window);
        }
        return std::optional<WestonWindow>();
    };
    QTRY_VERIFY_WITH_TIMEOUT(composer(), 15000);
    app.adoptStartedCopy(false); // weston has no tray
    waylandScreenshot(QStringLiteral("wayland-weston-composer"));
    // weston places new windows itself: a panel of its own size, in front of the terminal.
    const QList<WestonWindow> windows = westonWindows();
    QCOMPARE(windows.first().title, composer()->title);
    QCOMPARE(composer()->appId, QStringLiteral("zq.tarvel"));
    QVERIFY(composer()->rect.width() < 1280 / 2);
    qInfo("weston put the composer at %d,%d (%dx%d)", composer()->rect.x(), composer()->rect.y(),
          composer()->rect.width(), composer()->rect.height());

    // weston gives a new window the keyboard, and the terminal gets it back when it closes.
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("20"),
             QStringLiteral(" typed under weston")});
    key(QStringLiteral("ctrl+Return"));
    QTRY_COMPARE_WITH_TIMEOUT(foot.status(), QByteArray("0"), 5000);
    QCOMPARE(foot.text(), QByteArray("Draft: typed under weston"));
    // weston hands the keyboard on once the closed panel has faded out.
    QTRY_VERIFY(!run(QStringLiteral("weston-debug"), {QStringLiteral("scene-graph")})
                     .contains(u"role xdg_toplevel, PID 0,"));
    type(QStringLiteral("back"));
    key(QStringLiteral("Return"));
    QTRY_COMPARE(foot.lineTypedAfter(), QByteArray("back"));
}

QTEST_GUILESS_MAIN(WaylandEndToEndTest)
#include "tst_wayland_e2e.moc"
