// The real codex, claude and opencode, as installed by `make real-tools`, against a stand-in model
// server on the loopback interface, each set up for it (RealToolProfile). For each tool: a prompt
// rewrite through it in this process comes back with the server's draft; and with the real tarvel
// on the headless desktop, the tools first on its PATH, one scenario: a composer opened from the
// tray menu, a prompt typed and a file pasted into it, and the session followed in sessions.json
// until it ends with the server's answer; then the tool's own screen in tmux in an xterm with
// tarvel-edit as its VISUAL: a draft goes out through the tool's editor key, an `@` and a few
// letters in the composer offer a file of the test's repository, Tab puts it in, and the text with
// its `@path` comes back into the tool's prompt. Runs inside loopback-only.sh (so nothing could
// leave the machine anyway) and desktop-session.sh; skips a tool that is not installed.
#include "DesktopTestSupport.h"
#include "LoopbackModelServer.h"
#include "RealToolProfile.h"
#include "core/TarvelError.h"
#include "settings/QuickTaskModelCatalog.h"
#include "support/TestEnvironment.h"
#include "voice/PromptRewriteService.h"

#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTemporaryDir>

using namespace desktop_test;

namespace {

const QString kFile = QStringLiteral("src/parser/lexer.cpp");
const QString kSession = QStringLiteral("tarvel");
// The tools start node and read their configuration; on two shared cores that takes a while.
constexpr int kScreenTimeout = 90000;
constexpr int kComposerTimeout = 30000;

const QString kPrompt = QStringLiteral("Summarize the attached notes in one line.");
const QByteArray kNotes = "Ship on Friday; the release notes still need a line on the new tray menu.";
// opencode needs about a second of processor time to print its version, next to the other
// two checks on two cores: close to the 2 s limit of the check. A check that ran out of time
// leaves the composer unavailable (or on another backend), or refuses the start with an
// alert; that is tried again, and reported.
constexpr int kVersionCheckAttempts = 3;
constexpr int kReadyTimeout = 20000;
constexpr int kTaskTimeout = 120000;

const QString kBackendSetting = u"QuickTaskBackend"_s;

// The composer's text view takes typing only once the composer is ready: a probe typed into
// it comes back through the clipboard. Each probe is new, since tarvel keeps the clipboard of
// a composer that has closed.
bool takesTyping()
{
    static int probes = 0;
    const QString probe = QStringLiteral("probe%1").arg(++probes);
    key(QStringLiteral("ctrl+a"));
    type(probe);
    key(QStringLiteral("ctrl+a"));
    key(QStringLiteral("ctrl+c"));
    return clipboardText() == probe;
}

// What went wrong as the application saw it: its error log and the tasks' raw output.
QString applicationLog(const Application &app)
{
    QString text = QString::fromUtf8(readFile(app.dataFolder() + QStringLiteral("/Errors/errors.json")));
    const QDir rawLogs(app.dataFolder() + QStringLiteral("/QuickTasks/RawLogs"));
    for (const QString &name : rawLogs.entryList(QDir::Files))
        text += u'\n' + name + QStringLiteral(":\n") + QString::fromUtf8(readFile(rawLogs.filePath(name)));
    return text;
}

// A composer opened from the tray menu once it is ready for backend, or empty.
QString openReadyComposer(const Application &app, const QString &backend)
{
    for (int attempt = 1; attempt <= kVersionCheckAttempts; ++attempt) {
        QElapsedTimer timer;
        timer.start();
        const QString composer = app.openComposerFromMenu();
        if (composer.isEmpty())
            return {};
        const bool ready = QTest::qWaitFor(takesTyping, kReadyTimeout);
        if (ready && app.setting(kBackendSetting) == backend) {
            qInfo("%s: the composer was ready %lld ms after it opened", qPrintable(backend),
                  static_cast<long long>(timer.elapsed()));
            return composer;
        }
        qInfo("Attempt %d: after %lld ms the composer %s", attempt, static_cast<long long>(timer.elapsed()),
              ready ? qPrintable(u"went to "_s + app.setting(kBackendSetting).toString()) : "was not ready");
        screenshot(QStringLiteral("realtools-composer-%1-attempt-%2").arg(backend).arg(attempt), composer);
        key(QStringLiteral("Escape"));
        if (!QTest::qWaitFor([&] { return app.composerWindow().isEmpty(); }, 5000))
            return {};
        app.setSetting(kBackendSetting, backend);
    }
    return {};
}

// Submits the composer; true once it has closed, which it does when the task started.
bool submit(const Application &app, const QString &composer)
{
    for (int attempt = 1; attempt <= kVersionCheckAttempts; ++attempt) {
        key(QStringLiteral("ctrl+Return"));
        if (QTest::qWaitFor([&] { return app.composerWindow().isEmpty(); }, 15000))
            return true;
        // A failed start shows an alert.
        const QString alert = app.otherWindow({composer});
        qInfo("Attempt %d: the task did not start: %s", attempt, qPrintable(applicationLog(app)));
        screenshot(QStringLiteral("realtools-start-attempt-%1").arg(attempt));
        if (alert.isEmpty())
            return false;
        // The alert takes no key in its first half second, and has no button armed for Return.
        QTest::qWait(600);
        activate(alert);
        key(QStringLiteral("Escape"));
        if (!QTest::qWaitFor([&] { return !app.visibleWindows().contains(alert); }, 5000))
            return false;
        activate(composer);
    }
    return false;
}

const QString kTranscript = u"um fix the the login bug in auth dot py and uh add a test"_s;
constexpr int kRewriteTimeout = 180000;
// The rewrite's own version check has a limit of 2.0 s, which opencode comes close to on a busy
// machine: a time-out of it is tried again (and reported); anything else fails at once.
constexpr int kRewriteAttempts = 5;

// A preset the preferences would offer for the tool; opencode's from the tool's own configuration.
QuickTaskPreset rewritePreset(QuickTaskCLIBackend backend)
{
    const QList<QuickTaskModelCatalog::Model> models = BackendProfiles::of(backend).availableModels();
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        return {u"gpt-5.5"_s, u"low"_s};
    case QuickTaskCLIBackend::claude:
        return {models.constFirst().identifier, models.constFirst().resolvedDefaultReasoningEffort()};
    case QuickTaskCLIBackend::opencode:
        for (const QuickTaskModelCatalog::Model &model : models) {
            if (model.identifier.contains(u"echo"_s))
                return {model.identifier, u"low"_s};
        }
    }
    return {};
}

