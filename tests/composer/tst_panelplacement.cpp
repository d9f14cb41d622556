// Where a panel goes: over which terminal window, where on screen, and the scratch panel's
// remembered frame.
#include "ComposerTestSupport.h"
#include "composer/PanelPlacement.h"
#include "composer/ScratchWindowFrameStore.h"
#include "composer/TerminalWindowLocator.h"
#include "core/UserDefaults.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// 1280x800 with a 28-pixel tray along the top.
const ScreenArea laptop{QRect(0, 0, 1280, 800), QRect(0, 28, 1280, 772)};

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

class PanelPlacementTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void bestFrame_data()
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
        QTest::newRow("scratch panel: the active terminal, not the front-most one")
            << false << OptionalPid() << OptionalWindow(xtermBack) << OptionalRect(xtermBack.frame);
        QTest::newRow("active terminal window that is not a normal visible one")
            << false << OptionalPid() << OptionalWindow(window(9, 200, "xterm", "XTerm", QRect(0, 0, 80, 80)))
            << OptionalRect();
        QTest::newRow("nothing active") << true << OptionalPid(999) << OptionalWindow() << OptionalRect();
    }

    void bestFrame()
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

    void terminalClasses()
    {
        // By either half of WM_CLASS, in any case; a name that only contains one is not one.
        const auto isTerminal = [](const char *instance, const char *windowClass) {
            return TerminalWindowLocator::isTerminalWindow(
                {7, 1, QString::fromLatin1(instance), QString::fromLatin1(windowClass), QRect(0, 0, 10, 10)});
        };
        QVERIFY(isTerminal("xterm", "XTerm"));
        QVERIFY(isTerminal("", "foot"));
        QVERIFY(!isTerminal("xterm-256color", ""));
        QVERIFY(!isTerminal("code", "Code"));
    }

    void requestPanel_data()
    {
        QTest::addColumn<QList<ScreenArea>>("screens");
        QTest::addColumn<int>("primary");
        QTest::addColumn<OptionalRect>("terminal");
        QTest::addColumn<QSize>("panel");
        QTest::addColumn<OptionalRect>("expected");

        const QSize panel(520, 120);
        QTest::newRow("centred over the terminal, bottom 20 above its bottom")
            << QList{laptop} << 0 << OptionalRect(QRect(100, 150, 486, 341)) << panel
            << OptionalRect(QRect(83, 351, 520, 120));
        QTest::newRow("left margin") << QList{laptop} << 0 << OptionalRect(QRect(0, 100, 300, 400)) << panel
                                     << OptionalRect(QRect(12, 360, 520, 120));
        QTest::newRow("terminal reaching below the screen: bottom margin")
            << QList{laptop} << 0 << OptionalRect(QRect(600, 500, 600, 400)) << panel
            << OptionalRect(QRect(640, 668, 520, 120));
        QTest::newRow("wider than the work area less 24: the right margin wins")
            << QList{laptop} << 0 << OptionalRect(QRect(100, 150, 486, 341)) << QSize(1270, 120)
            << OptionalRect(QRect(-2, 351, 1270, 120));
        QTest::newRow("taller than the work area: the top margin wins")
            << QList{laptop} << 0 << OptionalRect(QRect(100, 150, 486, 341)) << QSize(520, 790)
            << OptionalRect(QRect(83, 40, 520, 790));
        QTest::newRow("no screens") << QList<ScreenArea>() << 0 << OptionalRect(QRect(0, 0, 500, 300))
                                    << panel << OptionalRect();
        QTest::newRow("no terminal: centred, bottom 40 above the work area's")
            << QList{laptop} << 0 << OptionalRect() << panel << OptionalRect(QRect(380, 640, 520, 120));

        // A second display stacked above the primary, at negative y.
        const ScreenArea primary{QRect(0, 0, 1920, 1080), QRect(0, 0, 1920, 1040)};
        const ScreenArea above{QRect(320, -1024, 1280, 1024), QRect(320, -1024, 1280, 1024)};
        QTest::newRow("terminal on the display above: clamped to it, not to the primary")
            << QList{primary, above} << 0 << OptionalRect(QRect(1200, -1100, 600, 200)) << panel
            << OptionalRect(QRect(1068, -1012, 520, 120));
        QTest::newRow("no terminal: the primary screen even when listed second")
            << QList{above, primary} << 1 << OptionalRect() << panel
            << OptionalRect(QRect(700, 880, 520, 120));
        QTest::newRow("terminal off every screen: clamped to the primary")
            << QList{above, primary} << 1 << OptionalRect(QRect(5000, 300, 600, 400)) << panel
            << OptionalRect(QRect(1388, 560, 520, 120));

        // Side by side: the screen holding the terminal's centre is the one used.
        const ScreenArea right{QRect(1280, 0, 1280, 800), QRect(1280, 0, 1280, 800)};
        QTest::newRow("terminal straddling two screens goes by its centre")
            << QList{laptop, right} << 0 << OptionalRect(QRect(1000, 100, 700, 400)) << panel
            << OptionalRect(QRect(1292, 360, 520, 120));
    }

    void requestPanel()
    {
        QFETCH(QList<ScreenArea>, screens);
        QFETCH(int, primary);
        QFETCH(OptionalRect, terminal);
        QFETCH(QSize, panel);
        QFETCH(OptionalRect, expected);
        QCOMPARE(PanelPlacement::requestPanelFrame(panel, terminal, screens, primary), expected);
    }

    void restoredScratchFrame_data()
    {
        QTest::addColumn<QRectF>("stored");
        QTest::addColumn<int>("currentHeight");
        QTest::addColumn<OptionalRect>("workArea");
        QTest::addColumn<OptionalRect>("expected");

        const OptionalRect area = laptop.workArea;
        QTest::newRow("inside: width kept, current height grown up from the stored bottom")
            << QRectF(100, 200, 600, 300) << 150 << area << OptionalRect(QRect(100, 350, 600, 150));
        QTest::newRow("width 2000 comes back as 1100")
            << QRectF(50, 100, 2000, 200) << 150 << area << OptionalRect(QRect(50, 150, 1100, 150));
        QTest::newRow("width 100 comes back as 360")
            << QRectF(50, 100, 100, 200) << 150 << area << OptionalRect(QRect(50, 150, 360, 150));
        QTest::newRow("off screen to the bottom right")
            << QRectF(3000, 2000, 500, 200) << 150 << area << OptionalRect(QRect(780, 650, 500, 150));
        QTest::newRow("off screen to the top left, above the tray")
            << QRectF(-900, -500, 500, 200) << 150 << area << OptionalRect(QRect(0, 28, 500, 150));
        QTest::newRow("wider than the work area: the right edge stays visible")
            << QRectF(300, 200, 1100, 200) << 150 << OptionalRect(QRect(0, 0, 1000, 800))
            << OptionalRect(QRect(-100, 250, 1100, 150));
        QTest::newRow("taller than the work area: the top edge stays visible")
            << QRectF(100, 200, 600, 300) << 900 << area << OptionalRect(QRect(100, 28, 600, 900));
        QTest::newRow("no screen: as stored") << QRectF(-900, -500, 500, 200) << 150 << OptionalRect()
                                              << OptionalRect(QRect(-900, -450, 500, 150));
        QTest::newRow("no width: ignored") << QRectF(10, 10, 0, 200) << 150 << area << OptionalRect();
    }

    void restoredScratchFrame()
    {
        QFETCH(QRectF, stored);
        QFETCH(int, currentHeight);
        QFETCH(OptionalRect, workArea);
        QFETCH(OptionalRect, expected);

        QCOMPARE(PanelPlacement::restoredScratchFrame(stored, QRect(400, 400, 520, currentHeight), workArea),
                 expected);
    }

    void storeRestoresThroughUserDefaults()
    {
        TestEnvironment environment;
        UserDefaults defaults(environment.path(u"defaults.conf"_s));
        ScratchWindowFrameStore store(defaults);
        const QRect current(0, 0, 520, 150);

        QCOMPARE(store.restoredFrame(current, laptop.workArea), OptionalRect());

        store.save(QRect(3000, 200, 2000, 300));
        QCOMPARE(defaults.string(u"ScratchWindowFrame"_s),
                 std::optional<QString>(u"{{3000, 200}, {2000, 300}}"_s));
        QCOMPARE(store.restoredFrame(current, laptop.workArea), OptionalRect(QRect(180, 350, 1100, 150)));
        // An unreadable stored frame restores nothing; empty frames are restoredScratchFrame's.
        defaults.setString(u"ScratchWindowFrame"_s, u"somewhere"_s);
        QCOMPARE(store.restoredFrame(current, laptop.workArea), OptionalRect());
    }
};

QTEST_GUILESS_MAIN(PanelPlacementTest)
#include "tst_panelplacement.moc"
