// The editor set-up on a real desktop: the prompt after a first use or after launch, Install
// clicked, and then git in an xterm running bash -i, whose VISUAL now leads through the shim to
// the composer. Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"

#include "composer/UnrequestedWindowGuard.h"
#include "editor_integration/EditorIntegrationPromptWindow.h"

#include <QLayout>
#include <QPushButton>
#include <QTemporaryDir>

using namespace desktop_test;

namespace {
const QString kPromptTitle = u"Tarvel Editor Setup"_s;
// The prompt is scheduled a second after launch; a second start must not show it.
constexpr int kPromptWindowMs = 4000;
const QMap<QString, QString> kBash{{u"SHELL"_s, u"/bin/bash"_s}};

QString promptWindow()
{
    return xdotool({u"search"_s, u"--onlyvisible"_s, u"--name"_s, kPromptTitle}).section(u'\n', 0, 0);
}

QString waitForPrompt()
{
    const QString id = waitForWindow(promptWindow, 15000);
    QTest::qWait(300); // let it take the focus before clicking
    return id;
}

// Clicks a button of the prompt on screen, found by laying out the same window here (same
// display, style and fonts).
void clickPromptButton(const QString &window, const QString &objectName)
{
    EditorIntegrationPromptWindow measured(u"Headline"_s, u"Message"_s, u"Review .bashrc"_s, {});
    measured.layout()->activate();
    const auto *button = measured.findChild<QPushButton *>(objectName);
    QVERIFY(button);
    const Geometry client = geometry(window);
    const QPoint center = button->mapTo(&measured, button->rect().center());
    click(client.x + center.x(), client.y + center.y());
}

} // namespace

class EditorSetupEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // A first use: git commit in an xterm starts Tarvel through the helper. The offer waits until the
    // composer has closed, and no key typed for the composer answers it. Install, clicked, sets up
    // .bashrc, and git in a new xterm running bash -i reaches the composer through the shim.
    void firstUseThenInstallFromTheOfferAndCommitThroughTheShim()
    {
        QTemporaryDir root;
        Application app(root.filePath(u"app"_s), kBash);
        app.allowEditorSetupPrompt();
        const QString bashrc = app.home() + u"/.bashrc"_s;
        writeFile(bashrc, "alias ll='ls -l'\n");
        {
            const GitCommitInXterm commit(root, app);
            app.adoptStartedCopy();
            const QString composer = app.waitForComposer();
            QCOMPARE(activeWindow(), composer);

            // Past the second after launch at which the offer used to break in.
            const QString message = u"Keep typing well past the moment the offer used to come"_s;
            xdotool({u"type"_s, u"--delay"_s, u"60"_s, message});
            QVERIFY(promptWindow().isEmpty());
            key(u"ctrl+Return"_s);
            QTRY_COMPARE_WITH_TIMEOUT(commit.status(), QByteArray("0"), 10000);
            QCOMPARE(commit.lastMessage(), message);
            QTRY_COMPARE_WITH_TIMEOUT(activeWindow(), commit.terminalWindow(), 5000);
        }

        const QString prompt = waitForPrompt();
        screenshot(u"editor-setup-prompt-after-composer"_s, prompt);
        // Nothing is armed: Return, once the prompt takes keys, installs nothing.
        QTest::qWait(UnrequestedWindowGuard::quietPeriodMs);
        activate(prompt);
        key(u"Return"_s);
        QTest::qWait(500);
        QCOMPARE(promptWindow(), prompt);
        QCOMPARE(readFile(bashrc), QByteArray("alias ll='ls -l'\n"));

        clickPromptButton(prompt, u"installButton"_s);
        const QString installed = waitForWindow([&] { return app.otherWindow({prompt}); });
        QVERIFY(promptWindow().isEmpty());
        const QString shim = app.home() + u"/.local/bin/tarvel-edit"_s;
        QVERIFY(QFileInfo(shim).isExecutable());
        QCOMPARE(readFile(bashrc), QByteArray("alias ll='ls -l'\n\n# >>> Tarvel editor integration >>>\n"
                                              "export VISUAL=\"$HOME/.local/bin/tarvel-edit\"\n"
                                              "# <<< Tarvel editor integration <<<\n"));
        activate(installed);
        key(u"Return"_s);
        QTRY_VERIFY_WITH_TIMEOUT(app.otherWindow({}).isEmpty(), 5000);

        // A new terminal as the user would open one: only its .bashrc says what VISUAL is,
        // and the shim finds the tarvel-edit installed beside tarvel.
        const QString visual = root.filePath(u"visual"_s);
        QProcessEnvironment environment = app.environment();
        for (const char *name : {"VISUAL", "EDITOR", "GIT_EDITOR", "TARVEL_EDIT_PATH"})
            environment.remove(QString::fromLatin1(name));
        {
            const GitCommitInXterm commit(root, app, {}, u"echo \"$VISUAL\" > '%1' &&"_s.arg(visual),
                                          u"bash"_s, environment);
            app.waitForComposer();
            QCOMPARE(readFile(visual).trimmed(), shim.toUtf8());
            type(u"Set up the editor"_s);
            key(u"ctrl+Return"_s);
            QTRY_COMPARE_WITH_TIMEOUT(commit.status(), QByteArray("0"), 10000);
            QCOMPARE(commit.lastMessage(), u"Set up the editor"_s);
        }

        // Set up now: a second start asks nothing.
        app.kill(SIGKILL);
        app.start();
        QTest::qWait(kPromptWindowMs);
        QVERIFY(promptWindow().isEmpty());
    }

    // Shown before its own event loop ran, the prompt used to be an ordinary window.
    void thePromptIsModal()
    {
        EditorIntegrationPromptWindow prompt(u"Headline"_s, u"Message"_s, u"Review .bashrc"_s, {});
        QWidget *modal = nullptr;
        QTimer::singleShot(100, &prompt, [&] {
            modal = QApplication::activeModalWidget();
            prompt.reject();
        });
        prompt.runModal();
        QCOMPARE(modal, &prompt);
    }

    // The offer is on screen when an assistant asks for the editor: the composer gets the keys, and
    // the offer comes back once it has closed. Don't ask again holds across a restart, and the tray
    // menu still brings the offer.
    void aComposerOverTheOfferThenDontAskAgain()
    {
        QTemporaryDir root;
        Application app(root.filePath(u"app"_s), kBash);
        app.allowEditorSetupPrompt();
        app.start();
        waitForPrompt();
        const QString file = root.filePath(u"prompt.md"_s);
        writeFile(file, "");
        const auto helper = startHelper(app, file);
        const QString composer = app.waitForComposer();
        QCOMPARE(activeWindow(), composer);
        QVERIFY(promptWindow().isEmpty());
        type(u"Typed into the composer"_s);
        key(u"ctrl+Return"_s);
        QVERIFY(helper->waitForFinished(10000));
        QCOMPARE(helper->exitCode(), 0);
        QCOMPARE(readFile(file), QByteArray("Typed into the composer"));

        clickPromptButton(waitForPrompt(), u"suppressButton"_s);
        QTRY_VERIFY_WITH_TIMEOUT(promptWindow().isEmpty(), 5000);
        // Nothing installed, and no alert.
        QVERIFY(!QFileInfo::exists(app.home() + u"/.bashrc"_s));
        QVERIFY(app.otherWindow({}).isEmpty());

        app.kill(SIGKILL);
        app.start();
        QTest::qWait(kPromptWindowMs);
        QVERIFY(promptWindow().isEmpty());

        // Asked for, it still comes: the tray menu's Set Up Editor… follows Quick Tasks and
        // Preferences….
        app.chooseFromMenu(3);
        clickPromptButton(waitForPrompt(), u"cancelButton"_s);
        QTRY_VERIFY_WITH_TIMEOUT(promptWindow().isEmpty(), 5000);
    }
};

QTEST_MAIN(EditorSetupEndToEndTest)
#include "tst_editorsetup_e2e.moc"