// The rewrite's draft, or what went wrong in failure.
QString rewrite(const QString &folder, QuickTaskCLIBackend backend, QString &failure)
{
    PromptRewriteService service;
    for (int attempt = 1; attempt <= kRewriteAttempts; ++attempt) {
        QFuture<QString> future = service.rewritePrompt(kTranscript, folder, rewritePreset(backend), backend);
        if (!QTest::qWaitFor([&] { return future.isFinished(); }, kRewriteTimeout)) {
            failure = u"No result within %1 s."_s.arg(kRewriteTimeout / 1000);
            return {};
        }
        try {
            return future.result();
        } catch (const TarvelError &error) {
            failure = error.description();
        }
        if (!failure.contains(u" did not respond to `"_s))
            break;
        qInfo("Attempt %d: %s", attempt, qPrintable(failure));
    }
    return {};
}

// A command in a folder, in tmux on a server of the test's own.
class Tmux final {
public:
    Tmux(const Application &app, const QString &folder, const QString &command)
        : m_environment(app.environment())
    {
        run({u"new-session"_s, u"-d"_s, u"-s"_s, kSession, u"-x"_s, u"100"_s, u"-y"_s, u"30"_s, u"-c"_s,
             folder, command});
    }
    ~Tmux() { run({u"kill-server"_s}); }

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
    // Keys by tmux's names, or after "-l" text as it is.
    void send(const QStringList &keys) const { run(QStringList{u"send-keys"_s, u"-t"_s, kSession} + keys); }

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

} // namespace

