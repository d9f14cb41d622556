// Dictation in the composers (offscreen) over a fake recogniser, the rewrite run by the fake
// claude: the microphone button's states, Escape and the voice shortcut, undoable insertion,
// the raw-transcript fallback and the failure alert, at the stop or as soon as the recogniser
// fails.
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

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QtTest>

using namespace Qt::StringLiterals;
using State = VoicePromptBuilder::State;

namespace {

struct Fixture : FakeBackendSetup {
    explicit Fixture(QuickTaskCLIBackend backend = QuickTaskCLIBackend::claude)
    {
        AppSettings(defaults).setQuickTaskCLIBackend(backend);
        AppSettings(defaults).setQuickTaskLastWorkingDirectory(environment.root());
        services.defaults = &defaults;
        services.shortcuts = &shortcuts;
        services.speechRecognizer = &recognizer;
        composer = std::make_unique<ScratchComposer>(u"Before after"_s, QList<PromptAttachment>{}, services);
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
        return composer->panel()->findChild<QMessageBox *>(u"VoicePromptFailureAlert"_s);
    }

    UserDefaults defaults{environment.path(u"settings.conf"_s)};
    KeyboardShortcuts shortcuts{defaults};
    FakeSpeechRecognizer recognizer;
    ComposerServices services;
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
        // The rewrite runs in the composer's own folder, not in a stored one that has gone.
        const QString project = f.environment.path(u"project"_s);
        QVERIFY(QDir().mkpath(project));
        f.composer->setWorkingDirectory(project);
        AppSettings(f.defaults).setQuickTaskLastWorkingDirectory(f.environment.path(u"gone"_s));
        QVERIFY(f.button()->isEnabled());
        f.pressVoiceShortcut();
        QTRY_COMPARE(f.state(), State::recording);
        QCOMPARE(f.button()->toolTip(), u"Stop recording and build a prompt draft"_s);
        QVERIFY(f.composer->panel()->showsRecordingTint());

        f.useSteps({u"sleep 0.3"_s, u"out Go forward ten meters."_s});
        f.recognizer.hear(u"go forward ten meters"_s, true);
        // Escape while recording builds the draft instead of closing the composer.
        f.composer->panel()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(f.composer->panel()));
        QTest::keyClick(f.text(), Qt::Key_Escape);
        QCOMPARE(f.cancels, 0);
        QCOMPARE(f.state(), State::transcribing);
        QVERIFY(!f.button()->isEnabled());
        QVERIFY(!f.composer->panel()->showsRecordingTint());

        QTRY_COMPARE(f.text()->toPlainText(), u"Before Go forward ten meters.after"_s);
        QCOMPARE(f.state(), State::idle);
        QVERIFY(f.button()->isEnabled());
        QCOMPARE(f.alert(), nullptr);
        QCOMPARE(QString::fromUtf8(f.fakes.recorded(u"claude.cwd"_s).trimmed()), project);
        f.text()->undo();
        QCOMPARE(f.text()->toPlainText(), u"Before after"_s);

        // A recogniser that transcribes after the stop shows it; Escape then gives the dictation
        // up (the recogniser is stopped) and keeps the composer and its text.
        f.recognizer.timeLimit = std::chrono::seconds(30);
        f.pressVoiceShortcut();
        QTRY_COMPARE(f.state(), State::recording);
        f.pressVoiceShortcut();
        QVERIFY(f.surface().voicePromptStatus()->isVisible());
        QTest::keyClick(f.text(), Qt::Key_Escape);
        QCOMPARE(f.state(), State::idle);
        QCOMPARE(f.recognizer.calls.last(), u"cancel"_s);
        QVERIFY(!f.surface().voicePromptStatus()->isVisible());
        QCOMPARE(f.cancels, 0);
        QCOMPARE(f.text()->toPlainText(), u"Before after"_s);
    }

    void failuresAlertAndCancelEndsQuietly()
    {
        Fixture f;
        f.pressVoiceShortcut();
        QTRY_COMPARE(f.state(), State::recording);
        f.useSteps({u"err quota exceeded\\n"_s, u"exit 1"_s});
        f.recognizer.hear(u" go forward "_s, true);
        f.button()->click();
        QTRY_VERIFY(f.alert());
        QCOMPARE(f.alert()->text(), u"Inserted the raw transcript."_s);
        QCOMPARE(
            f.alert()->informativeText(),
            u"quota exceeded\n\nThe dictated transcript was inserted so you can keep editing it manually."_s);
        QCOMPARE(f.alert()->windowModality(), Qt::WindowModal);
        QCOMPARE(f.text()->toPlainText(), u"Before go forwardafter"_s);
        f.alert()->close();
        QTRY_COMPARE(f.alert(), nullptr);

        f.recognizer.microphoneAccessState = SpeechRecognizer::Access::denied;
        f.button()->click();
        QTRY_VERIFY(f.alert());
        QCOMPARE(f.alert()->text(), u"Voice prompt capture failed."_s);
        QCOMPARE(f.alert()->informativeText(), u"Microphone access is required to dictate a prompt."_s);
        f.alert()->close();
        QTRY_COMPARE(f.alert(), nullptr);

        // A recogniser that fails while recording (here within its start) ends the recording at
        // once, with the stop's alert.
        f.recognizer.microphoneAccessState = SpeechRecognizer::Access::authorized;
        f.recognizer.onStart = [&] {
            f.recognizer.fail(u"Could not start microphone capture."_s);
        };
        f.pressVoiceShortcut();
        QTRY_VERIFY(f.alert());
        QCOMPARE(f.alert()->informativeText(), u"Could not start microphone capture."_s);
        QCOMPARE(f.state(), State::idle);
        QVERIFY(!f.composer->panel()->showsRecordingTint());
        f.alert()->close();
        QTRY_COMPARE(f.alert(), nullptr);

        f.recognizer.onStart = nullptr;
        f.pressVoiceShortcut();
        QTRY_COMPARE(f.state(), State::recording);
        f.composer->panel()->cancelButton()->click();
        QCOMPARE(f.state(), State::idle);
        QCOMPARE(f.recognizer.calls.last(), u"cancel"_s);
        QCOMPARE(f.cancels, 1);
        QTest::qWait(100);
        QCOMPARE(f.alert(), nullptr);
    }

    void availabilityFollowsTheSettingsInBothComposers()
    {
        Fixture f(QuickTaskCLIBackend::codex); // no model list: nothing to rewrite with
        QVERIFY(!f.button()->isEnabled());
        f.pressVoiceShortcut();
        QTest::qWait(100);
        QVERIFY(f.recognizer.calls.isEmpty());
        AppSettings(f.defaults).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QVERIFY(f.button()->isEnabled());

        EditorComposer editor(u"Edit me"_s, f.services);
        editor.showWindow();
        QTest::keyClick(editor.panel()->textView(), Qt::Key_R, Qt::ControlModifier);
        QTRY_COMPARE(editor.surface().voicePromptBuilder()->state(), State::recording);
    }
};

QTEST_MAIN(ComposerVoiceTest)
#include "tst_composervoice.moc"
