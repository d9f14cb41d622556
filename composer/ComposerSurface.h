#pragma once

#include "composer/ComposerLayout.h"
#include "core/PromptAttachment.h"
#include "settings/QuickTaskPreset.h"
#include "voice/VoicePromptBuilder.h"

#include <QObject>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class ComposerPanel;
struct ComposerServices;
class KeyboardShortcuts;
class PromptEditingAids;
class QLabel;
class QMimeData;
class SpeechRecognizer;
class UserDefaults;
class VoicePromptButton;

// What both composers share: the panel and its text, the height rule with the bottom
// edge anchored once placed, pasted and dropped files, and the submit/cancel gestures.
// An editor or scratch composer owns one and adds its own parts through the hooks.
// A control that belongs on both composers (a microphone button) goes here.
class ComposerSurface final : public QObject {
    Q_OBJECT

public:
    ComposerSurface(ComposerLayout::Mode mode, const QString &initialText, QObject *parent = nullptr);
    ~ComposerSurface() override;

    ComposerPanel *panel() const { return m_panel.get(); }
    ComposerLayout::Mode mode() const { return m_mode; }
    QString text() const;

    // Sizes the panel for its text; called once the owner has added its parts.
    void applyInitialSize();
    // Replaces the text of a panel not shown yet, as if it had been made with it: no undo step,
    // the cursor at the end, the height for the new text.
    void replaceInitialText(const QString &text);
    void setCompositingAvailable(bool available);
    // Shows the window, with the keyboard focus in the text when asked.
    void show(bool focusText);
    // From the first placement on, the bottom edge stays put while the height follows the text.
    void completeInitialPlacement();
    // Closes the window without treating it as a cancel.
    void closeProgrammatically();

    // The height rule, applied at once (normally deferred to the event loop).
    void recalculateHeight();
    void scheduleHeightRecalculation();
    double maximumVisibleTextHeight() const;
    const std::optional<ComposerLayout::LayoutMetrics> &lastAppliedLayoutMetrics() const
    {
        return m_lastAppliedLayoutMetrics;
    }

    // A warning about this composer, modal to it alone. It comes up guarded against keys typed
    // for the text, and without taking the keyboard when another window has it.
    void presentAlert(const QString &message, const QString &informativeText);

    // Inserts the local files' paths as text, one per line.
    void insertPaths(const QList<QUrl> &urls);

    // Dictation: a microphone button whose draft goes in at the selection, and the voice
    // shortcut inside the composer. Without it the composer has neither.
    void enableVoicePrompt(SpeechRecognizer &recognizer, UserDefaults &defaults,
                           KeyboardShortcuts *shortcuts);
    VoicePromptBuilder *voicePromptBuilder() const { return m_voicePromptBuilder; }
    VoicePromptButton *voicePromptButton() const { return m_voicePromptButton; }
    // Starts a dictation when idle, stops it and builds the draft when recording.
    void voicePromptPressed();
    // "Transcribing…" over the text while the stop waits for the recogniser.
    QLabel *voicePromptStatus() const { return m_voicePromptStatus; }
    // Whether a dictation can start now (a usable rewrite preset), shown on the idle button.
    void refreshVoicePromptAvailability();

    // The editing aids (highlighting and spelling, `@` mentions, earlier prompts, find and
    // replace) with the services' history and spelling.
    void enableEditingAids(const ComposerServices &services);
    PromptEditingAids *editingAids() const { return m_editingAids; }
    // The folder the prompt is for (an editor request's, a quick task's): its files for mentions,
    // its earlier prompts for Up.
    void setWorkingFolder(const std::optional<QString> &folder);

    // Hooks for the owner. Paste: whether it takes pastes now, where pasted files go
    // (their paths by default) and what becomes of a pasted image (a managed copy).
    std::function<bool()> acceptsPaste;
    std::function<void(const QList<QUrl> &)> onPastedFiles;
    std::function<void(const PromptAttachment &)> onPastedImage;
    // A key the composer takes before the text does.
    std::function<bool(int key, Qt::KeyboardModifiers, const QString &text)> onKey;
    // Completes the layout input with the owner's section (scratch: readiness, strip).
    std::function<void(ComposerLayout::Input &)> completeLayoutInput;
    // The frame after the first placement, whenever it moves or resizes, and at close.
    std::function<void(const QRect &)> onFrameChanged;
    // The folder the owner works in (an editor request's, a quick task's), preferred for the
    // dictation's rewrite when it exists.
    std::function<std::optional<QString>()> preferredWorkingDirectory;
    // The owner's selected preset, preferred for the dictation's rewrite.
    std::function<std::optional<QuickTaskPreset>()> preferredRewritePreset;

Q_SIGNALS:
    void submitRequested();
    // Escape, the Cancel button or a close by the window manager.
    void cancelRequested();
    void closed();
    void voicePromptStateChanged(VoicePromptBuilder::State state);

private:
    void setTextWithoutUndo(const QString &text);
    bool handlePaste(const QMimeData *data);
    ComposerLayout::Input layoutInput() const;
    void windowDidMove();
    void windowDidResize();
    void reportFrame();
    void cancelPressed();
    void escapePressed();
    void applyVoicePromptState();
    void placeVoicePromptStatus();
    void insertVoicePromptText(const QString &text);
    void presentVoicePromptFailure(std::exception_ptr error);
    QString rewriteWorkingDirectory() const;

    ComposerLayout::Mode m_mode;
    std::unique_ptr<ComposerPanel> m_panel;
    std::optional<ComposerLayout::LayoutMetrics> m_lastAppliedLayoutMetrics;
    std::optional<int> m_automaticHeightAnchorBottom;
    bool m_heightRecalculationScheduled = false;
    bool m_isApplyingAutomaticFrame = false;
    bool m_isFramePersistenceEnabled = false;
    VoicePromptBuilder *m_voicePromptBuilder = nullptr;
    VoicePromptButton *m_voicePromptButton = nullptr;
    QLabel *m_voicePromptStatus = nullptr;
    UserDefaults *m_defaults = nullptr;
    KeyboardShortcuts *m_shortcuts = nullptr;
    PromptEditingAids *m_editingAids = nullptr;
};
