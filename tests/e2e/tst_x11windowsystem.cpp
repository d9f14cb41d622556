// The real window system on the headless desktop (run through desktop-session.sh): real
// xterm windows under openbox, checked against what xwininfo, xprop and xdotool report.

#include "platform/WindowSystem.h"

#include <QGuiApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QWindow>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000) || process.exitCode() != 0)
        qWarning() << program << arguments << "failed:" << process.readAllStandardError();
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

int field(const QString &text, const QString &label)
{
    const QRegularExpression pattern(QRegularExpression::escape(label) + QStringLiteral(u":\\s*(-?\\d+)"));
    const QRegularExpressionMatch match = pattern.match(text);
    return match.hasMatch() ? match.captured(1).toInt() : -1;
}

QString hexId(quint64 id)
{
    return u"0x"_s + QString::number(id, 16);
}

// A window's outer rectangle (its X border included) as xwininfo sees it.
QRect xwininfoRect(const QString &id)
{
    const QString info = run(u"xwininfo"_s, {u"-id"_s, id});
    const int border = field(info, u"Border width"_s);
    return QRect(field(info, u"Absolute upper-left X"_s) - border,
                 field(info, u"Absolute upper-left Y"_s) - border, field(info, u"Width"_s) + 2 * border,
                 field(info, u"Height"_s) + 2 * border);
}

QList<int> numbers(const QString &text)
{
    QList<int> values;
    const QString afterEquals = text.section(QLatin1Char('='), 1);
    for (const QString &part : afterEquals.split(QLatin1Char(','), Qt::SkipEmptyParts))
        values.append(part.trimmed().toInt());
    return values;
}

bool containsWindow(const QList<TopLevelWindow> &windows, quint64 id)
{
    return std::any_of(windows.begin(), windows.end(), [id](const TopLevelWindow &w) { return w.id == id; });
}

} // namespace

class X11WindowSystemTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void findsTerminalsAndListsOnlyOrdinaryVisibleWindowsOfOthers();
    void reportsScreensAndCompositor();

private:
    TopLevelWindow startTerminal(const QString &geometry);
    quint64 activeId() const;
    quint64 frontId() const;

    std::unique_ptr<WindowSystem> m_windows;
    std::vector<std::unique_ptr<QProcess>> m_terminals;
};

void X11WindowSystemTest::initTestCase()
{
    m_windows = WindowSystem::create();
    QVERIFY2(m_windows->isAvailable(), "needs an X display: run through tests/e2e/desktop-session.sh");
}

void X11WindowSystemTest::cleanup()
{
    for (const auto &terminal : m_terminals) {
        terminal->kill();
        terminal->waitForFinished(5000);
    }
    m_terminals.clear();
}

TopLevelWindow X11WindowSystemTest::startTerminal(const QString &geometry)
{
    auto terminal = std::make_unique<QProcess>();
    terminal->start(u"xterm"_s, {u"-geometry"_s, geometry, u"-e"_s, u"sleep"_s, u"600"_s});
    if (!terminal->waitForStarted(5000))
        return {};
    const qint64 pid = terminal->processId();
    m_terminals.push_back(std::move(terminal));
    TopLevelWindow found;
    const auto appeared = [&] {
        for (const TopLevelWindow &window : m_windows->topLevelWindows()) {
            if (window.pid == pid) {
                found = window;
                return true;
            }
        }
        return false;
    };
    if (!QTest::qWaitFor(appeared, 10000))
        qWarning() << "no window of xterm" << pid << "appeared";
    return found;
}

quint64 X11WindowSystemTest::activeId() const
{
    const std::optional<TopLevelWindow> active = m_windows->activeWindow();
    return active ? active->id : 0;
}

quint64 X11WindowSystemTest::frontId() const
{
    const QList<TopLevelWindow> windows = m_windows->topLevelWindows();
    return windows.isEmpty() ? 0 : windows.first().id;
}

