// The application on a real desktop: xterm, git and tarvel-edit against the real tarvel, driven
// with xdotool; the composer's editing aids in a commit. Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"

#include <QTemporaryDir>

using namespace desktop_test;

namespace {
const QString kFile = u"src/parser/lexer.cpp"_s;
} // namespace

class AppEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_root.emplace().isValid());
        m_app.emplace(m_root->filePath(u"app"_s));
    }
    void cleanup()
    {
        m_app.reset();
        m_root.reset();
    }

    // A commit message half typed when Tarvel dies is there again when the next copy serves the same
    // request, over the xterm that asked, and reaches git; the focus then goes back to the xterm.
    void typedTextSurvivesACrashIntoTheCommit()
    {
        m_app->start();
        const GitCommitInXterm commit(*m_root, *m_app);
        activate(m_app->waitForComposer());
        type(u"Survive the crash"_s);
        const QString drafts = m_app->dataFolder() + u"/Drafts"_s;
        const auto draft = [&] {
            const QStringList files = QDir(drafts).entryList(QDir::Files);
            return files.size() == 1 ? readFile(drafts + u'/' + files.constFirst()) : QByteArray();
        };
        QTRY_VERIFY_WITH_TIMEOUT(draft().contains("Survive the crash"), 5000);
        m_app->kill(SIGKILL);
        m_app->start(); // within the helper's wait for a new copy
        const QString composer = m_app->waitForComposer();
        screenshot(u"composer-restored-draft"_s);

        // Over the xterm: centred on it, its bottom 20 pixels above the xterm's bottom.
        const QRect terminal = frameGeometry(commit.terminalWindow());
        const QRect panel = geometry(composer).rect();
        QVERIFY2(qAbs(panel.center().x() - terminal.center().x()) <= 2 &&
                     qAbs(panel.bottom() - (terminal.bottom() - 20)) <= 2,
                 qPrintable(QDebug::toString(panel) + QDebug::toString(terminal)));
        QCOMPARE(activeWindow(), composer);
        key(u"ctrl+Return"_s);
        QTRY_COMPARE_WITH_TIMEOUT(commit.status(), QByteArray("0"), 10000);
        QCOMPARE(commit.lastMessage(), u"Survive the crash"_s);
        QTRY_COMPARE_WITH_TIMEOUT(activeWindow(), commit.terminalWindow(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(QDir(drafts).isEmpty(), 5000); // answered: gone
    }

    // An `@` mention of a file of the repository that git commit runs in, completed with Tab; then
    // the prompt history, which outlives a SIGKILL right after the answer and brings the prompt back
    // with Up and with the search.
    void mentionIntoACommitThenHistoryAfterAKill()
    {
        m_app->start();
        const GitCommitInXterm commit(*m_root, *m_app, {kFile, u"README.md"_s});
        m_app->waitForComposer();
        type(u"Use @lexc"_s);
        QTRY_VERIFY_WITH_TIMEOUT(completionListShows(), 5000);
        QTest::qWait(200); // the list follows the last key
        screenshot(u"editing-mention-list"_s);
        key(u"Tab"_s);
        QTRY_VERIFY(!completionListShows());
        type(u"in the fix"_s);
        key(u"ctrl+Return"_s);
        QTRY_COMPARE_WITH_TIMEOUT(commit.status(), QByteArray("0"), 10000);
        const QString message = u"Use @%1 in the fix"_s.arg(kFile);
        QCOMPARE(commit.lastMessage(), message);
        // Killed as soon as the answer is there: the prompt was kept before it.
        m_app->kill(SIGKILL);
        const QString history = m_app->dataFolder() + u"/History/prompts.json"_s;
        QVERIFY(readFile(history).contains(message.toUtf8().replace("/", "\\/")));
        QCOMPARE(QFileInfo(history).permissions() & 0x0777, QFile::ReadUser | QFile::WriteUser);

        // After a restart, Up in an empty composer of the same folder recalls it; the search finds it
        // by a few letters, and fills the composer without sending it.
        m_app->start();
        const auto recall = [&](const QString &name, const std::function<void()> &keys) {
            const QString file = m_root->filePath(name);
            writeFile(file, {});
            const auto helper = startHelper(*m_app, file, commit.repository());
            activate(m_app->waitForComposer());
            keys();
            QTest::qWait(500);
            QCOMPARE(helper->state(), QProcess::Running);
            key(u"ctrl+Return"_s);
            QVERIFY(helper->waitForFinished(10000));
            QVERIFY(readFile(file).contains(message.toUtf8()));
        };
        recall(u"recalled.md"_s, [] { key(u"Up"_s); });
        recall(u"searched.md"_s, [] {
            key(u"ctrl+shift+h"_s);
            QTest::qWait(300);
            type(u"lexer fix"_s);
            QTest::qWait(200);
            screenshot(u"editing-history-search"_s);
            key(u"Return"_s);
        });
    }

    // Requests wait their turn oldest first: the next one follows an answer without any new
    // notification, and the waiting ones, the one on screen too, outlive a crash. Quit with one
    // on screen answers it as cancelled.
    void requestsQueueOldestFirstSurviveACrashAndQuitCancels()
    {
        m_app->start();
        std::vector<std::unique_ptr<QProcess>> helpers;
        QStringList files;
        for (const char *name : {"one", "two", "three"}) {
            files << m_root->filePath(QString::fromLatin1(name));
            writeFile(files.last(), name);
            helpers.push_back(startHelper(*m_app, files.last()));
            // Each request is on disk before the next, so that their order is known.
            QTRY_COMPARE(QDir(m_app->dataFolder() + u"/Requests"_s).entryList(QDir::Files).size(),
                         qsizetype(helpers.size()));
        }
        const auto answer = [&](int index) {
            m_app->waitForComposer();
            type(u" %1"_s.arg(index));
            key(u"ctrl+Return"_s);
            QVERIFY(helpers[index]->waitForFinished(10000));
            QCOMPARE(helpers[index]->exitCode(), 0);
            QCOMPARE(readFile(files[index]),
                     QFileInfo(files[index]).fileName().toUtf8() + ' ' + QByteArray::number(index));
        };
        answer(0);
        m_app->waitForComposer();
        m_app->kill(SIGKILL);
        m_app->start();
        answer(1);
        m_app->waitForComposer();

        // Quit is the tray menu's last item; "Quit" is the confirmation's default button.
        m_app->chooseFromMenu(-1);
        QTest::qWait(800);
        screenshot(u"quit-confirmation"_s);
        key(u"Return"_s);
        QVERIFY(m_app->waitForExit(10000));
        QVERIFY(helpers[2]->waitForFinished(10000));
        QCOMPARE(helpers[2]->exitCode(), 1);
        QVERIFY(helpers[2]->readAllStandardError().contains("tarvel-edit: editing cancelled"));
        QCOMPARE(readFile(files[2]), QByteArray("three"));
    }

    // Ctrl-C in the terminal while the composer is open: the composer stays with its text, says the
    // terminal stopped waiting, and "Copy and Close" puts the text on the clipboard; no response is
    // written for a helper that is gone.
    void interruptedHelperLeavesTheTextToCopy()
    {
        m_app->start();
        const QString file = m_root->filePath(u"prompt.md"_s);
        writeFile(file, "");
        const QString status = m_root->filePath(u"status"_s);
        Xterm xterm;
        startXterm(xterm, *m_app,
                   u"trap true INT; '%1' '%2'; echo $? > '%3'; sleep 60"_s.arg(kTarvelEdit, file, status));
        const QString composer = m_app->waitForComposer();
        type(u"Nothing typed is lost"_s);
        activate(xterm.window());
        key(u"ctrl+c"_s);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(status).trimmed(), QByteArray("130"), 10000);
        QTest::qWait(500);
        QCOMPARE(m_app->composerWindow(), composer);
        activate(composer);
        screenshot(u"composer-withdrawn"_s, composer);
        key(u"ctrl+Return"_s);
        QTRY_VERIFY_WITH_TIMEOUT(m_app->composerWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), u"Nothing typed is lost"_s, 5000);
        QVERIFY(QDir(m_app->dataFolder() + u"/Responses"_s).entryList(QDir::Files).isEmpty());
        QCOMPARE(readFile(file), QByteArray());
    }

    // A data folder that cannot be prepared is recorded after the log has been read, never over it.
    void startUpFailureKeepsTheErrorLog()
    {
        writeFile(m_app->dataFolder() + u"/Requests"_s, "a file where the folder belongs");
        const QString log = m_app->dataFolder() + u"/Errors/errors.json"_s;
        writeFile(log,
                  R"([{"detail":"d","id":"8F0E3C2A-5B1D-4C6E-9A7F-1D2E3F4A5B6C",)"
                  R"("recordedAt":"2026-11-20T10:00:00Z","source":"Launch","title":"Earlier problem."}])");
        m_app->start();
        QTRY_VERIFY_WITH_TIMEOUT(!m_app->otherWindow({}).isEmpty(), 10000); // the alert, once free
        QStringList titles;
        for (const QJsonValue &entry : QJsonDocument::fromJson(readFile(log)).array())
            titles.append(entry[u"title"].toString());
        QVERIFY2(titles.contains(u"Failed to prepare app support data."_s), qPrintable(titles.join(u'|')));
        QCOMPARE(titles.constLast(), u"Earlier problem."_s);
    }

private:
    std::optional<QTemporaryDir> m_root;
    std::optional<Application> m_app;
};

QTEST_GUILESS_MAIN(AppEndToEndTest)
#include "tst_app_e2e.moc"