class RealToolsComposerTest final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_environment;

    // A quick task from the composer ends with the server's answer, the prompt and the file
    // having reached the server through the base URL the tool was given.
    void runTaskFromTheComposer(const Application &app, QuickTaskCLIBackend backend,
                                const LoopbackModelServer &server, const RealToolProfile &profile,
                                const QString &notes)
    {
        const QString name = BackendProfiles::of(backend).rawValue();
        const QString composer = openReadyComposer(app, name);
        QVERIFY2(!composer.isEmpty(),
                 qPrintable(QStringLiteral("No composer became ready for %1 (see the attempts above). %2")
                                .arg(name, applicationLog(app))));
        key(QStringLiteral("ctrl+a")); // the prompt replaces the probe
        type(kPrompt);
        const auto files = pasteFiles({notes});
        screenshot(QStringLiteral("realtools-composer-") + name, composer);

        QElapsedTimer timer;
        timer.start();
        QVERIFY2(submit(app, composer), qPrintable(applicationLog(app)));
        const bool ended = QTest::qWaitFor(
            [&] {
                const QString status = app.sessionStatus();
                return !status.isEmpty() && status != u"running";
            },
            kTaskTimeout);
        QVERIFY2(ended,
                 qPrintable(QString::fromUtf8(QJsonDocument(app.sessions()).toJson()) + applicationLog(app)));
        qInfo("%s: the task ended %lld ms after it was submitted", qPrintable(name),
              static_cast<long long>(timer.elapsed()));

        QCOMPARE(app.sessions().size(), 1);
        const QJsonObject session = app.sessions().at(0).toObject();
        QVERIFY2(session.value(u"status").toString() == u"succeeded", qPrintable(applicationLog(app)));
        QCOMPARE(session.value(u"finalResponse").toString(), LoopbackModelServer::taskAnswer());
        QCOMPARE(session.value(u"backend").toString(), name);
        if (backend == QuickTaskCLIBackend::codex) // its thread, for a follow-up
            QVERIFY(!session.value(u"threadID").toString().isEmpty());
        QCOMPARE(session.value(u"prompt").toString(), kPrompt);
        const QJsonArray attachments = session.value(u"attachments").toArray();
        QCOMPARE(attachments.size(), 1);
        QCOMPARE(attachments.at(0).toObject().value(u"path").toString(), notes);
        QVERIFY(server.received(profile.modelRequestPath(), kPrompt));
        QVERIFY(server.received(profile.modelRequestPath(), notes));
        // opencode sends the file itself; codex and claude are given its folder and would read
        // it when the model asked, which the stand-in never does.
        if (backend == QuickTaskCLIBackend::opencode)
            QVERIFY(server.received(profile.modelRequestPath(), QString::fromUtf8(kNotes)));
    }

    // The tool's own screen hands its draft to the composer and takes it back with a mention.
    void editDraftFromTheToolsScreen(const Application &app, const QString &name, const QString &repo,
                                     const QStringList &editorKeys, int settleMs)
    {
        // The tool runs in tmux, which an xterm shows; where no terminal can start (a user
        // namespace cannot hand a pty to the tty group) tmux alone is the terminal.
        const Tmux tmux(app, repo, name);
        Xterm xterm;
        startXterm(xterm, app, QStringLiteral("exec tmux -L %1 attach -t %1").arg(kSession));
        if (xterm.waitForFinished(2000))
            qInfo("No xterm here (%s); the tool runs in tmux alone.",
                  xterm.readAllStandardError().trimmed().constData());
        const bool settled = tmux.waitForSettledScreen();
        screenshot(QStringLiteral("realtools-tui-%1-ready").arg(name));
        QVERIFY2(settled, qPrintable(tmux.screen()));

        tmux.send({u"-l"_s, u"Explain"_s});
        QTest::qWait(settleMs);
        for (const QString &key : editorKeys)
            tmux.send({key});
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

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        for (const char *tool : {"xclip", "tmux"})
            QVERIFY2(!QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty(), tool);
        const QString isolation = RealToolProfile::networkIsolationProblem();
        QVERIFY2(isolation.isEmpty(), qPrintable(isolation));
        // Nothing of this process's environment may point a tool elsewhere; tarvel inherits it.
        for (const QString &name : RealToolProfile::clearedVariables())
            m_environment.unset(name.toLatin1().constData());
    }

    // A prompt rewrite through the tool from this process, in a profile of its own with no login
    // shell to ask: the search path is the profile's.
    void rewriteReturnsTheServersDraft_data() { composerRunsTasksAndEditsTheToolsDraft_data(); }
    void rewriteReturnsTheServersDraft()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        if (const QString reason = RealToolProfile::missingReason(backend); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        TestEnvironment environment;
        LoopbackModelServer server(environment.path(u"requests.jsonl"_s));
        QVERIFY2(server.port() > 0, "The loopback model server did not start.");
        const RealToolProfile profile(backend, server);
        for (auto it = profile.variables().cbegin(); it != profile.variables().cend(); ++it)
            environment.set(it.key().toLatin1().constData(), it.value());
        environment.set("SHELL", environment.path(u"no-login-shell"_s));
        QCOMPARE(profile.writeConfigurationFiles(QProcessEnvironment::systemEnvironment()), QString());
        const QString project = environment.path(u"project"_s);
        QDir().mkpath(project);
        QString failure;
        const QString draft = rewrite(project, backend, failure);
        QVERIFY2(failure.isEmpty() || !draft.isEmpty(), qPrintable(failure));
        QCOMPARE(draft, LoopbackModelServer::rewriteAnswer());
        QVERIFY(server.received(profile.modelRequestPath(), u"Dictated notes:"_s));
    }

    void composerRunsTasksAndEditsTheToolsDraft_data()
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
    void composerRunsTasksAndEditsTheToolsDraft()
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
        QCOMPARE(profile.writeConfigurationFiles(app.environment()), QString());
        app.setSetting(kBackendSetting, name);
        const QString notes = root.filePath(QStringLiteral("files/notes.txt"));
        writeFile(notes, kNotes);
        app.start();
        runTaskFromTheComposer(app, backend, server, profile, notes);
        if (QTest::currentTestFailed())
            return;

        // The tool's first-run screens settled only now, so that the task above ran as set up.
        const QString repo = root.filePath(QStringLiteral("repo"));
        for (const QString &file : {kFile, QStringLiteral("README.md")})
            writeFile(repo + u'/' + file, "x\n");
        run(QStringLiteral("git"),
            {QStringLiteral("-C"), repo, QStringLiteral("init"), QStringLiteral("-q")});
        run(QStringLiteral("git"), {QStringLiteral("-C"), repo, QStringLiteral("add"), QStringLiteral(".")});
        QCOMPARE(profile.writeInteractiveSettings(app.environment(), repo), QString());
        editDraftFromTheToolsScreen(app, name, repo, editorKeys, settleMs);
    }
};

QTEST_GUILESS_MAIN(RealToolsComposerTest)
#include "tst_realtools_composer.moc"