void X11WindowSystemTest::findsTerminalsAndListsOnlyOrdinaryVisibleWindowsOfOthers()
{
    const TopLevelWindow xterm = startTerminal(u"80x24+100+150"_s);
    QVERIFY(xterm.id != 0);
    QCOMPARE(xterm.windowInstance, u"xterm"_s);
    QCOMPARE(xterm.windowClass, u"XTerm"_s);
    QCOMPARE(m_windows->executableName(xterm.pid), u"xterm"_s);

    // The frame is the window manager's frame window around the client (a title bar above
    // it), placed where -geometry asked.
    const QString id = hexId(xterm.id);
    const QString tree = run(u"xwininfo"_s, {u"-tree"_s, u"-id"_s, id});
    const QString parent =
        QRegularExpression(QStringLiteral(u"Parent window id: (0x[0-9a-f]+)")).match(tree).captured(1);
    QVERIFY(!parent.isEmpty());
    QCOMPARE(xterm.frame, xwininfoRect(parent));
    QVERIFY2(xwininfoRect(id).top() > xterm.frame.top(), "openbox draws a title bar");
    QCOMPARE(xterm.frame.topLeft(), QPoint(100, 150));

    // Our own window is on the desktop but never in the list.
    QWindow own;
    own.setGeometry(200, 200, 300, 200);
    own.show();
    const auto managed = [&] {
        const QString list = run(u"xprop"_s, {u"-root"_s, u"_NET_CLIENT_LIST"_s});
        return list.split(QRegularExpression(QStringLiteral(u"[\\s,]+"))).contains(hexId(own.winId()));
    };
    QTRY_VERIFY_WITH_TIMEOUT(managed(), 10000);
    QVERIFY(!containsWindow(m_windows->topLevelWindows(), own.winId()));

    // Nor is the tray, a dock.
    const QString tray = run(u"xdotool"_s, {u"search"_s, u"--class"_s, u"trayer"_s});
    QVERIFY(!tray.trimmed().isEmpty());
    for (const TopLevelWindow &window : m_windows->topLevelWindows())
        QVERIFY(window.windowClass != u"trayer"_s);

    // A minimised window leaves the list until it is activated again, in front. (Activating
    // a terminal that is merely behind is driven end to end by tst_app_e2e.)
    const TopLevelWindow other = startTerminal(u"80x24+300+250"_s);
    QVERIFY(other.id != 0);
    run(u"xdotool"_s, {u"windowminimize"_s, QString::number(xterm.id)});
    QTRY_VERIFY(!containsWindow(m_windows->topLevelWindows(), xterm.id));
    QVERIFY(!m_windows->activateApplication(xterm.pid));
    QVERIFY(m_windows->activateWindow(xterm.id));
    QTRY_VERIFY(containsWindow(m_windows->topLevelWindows(), xterm.id));
    QTRY_COMPARE(activeId(), xterm.id);
    QTRY_COMPARE(frontId(), xterm.id);
    QCOMPARE(run(u"xdotool"_s, {u"getactivewindow"_s}).trimmed().toULongLong(), xterm.id);
    QVERIFY(!m_windows->activateWindow(0));
    QVERIFY(!m_windows->activateApplication(QCoreApplication::applicationPid()));
}

void X11WindowSystemTest::reportsScreensAndCompositor()
{
    const QList<ScreenArea> screens = m_windows->screens();
    QCOMPARE(screens.size(), 1);
    QCOMPARE(m_windows->primaryScreenIndex(), 0);
    const QString root = run(u"xwininfo"_s, {u"-root"_s});
    QCOMPARE(screens[0].geometry, QRect(0, 0, field(root, u"Width"_s), field(root, u"Height"_s)));
    // The tray reserves a strip along the top, which the window manager leaves out.
    const QList<int> workArea = numbers(run(u"xprop"_s, {u"-root"_s, u"_NET_WORKAREA"_s}));
    QVERIFY(workArea.size() >= 4);
    QCOMPARE(screens[0].workArea, QRect(workArea[0], workArea[1], workArea[2], workArea[3]));
    QVERIFY(screens[0].workArea != screens[0].geometry);

    QCOMPARE(m_windows->compositorRunning(), qgetenv("TARVEL_DESKTOP_COMPOSITOR") == "1");
}

QTEST_MAIN(X11WindowSystemTest)
#include "tst_x11windowsystem.moc"
