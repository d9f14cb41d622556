// The composer as the external editor of the real codex, claude and opencode screens: each tool
// from `make real-tools` runs in tmux in an xterm on the headless desktop with tarvel-edit as
// its VISUAL, offline against the loopback model server. A draft goes out through the tool's own
// editor key, an `@` and a few letters in the composer offer a file of the test's repository,
// Tab puts it in, and the text with its `@path` comes back into the tool's prompt. Runs inside
// loopback-only.sh and desktop-session.sh; skips a tool that is not installed.
#include "DesktopTestSupport.h"
#include "LoopbackModelServer.h"
#include "RealToolProfile.h"
#include "support/TestEnvironment.h"

#include <QElapsedTimer>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>

using namespace desktop_test;

namespace {

const QString kFile = QStringLiteral("src/parser/lexer.cpp");
const QString kSession = QStringLiteral("tarvel");
// The tools start node and read their configuration; on two shared cores that takes a while.
constexpr int kScreenTimeout = 90000;
constexpr int kComposerTimeout = 30000;

// tmux on a server of the test's own.
class Tmux final {
public:
    explicit Tmux(const Application &app)
        : m_environment(app.environment())
    {
    }
    ~Tmux() { run({QStringLiteral("kill-server")}); }

    QString run(const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(m_environment);
        process.start(QStringLiteral("tmux"), QStringList{QStringLiteral("-L"), kSession} + arguments);
        process.waitForFinished(10000);
        return QString::fromUtf8(process.readAllStandardOutput());
    }
    QString screen() const
    {
        return run({QStringLiteral("capture-pane"), QStringLiteral("-p"), QStringLiteral("-t"), kSession});
    }
    void typeText(const QString &text) const
    {
        run({QStringLiteral("send-keys"), QStringLiteral("-t"), kSession, QStringLiteral("-l"), text});
    }
    void press(const QString &keys) const
    {
        run({QStringLiteral("send-keys"), QStringLiteral("-t"), kSession, keys});
    }

    // Waits until the screen has drawn something and stayed the same for a while: the tool's prompt.
    bool waitForSettledScreen() const
    {
        QElapsedTimer timer;
        timer.start();
        QString last;
        int unchanged = 0;
        while (timer.elapsed() < kScreenTimeout) {
            QTest::qWait(500);
            const QString now = screen();
            unchanged = now == last && now.trimmed().size() > 20 ? unchanged + 1 : 0;
            last = now;
            if (unchanged >= 4)
                return true;
        }
        return false;
    }

private:
    QProcessEnvironment m_environment;
};

bool completionListShows()
{
    return !xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                     QStringLiteral("^Tarvel Completions$")})
                .isEmpty();
}

} // namespace

class RealToolsScreenTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        if (QStandardPaths::findExecutable(QStringLiteral("tmux")).isEmpty())
            QSKIP("tmux is not installed.");
        const QString isolation = RealToolProfile::networkIsolationProblem();
        QVERIFY2(isolation.isEmpty(), qPrintable(isolation));
        for (const QString &name : RealToolProfile::clearedVariables())
            m_environment.unset(name.toLatin1().constData());
    }

    void draftComesBackWithAMention_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        // The key that hands the draft to the editor, and how long to let a typed draft settle
        // first: codex takes a burst of keys for a paste and ignores its editor key meanwhile.
        QTest::addColumn<QStringList>("editorKeys");
        QTest::addColumn<int>("settleMs");
        QTest::newRow("codex") << QuickTaskCLIBackend::codex << QStringList{QStringLiteral("C-g")} << 1200;
        QTest::newRow("claude") << QuickTaskCLIBackend::claude << QStringList{QStringLiteral("C-g")} << 300;
        QTest::newRow("opencode") << QuickTaskCLIBackend::opencode
                                  << QStringList{QStringLiteral("C-x"), QStringLiteral("e")} << 300;
    }
    void draftComesBackWithAMention()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QStringList, editorKeys);
        QFETCH(int, settleMs);
        if (const QString reason = RealToolProfile::missingReason(backend); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        const QString name = BackendProfiles::of(backend).rawValue();
        QTemporaryDir root;
        LoopbackModelServer server(root.filePath(QStringLiteral("requests.jsonl")));
        QVERIFY2(server.port() > 0, "The loopback model server did not start.");
        const RealToolProfile profile(backend, server);
        QMap<QString, QString> variables = profile.variables();
        variables.insert(QStringLiteral("TMUX_TMPDIR"), root.filePath(QStringLiteral("tmux")));
        QDir().mkpath(root.filePath(QStringLiteral("tmux")));
        Application app(root.filePath(QStringLiteral("app")), variables);
        const QString repo = root.filePath(QStringLiteral("repo"));
        for (const QString &file : {kFile, QStringLiteral("README.md")})
            writeFile(repo + u'/' + file, "x\n");
        run(QStringLiteral("git"),
            {QStringLiteral("-C"), repo, QStringLiteral("init"), QStringLiteral("-q")});
        run(QStringLiteral("git"), {QStringLiteral("-C"), repo, QStringLiteral("add"), QStringLiteral(".")});
        QCOMPARE(profile.writeConfigurationFiles(app.environment()), QString());
        QCOMPARE(profile.writeInteractiveSettings(app.environment(), repo), QString());
        app.start();

        // The tool runs in tmux, which an xterm shows; where no terminal can start (a user
        // namespace cannot hand a pty to the tty group) tmux alone is the terminal.
        const Tmux tmux(app);
        tmux.run({QStringLiteral("new-session"), QStringLiteral("-d"), QStringLiteral("-s"), kSession,
                  QStringLiteral("-x"), QStringLiteral("100"), QStringLiteral("-y"), QStringLiteral("30"),
                  QStringLiteral("-c"), repo, name});
        QProcess xterm;
        const auto closeTerminal = qScopeGuard([&xterm] {
            xterm.kill();
            xterm.waitForFinished(3000);
        });
        startXterm(xterm, app, QStringLiteral("exec tmux -L %1 attach -t %1").arg(kSession));
        if (xterm.waitForFinished(2000))
            qInfo("No xterm here (%s); the tool runs in tmux alone.",
                  xterm.readAllStandardError().trimmed().constData());
        const bool settled = tmux.waitForSettledScreen();
        screenshot(QStringLiteral("realtools-tui-%1-ready").arg(name));
        QVERIFY2(settled, qPrintable(tmux.screen()));

        tmux.typeText(QStringLiteral("Explain"));
        QTest::qWait(settleMs);
        for (const QString &key : editorKeys)
            tmux.press(key);
        QString composer;
        QTRY_VERIFY2_WITH_TIMEOUT(!(composer = app.composerWindow()).isEmpty(), qPrintable(tmux.screen()),
                                  kComposerTimeout);
        QTest::qWait(300);
        activate(composer);
        key(QStringLiteral("ctrl+End"));
        type(QStringLiteral(" @lexc"));
        QTRY_VERIFY_WITH_TIMEOUT(completionListShows(), 10000);
        screenshot(QStringLiteral("realtools-tui-%1-mention").arg(name));
        key(QStringLiteral("Tab"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 10000);

        const QString mention = u'@' + kFile;
        QTRY_VERIFY2_WITH_TIMEOUT(tmux.screen().contains(mention), qPrintable(tmux.screen()), 20000);
        screenshot(QStringLiteral("realtools-tui-%1-back").arg(name));
        QVERIFY(tmux.screen().contains(QStringLiteral("Explain")));
    }

private:
    TestEnvironment m_environment;
};

QTEST_GUILESS_MAIN(RealToolsScreenTest)
#include "tst_realtools_tui.moc"
