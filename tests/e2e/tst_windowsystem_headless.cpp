// The window system where there is no X display: an empty desktop, never a crash.

#include "platform/WindowSystem.h"
#include "platform/linux/FloatingWindowHints.h"
#include "platform/linux/X11WindowSystem.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>
#include <QTest>
#include <QWindow>

using namespace Qt::StringLiterals;

class WindowSystemHeadlessTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void reportsAnEmptyDesktop()
    {
        const std::unique_ptr<WindowSystem> windows = WindowSystem::create();
        QVERIFY(!windows->isAvailable());
        QVERIFY(windows->topLevelWindows().isEmpty());
        QVERIFY(!windows->activeWindow());
        QVERIFY(!windows->activateWindow(1));
        QVERIFY(!windows->activateApplication(QCoreApplication::applicationPid()));
        QVERIFY(!windows->compositorRunning());

        // Screens still come from Qt, so that panels can be placed on any platform.
        const QList<ScreenArea> screens = windows->screens();
        QCOMPARE(screens.size(), QGuiApplication::screens().size());
        QCOMPARE(screens.value(0).workArea, QGuiApplication::primaryScreen()->availableGeometry());
        QCOMPARE(windows->primaryScreenIndex(), 0);

        // Executables are named from /proc, display or not.
        QCOMPARE(windows->executableName(QCoreApplication::applicationPid()),
                 QFileInfo(QCoreApplication::applicationFilePath()).fileName());
        QCOMPARE(windows->executableName(0), QString());
        QCOMPARE(windows->executableName(std::numeric_limits<qint32>::max()), QString());
    }

    void screenNumberOfDisplayNames()
    {
        QCOMPARE(X11WindowSystem::screenNumber(u":0"_s), 0);
        QCOMPARE(X11WindowSystem::screenNumber(u":1.2"_s), 2);
        QCOMPARE(X11WindowSystem::screenNumber(u"localhost:10.1"_s), 1);
        QCOMPARE(X11WindowSystem::screenNumber(u"/tmp/launch-x/org.xquartz:0"_s), 0);
        QCOMPARE(X11WindowSystem::screenNumber(QString()), 0);
    }

    void floatingHintsLastUntilTheFirstFrame()
    {
        // A tiling compositor floats what it sees at the map as unable to change size; once the first frame
        // is out, the user can resize it again.
        const FloatingWindowHints hints;
        QWindow window;
        window.setMinimumSize(QSize(100, 80));
        window.resize(300, 200);
        window.show();
        QCOMPARE(window.maximumSize(), QSize(300, 200));
        QCOMPARE(window.minimumSize(), QSize(300, 200));
        QTRY_COMPARE(window.minimumSize(), QSize(100, 80));
        QCOMPARE(window.maximumSize(), QWindow().maximumSize());
        // Pop-ups are placed by their parent and left alone.
        QWindow popup;
        popup.setFlags(Qt::Popup);
        popup.resize(50, 50);
        popup.show();
        QCOMPARE(popup.maximumSize(), QWindow().maximumSize());
    }
};

int main(int argc, char **argv)
{
    // Even where the user's own display is at hand, this is about having none.
    qunsetenv("DISPLAY");
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    WindowSystemHeadlessTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_windowsystem_headless.moc"
