// The composers offscreen: the panel's height rule, its submit and cancel paths, pastes and
// footer; the scratch composer's availability, presets, attachments and submit rules; and
// dictation in both over a fake recogniser, the rewrite run by the fake claude: the
// microphone button's states, Escape and the voice shortcut, undoable insertion, the
// raw-transcript fallback and the failure alert, at the stop or as soon as the recogniser fails.
#include "ComposerTestSupport.h"
#include "FakeSpeechRecognizer.h"
#include "composer/AttachmentPillView.h"
#include "composer/AttachmentStripView.h"
#include "composer/ComposerLayout.h"
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

#include <QAbstractButton>
#include <QClipboard>
#include <QComboBox>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPromise>
#include <QPushButton>
#include <QStandardItemModel>
#include <QtTest>

using namespace Qt::StringLiterals;
using State = VoicePromptBuilder::State;

namespace {
using Availabilities = QuickTaskCLIInstallationAvailabilities;

QString lines(int count)
{
    QStringList list;
    for (int i = 0; i < count; ++i)
        list.append(u"line %1"_s.arg(i));
    return list.join(u'\n');
}

// What the composer handed over when submitted.
struct Submissions {
    int submits = 0;
    QList<PromptAttachment> attachments;
    std::optional<QuickTaskPreset> preset;
};

QuickTaskModelCatalog::Model model(const QString &identifier, const QStringList &efforts)
{
    QuickTaskModelCatalog::Model result;
    result.identifier = identifier;
    result.displayName = identifier;
    result.defaultReasoningLevel = efforts.value(0);
    result.supportedReasoningLevels = efforts;
    return result;
}

// A scratch composer whose installation check answers when the test says so.
struct Fixture {
    TestEnvironment env;
    UserDefaults defaults{env.path(u"settings.conf"_s)};
    KeyboardShortcuts shortcuts{defaults};
    QPromise<Availabilities> promise;
    QList<QuickTaskCLIBackend> asked; // the preferred backend of each check
    Submissions delegate;
    std::unique_ptr<ScratchComposer> controller;

    explicit Fixture(QuickTaskCLIBackend backend = QuickTaskCLIBackend::codex)
    {
        copyCodexModelCache(env);
        AppSettings(defaults).setQuickTaskCLIBackend(backend);
        promise.start();
        ComposerServices services;
        services.defaults = &defaults;
        services.shortcuts = &shortcuts;
        services.checkInstallations = [this](QuickTaskCLIBackend preferred) {
            asked.append(preferred);
            return promise.future();
        };
        controller = std::make_unique<ScratchComposer>(QString(), QList<PromptAttachment>{}, services);
        QObject::connect(controller.get(), &ScratchComposer::submitted,
                         [this](const QString &, const QList<PromptAttachment> &attachments,
                                const std::optional<QuickTaskPreset> &preset) {
                             ++delegate.submits;
                             delegate.attachments = attachments;
                             delegate.preset = preset;
                         });
        controller->showWindow();
    }

