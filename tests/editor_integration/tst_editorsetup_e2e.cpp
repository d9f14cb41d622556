// The editor set-up on a real desktop: the prompt after launch, Install clicked, and then
// git in an xterm running bash -i, whose VISUAL now leads through the shim to the composer.
// Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"

#include "composer/UnrequestedWindowGuard.h"
#include "editor_integration/EditorIntegrationPromptWindow.h"

#include <QLayout>
#include <QPushButton>
#include <QTemporaryDir>

using namespace desktop_test;

namespace {
const QString kPromptTitle = QStringLiteral("Tarvel Editor Setup");
// The prompt is scheduled a second after launch; a second start must not show it.
constexpr int kPromptWindowMs = 4000;
const QMap<QString, QString> kBash{{QStringLiteral("SHELL"), QStringLiteral("/bin/bash")}};

QString promptWindow()
{
    return xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                    kPromptTitle})
        .section(u'\n', 0, 0);
}

QString waitForPrompt()
{
    QString id;
    [&] {
        QTRY_VERIFY_WITH_TIMEOUT(!(id = promptWindow()).isEmpty(), 15000);
    }();
    QTest::qWait(300); // let it take the focus before clicking
    return id;
}

// Clicks a button of the prompt on screen, found by laying out the same window here (same
// display, style and fonts).
void clickPromptButton(const QString &window, const QString &objectName)
{
    EditorIntegrationPromptWindow measured(QStringLiteral("Headline"), QStringLiteral("Message"),
                                           QStringLiteral("Review .bashrc"), {});
    measured.layout()->activate();
    const auto *button = measured.findChild<QPushButton *>(objectName);
    QVERIFY(button);
    const Geometry client = geometry(window);
    const QPoint center = button->mapTo(&measured, button->rect().center());
    click(client.x + center.x(), client.y + center.y());
}

// The one window of the application that is neither the tray icon nor the given one: an alert.
QString waitForAlert(const Application &app, const QString &besides)
{
    QString id;
    [&] {
        QTRY_VERIFY_WITH_TIMEOUT(!(id = app.otherWindow({besides})).isEmpty(), 10000);
    }();
    return id;
}
} // namespace

class EditorSetupEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
    }

    void installFromThePromptThenCommitThroughTheComposer()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")), kBash);
        app.allowEditorSetupPrompt();
        const QString bashrc = app.home() + QStringLiteral("/.bashrc");
        writeFile(bashrc, "alias ll='ls -l'\n");
        app.start();

        const QString prompt = waitForPrompt();
        screenshot(QStringLiteral("editor-setup-prompt"), prompt);
        clickPromptButton(prompt, QStringLiteral("installButton"));
        const QString installed = waitForAlert(app, prompt);
        QVERIFY(promptWindow().isEmpty());
        const QString shim = app.home() + QStringLiteral("/.local/bin/tarvel-edit");
        QVERIFY(QFileInfo(shim).isExecutable());
        QCOMPARE(readFile(bashrc), QByteArray("alias ll='ls -l'\n\n# >>> Tarvel editor integration >>>\n"
                                              "export VISUAL=\"$HOME/.local/bin/tarvel-edit\"\n"
                                              "# <<< Tarvel editor integration <<<\n"));
        activate(installed);
        key(QStringLiteral("Return"));
        QTRY_VERIFY_WITH_TIMEOUT(app.otherWindow({}).isEmpty(), 5000);

        // A new terminal as the user would open one: only its .bashrc says what VISUAL is,
        // and the shim finds the tarvel-edit installed beside tarvel.
        const QString repo = root.filePath(QStringLiteral("repo"));
        QVERIFY(QDir().mkpath(repo));
        run(QStringLiteral("git"),
            {QStringLiteral("-C"), repo, QStringLiteral("init"), QStringLiteral("-q")});
        const QString visual = root.filePath(QStringLiteral("visual"));
        const QString status = root.filePath(QStringLiteral("status"));
        QProcessEnvironment environment = app.environment();
        for (const char *name : {"VISUAL", "EDITOR", "GIT_EDITOR", "TARVEL_EDIT_PATH"})
            environment.remove(QString::fromLatin1(name));
        QProcess xterm;
        xterm.setProcessEnvironment(environment);
        xterm.start(QStringLiteral("xterm"),
                    {QStringLiteral("-geometry"), QStringLiteral("90x30+150+120"), QStringLiteral("-e"),
                     QStringLiteral("bash"), QStringLiteral("-i"), QStringLiteral("-c"),
                     QStringLiteral(
                         "cd '%1' && echo \"$VISUAL\" > '%2' && git -c user.name=T "
                         "-c user.email=t@example.invalid commit --allow-empty -q; echo $? > '%3'; sleep 60")
                         .arg(repo, visual, status)});
        QVERIFY(xterm.waitForStarted());
        app.waitForComposer();
        QCOMPARE(readFile(visual).trimmed(), shim.toUtf8());
        type(QStringLiteral("Set up the editor"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_COMPARE_WITH_TIMEOUT(readFile(status).trimmed(), QByteArray("0"), 10000);
        QCOMPARE(run(QStringLiteral("git"), {QStringLiteral("-C"), repo, QStringLiteral("log"),
                                             QStringLiteral("-1"), QStringLiteral("--format=%B")}),
                 QStringLiteral("Set up the editor"));
        xterm.kill();
        xterm.waitForFinished();

        // Set up now: a second start asks nothing.
        app.kill(SIGKILL);
        app.start();
        QTest::qWait(kPromptWindowMs);
        QVERIFY(promptWindow().isEmpty());
    }

    // A first use: git commit in an xterm starts Tarvel through the helper. The offer waits until the
    // composer has closed, and no key typed for the composer answers it.
    void theFirstComposerKeepsItsKeysUntilItCloses()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")), kBash);
        app.allowEditorSetupPrompt();
        const QString bashrc = app.home() + QStringLiteral("/.bashrc");
        const QByteArray bashrcBefore = "alias ll='ls -l'\n";
        writeFile(bashrc, bashrcBefore);
        const GitCommitInXterm commit(root, app);
        app.adoptStartedCopy();
        const QString composer = app.waitForComposer();
        QCOMPARE(activeWindow(), composer);

        // Past the second after launch at which the offer used to break in.
        const QString message = QStringLiteral("Keep typing well past the moment the offer used to come");
        xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("60"), message});
        QVERIFY(promptWindow().isEmpty());
        key(QStringLiteral("ctrl+Return"));
        QTRY_COMPARE_WITH_TIMEOUT(commit.status(), QByteArray("0"), 10000);
        QCOMPARE(commit.lastMessage(), message);
        QTRY_COMPARE_WITH_TIMEOUT(activeWindow(), windowsOf(commit.xterm().processId()).value(0), 5000);

        const QString prompt = waitForPrompt();
        screenshot(QStringLiteral("editor-setup-prompt-after-composer"), prompt);
        // Nothing is armed: Return, once the prompt takes keys, installs nothing.
        QTest::qWait(UnrequestedWindowGuard::quietPeriodMs);
        activate(prompt);
        key(QStringLiteral("Return"));
        QTest::qWait(500);
        QCOMPARE(promptWindow(), prompt);
        QCOMPARE(readFile(bashrc), bashrcBefore);
        clickPromptButton(prompt, QStringLiteral("cancelButton"));
        QTRY_VERIFY_WITH_TIMEOUT(promptWindow().isEmpty(), 5000);
    }

    // The offer is on screen when an assistant asks for the editor: the composer gets the keys, and
    // the offer comes back once it has closed.
    void aComposerOverTheOfferGetsTheKeys()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")), kBash);
        app.allowEditorSetupPrompt();
        app.start();
        waitForPrompt();
        const QString file = root.filePath(QStringLiteral("prompt.md"));
        writeFile(file, "");
        const auto helper = startHelper(app, file);
        const QString composer = app.waitForComposer();
        QCOMPARE(activeWindow(), composer);
        QVERIFY(promptWindow().isEmpty());
        type(QStringLiteral("Typed into the composer"));
        key(QStringLiteral("ctrl+Return"));
        QVERIFY(helper->waitForFinished(10000));
        QCOMPARE(helper->exitCode(), 0);
        QCOMPARE(readFile(file), QByteArray("Typed into the composer"));
        QVERIFY(!QFileInfo::exists(app.home() + QStringLiteral("/.bashrc")));
        waitForPrompt();
    }

    // Shown before its own event loop ran, the prompt used to be an ordinary window.
    void thePromptIsModal()
    {
        EditorIntegrationPromptWindow prompt(QStringLiteral("Headline"), QStringLiteral("Message"),
                                             QStringLiteral("Review .bashrc"), {});
        QWidget *modal = nullptr;
        QTimer::singleShot(100, &prompt, [&] {
            modal = QApplication::activeModalWidget();
            prompt.reject();
        });
        prompt.runModal();
        QCOMPARE(modal, &prompt);
    }

    void dontAskAgainHoldsAcrossARestart()
    {
        QTemporaryDir root;
        Application app(root.filePath(QStringLiteral("app")), kBash);
        app.allowEditorSetupPrompt();
        app.start();
        clickPromptButton(waitForPrompt(), QStringLiteral("suppressButton"));
        QTRY_VERIFY_WITH_TIMEOUT(promptWindow().isEmpty(), 5000);
        // Nothing installed, and no alert.
        QVERIFY(!QFileInfo::exists(app.home() + QStringLiteral("/.bashrc")));
        QVERIFY(app.otherWindow({}).isEmpty());

        app.kill(SIGKILL);
        app.start();
        QTest::qWait(kPromptWindowMs);
        QVERIFY(promptWindow().isEmpty());

        // Asked for, it still comes: the tray menu's Set Up Editor… follows Quick Tasks and
        // Preferences….
        app.openMenu();
        for (int item = 0; item < 3; ++item)
            key(QStringLiteral("Down"));
        key(QStringLiteral("Return"));
        clickPromptButton(waitForPrompt(), QStringLiteral("cancelButton"));
        QTRY_VERIFY_WITH_TIMEOUT(promptWindow().isEmpty(), 5000);
    }
};

QTEST_MAIN(EditorSetupEndToEndTest)
#include "tst_editorsetup_e2e.moc"
