// Quick tasks from the desktop: the real tarvel with the fake backends first on its PATH,
// scratch composers opened from the tray menu or by a second start, attachments pasted
// through the X clipboard, session rows clicked in the tray menu, and the completion
// notification answered through dunst. Runs inside tests/e2e/desktop-session.sh.
#include "TrayMenuGeometry.h"

#include <QBuffer>
#include <QImage>
#include <QTemporaryDir>

using namespace desktop_test;
using Variables = QMap<QString, QString>;

namespace {
QImage windowImage(const QString &window)
{
    QProcess import;
    import.start(QStringLiteral("import"), {QStringLiteral("-window"), window, QStringLiteral("png:-")});
    import.waitForFinished(10000);
    return QImage::fromData(import.readAllStandardOutput(), "PNG");
}
} // namespace

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

    // While the backend's version check runs, and when no backend answers it, typing goes
    // nowhere and Ctrl+Return only beeps; once it has answered, the prompt is submitted.
    void composerSubmitsOnlyOnceItsBackendIsReady_data()
    {
        QTest::addColumn<Variables>("environment");
        QTest::addColumn<bool>("available");
        QTest::newRow("slow version check")
            << Variables{{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("1.5")}} << true;
        QTest::newRow("no backend answers")
            << Variables{{QStringLiteral("FAKE_CODEX_VERSION_EXIT"), QStringLiteral("1")},
                         {QStringLiteral("FAKE_CLAUDE_VERSION_EXIT"), QStringLiteral("1")},
                         {QStringLiteral("FAKE_OPENCODE_VERSION_EXIT"), QStringLiteral("1")}}
            << false;
    }
    void composerSubmitsOnlyOnceItsBackendIsReady()
    {
        QFETCH(Variables, environment);
        QFETCH(bool, available);
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes, environment);
        app.start();
        const QString answered = fakes.recordPath(QStringLiteral("codex.version-answered"));
        QFile::remove(answered);
        const QString composer = app.openComposerFromMenu();
        type(QStringLiteral("early"));
        screenshot(QStringLiteral("scratch-checking"), composer);
        QVERIFY2(!QFile::exists(answered), "the check ended before the composer could be seen checking");
        key(QStringLiteral("ctrl+Return"));
        if (available)
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(available ? 500 : 2500); // the answer reaches the composer through the event loop
        screenshot(available ? QStringLiteral("scratch-ready") : QStringLiteral("scratch-unavailable"),
                   composer);
        QCOMPARE(app.composerWindow(), composer);

        type(QStringLiteral("Summarize the notes"));
        key(QStringLiteral("ctrl+Return"));
        if (!available) {
            QTest::qWait(1500);
            QCOMPARE(app.composerWindow(), composer);
            QVERIFY(fakes.recorded(QStringLiteral("codex.argv")).isEmpty());
            QVERIFY(app.sessions().isEmpty());
            key(QStringLiteral("Escape"));
            QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);
            return;
        }
        QCOMPARE(lastArgument(fakes), QStringLiteral("Summarize the notes"));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 15000);
    }

    // Dragging the panel's background moves it; a quick click there only returns the keyboard
    // to the prompt, and what is typed next arrives.
    void backgroundDragMovesAndClickKeepsTyping()
    {
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes, kQuickCheck);
        app.start();
        const QString composer = app.openReadyComposer();
        const Geometry before = geometry(composer);
        // The header row, right of its title: background.
        const QPoint grip(before.right() - 40, before.y + 12);
        xdotool({QStringLiteral("mousemove"), QString::number(grip.x()), QString::number(grip.y()),
                 QStringLiteral("mousedown"), QStringLiteral("1")});
        for (int step = 1; step <= 10; ++step) {
            QTest::qWait(30);
            xdotool({QStringLiteral("mousemove"), QString::number(grip.x() - 12 * step),
                     QString::number(grip.y() + 8 * step)});
        }
        xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
        QTRY_VERIFY_WITH_TIMEOUT(geometry(composer).x < before.x - 60, 5000);
        QVERIFY(geometry(composer).y > before.y + 40);

        const Geometry moved = geometry(composer);
        click(moved.right() - 40, moved.y + 12);
        type(QStringLiteral("after the click"));
        key(QStringLiteral("ctrl+Return"));
        QCOMPARE(lastArgument(fakes), QStringLiteral("after the click"));
    }

    // Prompt, a pasted image and a pasted file, submitted from a composer opened in the tray
    // menu; while the task runs, a row in the menu and a blinking icon.
    void quickTaskWithAttachmentsRunsAndSucceeds()
    {
        Variables environment = kQuickCheck;
        environment.insert(
            QStringLiteral("FAKE_STEPS"),
            m_fakes.writeSteps({
                QStringLiteral("sleep 3"),
                QStringLiteral("out {\"type\":\"thread.started\",\"thread_id\":\"t1\"}\\n"),
                QStringLiteral("out {\"type\":\"item.completed\",\"item\":{\"id\":\"i0\",\"type\":"
                               "\"agent_message\",\"text\":\"The picture is blue.\"}}\\n"),
            }));
        m_app = std::make_unique<Application>(m_root.filePath(QStringLiteral("main")), m_fakes, environment);
        Application &app = *m_app;
        // Notifications of earlier tests would offer their own "Copy" in dunst's menu.
        run(QStringLiteral("dunstctl"), {QStringLiteral("close-all")});
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
        m_pastedImage = imports.filePath(imports.entryList(QDir::Files).constFirst());
        const auto files = pasteFiles({m_notes});
        screenshot(QStringLiteral("scratch-with-attachments"), app.composerWindow());
        key(QStringLiteral("ctrl+Return"));

        // A model of codex's own list and an effort; the picture as an image; both folders
        // readable; the prompt names the attachments in their order.
        const QStringList arguments = m_fakes.nextArguments(QStringLiteral("codex"));
        QVERIFY(arguments.size() > 7);
        QCOMPARE(arguments.mid(0, 3), (QStringList{QStringLiteral("exec"), QStringLiteral("--json"),
                                                   QStringLiteral("--skip-git-repo-check")}));
        const QString model = valuesOf(arguments, QStringLiteral("--model")).value(0);
        const QJsonArray models =
            QJsonDocument::fromJson(readFile(app.home() + QStringLiteral("/.codex/models_cache.json")))
                .object()
                .value(u"models")
                .toArray();
        QVERIFY2(std::any_of(models.begin(), models.end(),
                             [&](const QJsonValue &entry) { return entry[u"slug"].toString() == model; }),
                 qPrintable(model));
        QVERIFY(QRegularExpression(QStringLiteral("^model_reasoning_effort=\"\\w+\"$"))
                    .match(valuesOf(arguments, QStringLiteral("-c")).value(0))
                    .hasMatch());
        QCOMPARE(valuesOf(arguments, QStringLiteral("-C")), QStringList{app.home()});
        QCOMPARE(valuesOf(arguments, QStringLiteral("--add-dir")),
                 (QStringList{app.importFolder(), QFileInfo(m_notes).path()}));
        QCOMPARE(valuesOf(arguments, QStringLiteral("--image")), QStringList{m_pastedImage});
        QCOMPARE(arguments.at(arguments.size() - 2), QStringLiteral("--"));
        QCOMPARE(attachedPaths(arguments.constLast()), (QStringList{m_pastedImage, m_notes}));
        QVERIFY(arguments.constLast().endsWith(QStringLiteral(" items.\n\nDescribe the picture")));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);

        QCOMPARE(app.sessionStatus(), QStringLiteral("running"));
        app.openMenu();
        screenshot(QStringLiteral("menu-running"));
        app.closeMenu();
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
        QCOMPARE(app.sessions().at(0).toObject().value(u"finalResponse").toString(),
                 QStringLiteral("The picture is blue."));
        // Still: the icon stops blinking with its prompt line shown.
        QTest::qWait(800);
        const QImage still = windowImage(app.trayIconWindow());
        QTest::qWait(800);
        QCOMPARE(windowImage(app.trayIconWindow()), still);
    }

    // dunst shows the completion; its "Copy" action, chosen in dunst's context menu, copies the answer.
    void notificationCopyActionCopiesTheResponse()
    {
        if (!m_app || m_pastedImage.isEmpty())
            QSKIP("needs the finished task of the previous test");
        QTRY_VERIFY_WITH_TIMEOUT(dunstCount(QStringLiteral("displayed")) >= 1, 10000);
        screenshot(QStringLiteral("notification"));
        {
            ClipboardOwner other(QStringLiteral("UTF8_STRING"), "something else");
            QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QStringLiteral("something else"), 5000);
        }
        run(QStringLiteral("dunstctl"), {QStringLiteral("context")});
        QTest::qWait(1000); // dmenu maps and grabs the keyboard
        type(QStringLiteral("Copy"));
        key(QStringLiteral("Return"));
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QStringLiteral("The picture is blue."), 10000);
    }

    // Delete in the row removes the session and the pasted image it owned; the menu stays open.
    void deleteRemovesTheRowAndTheOwnedImage()
    {
        if (!m_app || m_pastedImage.isEmpty())
            QSKIP("needs the finished task of the previous test");
        Application &app = *m_app;
        QCOMPARE(app.sessions().size(), 1);
        QVERIFY(QFile::exists(m_pastedImage));
        const QString menu = app.openMenu();
        screenshot(QStringLiteral("menu-rows"));
        const int heightWithRow = geometry(menu).height;
        clickInlineButton(menu, {QStringLiteral("Copy"), QStringLiteral("Retry"), QStringLiteral("Delete")},
                          QStringLiteral("Delete"));
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(m_pastedImage), 5000);
        QVERIFY(QFile::exists(m_notes));
        QCOMPARE(app.menuWindow(), menu);
        QTRY_VERIFY_WITH_TIMEOUT(geometry(menu).height < heightWithRow, 5000);
        app.closeMenu();
        m_app.reset();
    }

    // Stop on a task that ignores SIGINT and SIGTERM and has a child of its own ends them
    // all; "Clear Finished Tasks" then removes the stopped session.
    void stopEndsTheWholeProcessGroup()
    {
        m_app.reset(); // a copy still running would take the next start for a second one
        QTemporaryDir root;
        FakeBackends fakes;
        Variables environment = kQuickCheck;
        environment.insert(
            QStringLiteral("FAKE_STEPS"),
            fakes.writeSteps({QStringLiteral("ignore-stop-signals"), QStringLiteral("grandchild"),
                              QStringLiteral("ready"), QStringLiteral("hang")}));
        Application app(root.path(), fakes, environment);
        app.start();
        app.openReadyComposer();
        type(QStringLiteral("Run forever"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_VERIFY_WITH_TIMEOUT(fakes.isReady(), 15000);
        const std::optional<pid_t> grandchild = fakes.grandchildProcessIdentifier();
        QVERIFY(grandchild);
        QVERIFY(isProcessAlive(*grandchild));
        QCOMPARE(app.sessionStatus(), QStringLiteral("running"));

        const QString menu = app.openMenu();
        screenshot(QStringLiteral("menu-stop"));
        clickInlineButton(menu, {QStringLiteral("Stop")}, QStringLiteral("Stop"));
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000); // Stop closes the menu
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("cancelled"), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!isProcessAlive(*grandchild), 5000);

        clickClearFinishedTasks(app.openMenu());
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000);
    }

private:
    static QString lastArgument(const FakeBackends &fakes)
    {
        const QStringList arguments = fakes.nextArguments(QStringLiteral("codex"));
        return arguments.isEmpty() ? QStringLiteral("<codex did not run>") : arguments.constLast();
    }

    const Variables kQuickCheck{{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")}};
    QTemporaryDir m_root;
    const QString m_notes = m_root.filePath(QStringLiteral("files/notes.txt"));
    FakeBackends m_fakes;
    std::unique_ptr<Application> m_app;
    QString m_pastedImage;
};

QTEST_MAIN(QuickTaskEndToEndTest)
#include "tst_quicktask_e2e.moc"
