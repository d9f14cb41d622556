// Remote editing end to end: a real sshd on the loopback address stands for the other machine,
// `tarvel remote setup --install` configures both sides, and tarvel-edit "there", in an xterm's
// ssh session, reaches the real tarvel on the headless desktop through the forwarded socket.
// Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"
#include "support/LoopbackSshd.h"

using namespace desktop_test;

namespace {

constexpr int kAnswerTimeout = 15000;
const QString kHost = u"devbox"_s;

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

    // `tarvel remote ARGUMENTS HOST` as the user runs it in a terminal on the desktop: its exit code
    // (-1 for a crash), and what it said into output.
    int tarvelRemote(const QString &command, QString &output, const QStringList &options = {}) const
    {
        QProcessEnvironment environment = m_app->environment();
        environment.insert(u"TARVEL_SSH"_s, u"ssh -F "_s + m_sshConfig);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(kTarvel, QStringList{u"remote"_s, command, kHost} + options);
        process.waitForFinished(60000);
        output = QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

    // An xterm whose shell runs ssh to the other machine; there the script waits for the test's
    // "go", so that the xterm is the window in front when the request comes. ssh's own process id
    // is written to ssh.pid.
    void startSession(Xterm &xterm, const QString &remoteScript, bool terminal = true)
    {
        for (const char *name : {"go", "status", "helper.log", ".local/state/tarvel/remote.sock"})
            QFile::remove(remote(QString::fromLatin1(name)));
        writeFile(remote(u"session.sh"_s),
                  "until [ -e go ]; do sleep 0.05; done\ntrap true INT\n. ./.profile\n" +
                      remoteScript.toUtf8() + '\n');
        const QString script = u"echo $$ > '%1'; exec ssh -F '%2' %3 %4 'cd && sh session.sh'"_s.arg(
            m_root.filePath(u"ssh.pid"_s), m_sshConfig, terminal ? u"-t"_s : u"-T"_s, kHost);
        startXterm(xterm, *m_app, script);
        activate(waitForWindow([&] { return xterm.window(); }));
        // The forward is up once the other side has its socket.
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(remote(u".local/state/tarvel/remote.sock"_s)), 10000);
        writeFile(remote(u"go"_s), "");
    }

    // The composer of a remote request, checked for its mark and place.
    QString waitForRemoteComposer(const Xterm &xterm)
    {
        const QString composer = m_app->waitForComposer();
        const QString title = xdotool({u"getwindowname"_s, composer});
        [&] {
            // Qt adds " \u2014 Tarvel" after it.
            QVERIFY2(title.startsWith(u"Tarvel Composer \u2014 on "_s + hostName()), qPrintable(title));
        }();
        // Over the xterm that runs ssh: centred on it.
        const Geometry terminal = geometry(xterm.window());
        const Geometry panel = geometry(composer);
        [&] {
            QVERIFY2(qAbs(panel.centerX() - terminal.centerX()) <= 12 && panel.bottom() <= terminal.bottom(),
                     qPrintable(u"panel %1,%2 terminal %3,%4"_s.arg(panel.centerX())
                                    .arg(panel.bottom())
                                    .arg(terminal.centerX())
                                    .arg(terminal.bottom())));
        }();
        return composer;
    }

    QByteArray status() const { return readFile(remote(u"status"_s)).trimmed(); }

private Q_SLOTS:
    void initTestCase()
    {
        m_remoteHome = m_root.filePath(u"remote-home"_s);
        m_sshd = std::make_unique<LoopbackSshd>(m_root.filePath(u"sshd"_s), m_remoteHome);
        if (!m_sshd->unavailableReason().isEmpty())
            QSKIP(qPrintable(m_sshd->unavailableReason()));
        m_app = std::make_unique<Application>(m_root.filePath(u"app"_s));
        m_sshConfig = m_app->home() + u"/.ssh/config"_s;
        writeFile(m_sshConfig, m_sshd->clientOptions().toUtf8());
        m_app->start();
    }

    // One command sets up both sides: the block here, tarvel-edit and VISUAL there. Again, it
    // changes nothing, and status finds everything in place.
    void setupConfiguresBothMachines()
    {
        QString output;
        QVERIFY2(tarvelRemote(u"setup"_s, output, {u"--install"_s}) == 0, qPrintable(output));
        const QByteArray config = readFile(m_sshConfig);
        QCOMPARE(config.count("Host devbox\n"), 1);
        QVERIFY2(config.contains("RemoteForward " + remote(u".local/state/tarvel/remote.sock"_s).toUtf8()),
                 config.constData());
        QVERIFY(QFileInfo(remote(u".local/bin/tarvel-edit-remote"_s)).isExecutable());
        const QByteArray profile = readFile(remote(u".profile"_s));
        QVERIFY(profile.contains("export VISUAL="));
        QCOMPARE(tarvelRemote(u"setup"_s, output, {u"--install"_s}), 0);
        QVERIFY2(output.contains(u"nothing changed"_s), qPrintable(output));
        QCOMPARE(readFile(m_sshConfig), config);
        QCOMPARE(readFile(remote(u".profile"_s)), profile);
        QCOMPARE(tarvelRemote(u"status"_s, output), 0);
        QVERIFY2(output.contains(u"tarvel-edit "_s), qPrintable(output));
    }

