// The composer's editing aids on a real desktop: an `@` mention of a file of the repository that
// `git commit` runs in, completed with Tab into the commit message; then the prompt history, which
// outlives a SIGKILL right after the answer and brings the prompt back with Up and with the search.
// Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"

#include <QTemporaryDir>

using namespace desktop_test;

namespace {

const QString kFile = QStringLiteral("src/parser/lexer.cpp");

// The list is a window of its own that never takes the keyboard (an override-redirect one on X11,
// which carries no process id).
bool completionListShows()
{
    return !xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                     QStringLiteral("^Tarvel Completions$")})
                .isEmpty();
}

} // namespace

class EditingEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
    }

    void mentionIntoACommitThenHistoryAfterAKill()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")));
        app.start();
        const GitCommitInXterm commit(root, app, {kFile, QStringLiteral("README.md")});
        const QString composer = app.waitForComposer();
        type(QStringLiteral("Use @lexc"));
        QTRY_VERIFY_WITH_TIMEOUT(completionListShows(), 5000);
        QTest::qWait(200); // the list follows the last key
        screenshot(QStringLiteral("editing-mention-list"));
        key(QStringLiteral("Tab"));
        QTRY_VERIFY(!completionListShows());
        type(QStringLiteral("in the fix"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_COMPARE_WITH_TIMEOUT(commit.status(), QByteArray("0"), 10000);
        const QString message = QStringLiteral("Use @%1 in the fix").arg(kFile);
        QCOMPARE(commit.lastMessage(), message);
        // Killed as soon as the answer is there: the prompt was kept before it.
        app.kill(SIGKILL);
        const QString history = app.dataFolder() + QStringLiteral("/History/prompts.json");
        QVERIFY(readFile(history).contains(message.toUtf8().replace("/", "\\/")));
        QCOMPARE(QFileInfo(history).permissions() & 0x0777, QFile::ReadUser | QFile::WriteUser);

        // After a restart, Up in an empty composer of the same folder recalls it.
        app.start();
        const QString recalled = root.filePath(QStringLiteral("recalled.md"));
        writeFile(recalled, {});
        const auto upHelper = startHelper(app, recalled, commit.repository());
        activate(app.waitForComposer());
        key(QStringLiteral("Up"));
        QTest::qWait(200);
        key(QStringLiteral("ctrl+Return"));
        QVERIFY(upHelper->waitForFinished(10000));
        QVERIFY(readFile(recalled).contains(message.toUtf8()));

        // The search finds it by a few letters, and fills the composer without sending it.
        const QString searched = root.filePath(QStringLiteral("searched.md"));
        writeFile(searched, {});
        const auto searchHelper = startHelper(app, searched, commit.repository());
        activate(app.waitForComposer());
        key(QStringLiteral("ctrl+shift+h"));
        QTest::qWait(300);
        type(QStringLiteral("lexer fix"));
        QTest::qWait(200);
        screenshot(QStringLiteral("editing-history-search"));
        key(QStringLiteral("Return"));
        QTest::qWait(500);
        QCOMPARE(searchHelper->state(), QProcess::Running);
        key(QStringLiteral("ctrl+Return"));
        QVERIFY(searchHelper->waitForFinished(10000));
        QVERIFY(readFile(searched).contains(message.toUtf8()));
    }
};

QTEST_GUILESS_MAIN(EditingEndToEndTest)
#include "tst_editing_e2e.moc"