    void answer(const Availabilities &availabilities)
    {
        promise.addResult(availabilities);
        promise.finish();
        QTRY_VERIFY(controller->availability().state != ScratchComposerAvailability::State::checking);
    }
};

Availabilities allInstalled()
{
    return {
        {QuickTaskCLIBackend::codex, QuickTaskCLIInstallationAvailability::available(u"codex-cli 1"_s)},
        {QuickTaskCLIBackend::claude, QuickTaskCLIInstallationAvailability::available(u"2 (Claude Code)"_s)},
        {QuickTaskCLIBackend::opencode, QuickTaskCLIInstallationAvailability::available(u"1.0"_s)}};
}

// A scratch composer over the fake backends and a fake recogniser, its cursor after "Before ".
struct VoiceFixture : FakeBackendSetup {
    explicit VoiceFixture(QuickTaskCLIBackend backend = QuickTaskCLIBackend::claude)
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

class ScratchComposerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // 8 top + text 100 + section + 22 footer + 8 bottom; the scratch panel adds its header (22 at
    // least) and 6, and once ready its strip at the text's width takes the checking overlay's place.
    void layoutSections()
    {
        using namespace ComposerLayout;
        Input input;
        input.mode = Mode::editorRequest;
        input.measuredTextHeight = 100;
        input.maximumVisibleTextHeight = 500;
        input.windowWidth = 520;
        input.headerIntrinsicHeight = 17.6; // below the 22-point floor
        double askedWidth = -1;
        input.stripHeightForWidth = [&](double width) {
            askedWidth = width;
            return 30.0;
        };
        const auto checkTotal = [&input](double expected) {
            QCOMPARE(compute(input).totalHeight, expected);
            QCOMPARE(minimumPanelHeight(input), expected - 100 + minTextHeight);
        };
        checkTotal(8 + 100 + 8 + 22 + 8.0);
        input.mode = Mode::scratch;
        checkTotal(8 + 22 + 6 + 100 + 32 + 22 + 8.0);
        input.scratchReady = true;
        checkTotal(8 + 22 + 6 + 100 + (30 + 5 + 8) + 22 + 8.0);
        QCOMPARE(askedWidth, 504.0);
        // Before layout the width falls back, with the editor's floor.
        QCOMPARE(fallbackTextWidth(Mode::editorRequest, std::nullopt), 468.0);
        QCOMPARE(fallbackTextWidth(Mode::editorRequest, 300.0), 308.0);
        QCOMPARE(fallbackTextWidth(Mode::scratch, 300.0), 344.0);
    }

    void panelGrowsUpwardFromAFixedBottomUpTo32Lines()
    {
        EditorComposer composer(u"one line"_s);
        ComposerSurface &controller = composer.surface();
        ComposerPanel *panel = controller.panel();
        panel->move(100, 300);
        composer.showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(panel));
        controller.recalculateHeight();
        controller.completeInitialPlacement();
        const int bottom = panel->geometry().bottom();
        const int smallHeight = panel->height();

        panel->textView()->setPlainText(lines(10));
        controller.recalculateHeight();
        QVERIFY(panel->height() > smallHeight);
        QCOMPARE(panel->geometry().bottom(), bottom);
        QVERIFY(!controller.lastAppliedLayoutMetrics()->showsVerticalScroller);

        panel->textView()->setPlainText(lines(200));
        controller.recalculateHeight();
        const int cappedHeight = panel->height();
        QCOMPARE(panel->geometry().bottom(), bottom);
        QVERIFY(controller.lastAppliedLayoutMetrics()->showsVerticalScroller);
        QCOMPARE(controller.lastAppliedLayoutMetrics()->visibleHeight,
                 std::ceil(controller.maximumVisibleTextHeight()));
        // 33 lines are already past the cap: the panel does not grow any further.
        panel->textView()->setPlainText(lines(33));
        controller.recalculateHeight();
        QCOMPARE(panel->height(), cappedHeight);
        panel->textView()->setPlainText(lines(31));
        controller.recalculateHeight();
        QVERIFY(panel->height() < cappedHeight);
        QCOMPARE(panel->geometry().bottom(), bottom);
    }