    // Three edits in one ssh session. The text typed on the desktop reaches the file over there
    // and the helper exits 0; a cancel leaves the file and exits 1; Ctrl-C in the terminal
    // reaches the helper over there, the request is withdrawn, and the composer keeps the text to
    // copy. The script over there waits for goN before the next edit, with the xterm in front.
    void submitCancelAndInterruptOverOneSession()
    {
        const QString prompt = remote(u"prompt.md"_s);
        writeFile(prompt, "Draft: ");
        Xterm xterm;
        startSession(xterm,
                     QStringLiteral("\"$VISUAL\" prompt.md; echo $? >> status\nfor step in 2 3; do "
                                    "until [ -e go$step ]; do sleep 0.05; done\n\"$VISUAL\" prompt.md; "
                                    "echo $? >> status; done\nsleep 60"));
        const auto nextEdit = [&](const char *go) {
            activate(xterm.window());
            writeFile(remote(QString::fromLatin1(go)), "");
            return waitForRemoteComposer(xterm);
        };
        waitForRemoteComposer(xterm);
        screenshot(u"remote-composer-over-ssh"_s);
        type(u"fix the build"_s);
        key(u"ctrl+Return"_s);
        QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("0"), kAnswerTimeout);
        QCOMPARE(readFile(prompt), QByteArray("Draft: fix the build"));

        nextEdit("go2");
        type(u"not this"_s);
        key(u"Escape"_s);
        QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("0\n1"), kAnswerTimeout);
        QCOMPARE(readFile(prompt), QByteArray("Draft: fix the build"));

        const QString composer = nextEdit("go3");
        type(u" Nothing typed is lost"_s);
        activate(xterm.window());
        key(u"ctrl+c"_s);
        QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("0\n1\n130"), kAnswerTimeout);
        QTest::qWait(500);
        QCOMPARE(m_app->composerWindow(), composer);
        activate(composer);
        screenshot(u"remote-composer-withdrawn"_s, composer);
        key(u"ctrl+Return"_s);
        QTRY_VERIFY_WITH_TIMEOUT(m_app->composerWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), u"Draft: fix the build Nothing typed is lost"_s, 5000);
        QCOMPARE(readFile(prompt), QByteArray("Draft: fix the build"));
    }

    // The connection drops while the composer is open: the composer keeps the text, and the helper
    // over there (which outlives the connection, as in tmux) falls back to its terminal editor.
    void droppedConnectionKeepsTheTextAndTheHelperFallsBack()
    {
        writeFile(remote(u"prompt.md"_s), "old");
        writeFile(remote(u"fake-editor"_s), "#!/bin/sh\nfor f; do :; done\necho ' edited' >> \"$f\"\n");
        QFile::setPermissions(remote(u"fake-editor"_s),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        Xterm xterm;
        startSession(xterm,
                     QStringLiteral("TARVEL_FALLBACK_EDITOR=\"$HOME/fake-editor\" setsid sh -c "
                                    "'\"$VISUAL\" prompt.md > helper.log 2>&1; echo $? > status' "
                                    "< /dev/null > /dev/null 2>&1 &\nsleep 60"),
                     false);
        const QString composer = waitForRemoteComposer(xterm);
        type(u"Kept through the drop"_s);
        ::kill(pid_t(readFile(m_root.filePath(u"ssh.pid"_s)).trimmed().toLongLong()), SIGKILL);
        QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("0"), kAnswerTimeout);
        QCOMPARE(readFile(remote(u"prompt.md"_s)), QByteArray("old edited\n"));
        const QByteArray said = readFile(remote(u"helper.log"_s));
        QVERIFY2(said.contains("was lost before it answered") && said.count('\n') == 1, said.constData());
        activate(composer);
        key(u"ctrl+Return"_s);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), u"oldKept through the drop"_s, 5000);
    }

    void cleanupTestCase()
    {
        m_app.reset();
        m_sshd.reset();
    }
};

QTEST_GUILESS_MAIN(RemoteEndToEndTest)
#include "tst_remote_e2e.moc"
