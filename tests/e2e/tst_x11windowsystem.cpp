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
    return QRegularExpression(QRegularExpression::escape(label) + u":\\s*(-?\\d+)"_s)
        .match(text)
        .captured(1)
        .toInt();
}

// A window's outer rectangle (its X border included) as xwininfo sees it.
QRect xwininfoRect(const QString &id)
{
    const QString info = run(u"xwininfo"_s, {u"-id"_s, id});
    const int border = field(info, u"Border width"_s);
    return QRect(field(info, u"Absolute upper-left X"_s), field(info, u"Absolute upper-left Y"_s),
                 field(info, u"Width"_s), field(info, u"Height"_s))
        .adjusted(-border, -border, border, border);
}

bool listed(const std::unique_ptr<WindowSystem> &windows, quint64 id)
{
    const QList<TopLevelWindow> list = windows->topLevelWindows();
    return std::any_of(list.begin(), list.end(), [id](const TopLevelWindow &w) { return w.id == id; });
}

} // namespace

class X11WindowSystemTest final : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<WindowSystem> m_windows = WindowSystem::create();
    std::vector<std::unique_ptr<QProcess>> m_terminals;

    TopLevelWindow startTerminal(const QString &geometry)
    {
        auto &terminal = m_terminals.emplace_back(std::make_unique<QProcess>());
        terminal->start(u"xterm"_s, {u"-geometry"_s, geometry, u"-e"_s, u"sleep"_s, u"600"_s});
        TopLevelWindow found;
        const auto appeared = [&] {
            for (const TopLevelWindow &window : m_windows->topLevelWindows()) {
                if (window.pid == terminal->processId())
                    found = window;
            }
            return found.id != 0;
        };
        if (!terminal->waitForStarted(5000) || !QTest::qWaitFor(appeared, 10000))
            qWarning() << "no window of xterm" << terminal->processId() << "appeared";
        return found;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_windows->isAvailable(), "needs an X display: run through tests/e2e/desktop-session.sh");
    }

    void cleanup()
    {
        for (const auto &terminal : m_terminals) {
            terminal->kill();
            terminal->waitForFinished(5000);
        }
        m_terminals.clear();
    }

    void findsTerminalsAndListsOnlyOrdinaryVisibleWindowsOfOthers()
    {
        const TopLevelWindow xterm = startTerminal(u"80x24+100+150"_s);
        QVERIFY(xterm.id != 0);
        QCOMPARE(xterm.windowInstance, u"xterm"_s);
        QCOMPARE(xterm.windowClass, u"XTerm"_s);
        QCOMPARE(m_windows->executableName(xterm.pid), u"xterm"_s);

        // The frame is the window manager's frame window around the client (a title bar above
        // it), placed where -geometry asked.
        const QString id = u"0x"_s + QString::number(xterm.id, 16);
        const QString parent = QRegularExpression(u"Parent window id: (0x[0-9a-f]+)"_s)
                                   .match(run(u"xwininfo"_s, {u"-tree"_s, u"-id"_s, id}))
                                   .captured(1);
        QVERIFY(!parent.isEmpty());
        QCOMPARE(xterm.frame, xwininfoRect(parent));
        QVERIFY2(xwininfoRect(id).top() > xterm.frame.top(), "openbox draws a title bar");
        QCOMPARE(xterm.frame.topLeft(), QPoint(100, 150));

        // Our own window is on the desktop but never in the list.
        QWindow own;
        own.setGeometry(200, 200, 300, 200);
        own.show();
        const auto managed = [&] {
            return run(u"xprop"_s, {u"-root"_s, u"_NET_CLIENT_LIST"_s})
                .split(QRegularExpression(u"[\\s,]+"_s))
                .contains(u"0x"_s + QString::number(own.winId(), 16));
        };
        QTRY_VERIFY_WITH_TIMEOUT(managed(), 10000);
        QVERIFY(!listed(m_windows, own.winId()));

        // Nor is the tray, a dock.
        QVERIFY(!run(u"xdotool"_s, {u"search"_s, u"--class"_s, u"trayer"_s}).trimmed().isEmpty());
        for (const TopLevelWindow &window : m_windows->topLevelWindows())
            QVERIFY(window.windowClass != u"trayer"_s);

        // A minimised window leaves the list until it is activated again, in front. (Activating
        // a terminal that is merely behind is driven end to end by tst_app_e2e.)
        QVERIFY(startTerminal(u"80x24+300+250"_s).id != 0);
        run(u"xdotool"_s, {u"windowminimize"_s, QString::number(xterm.id)});
        QTRY_VERIFY(!listed(m_windows, xterm.id));
        QVERIFY(!m_windows->activateApplication(xterm.pid));
        QVERIFY(m_windows->activateWindow(xterm.id));
        QTRY_VERIFY(listed(m_windows, xterm.id));
        QTRY_COMPARE(m_windows->activeWindow().value_or(TopLevelWindow()).id, xterm.id);
        QTRY_COMPARE(m_windows->topLevelWindows().value(0).id, xterm.id);
        QCOMPARE(run(u"xdotool"_s, {u"getactivewindow"_s}).trimmed().toULongLong(), xterm.id);
        QVERIFY(!m_windows->activateWindow(0));
        QVERIFY(!m_windows->activateApplication(QCoreApplication::applicationPid()));
    }

    void reportsScreensAndCompositor()
    {
        const QList<ScreenArea> screens = m_windows->screens();
        QCOMPARE(screens.size(), 1);
        QCOMPARE(m_windows->primaryScreenIndex(), 0);
        const QString root = run(u"xwininfo"_s, {u"-root"_s});
        QCOMPARE(screens[0].geometry, QRect(0, 0, field(root, u"Width"_s), field(root, u"Height"_s)));
        // The tray reserves a strip along the top, which the window manager leaves out.
        QList<int> workArea;
        for (const QString &part : run(u"xprop"_s, {u"-root"_s, u"_NET_WORKAREA"_s})
                                       .section(u'=', 1)
                                       .split(u',', Qt::SkipEmptyParts))
            workArea.append(part.trimmed().toInt());
        QVERIFY(workArea.size() >= 4);
        QCOMPARE(screens[0].workArea, QRect(workArea[0], workArea[1], workArea[2], workArea[3]));
        QVERIFY(screens[0].workArea != screens[0].geometry);

        QCOMPARE(m_windows->compositorRunning(), qgetenv("TARVEL_DESKTOP_COMPOSITOR") == "1");
    }
};

QTEST_MAIN(X11WindowSystemTest)
#include "tst_x11windowsystem.moc"