    // Ctrl+Return submits; Escape and a window-manager close cancel and leave the window up for the
    // coordinator (which drives the buttons). A click on the footer's empty space is a click on the
    // background: it hands the keyboard back to the prompt (the header is driven end to end). The
    // panel's sides resize it (end to end in tst_quicktask_e2e): the pointer says so there only.
    void submitCancelCloseFooterAndSides()
    {
        EditorComposer controller(u"draft"_s);
        QSignalSpy submitted(&controller, &EditorComposer::submitted);
        QSignalSpy cancelled(&controller, &EditorComposer::cancelled);
        controller.showWindow();
        ComposerPanel *panel = controller.panel();
        QVERIFY(QTest::qWaitForWindowActive(panel));
        QTest::keyClicks(panel->textView(), u" more"_s);
        QTest::keyClick(panel->textView(), Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(submitted.count(), 1);
        QCOMPARE(submitted.at(0).at(0).toString(), u"draft more"_s);

        panel->submitButton()->setFocusPolicy(Qt::StrongFocus);
        panel->submitButton()->setFocus();
        QWidget *footer = panel->cancelButton()->parentWidget();
        const QPoint gap = panel->cancelButton()->geometry().topLeft() - QPoint(30, -5);
        QCOMPARE(panel->childAt(footer->pos() + gap), footer);
        QTest::mouseClick(footer, Qt::LeftButton, {}, gap);
        QVERIFY(panel->textView()->hasFocus());
        const auto cursorAt = [panel](int x) {
            QTest::mouseMove(panel, QPoint(x, panel->height() / 2));
            return panel->cursor().shape();
        };
        QCOMPARE(cursorAt(1), Qt::SizeHorCursor);
        QCOMPARE(cursorAt(ComposerLayout::horizontalPadding - 1), Qt::ArrowCursor);
        QCOMPARE(cursorAt(panel->width() - 2), Qt::SizeHorCursor);

        QTest::keyClick(panel->textView(), Qt::Key_Escape);
        panel->close();
        QCOMPARE(cancelled.count(), 2);
        QVERIFY(panel->isVisible());
        controller.surface().closeProgrammatically();
        QVERIFY(!panel->isVisible());
        QCOMPARE(cancelled.count(), 2);

        // Pasted files become their paths; rich text arrives as plain text.
        panel->textView()->clear();
        QTemporaryDir dir;
        auto *data = new QMimeData;
        data->setUrls({QUrl::fromLocalFile(dir.filePath(u"a/../notes.txt"_s)),
                       QUrl::fromLocalFile(dir.filePath(u"b c.png"_s)),
                       QUrl(u"https://example.invalid/x"_s)});
        data->setText(u"should not be used"_s);
        QGuiApplication::clipboard()->setMimeData(data);
        panel->textView()->paste();
        QCOMPARE(controller.text(), dir.filePath(u"notes.txt"_s) + u'\n' + dir.filePath(u"b c.png"_s));

        // Rich text arrives as plain text.
        auto *rich = new QMimeData;
        rich->setHtml(u"<b>bold</b>"_s);
        rich->setText(u"bold"_s);
        QGuiApplication::clipboard()->setMimeData(rich);
        panel->textView()->clear();
        panel->textView()->paste();
        QVERIFY(!panel->textView()->toHtml().contains(u"font-weight:700"_s));
        QCOMPARE(controller.text(), u"bold"_s);
    }

    // A backend that is not installed: missingBackendFallsBackToAnInstalledOne.
    void unavailableBackendsSayWhatIsMissing()
    {
        QuickTaskPresetSettings unusable;
        unusable.presets = {{u"no-such-model"_s, u"high"_s}};
        const QList<QuickTaskModelCatalog::Model> models{model(u"gpt-5.5"_s, {u"high"_s})};
        const auto installed = QuickTaskCLIInstallationAvailability::available(u"1.0"_s);
        const auto check = [](const ScratchComposerAvailability &result, const QString &title) {
            QCOMPARE(result.state, ScratchComposerAvailability::State::unavailable);
            QCOMPARE(result.title, title);
        };
        check(ScratchComposerAvailability::resolved(QuickTaskCLIBackend::codex, installed, {}, {}),
              u"Codex is installed, but quick tasks are not ready yet."_s);
        const ScratchComposerAvailability noPreset =
            ScratchComposerAvailability::resolved(QuickTaskCLIBackend::claude, installed, unusable, models);
        check(noPreset, u"No quick-task preset is available."_s);
        QVERIFY(noPreset.detail.contains(u"Claude"_s));
    }

    // While its check runs the composer takes nothing: no text, no attachment, no submit. Ready, it
    // offers the presets (Ctrl+digit picks one) and takes attachments, each file once.
    void checkingThenReadyWithPresetsAndAttachments()
    {
        Fixture f;
        QuickTaskPresetSettings settings;
        settings.presets = {{u"gpt-5.2-codex"_s, u"high"_s},
                            {u"gpt-5.1-codex-mini"_s, u"high"_s},
                            {u"gpt-5.1-codex-mini"_s, u"medium"_s}};
        settings.selectedPresetIndex = 0;
        AppSettings(f.defaults).setQuickTaskPresetSettings(settings);
        QCOMPARE(f.controller->availabilityTitle()->text(), u"Checking Codex CLI\u2026"_s);
        ComposerTextView *text = f.controller->panel()->textView();
        QVERIFY(text->isReadOnly());
        QCOMPARE(text->focusPolicy(), Qt::NoFocus);
        QVERIFY(!f.controller->panel()->submitButton()->isEnabled());
        f.controller->submitPressed(); // beeps, hands nothing over
        QCOMPARE(f.delegate.submits, 0);
        f.controller->appendAttachments({QUrl::fromLocalFile(f.env.root())});
        QVERIFY(f.controller->attachments().isEmpty());
        const int checkingHeight = f.controller->panel()->height();

        // The chosen backend's pass alone makes it ready: a slower backend is not waited for, and
        // every backend's answer after it changes nothing.
        QCOMPARE(f.asked, QList{QuickTaskCLIBackend::codex});
        f.promise.addResult(
            Availabilities{{QuickTaskCLIBackend::codex, allInstalled().value(QuickTaskCLIBackend::codex)}});
        QTRY_VERIFY(f.controller->availability().isReady());
        QCOMPARE(f.controller->availability().version, u"codex-cli 1"_s);
        f.answer(allInstalled());
        QCOMPARE(f.controller->backend(), QuickTaskCLIBackend::codex);
        QVERIFY(!text->isReadOnly());
        QVERIFY(f.controller->panel()->submitButton()->isEnabled());
        QVERIFY(f.controller->attachmentStrip()->isVisibleTo(f.controller->panel()));
        QTRY_VERIFY(f.controller->panel()->height() != checkingHeight); // overlay room gives way to the strip

        QComboBox *popup = f.controller->presetPopup();
        QCOMPARE(popup->count(), 3);
        QCOMPARE(popup->itemText(2),
                 settings.presets.at(2).menuTitle(2, QuickTaskCLIBackend::codex, f.shortcuts));
        auto *items = qobject_cast<QStandardItemModel *>(popup->model());
        for (int row = 0; row < 3; ++row)
            QVERIFY(items->item(row)->isEnabled());
        // Ctrl+3 picks position 3; Ctrl+9 names no preset and changes nothing.
        QTest::keyClick(text, Qt::Key_3, Qt::ControlModifier);
        QCOMPARE(popup->currentIndex(), 2);
        QTest::keyClick(text, Qt::Key_9, Qt::ControlModifier);
        QCOMPARE(popup->currentIndex(), 2);
        QVERIFY(text->toPlainText().isEmpty()); // the keys typed nothing
        QCOMPARE(AppSettings(f.defaults).quickTaskPresetSettings().selectedPresetIndex, 2);

        const QString file = f.env.path(u"notes.md"_s);
        QFile(file).open(QIODevice::WriteOnly);
        const QString folder = f.env.path(u"src"_s);
        QDir().mkpath(folder);
        f.controller->appendAttachments({QUrl::fromLocalFile(file), QUrl::fromLocalFile(folder),
                                         QUrl::fromLocalFile(f.env.path(u"src/../notes.md"_s))});
        QCOMPARE(f.controller->attachments().size(), 2);
        QCOMPARE(f.controller->attachmentStrip()->attachments().size(), 2);
        // The strip's pill hands its remove button to the composer.
        f.controller->attachmentStrip()->pillViews().constFirst()->removeButton()->click();
        QCOMPARE(f.controller->attachmentStrip()->attachments().size(), 1);
        QVERIFY(QFile::exists(file)); // the user's own file is never deleted

        f.controller->submitPressed();
        QCOMPARE(f.delegate.submits, 1);
        QCOMPARE(f.delegate.attachments, f.controller->attachmentStrip()->attachments());
        QCOMPARE(f.delegate.preset->model, u"gpt-5.1-codex-mini"_s);
        QCOMPARE(f.delegate.preset->reasoningEffort, u"medium"_s);
    }

    void missingBackendFallsBackToAnInstalledOne()
    {
        Fixture f(QuickTaskCLIBackend::claude);
        Availabilities availabilities = allInstalled();
        availabilities[QuickTaskCLIBackend::claude] =
            QuickTaskCLIInstallationAvailability::unavailable(u"gone"_s);
        f.answer(availabilities);
        QCOMPARE(f.controller->backend(), QuickTaskCLIBackend::codex);
        QCOMPARE(AppSettings(f.defaults).quickTaskCLIBackend(), QuickTaskCLIBackend::codex);

        // An answer that arrives after the backend was changed again (two quick steps in the
        // preferences) is stale: it does not write its backend back over the newer choice.
        Fixture quick;
        quick.promise.addResult(allInstalled());
        AppSettings(quick.defaults).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QTRY_COMPARE(quick.asked, (QList{QuickTaskCLIBackend::codex, QuickTaskCLIBackend::claude}));
        QCOMPARE(AppSettings(quick.defaults).quickTaskCLIBackend(), QuickTaskCLIBackend::claude);

        // With none installed it stays unavailable and takes nothing.
        Fixture none;
        const auto missing = QuickTaskCLIInstallationAvailability::unavailable(u"gone"_s);
        none.answer({{QuickTaskCLIBackend::codex, missing},
                     {QuickTaskCLIBackend::claude, missing},
                     {QuickTaskCLIBackend::opencode, missing}});
        QCOMPARE(none.controller->availability().state, ScratchComposerAvailability::State::unavailable);
        QCOMPARE(none.controller->availabilityTitle()->text(), u"Codex CLI is unavailable."_s);
        QCOMPARE(none.controller->availability().detail, u"gone"_s);
        QTest::keyClick(none.controller->panel()->textView(), Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(none.delegate.submits, 0);
        none.controller->appendAttachments({QUrl::fromLocalFile(none.env.root())});
        QVERIFY(none.controller->attachments().isEmpty());
    }

    void foldersRefusedForOpenCode()
    {
        Fixture f(QuickTaskCLIBackend::opencode);
        f.answer(allInstalled());
        const QString file = f.env.path(u"notes.md"_s);
        QFile(file).open(QIODevice::WriteOnly);
        f.controller->appendAttachments({QUrl::fromLocalFile(f.env.root()), QUrl::fromLocalFile(file)});
        QVERIFY(f.controller->isShowingUnsupportedDirectoryAttachmentAlert());
        auto *alert = f.controller->panel()->findChild<QMessageBox *>(u"FolderAttachmentAlert"_s);
        QVERIFY(alert);
        QCOMPARE(alert->text(), u"OpenCode cannot use folder attachment."_s);
        QCOMPARE(f.controller->attachments().size(), 1); // the file still came in
        QVERIFY(!f.controller->attachments().constFirst().isDirectory());
    }

    void dictationIsInsertedAtTheSelectionAndUndoable()
    {
        VoiceFixture f;
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
        VoiceFixture f;
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
        VoiceFixture f(QuickTaskCLIBackend::codex); // no model list: nothing to rewrite with
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

QTEST_MAIN(ScratchComposerTest)
#include "tst_scratchcomposer.moc"
