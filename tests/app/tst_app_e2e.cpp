// The application on a real desktop: xterm, git and tarvel-edit against the real
// tarvel, driven with xdotool. Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"

#include <QTemporaryDir>

using namespace desktop_test;

namespace {
// The window manager's frame around a client window, as _NET_FRAME_EXTENTS gives it.
Geometry outerGeometry(const QString &windowId)
{
    const QString text =
        run(QStringLiteral("xprop"), {QStringLiteral("-id"), windowId, QStringLiteral("_NET_FRAME_EXTENTS")});
    QList<int> extents; // left, right, top, bottom
    for (const QString &part : text.section(u'=', 1).split(u',', Qt::SkipEmptyParts))
        extents.append(part.trimmed().toInt());
    if (extents.size() != 4)
        extents = {0, 0, 0, 0};
    const Geometry client = geometry(windowId);
    return {client.x - extents[0], client.y - extents[2], client.width + extents[0] + extents[1],
            client.height + extents[2] + extents[3]};
}

} // namespace

class AppEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
    }

    void gitCommitThroughTheComposer()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")));
        app.start();
        const GitCommitInXterm commit(root, app);
        const QString composer = app.waitForComposer();
        screenshot(QStringLiteral("composer-over-xterm"));

        // Over the xterm: centred on it, its bottom 20 pixels above the xterm's bottom.
        const QStringList xtermWindows = windowsOf(commit.xterm().processId());
        QVERIFY(!xtermWindows.isEmpty());
        const Geometry terminal = outerGeometry(xtermWindows.constFirst());
        const Geometry panel = geometry(composer);
        QVERIFY2(qAbs(panel.centerX() - terminal.centerX()) <= 2 &&
                     qAbs(panel.bottom() - (terminal.bottom() - 20)) <= 2,
                 qPrintable(QStringLiteral("panel %1,%2 terminal %3,%4")
                                .arg(panel.centerX())
                                .arg(panel.bottom())
                                .arg(terminal.centerX())
                                .arg(terminal.bottom())));
        QCOMPARE(activeWindow(), composer);

        type(QStringLiteral("Fix the parser"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_COMPARE_WITH_TIMEOUT(commit.status(), QByteArray("0"), 10000);
        QCOMPARE(commit.lastMessage(), QStringLiteral("Fix the parser"));
        // The focus goes back to the terminal that asked.
        QTRY_COMPARE_WITH_TIMEOUT(activeWindow(), xtermWindows.constFirst(), 5000);
    }

    // Requests wait their turn oldest first: the next one follows an answer without any new
    // notification, and the waiting ones, the one on screen too, outlive a crash.
    void requestsQueueOldestFirstAndSurviveACrash()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")));
        app.start();
        std::vector<std::unique_ptr<QProcess>> helpers;
        QStringList files;
        for (const char *name : {"one", "two", "three"}) {
            files << root.filePath(QString::fromLatin1(name));
            writeFile(files.last(), name);
            helpers.push_back(startHelper(app, files.last()));
            // Each request is on disk before the next, so that their order is known.
            QTRY_COMPARE(QDir(app.dataFolder() + QStringLiteral("/Requests")).entryList(QDir::Files).size(),
                         qsizetype(helpers.size()));
        }
        const auto answer = [&](int index) {
            app.waitForComposer();
            type(QStringLiteral(" %1").arg(index));
            key(QStringLiteral("ctrl+Return"));
            QVERIFY(helpers[index]->waitForFinished(10000));
            QCOMPARE(helpers[index]->exitCode(), 0);
        };
        answer(0);
        app.waitForComposer();
        app.kill(SIGKILL);
        app.start();
        answer(1);
        answer(2);
        for (int index = 0; index < 3; ++index)
            QCOMPARE(readFile(files[index]),
                     QFileInfo(files[index]).fileName().toUtf8() + ' ' + QByteArray::number(index));
    }

    // A commit message half typed when Tarvel dies is there again when the next copy serves the same
    // request, and reaches git.
    void typedTextSurvivesACrashIntoTheCommit()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")));
        app.start();
        const GitCommitInXterm commit(root, app);
        activate(app.waitForComposer());
        type(QStringLiteral("Survive the crash"));
        const QString drafts = app.dataFolder() + QStringLiteral("/Drafts");
        QTRY_COMPARE_WITH_TIMEOUT(QDir(drafts).entryList(QDir::Files).size(), qsizetype(1), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(readFile(drafts + u'/' + QDir(drafts).entryList(QDir::Files).constFirst())
                                     .contains("Survive the crash"),
                                 5000);
        QCOMPARE(QFileInfo(drafts + u'/' + QDir(drafts).entryList(QDir::Files).constFirst()).permissions() &
                     0x0777,
                 QFile::ReadUser | QFile::WriteUser); // no group or other bits
        app.kill(SIGKILL);
        app.start(); // within the helper's wait for a new copy
        app.waitForComposer();
        screenshot(QStringLiteral("composer-restored-draft"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_COMPARE_WITH_TIMEOUT(commit.status(), QByteArray("0"), 10000);
        QCOMPARE(commit.lastMessage(), QStringLiteral("Survive the crash"));
        QTRY_VERIFY_WITH_TIMEOUT(QDir(drafts).entryList(QDir::Files).isEmpty(), 5000); // answered: gone
    }

    // Ctrl-C in the terminal while the composer is open: the composer stays with its text, says the
    // terminal stopped waiting, and "Copy and Close" puts the text on the clipboard; no response is
    // written for a helper that is gone.
    void interruptedHelperLeavesTheTextToCopy()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")));
        app.start();
        const QString file = root.filePath(QStringLiteral("prompt.md"));
        writeFile(file, "");
        const QString status = root.filePath(QStringLiteral("status"));
        QProcess xterm;
        startXterm(xterm, app,
                   QStringLiteral("trap true INT; '%1' '%2'; echo $? > '%3'; sleep 60")
                       .arg(kTarvelEdit, file, status));
        const QString composer = app.waitForComposer();
        type(QStringLiteral("Nothing typed is lost"));
        activate(windowsOf(xterm.processId()).value(0));
        key(QStringLiteral("ctrl+c"));
        QTRY_COMPARE_WITH_TIMEOUT(readFile(status).trimmed(), QByteArray("130"), 10000);
        QTest::qWait(500);
        QCOMPARE(app.composerWindow(), composer);
        activate(composer);
        screenshot(QStringLiteral("composer-withdrawn"), composer);
        key(QStringLiteral("ctrl+Return"));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QStringLiteral("Nothing typed is lost"), 5000);
        QVERIFY(QDir(app.dataFolder() + QStringLiteral("/Responses")).entryList(QDir::Files).isEmpty());
        QCOMPARE(readFile(file), QByteArray());
        xterm.kill();
        xterm.waitForFinished();
    }

    // A data folder that cannot be prepared is recorded after the log has been read, never over it.
    void startUpFailureKeepsTheErrorLog()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")));
        writeFile(app.dataFolder() + QStringLiteral("/Requests"), "a file where the folder belongs");
        writeFile(app.dataFolder() + QStringLiteral("/Errors/errors.json"),
                  R"([{"detail":"d","id":"8F0E3C2A-5B1D-4C6E-9A7F-1D2E3F4A5B6C",)"
                  R"("recordedAt":"2026-11-20T10:00:00Z","source":"Launch","title":"Earlier problem."}])");
        app.start();
        QTRY_VERIFY_WITH_TIMEOUT(!app.otherWindow({}).isEmpty(), 10000); // the alert, once free
        const QJsonArray entries =
            QJsonDocument::fromJson(readFile(app.dataFolder() + QStringLiteral("/Errors/errors.json")))
                .array();
        QStringList titles;
        for (const QJsonValue &entry : entries)
            titles.append(entry.toObject().value(u"title").toString());
        QVERIFY2(titles.contains(QStringLiteral("Failed to prepare app support data.")),
                 qPrintable(titles.join(u'|')));
        QCOMPARE(titles.constLast(), QStringLiteral("Earlier problem."));
    }

    void quitWithAWaitingRequestCancelsIt()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")));
        app.start();
        const QString file = root.filePath(QStringLiteral("edit.txt"));
        writeFile(file, "keep this");
        auto helper = startHelper(app, file);
        app.waitForComposer();

        // Quit is the tray menu's last item; "Quit" is the confirmation's default button.
        app.openMenu();
        screenshot(QStringLiteral("status-menu"));
        key(QStringLiteral("Up"));
        key(QStringLiteral("Return"));
        QTest::qWait(800);
        screenshot(QStringLiteral("quit-confirmation"));
        key(QStringLiteral("Return"));
        QVERIFY(app.waitForExit(10000));

        QVERIFY(helper->waitForFinished(10000));
        QCOMPARE(helper->exitCode(), 1);
        QVERIFY(helper->readAllStandardError().contains("tarvel-edit: editing cancelled"));
    }
};

QTEST_GUILESS_MAIN(AppEndToEndTest)
#include "tst_app_e2e.moc"
