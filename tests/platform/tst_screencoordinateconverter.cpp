// The Mac's window-server rectangles in the toolkit's coordinates (through the display that
// holds their midpoint) and back in Qt's.
#include "platform/ScreenCoordinateConverter.h"

#include <QTest>

using ScreenCoordinateConverter::Display;

namespace {

// A 1440×900 primary display, a 1920×1080 one above it and a 1280×1024 one to its left, as the
// window server and the toolkit see them.
const Display primary{{0, 0, 1440, 900}, {0, 0, 1440, 900}};
const Display above{{0, -1080, 1920, 1080}, {0, 900, 1920, 1080}};
const Display left{{-1280, 0, 1280, 1024}, {-1280, -124, 1280, 1024}};
const QList<Display> arrangement{primary, above, left};

} // namespace

class ScreenCoordinateConverterTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void appKitRect_data()
    {
        QTest::addColumn<QRectF>("quartz");
        QTest::addColumn<QList<Display>>("displays");
        QTest::addColumn<std::optional<QRectF>>("mainScreen");
        QTest::addColumn<QRectF>("expected");

        const std::optional<QRectF> main = primary.screenFrame;
        QTest::newRow("display above the primary, in fractions")
            << QRectF(200.5, -1000.25, 600, 400) << arrangement << main << QRectF(200.5, 1500.25, 600, 400);
        QTest::newRow("display to the left")
            << QRectF(-1000, 100, 400, 300) << arrangement << main << QRectF(-1000, 500, 400, 300);
        // Frames that do not line up with the bounds show which display placed the rectangle.
        const Display shifted{{0, 0, 1440, 900}, {10000, 0, 1440, 900}};
        QTest::newRow("first display holding the midpoint wins")
            << QRectF(100, 50, 800, 600) << QList<Display>{shifted, primary} << main
            << QRectF(10100, 250, 800, 600);
        const Display right{{1440, 0, 1000, 900}, {20000, 0, 1000, 900}};
        QTest::newRow("midpoint on a shared border belongs to the display starting there")
            << QRectF(1240, 100, 400, 200) << QList<Display>{primary, right} << main
            << QRectF(19800, 600, 400, 200);
        QTest::newRow("midpoint on the bottom edge is outside")
            << QRectF(100, 800, 400, 200) << QList<Display>{shifted} << main << QRectF(100, -100, 400, 200);
        QTest::newRow("no display: flipped against the main screen")
            << QRectF(5000, 100, 400, 300) << arrangement << main << QRectF(5000, 500, 400, 300);
        QTest::newRow("no display, no main screen: flipped against its own bottom")
            << QRectF(10, 20, 30, 40) << QList<Display>{} << std::optional<QRectF>{} << QRectF(10, 0, 30, 40);
    }

    void appKitRect()
    {
        QFETCH(QRectF, quartz);
        QFETCH(QList<Display>, displays);
        QFETCH(std::optional<QRectF>, mainScreen);
        const QRectF toolkit = ScreenCoordinateConverter::appKitRect(quartz, displays, mainScreen);
        QTEST(toolkit, "expected");
        // Qt's desktop coordinates are the window server's: on the arrangement, whose displays agree
        // with the toolkit's, the two conversions undo each other.
        if (displays.size() == arrangement.size())
            QCOMPARE(ScreenCoordinateConverter::desktopRect(toolkit, primary.screenFrame.height()), quartz);
    }
};

QTEST_APPLESS_MAIN(ScreenCoordinateConverterTest)
#include "tst_screencoordinateconverter.moc"
