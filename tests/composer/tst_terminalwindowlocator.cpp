#include "composer/TerminalWindowLocator.h"

#include <QTest>

namespace {

// The desktop as a list: normal visible windows front-most first, and the active window,
// which need not be one of them.
class FakeWindowSystem final : public WindowSystem {
public:
    QList<TopLevelWindow> windows;
    std::optional<TopLevelWindow> active;

    bool isAvailable() const override { return true; }
    QList<TopLevelWindow> topLevelWindows() const override { return windows; }
    std::optional<TopLevelWindow> activeWindow() const override { return active; }
    bool activateWindow(quint64) override { return false; }
    bool activateApplication(qint64) override { return false; }
    QString executableName(qint64) const override { return {}; }
    bool compositorRunning() const override { return false; }
    QList<ScreenArea> screens() const override { return {}; }
    int primaryScreenIndex() const override { return -1; }
};

TopLevelWindow window(quint64 id, qint64 pid, const char *instance, const char *windowClass, QRect frame)
{
    return {id, pid, QString::fromLatin1(instance), QString::fromLatin1(windowClass), frame};
}

const TopLevelWindow browser = window(1, 100, "Navigator", "Browser", QRect(0, 0, 1200, 800));
const TopLevelWindow xtermFront = window(2, 200, "xterm", "XTerm", QRect(50, 60, 486, 341));
const TopLevelWindow xtermBack = window(3, 200, "xterm", "XTerm", QRect(400, 300, 486, 341));
const TopLevelWindow kitty = window(4, 300, "kitty", "kitty", QRect(700, 100, 500, 400));
// An editor with a built-in terminal: not a terminal by class, but it may ask for an editor.
const TopLevelWindow editor = window(5, 400, "code", "Code", QRect(10, 20, 900, 700));
const QList<TopLevelWindow> desktop = {browser, xtermFront, kitty, xtermBack, editor};

} // namespace

using OptionalRect = std::optional<QRect>;
using OptionalWindow = std::optional<TopLevelWindow>;
using OptionalPid = std::optional<qint32>;

class TerminalWindowLocatorTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void bestFrame_data();
    void bestFrame();
    void terminalClasses_data();
    void terminalClasses();
};

void TerminalWindowLocatorTest::bestFrame_data()
{
    QTest::addColumn<bool>("hasRequest");
    QTest::addColumn<OptionalPid>("sourcePid");
    QTest::addColumn<OptionalWindow>("active");
    QTest::addColumn<OptionalRect>("expected");

    QTest::newRow("source process: its front-most window")
        << true << OptionalPid(200) << OptionalWindow(browser) << OptionalRect(xtermFront.frame);
    QTest::newRow("source process of any class")
        << true << OptionalPid(400) << OptionalWindow(kitty) << OptionalRect(editor.frame);
    QTest::newRow("source without a window: the active terminal")
        << true << OptionalPid(999) << OptionalWindow(kitty) << OptionalRect(kitty.frame);
    QTest::newRow("source without a window, a browser active")
        << true << OptionalPid(999) << OptionalWindow(browser) << OptionalRect();
    QTest::newRow("no source process: the active terminal, not the front-most one")
        << true << OptionalPid() << OptionalWindow(xtermBack) << OptionalRect(xtermBack.frame);
    QTest::newRow("scratch panel over the active terminal")
        << false << OptionalPid() << OptionalWindow(kitty) << OptionalRect(kitty.frame);
    QTest::newRow("active editor is not a terminal")
        << false << OptionalPid() << OptionalWindow(editor) << OptionalRect();
    QTest::newRow("active terminal window that is not a normal visible one")
        << false << OptionalPid() << OptionalWindow(window(9, 200, "xterm", "XTerm", QRect(0, 0, 80, 80)))
        << OptionalRect();
    QTest::newRow("nothing active") << true << OptionalPid(999) << OptionalWindow() << OptionalRect();
}

void TerminalWindowLocatorTest::bestFrame()
{
    QFETCH(bool, hasRequest);
    QFETCH(OptionalPid, sourcePid);
    QFETCH(OptionalWindow, active);
    QFETCH(OptionalRect, expected);

    FakeWindowSystem windows;
    windows.windows = desktop;
    windows.active = active;
    std::optional<ComposerRequest> request;
    if (hasRequest) {
        request = ComposerRequest{};
        request->sourceApplicationPID = sourcePid;
    }
    QCOMPARE(TerminalWindowLocator(windows).bestFrame(request), expected);
}

void TerminalWindowLocatorTest::terminalClasses_data()
{
    QTest::addColumn<QString>("instance");
    QTest::addColumn<QString>("windowClass");
    QTest::addColumn<bool>("terminal");

    QTest::newRow("xterm") << QStringLiteral("xterm") << QStringLiteral("XTerm") << true;
    QTest::newRow("gnome-terminal") << QStringLiteral("gnome-terminal-server")
                                    << QStringLiteral("Gnome-terminal") << true;
    QTest::newRow("konsole") << QStringLiteral("konsole") << QStringLiteral("konsole") << true;
    QTest::newRow("alacritty") << QStringLiteral("Alacritty") << QStringLiteral("Alacritty") << true;
    QTest::newRow("foot, class only") << QString() << QStringLiteral("foot") << true;
    QTest::newRow("wezterm") << QStringLiteral("org.wezfurlong.wezterm")
                             << QStringLiteral("org.wezfurlong.wezterm") << true;
    QTest::newRow("xfce4-terminal") << QStringLiteral("xfce4-terminal") << QStringLiteral("Xfce4-terminal")
                                    << true;
    QTest::newRow("tilix") << QStringLiteral("tilix") << QStringLiteral("Tilix") << true;
    QTest::newRow("terminator") << QStringLiteral("terminator") << QStringLiteral("Terminator") << true;
    QTest::newRow("urxvt") << QStringLiteral("urxvt") << QStringLiteral("URxvt") << true;
    QTest::newRow("a name only containing one") << QStringLiteral("xterm-256color") << QString() << false;
    QTest::newRow("an editor") << QStringLiteral("code") << QStringLiteral("Code") << false;
    QTest::newRow("no class") << QString() << QString() << false;
}

void TerminalWindowLocatorTest::terminalClasses()
{
    QFETCH(QString, instance);
    QFETCH(QString, windowClass);
    QFETCH(bool, terminal);

    QCOMPARE(TerminalWindowLocator::isTerminalWindow({7, 1, instance, windowClass, QRect(0, 0, 10, 10)}),
             terminal);
}

QTEST_GUILESS_MAIN(TerminalWindowLocatorTest)
#include "tst_terminalwindowlocator.moc"
