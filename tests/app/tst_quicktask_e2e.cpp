// Quick tasks from the desktop: the real tarvel with the fake backends first on its PATH,
// scratch composers opened from the tray menu or by a second start, attachments pasted
// through the X clipboard, session rows clicked in the tray menu, and the completion
// notification answered through dunst. Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"

#include <QApplication>
#include <QTemporaryDir>

using namespace desktop_test;

class QuickTaskEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("xclip")).isEmpty(), "xclip is needed");
        QVERIFY(m_root.isValid());
        writeFile(m_root.filePath(QStringLiteral("files/notes.txt")), "notes\n");
        QImage picture(48, 32, QImage::Format_RGB32);
        picture.fill(QColor(30, 120, 200));
        QVERIFY(picture.save(m_root.filePath(QStringLiteral("picture.png"))));
    }

    // Checking, then ready; typing while the check runs goes nowhere.
    void composerChecksTheBackendThenBecomesReady()
    {
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes,
                        {{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("1.5")}});
        app.start();
        const QString answered =
            QDir(fakes.recordDirectory()).filePath(QStringLiteral("codex.version-answered"));

        QFile::remove(answered);
        const QString composer = app.openComposerFromMenu();
        type(QStringLiteral("early"));
        screenshot(QStringLiteral("scratch-checking"), composer);
        QVERIFY2(!QFile::exists(answered), "the check ended before the composer could be seen checking");
        key(QStringLiteral("ctrl+Return")); // not ready: a beep, nothing else
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(500); // the answer reaches the composer through the event loop
        QCOMPARE(app.composerWindow(), composer);
        screenshot(QStringLiteral("scratch-ready"), composer);

        QFile::remove(answered);
        type(QStringLiteral("Summarize the notes"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_VERIFY_WITH_TIMEOUT(!fakes.recorded(QStringLiteral("codex.argv")).isEmpty(), 15000);
        QCOMPARE(fakes.recordedArguments(QStringLiteral("codex")).constLast(),
                 QStringLiteral("Summarize the notes"));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 15000);
    }

    // Dragging the panel's background moves it; a quick click there only returns the keyboard
    // to the prompt, and what is typed next arrives.
    void backgroundDragMovesAndClickKeepsTyping()
    {
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes,
                        {{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")}});
        app.start();
        app.startAgain();
        const QString composer = app.waitForComposer();
        QTRY_VERIFY_WITH_TIMEOUT(
            QFile::exists(QDir(fakes.recordDirectory()).filePath(QStringLiteral("codex.version-answered"))),
            10000);
        QTest::qWait(500);
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
        QTRY_VERIFY_WITH_TIMEOUT(!fakes.recorded(QStringLiteral("codex.argv")).isEmpty(), 15000);
        QCOMPARE(fakes.recordedArguments(QStringLiteral("codex")).constLast(),
                 QStringLiteral("after the click"));
    }

    // No backend answers its version query: the composer says so and submits nothing.
    void unavailableBackendSubmitsNothing()
    {
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes,
                        {{QStringLiteral("FAKE_CODEX_VERSION_EXIT"), QStringLiteral("1")},
                         {QStringLiteral("FAKE_CLAUDE_VERSION_EXIT"), QStringLiteral("1")},
                         {QStringLiteral("FAKE_OPENCODE_VERSION_EXIT"), QStringLiteral("1")}});
        app.start();
        app.startAgain();
        const QString composer = app.waitForComposer();
        QTest::qWait(2500); // the three checks fail fast; let the overlay settle
        screenshot(QStringLiteral("scratch-unavailable"), composer);
        type(QStringLiteral("anything"));
        key(QStringLiteral("ctrl+Return"));
        QTest::qWait(1500);
        QCOMPARE(app.composerWindow(), composer);
        QVERIFY(fakes.recorded(QStringLiteral("codex.argv")).isEmpty());
        QVERIFY(app.sessions().isEmpty());
        key(QStringLiteral("Escape"));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);
    }

    // Prompt, a pasted image and a pasted file, submitted from a composer opened in the tray menu.
    void quickTaskWithAttachmentsRunsAndSucceeds()
    {
        m_app = std::make_unique<Application>(
            m_root.filePath(QStringLiteral("main")), m_fakes,
            QMap<QString, QString>{
                {QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")},
                {QStringLiteral("FAKE_STEPS"),
                 m_fakes.writeSteps({
                     QStringLiteral("sleep 3"),
                     QStringLiteral("out {\"type\":\"thread.started\",\"thread_id\":\"t1\"}\\n"),
                     QStringLiteral("out {\"type\":\"item.completed\",\"item\":{\"id\":\"i0\",\"type\":"
                                    "\"agent_message\",\"text\":\"The picture is blue.\"}}\\n"),
                 })}});
        Application &app = *m_app;
        // Notifications of earlier tests would offer their own "Copy" in dunst's menu.
        run(QStringLiteral("dunstctl"), {QStringLiteral("close-all")});
        app.start();
        const QString answered =
            QDir(m_fakes.recordDirectory()).filePath(QStringLiteral("codex.version-answered"));
        QFile::remove(answered);
        app.openComposerFromMenu();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(500);

        type(QStringLiteral("Describe the picture"));
        {
            ClipboardOwner image(QStringLiteral("image/png"), m_root.filePath(QStringLiteral("picture.png")));
            QTRY_VERIFY_WITH_TIMEOUT(ClipboardOwner::offers(QStringLiteral("image/png")), 5000);
            key(QStringLiteral("ctrl+v"));
            QTRY_COMPARE_WITH_TIMEOUT(QDir(app.importFolder()).entryList(QDir::Files).size(), 1, 5000);
        }
        const QString pasted = QDir(app.importFolder()).entryList(QDir::Files).constFirst();
        QVERIFY2(QRegularExpression(
                     QStringLiteral(
                         "^Pasted Image \\d{4}-\\d\\d-\\d\\d \\d\\d\\.\\d\\d\\.\\d\\d [0-9A-F]{6}\\.png$"))
                     .match(pasted)
                     .hasMatch(),
                 qPrintable(pasted));
        m_pastedImage = QDir(app.importFolder()).filePath(pasted);
        const QString notes = m_root.filePath(QStringLiteral("files/notes.txt"));
        const QString uriList = m_root.filePath(QStringLiteral("uri-list"));
        writeFile(uriList, QUrl::fromLocalFile(notes).toEncoded() + "\r\n");
        ClipboardOwner files(QStringLiteral("text/uri-list"), uriList);
        QTRY_VERIFY_WITH_TIMEOUT(ClipboardOwner::offers(QStringLiteral("text/uri-list")), 5000);
        key(QStringLiteral("ctrl+v"));
        screenshot(QStringLiteral("scratch-with-attachments"), app.composerWindow());
        QFile::remove(answered);
        key(QStringLiteral("ctrl+Return"));

        QTRY_VERIFY_WITH_TIMEOUT(!m_fakes.recorded(QStringLiteral("codex.argv")).isEmpty(), 15000);
        const QStringList arguments = m_fakes.recordedArguments(QStringLiteral("codex"));
        QVERIFY(arguments.size() > 7);
        const QString model = arguments.at(4);
        const QString effort = arguments.at(6).section(u'"', 1, 1);
        const QJsonArray models =
            QJsonDocument::fromJson(readFile(app.home() + QStringLiteral("/.codex/models_cache.json")))
                .object()
                .value(u"models")
                .toArray();
        bool known = false;
        for (const QJsonValue &entry : models)
            known = known || entry.toObject().value(u"slug").toString() == model;
        QVERIFY2(known, qPrintable(model));
        const QString prompt =
            QStringLiteral(
                "Attached Paths\n--------------\nThe following files and folders were attached from "
                "Tarvel and are available on disk:\n- ") +
            m_pastedImage + QStringLiteral("\n- ") + notes +
            QStringLiteral("\n\nUse these exact paths when reading, editing, or referencing the attached "
                           "items.\n\nDescribe the picture");
        const QStringList expected{QStringLiteral("exec"),
                                   QStringLiteral("--json"),
                                   QStringLiteral("--skip-git-repo-check"),
                                   QStringLiteral("--model"),
                                   model,
                                   QStringLiteral("-c"),
                                   QStringLiteral("model_reasoning_effort=\"%1\"").arg(effort),
                                   QStringLiteral("-C"),
                                   app.home(),
                                   QStringLiteral("--add-dir"),
                                   app.importFolder(),
                                   QStringLiteral("--add-dir"),
                                   m_root.filePath(QStringLiteral("files")),
                                   QStringLiteral("--image"),
                                   m_pastedImage,
                                   QStringLiteral("--"),
                                   prompt};
        QCOMPARE(arguments, expected);
        QVERIFY(!effort.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);

        // While it runs: a row in the menu, and the icon blinks.
        QCOMPARE(app.sessionStatus(), QStringLiteral("running"));
        const QString menu = app.openMenu();
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
        Q_UNUSED(menu);

        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 20000);
        QCOMPARE(app.sessions().at(0).toObject().value(u"finalResponse").toString(),
                 QStringLiteral("The picture is blue."));
        // Still: the icon stops blinking with its prompt line shown.
        QTest::qWait(800);
        const QImage still = windowImage(app.trayIconWindow());
        QTest::qWait(800);
        QCOMPARE(windowImage(app.trayIconWindow()), still);
        app.openMenu();
        screenshot(QStringLiteral("menu-rows"));
        app.closeMenu();
    }

    // dunst shows the completion; its "Copy" action, chosen in dunst's context menu, copies the answer.
    void notificationCopyActionCopiesTheResponse()
    {
        if (!m_app || m_pastedImage.isEmpty())
            QSKIP("needs the finished task of the previous test");
        QTRY_VERIFY_WITH_TIMEOUT(dunstCount(QStringLiteral("displayed")) >= 1, 10000);
        screenshot(QStringLiteral("notification"));
        writeFile(m_root.filePath(QStringLiteral("other.txt")), "something else\n");
        {
            ClipboardOwner other(QStringLiteral("UTF8_STRING"), m_root.filePath(QStringLiteral("other.txt")));
            QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QStringLiteral("something else"), 5000);
        }
        run(QStringLiteral("dunstctl"), {QStringLiteral("context")});
        QTest::qWait(1000); // dmenu maps and grabs the keyboard
        screenshot(QStringLiteral("notification-context-menu"));
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
        // The first test run here (the composer's own check) left nothing; one session is listed.
        QCOMPARE(app.sessions().size(), 1);
        QVERIFY(QFile::exists(m_pastedImage));
        const QString menu = app.openMenu();
        const int heightWithRow = geometry(menu).height;
        clickInlineButton(menu, {QStringLiteral("Copy"), QStringLiteral("Retry"), QStringLiteral("Delete")},
                          QStringLiteral("Delete"));
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(m_pastedImage), 5000);
        QVERIFY(QFile::exists(m_root.filePath(QStringLiteral("files/notes.txt"))));
        QTest::qWait(300);
        screenshot(QStringLiteral("menu-after-delete"));
        QCOMPARE(app.menuWindow(), menu);
        QTRY_VERIFY_WITH_TIMEOUT(geometry(menu).height < heightWithRow, 5000);
        app.closeMenu();
        m_app.reset();
    }

    // Stop on a task that ignores SIGINT and SIGTERM and has a child of its own.
    void stopEndsTheWholeProcessGroup()
    {
        m_app.reset(); // a copy still running would take the next start for a second one
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(
            root.path(), fakes,
            {{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")},
             {QStringLiteral("FAKE_STEPS"),
              fakes.writeSteps({QStringLiteral("ignore-stop-signals"), QStringLiteral("grandchild"),
                                QStringLiteral("ready"), QStringLiteral("hang")})}});
        app.start();
        const QString answered =
            QDir(fakes.recordDirectory()).filePath(QStringLiteral("codex.version-answered"));
        app.startAgain();
        app.waitForComposer();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(500);
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
        const QString stopped = app.openMenu();
        screenshot(QStringLiteral("menu-stopped"));

        // "Clear Finished Tasks" removes the stopped session.
        clickInMenu(stopped, menuOffset({}, {}, true));
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000);
    }

    // OpenCode takes files only: a pasted folder gets the alert and is not attached.
    void openCodeRefusesFolders()
    {
        m_app.reset(); // a copy still running would take the next start for a second one
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes,
                        {{QStringLiteral("FAKE_OPENCODE_VERSION_DELAY"), QStringLiteral("0.1")}});
        writeFile(app.settingsFile(), "[General]\nQuickTaskBackend=opencode\n");
        app.start();
        const QString answered =
            QDir(fakes.recordDirectory()).filePath(QStringLiteral("opencode.version-answered"));
        app.startAgain();
        const QString composer = app.waitForComposer();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(500);
        screenshot(QStringLiteral("scratch-ready-opencode"), composer);

        const QString folder = m_root.filePath(QStringLiteral("files"));
        const QString uriList = root.filePath(QStringLiteral("uri-list"));
        writeFile(uriList, QUrl::fromLocalFile(folder).toEncoded() + "\r\n");
        {
            ClipboardOwner owner(QStringLiteral("text/uri-list"), uriList);
            QTRY_VERIFY_WITH_TIMEOUT(ClipboardOwner::offers(QStringLiteral("text/uri-list")), 5000);
            key(QStringLiteral("ctrl+v"));
            answerFolderAlertThenSubmit(app, fakes, composer, QStringLiteral("opencode-folder-alert"));
        }
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 15000);
    }

private:
    QTemporaryDir m_root;
    FakeBackends m_fakes;
    std::unique_ptr<Application> m_app;
    QString m_pastedImage;
};

QTEST_MAIN(QuickTaskEndToEndTest)
#include "tst_quicktask_e2e.moc"
