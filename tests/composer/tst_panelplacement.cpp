#include "composer/PanelPlacement.h"
#include "composer/ScratchWindowFrameStore.h"
#include "core/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QTest>

using OptionalRect = std::optional<QRect>;

class PanelPlacementTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void requestPanel_data();
    void requestPanel();
    void requestPanelWithoutScreens();
    void restoredScratchFrame_data();
    void restoredScratchFrame();
    void frameStringRoundTrip();
    void parseFrameString_data();
    void parseFrameString();
    void storeRestoresThroughUserDefaults();
};

namespace {

// 1280x800 with a 28-pixel tray along the top.
const ScreenArea laptop{QRect(0, 0, 1280, 800), QRect(0, 28, 1280, 772)};

} // namespace

void PanelPlacementTest::requestPanel_data()
{
    QTest::addColumn<QList<ScreenArea>>("screens");
    QTest::addColumn<int>("primary");
    QTest::addColumn<OptionalRect>("terminal");
    QTest::addColumn<QSize>("panel");
    QTest::addColumn<QRect>("expected");

    const QSize panel(520, 120);
    QTest::newRow("centred over the terminal, bottom 20 above its bottom")
        << QList{laptop} << 0 << OptionalRect(QRect(100, 150, 486, 341)) << panel << QRect(83, 351, 520, 120);
    QTest::newRow("left margin") << QList{laptop} << 0 << OptionalRect(QRect(0, 100, 300, 400)) << panel
                                 << QRect(12, 360, 520, 120);
    QTest::newRow("terminal reaching below the screen: bottom margin")
        << QList{laptop} << 0 << OptionalRect(QRect(600, 500, 600, 400)) << panel
        << QRect(640, 668, 520, 120);
    QTest::newRow("wider than the work area less 24: the right margin wins")
        << QList{laptop} << 0 << OptionalRect(QRect(100, 150, 486, 341)) << QSize(1270, 120)
        << QRect(-2, 351, 1270, 120);
    QTest::newRow("taller than the work area: the top margin wins")
        << QList{laptop} << 0 << OptionalRect(QRect(100, 150, 486, 341)) << QSize(520, 790)
        << QRect(83, 40, 520, 790);
    QTest::newRow("no terminal: centred, bottom 40 above the work area's")
        << QList{laptop} << 0 << OptionalRect() << panel << QRect(380, 640, 520, 120);

    // A second display stacked above the primary, at negative y.
    const ScreenArea primary{QRect(0, 0, 1920, 1080), QRect(0, 0, 1920, 1040)};
    const ScreenArea above{QRect(320, -1024, 1280, 1024), QRect(320, -1024, 1280, 1024)};
    QTest::newRow("terminal on a display above the primary")
        << QList{primary, above} << 0 << OptionalRect(QRect(520, -700, 600, 400)) << panel
        << QRect(560, -440, 520, 120);
    QTest::newRow("clamped to the display above, not to the primary")
        << QList{primary, above} << 0 << OptionalRect(QRect(1200, -1100, 600, 200)) << panel
        << QRect(1068, -1012, 520, 120);
    QTest::newRow("no terminal: the primary screen even when listed second")
        << QList{above, primary} << 1 << OptionalRect() << panel << QRect(700, 880, 520, 120);
    QTest::newRow("terminal off every screen: clamped to the primary")
        << QList{above, primary} << 1 << OptionalRect(QRect(5000, 300, 600, 400)) << panel
        << QRect(1388, 560, 520, 120);

    // Side by side: the screen holding the terminal's centre is the one used.
    const ScreenArea right{QRect(1280, 0, 1280, 800), QRect(1280, 0, 1280, 800)};
    QTest::newRow("terminal straddling two screens goes by its centre")
        << QList{laptop, right} << 0 << OptionalRect(QRect(1000, 100, 700, 400)) << panel
        << QRect(1292, 360, 520, 120);
}

void PanelPlacementTest::requestPanel()
{
    QFETCH(QList<ScreenArea>, screens);
    QFETCH(int, primary);
    QFETCH(OptionalRect, terminal);
    QFETCH(QSize, panel);
    QFETCH(QRect, expected);

    QCOMPARE(PanelPlacement::requestPanelFrame(panel, terminal, screens, primary), OptionalRect(expected));
}

