// Dictation in the composers (offscreen) over a fake recogniser, the rewrite run by the fake
// backends: the microphone button's states, Escape and the voice shortcut, undoable insertion,
// the raw-transcript fallback and the failure alerts.
#include "FakeSpeechRecognizer.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"
#include "composer/ComposerTextView.h"
#include "composer/EditorComposer.h"
#include "composer/ScratchComposer.h"
#include "composer/VoicePromptButton.h"
#include "core/UserDefaults.h"
#include "fakebackends/FakeBackendSetup.h"
#include "settings/AppSettings.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QMessageBox>
#include <QPromise>
#include <QPushButton>
#include <QtTest>

using State = VoicePromptBuilder::State;

namespace {

struct Fixture : FakeBackendSetup {
    explicit Fixture(QuickTaskCLIBackend backend = QuickTaskCLIBackend::claude)
    {
        AppSettings(defaults).setQuickTaskCLIBackend(backend);
        AppSettings(defaults).setQuickTaskLastWorkingDirectory(environment.root());
        ComposerServices services;
        services.defaults = &defaults;
        services.shortcuts = &shortcuts;
        services.speechRecognizer = &recognizer;
        services.checkInstallations = [] {
            QuickTaskCLIInstallationAvailabilities all;
            for (const auto backend :
                 {QuickTaskCLIBackend::codex, QuickTaskCLIBackend::claude, QuickTaskCLIBackend::opencode})
                all.insert(backend, QuickTaskCLIInstallationAvailability::available(QStringLiteral("1")));
            QPromise<QuickTaskCLIInstallationAvailabilities> ready;
            ready.start();
            ready.addResult(all);
            ready.finish();
            return ready.future();
        };
        composer = std::make_unique<ScratchComposer>(QStringLiteral("Before after"),
                                                     QList<PromptAttachment>{}, services);
        QObject::connect(composer.get(), &ScratchComposer::cancelled, [this] { ++cancels; });
        composer->showWindow();
        QTextCursor cursor = text()->textCursor();
        cursor.setPosition(7);
        text()->setTextCursor(cursor);
    }

    ComposerSurface &surface() const { return composer->surface(); }
    ComposerTextView *text() const { return composer->panel()->textView(); }
    VoicePromptButton *button() const { return surface().voicePromptButton(); }
    State state() const { return surface().voicePromptBuilder()->state(); }
    void pressVoiceShortcut() const { QTest::keyClick(text(), Qt::Key_R, Qt::ControlModifier); }
    QMessageBox *alert() const
    {
        return composer->panel()->findChild<QMessageBox *>(QStringLiteral("VoicePromptFailureAlert"));
    }

    UserDefaults defaults{environment.path(QStringLiteral("settings.conf"))};
    KeyboardShortcuts shortcuts{defaults};
    FakeSpeechRecognizer recognizer;
    std::unique_ptr<ScratchComposer> composer;
    int cancels = 0;
};

} // namespace

class ComposerVoiceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void dictationIsInsertedAtTheSelectionAndUndoable()
    {
        Fixture f;
        QCOMPARE(f.button()->toolTip(), QStringLiteral("Dictate a prompt draft"));
        QVERIFY(f.button()->isEnabled());
        QVERIFY(!f.composer->panel()->showsRecordingTint());

        f.pressVoiceShortcut();
        QTRY_COMPARE(f.state(), State::recording);
        QCOMPARE(f.button()->toolTip(), QStringLiteral("Stop recording and build a prompt draft"));
        QVERIFY(f.button()->isEnabled());
        QVERIFY(f.composer->panel()->showsRecordingTint());

        f.useSteps({QStringLiteral("ready"), QStringLiteral("sleep 0.3"),
                    QStringLiteral("out Go forward ten meters.")});
        f.recognizer.hear(QStringLiteral("go forward ten meters"), true);
        // Escape while recording builds the draft instead of closing the composer.
        f.composer->panel()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(f.composer->panel()));
        QTest::keyClick(f.text(), Qt::Key_Escape);
        QCOMPARE(f.cancels, 0);
        QCOMPARE(f.state(), State::processing);
        QCOMPARE(f.button()->toolTip(), QStringLiteral("Transcribing and shaping your dictated notes"));
        QVERIFY(!f.button()->isEnabled());
        QVERIFY(!f.composer->panel()->showsRecordingTint());

        QTRY_COMPARE(f.text()->toPlainText(), QStringLiteral("Before Go forward ten meters.after"));
        QCOMPARE(f.state(), State::idle);
        QVERIFY(f.button()->isEnabled());
        QCOMPARE(f.alert(), nullptr);
        QCOMPARE(QString::fromUtf8(f.fakes.recorded(QStringLiteral("claude.cwd")).trimmed()),
                 f.environment.root());
        f.text()->undo();
        QCOMPARE(f.text()->toPlainText(), QStringLiteral("Before after"));
    }

    void failedRewriteInsertsTheRawTranscript()
    {
        Fixture f;
        f.pressVoiceShortcut();
        QTRY_COMPARE(f.state(), State::recording);
        f.useSteps({QStringLiteral("err quota exceeded\\n"), QStringLiteral("exit 1")});
        f.recognizer.hear(QStringLiteral(" go forward "), true);
        f.button()->click();
        QTRY_VERIFY(f.alert());
        QCOMPARE(f.alert()->text(), QStringLiteral("Inserted the raw transcript."));
        QCOMPARE(f.alert()->informativeText(),
                 QStringLiteral(
                     "quota exceeded\n\nThe dictated transcript was inserted so you can keep editing it "
                     "manually."));
        QCOMPARE(f.alert()->windowModality(), Qt::WindowModal);
        QCOMPARE(f.text()->toPlainText(), QStringLiteral("Before go forwardafter"));
        QCOMPARE(f.state(), State::idle);
    }

    void failuresAndCancel()
    {
        Fixture f;
        f.recognizer.microphoneAccessState = SpeechRecognizer::Access::denied;
        f.button()->click();
        QTRY_VERIFY(f.alert());
        QCOMPARE(f.alert()->text(), QStringLiteral("Voice prompt capture failed."));
        QCOMPARE(f.alert()->informativeText(),
                 QStringLiteral("Microphone access is required to dictate a prompt."));
        f.alert()->close();
        QTRY_COMPARE(f.alert(), nullptr);

        // Cancel while recording ends the capture quietly and cancels the composer.
        f.recognizer.microphoneAccessState = SpeechRecognizer::Access::authorized;
        f.pressVoiceShortcut();
        QTRY_COMPARE(f.state(), State::recording);
        f.composer->panel()->cancelButton()->click();
        QCOMPARE(f.state(), State::idle);
        QCOMPARE(f.recognizer.calls.last(), QStringLiteral("cancel"));
        QCOMPARE(f.cancels, 1);
        QTest::qWait(100);
        QCOMPARE(f.alert(), nullptr);
        QCOMPARE(f.text()->toPlainText(), QStringLiteral("Before after"));
    }

    void withoutARewritePresetNothingStarts()
    {
        Fixture f(QuickTaskCLIBackend::codex); // no model catalog: nothing to rewrite with
        QVERIFY(!f.button()->isEnabled());
        f.pressVoiceShortcut();
        QTest::qWait(100);
        QCOMPARE(f.state(), State::idle);
        QVERIFY(f.recognizer.calls.isEmpty());
        // Choosing a backend that has a model enables it.
        AppSettings(f.defaults).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QVERIFY(f.button()->isEnabled());
    }

    void editorComposerDictatesToo()
    {
        Fixture f;
        ComposerServices services;
        services.defaults = &f.defaults;
        services.shortcuts = &f.shortcuts;
        services.speechRecognizer = &f.recognizer;
        EditorComposer editor(QStringLiteral("Edit me"), services);
        editor.showWindow();
        QVERIFY(editor.surface().voicePromptButton());
        QTest::keyClick(editor.panel()->textView(), Qt::Key_R, Qt::ControlModifier);
        QTRY_COMPARE(editor.surface().voicePromptBuilder()->state(), State::recording);
        QCOMPARE(editor.panel()->textView()->toPlainText(), QStringLiteral("Edit me"));
        QVERIFY(!EditorComposer(QString()).surface().voicePromptButton());
    }
};

QTEST_MAIN(ComposerVoiceTest)
#include "tst_composervoice.moc"
