// Quick tasks from the desktop: the real tarvel with the fake backends first on its PATH,
// scratch composers opened from the tray menu or by a second start, attachments pasted
// through the X clipboard and session rows clicked in the tray menu. Runs inside
// tests/e2e/desktop-session.sh.
#include "TrayMenuGeometry.h"
#include "WindowImage.h"

#include <QBuffer>
#include <QImage>
#include <QTemporaryDir>

using namespace desktop_test;
using Variables = QMap<QString, QString>;

class QuickTaskEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("xclip")).isEmpty(), "xclip is needed");
        QVERIFY(m_root.isValid());
        writeFile(m_notes, "notes\n");
    }

    // Dragging the panel's background moves it, dragging its sides resizes it; a quick click there
    // only returns the keyboard to the prompt, and what is typed next arrives. Stop in the running
    // row cancels that task (that it ends the whole process group is tst_quicktaskmanager's);
    // "Clear Finished Tasks" then removes the stopped session.
    void backgroundDragMovesClickKeepsTypingAndStopCancels()
    {
        QTemporaryDir root;
        FakeBackends fakes;
        Variables environment = kQuickCheck;
        environment.insert(QStringLiteral("FAKE_STEPS"),
                           fakes.writeSteps({QStringLiteral("ready"), QStringLiteral("hang")}));
        Application app(root.path(), fakes, environment);
        app.start();
        const QString composer = app.openReadyComposer();
        const Geometry before = geometry(composer);
        // Presses at from and travels to to (on the screen) in steps of at most 20 pixels.
        const auto drag = [](const QPoint &from, QPoint to) {
            to = QPoint(std::clamp(to.x(), 0, 1279), std::clamp(to.y(), 0, 799));
            xdotool({QStringLiteral("mousemove"), QString::number(from.x()), QString::number(from.y()),
                     QStringLiteral("mousedown"), QStringLiteral("1")});
            const int steps = std::max((to - from).manhattanLength() / 20, 10);
            for (int step = 1; step <= steps; ++step) {
                QTest::qWait(30);
                const QPoint at = from + (to - from) * step / steps;
                xdotool({QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y())});
            }
            xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
        };
        // The header row, right of its title: background.
        const QPoint grip(before.right() - 40, before.y + 12);
        drag(grip, grip + QPoint(-120, 80));
        QTRY_VERIFY_WITH_TIMEOUT(geometry(composer).x < before.x - 60, 5000);
        QVERIFY(geometry(composer).y > before.y + 40);

        // The sides resize it through the window manager, from 360 to 1100 pixels wide, while the
        // height stays the text's; the scratch composer keeps the width with its frame.
        const int middle = geometry(composer).centerY();
        drag(QPoint(geometry(composer).right() - 2, middle), QPoint(1279, middle));
        QTRY_VERIFY_WITH_TIMEOUT(geometry(composer).width > before.width + 200, 5000);
        drag(QPoint(geometry(composer).x + 1, middle), QPoint(0, middle));
        QTRY_COMPARE_WITH_TIMEOUT(geometry(composer).width, 1100, 5000);
        drag(QPoint(geometry(composer).right() - 2, middle), QPoint(0, middle));
        QTRY_COMPARE_WITH_TIMEOUT(geometry(composer).width, 360, 5000);
        QCOMPARE(geometry(composer).height, before.height);
        QTRY_VERIFY_WITH_TIMEOUT(QSettings(app.settingsFile(), QSettings::IniFormat)
                                     .value(QStringLiteral("ScratchWindowFrame"))
                                     .toString()
                                     .contains(QStringLiteral(", {360, ")),
                                 5000);

        const Geometry moved = geometry(composer);
        click(moved.right() - 40, moved.y + 12);
        type(QStringLiteral("after the click"));
        key(QStringLiteral("ctrl+Return"));
        const QStringList arguments = fakes.nextArguments(QStringLiteral("codex"));
        QVERIFY2(!arguments.isEmpty(), "codex did not run");
        QCOMPARE(arguments.constLast(), QStringLiteral("after the click"));
        QTRY_VERIFY_WITH_TIMEOUT(fakes.isReady(), 15000);
        QCOMPARE(app.sessionStatus(), QStringLiteral("running"));

        const QString menu = app.openMenu();
        screenshot(QStringLiteral("menu-stop"));
        clickInlineButton(menu, {QStringLiteral("Stop")}, QStringLiteral("Stop"));
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000); // Stop closes the menu
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("cancelled"), 10000);

        clickClearFinishedTasks(app.openMenu());
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000);
    }

    // Prompt, a pasted image and a pasted file, submitted from a composer opened in the tray
    // menu; while the task runs, a blinking icon (its row is on the drag test's "menu-stop"
    // screenshot); once it has finished, Delete in its row.
    void quickTaskWithAttachmentsRunsSucceedsAndIsDeleted()
    {
        Variables environment = kQuickCheck;
        // Long enough to see the row and the blinking icon; the answer is tst_quicktaskmanager's.
        environment.insert(QStringLiteral("FAKE_STEPS"), m_fakes.writeSteps({QStringLiteral("sleep 3")}));
        Application app(m_root.filePath(QStringLiteral("main")), m_fakes, environment);
        app.start();
        app.readyComposerAfter([&] { app.openComposerFromMenu(); });

        type(QStringLiteral("Describe the picture"));
        QImage picture(48, 32, QImage::Format_RGB32);
        picture.fill(QColor(30, 120, 200));
        QByteArray png;
        QBuffer buffer(&png);
        QVERIFY(buffer.open(QIODevice::WriteOnly) && picture.save(&buffer, "PNG"));
        {
            ClipboardOwner image(QStringLiteral("image/png"), png);
            key(QStringLiteral("ctrl+v"));
            QTRY_COMPARE_WITH_TIMEOUT(QDir(app.importFolder()).entryList(QDir::Files).size(), 1, 5000);
        }
        const QDir imports(app.importFolder());
        const QString pastedImage = imports.filePath(imports.entryList(QDir::Files).constFirst());
        const auto files = pasteFiles({m_notes});
        screenshot(QStringLiteral("scratch-with-attachments"), app.composerWindow());
        key(QStringLiteral("ctrl+Return"));

        // A model of codex's own list; the pasted picture as an image; the prompt names the
        // attachments in their order (the argument list itself is tst_invocation's).
        const QStringList arguments = m_fakes.nextArguments(QStringLiteral("codex"));
        QVERIFY(!arguments.isEmpty());
        const QString model = valuesOf(arguments, QStringLiteral("--model")).value(0);
        const QJsonArray models =
            QJsonDocument::fromJson(readFile(app.home() + QStringLiteral("/.codex/models_cache.json")))
                .object()
                .value(u"models")
                .toArray();
        QVERIFY2(std::any_of(models.begin(), models.end(),
                             [&](const QJsonValue &entry) { return entry[u"slug"].toString() == model; }),
                 qPrintable(model));
        QCOMPARE(valuesOf(arguments, QStringLiteral("--image")), QStringList{pastedImage});
        QCOMPARE(attachedPaths(arguments.constLast()), (QStringList{pastedImage, m_notes}));
        QVERIFY(arguments.constLast().endsWith(QStringLiteral(" items.\n\nDescribe the picture")));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);

        QCOMPARE(app.sessionStatus(), QStringLiteral("running"));
        QList<QImage> icons;
        QElapsedTimer blinking;
        blinking.start();
        while (blinking.elapsed() < 2000 && app.sessionStatus() == u"running") {
            const QImage icon = windowImage(app.trayIconWindow());
            if (!icon.isNull() && !icons.contains(icon))
                icons.append(icon);
            QTest::qWait(150);
        }
        QVERIFY2(icons.size() >= 2, "the tray icon did not change while the task ran");

        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 20000);
        // Still: the icon stops blinking with its prompt line shown.
        QTest::qWait(800);
        const QImage still = windowImage(app.trayIconWindow());
        QTest::qWait(800);
        QCOMPARE(windowImage(app.trayIconWindow()), still);

        // Delete in the row: the row goes, the menu stays open (what the session owned goes
        // with it, tst_quicktaskmanager).
        const QString menu = app.openMenu();
        screenshot(QStringLiteral("menu-rows"));
        const int heightWithRow = geometry(menu).height;
        clickInlineButton(menu, {QStringLiteral("Copy"), QStringLiteral("Retry"), QStringLiteral("Delete")},
                          QStringLiteral("Delete"));
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QCOMPARE(app.menuWindow(), menu);
        QTRY_VERIFY_WITH_TIMEOUT(geometry(menu).height < heightWithRow, 5000);
        app.closeMenu();
    }

private:
    const Variables kQuickCheck{{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")}};
    QTemporaryDir m_root;
    const QString m_notes = m_root.filePath(QStringLiteral("files/notes.txt"));
    FakeBackends m_fakes;
};

QTEST_MAIN(QuickTaskEndToEndTest)
#include "tst_quicktask_e2e.moc"