void PanelPlacementTest::requestPanelWithoutScreens()
{
    QCOMPARE(PanelPlacement::requestPanelFrame(QSize(520, 120), QRect(0, 0, 500, 300), {}, 0),
             OptionalRect());
}

void PanelPlacementTest::restoredScratchFrame_data()
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
    QTest::newRow("no screen: as stored")
        << QRectF(-900, -500, 500, 200) << 150 << OptionalRect() << OptionalRect(QRect(-900, -450, 500, 150));
    QTest::newRow("empty: ignored") << QRectF(0, 0, 0, 0) << 150 << area << OptionalRect();
    QTest::newRow("no width: ignored") << QRectF(10, 10, 0, 200) << 150 << area << OptionalRect();
}

void PanelPlacementTest::restoredScratchFrame()
{
    QFETCH(QRectF, stored);
    QFETCH(int, currentHeight);
    QFETCH(OptionalRect, workArea);
    QFETCH(OptionalRect, expected);

    QCOMPARE(PanelPlacement::restoredScratchFrame(stored, QRect(400, 400, 520, currentHeight), workArea),
             expected);
}

void PanelPlacementTest::frameStringRoundTrip()
{
    QCOMPARE(ScratchWindowFrameStore::frameString(QRect(100, -350, 600, 150)),
             QStringLiteral("{{100, -350}, {600, 150}}"));
    const QRectF fractional(12.25, 0.1, 640.5, 1e-3);
    QCOMPARE(ScratchWindowFrameStore::parseFrameString(ScratchWindowFrameStore::frameString(fractional)),
             std::optional<QRectF>(fractional));
}

void PanelPlacementTest::parseFrameString_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<std::optional<QRectF>>("expected");

    QTest::newRow("spaced") << QStringLiteral(" {{ 1 ,-2 },{3.5, 4e2}} ")
                            << std::optional<QRectF>(QRectF(1, -2, 3.5, 400));
    QTest::newRow("three numbers") << QStringLiteral("{{1, 2}, {3}}") << std::optional<QRectF>();
    QTest::newRow("words") << QStringLiteral("{{x, y}, {w, h}}") << std::optional<QRectF>();
    QTest::newRow("trailing text") << QStringLiteral("{{1, 2}, {3, 4}} and more") << std::optional<QRectF>();
    QTest::newRow("empty") << QString() << std::optional<QRectF>();
}

void PanelPlacementTest::parseFrameString()
{
    QFETCH(QString, text);
    QFETCH(std::optional<QRectF>, expected);

    QCOMPARE(ScratchWindowFrameStore::parseFrameString(text), expected);
}

void PanelPlacementTest::storeRestoresThroughUserDefaults()
{
    TestEnvironment environment;
    UserDefaults defaults(environment.path(QStringLiteral("defaults.conf")));
    ScratchWindowFrameStore store(defaults);
    const QRect current(0, 0, 520, 150);

    QCOMPARE(store.restoredFrame(current, laptop.workArea), OptionalRect());

    store.save(QRect(3000, 200, 2000, 300));
    QCOMPARE(defaults.string(QStringLiteral("ScratchWindowFrame")),
             std::optional<QString>(QStringLiteral("{{3000, 200}, {2000, 300}}")));
    QCOMPARE(store.restoredFrame(current, laptop.workArea), OptionalRect(QRect(180, 350, 1100, 150)));

    defaults.setString(QStringLiteral("ScratchWindowFrame"), QStringLiteral("{{10, 10}, {0, 0}}"));
    QCOMPARE(store.restoredFrame(current, laptop.workArea), OptionalRect());
    defaults.setString(QStringLiteral("ScratchWindowFrame"), QStringLiteral("somewhere"));
    QCOMPARE(store.restoredFrame(current, laptop.workArea), OptionalRect());
}

QTEST_GUILESS_MAIN(PanelPlacementTest)
#include "tst_panelplacement.moc"
