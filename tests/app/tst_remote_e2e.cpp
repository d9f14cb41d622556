// Remote editing end to end: a real sshd on the loopback address stands for the other machine,
// `tarvel remote setup --install` configures both sides, and tarvel-edit "there", in an xterm's
// ssh session, reaches the real tarvel on the headless desktop through the forwarded socket.
// Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"
#include "support/LoopbackSshd.h"

using namespace desktop_test;

namespace {

constexpr int kAnswerTimeout = 15000;
const QString kHost = QStringLiteral("devbox");

// What tarvel-edit over there sends as its host: this machine's name, as it is the same one.
QString hostName()
{
    char name[256] = {};
    ::gethostname(name, sizeof name - 1);
    return QString::fromLocal8Bit(name);
}

} // namespace

class RemoteEndToEndTest final : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_root;
    std::unique_ptr<Application> m_app;
    std::unique_ptr<LoopbackSshd> m_sshd;
    QString m_remoteHome;
    QString m_sshConfig;

    QString remote(const QString &name) const { return m_remoteHome + u'/' + name; }

    QProcessEnvironment commandEnvironment() const
    {
        QProcessEnvironment environment = m_app->environment();
        environment.insert(QStringLiteral("TARVEL_SSH"), QStringLiteral("ssh -F ") + m_sshConfig);
        return environment;
    }

    // `tarvel ARGUMENTS` as the user runs it in a terminal on the desktop.
    int tarvel(const QStringList &arguments, QString *output = nullptr) const
    {
        QProcess process;
        process.setProcessEnvironment(commandEnvironment());
        process.start(kTarvel, arguments);
        process.waitForFinished(60000);
        if (output)
            *output = QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

    // An xterm whose shell runs ssh to the other machine; there the script waits for the test's
    // "go", so that the xterm is the window in front when the request comes. ssh's own process id
    // is written to ssh.pid.
    void startSession(QProcess &xterm, const QString &remoteScript, bool terminal = true)
    {
        for (const char *name : {"go", "status", "helper.log", ".local/state/tarvel/remote.sock"})
            QFile::remove(remote(QString::fromLatin1(name)));
        writeFile(remote(QStringLiteral("session.sh")),
                  "until [ -e go ]; do sleep 0.05; done\ntrap true INT\n. ./.profile\n" +
                      remoteScript.toUtf8() + '\n');
        const QString script = QStringLiteral("echo $$ > '%1'; exec ssh -F '%2' %3 %4 'cd && sh session.sh'")
                                   .arg(m_root.filePath(QStringLiteral("ssh.pid")), m_sshConfig,
                                        terminal ? QStringLiteral("-t") : QStringLiteral("-T"), kHost);
        xterm.setProcessEnvironment(m_app->environment());
        xterm.start(QStringLiteral("xterm"),
                    {QStringLiteral("-geometry"), QStringLiteral("90x30+150+120"), QStringLiteral("-e"),
                     QStringLiteral("sh"), QStringLiteral("-c"), script});
        QVERIFY(xterm.waitForStarted());
        QStringList windows;
        QTRY_VERIFY_WITH_TIMEOUT(!(windows = windowsOf(xterm.processId())).isEmpty(), 10000);
        activate(windows.constFirst());
        // The forward is up once the other side has its socket.
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(remote(QStringLiteral(".local/state/tarvel/remote.sock"))),
                                 10000);
        writeFile(remote(QStringLiteral("go")), "");
    }

    // The composer of a remote request, checked for its mark and place.
    QString waitForRemoteComposer(const QProcess &xterm)
    {
        const QString composer = m_app->waitForComposer();
        const QString title = xdotool({QStringLiteral("getwindowname"), composer});
        [&] {
            // Qt adds " \u2014 Tarvel" after it.
            QVERIFY2(title.startsWith(QStringLiteral("Tarvel Composer \u2014 on ") + hostName()),
                     qPrintable(title));
        }();
        // Over the xterm that runs ssh: centred on it.
        const Geometry terminal = geometry(windowsOf(xterm.processId()).value(0));
        const Geometry panel = geometry(composer);
        [&] {
            QVERIFY2(qAbs(panel.centerX() - terminal.centerX()) <= 12 && panel.bottom() <= terminal.bottom(),
                     qPrintable(QStringLiteral("panel %1,%2 terminal %3,%4")
                                    .arg(panel.centerX())
                                    .arg(panel.bottom())
                                    .arg(terminal.centerX())
                                    .arg(terminal.bottom())));
        }();
        return composer;
    }

    QByteArray status() const { return readFile(remote(QStringLiteral("status"))).trimmed(); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        m_remoteHome = m_root.filePath(QStringLiteral("remote-home"));
        m_sshd = std::make_unique<LoopbackSshd>(m_root.filePath(QStringLiteral("sshd")), m_remoteHome);
        if (!m_sshd->unavailableReason().isEmpty())
            QSKIP(qPrintable(m_sshd->unavailableReason()));
        m_app = std::make_unique<Application>(m_root.filePath(QStringLiteral("app")));
        m_sshConfig = m_app->home() + QStringLiteral("/.ssh/config");
        writeFile(m_sshConfig, m_sshd->clientOptions().toUtf8());
        m_app->start();
    }

    // One command sets up both sides: the block here, tarvel-edit and VISUAL there. Again, it
    // changes nothing, and status finds everything in place.
    void setupConfiguresBothMachines()
    {
        QString output;
        QVERIFY2(
            tarvel({QStringLiteral("remote"), QStringLiteral("setup"), kHost, QStringLiteral("--install")},
                   &output) == 0,
            qPrintable(output));
        const QByteArray config = readFile(m_sshConfig);
        QCOMPARE(config.count("Host devbox\n"), 1);
        QVERIFY2(config.contains("RemoteForward " +
                                 remote(QStringLiteral(".local/state/tarvel/remote.sock")).toUtf8()),
                 config.constData());
        QVERIFY(QFileInfo(remote(QStringLiteral(".local/bin/tarvel-edit-remote"))).isExecutable());
        QVERIFY(readFile(remote(QStringLiteral(".profile"))).contains("export VISUAL="));
        const QByteArray profile = readFile(remote(QStringLiteral(".profile")));
        QCOMPARE(
            tarvel({QStringLiteral("remote"), QStringLiteral("setup"), kHost, QStringLiteral("--install")},
                   &output),
            0);
        QVERIFY2(output.contains(QStringLiteral("nothing changed")), qPrintable(output));
        QCOMPARE(readFile(m_sshConfig), config);
        QCOMPARE(readFile(remote(QStringLiteral(".profile"))), profile);
        QCOMPARE(tarvel({QStringLiteral("remote"), QStringLiteral("status"), kHost}, &output), 0);
        QVERIFY2(output.contains(QStringLiteral("tarvel-edit ")), qPrintable(output));
    }

    // Three edits in one ssh session. The text typed on the desktop reaches the file over there
    // and the helper exits 0; a cancel leaves the file and exits 1; Ctrl-C in the terminal
    // reaches the helper over there, the request is withdrawn, and the composer keeps the text to
    // copy. The script over there waits for goN before the next edit, with the xterm in front.
    void submitCancelAndInterruptOverOneSession()
    {
        const QString prompt = remote(QStringLiteral("prompt.md"));
        writeFile(prompt, "Draft: ");
        QProcess xterm;
        startSession(xterm,
                     QStringLiteral("\"$VISUAL\" prompt.md; echo $? >> status\nfor step in 2 3; do "
                                    "until [ -e go$step ]; do sleep 0.05; done\n\"$VISUAL\" prompt.md; "
                                    "echo $? >> status; done\nsleep 60"));
        const auto nextEdit = [&](const char *go) {
            activate(windowsOf(xterm.processId()).value(0));
            writeFile(remote(QString::fromLatin1(go)), "");
            return waitForRemoteComposer(xterm);
        };
        waitForRemoteComposer(xterm);
        screenshot(QStringLiteral("remote-composer-over-ssh"));
        type(QStringLiteral("fix the build"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("0"), kAnswerTimeout);
        QCOMPARE(readFile(prompt), QByteArray("Draft: fix the build"));

        nextEdit("go2");
        type(QStringLiteral("not this"));
        key(QStringLiteral("Escape"));
        QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("0\n1"), kAnswerTimeout);
        QCOMPARE(readFile(prompt), QByteArray("Draft: fix the build"));

        const QString composer = nextEdit("go3");
        type(QStringLiteral(" Nothing typed is lost"));
        activate(windowsOf(xterm.processId()).value(0));
        key(QStringLiteral("ctrl+c"));
        QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("0\n1\n130"), kAnswerTimeout);
        QTest::qWait(500);
        QCOMPARE(m_app->composerWindow(), composer);
        activate(composer);
        screenshot(QStringLiteral("remote-composer-withdrawn"), composer);
        key(QStringLiteral("ctrl+Return"));
        QTRY_VERIFY_WITH_TIMEOUT(m_app->composerWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(),
                                  QStringLiteral("Draft: fix the build Nothing typed is lost"), 5000);
        QCOMPARE(readFile(prompt), QByteArray("Draft: fix the build"));
        xterm.kill();
        xterm.waitForFinished();
    }

    // The connection drops while the composer is open: the composer keeps the text, and the helper
    // over there (which outlives the connection, as in tmux) falls back to its terminal editor.
    void droppedConnectionKeepsTheTextAndTheHelperFallsBack()
    {
        writeFile(remote(QStringLiteral("prompt.md")), "old");
        writeFile(remote(QStringLiteral("fake-editor")),
                  "#!/bin/sh\nfor f; do :; done\necho ' edited' >> \"$f\"\n");
        QFile::setPermissions(remote(QStringLiteral("fake-editor")),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QProcess xterm;
        startSession(xterm,
                     QStringLiteral("TARVEL_FALLBACK_EDITOR=\"$HOME/fake-editor\" setsid sh -c "
                                    "'\"$VISUAL\" prompt.md > helper.log 2>&1; echo $? > status' "
                                    "< /dev/null > /dev/null 2>&1 &\nsleep 60"),
                     false);
        const QString composer = waitForRemoteComposer(xterm);
        type(QStringLiteral("Kept through the drop"));
        ::kill(pid_t(readFile(m_root.filePath(QStringLiteral("ssh.pid"))).trimmed().toLongLong()), SIGKILL);
        QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("0"), kAnswerTimeout);
        QCOMPARE(readFile(remote(QStringLiteral("prompt.md"))), QByteArray("old edited\n"));
        const QByteArray said = readFile(remote(QStringLiteral("helper.log")));
        QVERIFY2(said.contains("was lost before it answered") && said.count('\n') == 1, said.constData());
        activate(composer);
        key(QStringLiteral("ctrl+Return"));
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QStringLiteral("oldKept through the drop"), 5000);
        xterm.kill();
        xterm.waitForFinished();
    }

    void cleanupTestCase()
    {
        m_app.reset();
        m_sshd.reset();
    }
};

QTEST_GUILESS_MAIN(RemoteEndToEndTest)
#include "tst_remote_e2e.moc"
