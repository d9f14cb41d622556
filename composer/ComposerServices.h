#pragma once

#include "quicktasks/QuickTaskCLIInstallationAvailability.h"

#include <QFuture>

#include <functional>

class AttachmentStore;
class Clipboard;
class KeyboardShortcuts;
class PromptHistory;
class SpeechRecognizer;
class SpellCheckService;
class UserDefaults;

// What a composer consults: settings, shortcuts, the backends' state (tests answer the
// installation check themselves), the store its attachments are held in, and the speech
// recogniser for dictation (none: no microphone button), the clipboard, the prompt history and
// the spelling.
struct ComposerServices {
    UserDefaults *defaults = nullptr;
    KeyboardShortcuts *shortcuts = nullptr;
    // Its results: the preferred backend alone as soon as it has passed, then every backend.
    std::function<QFuture<QuickTaskCLIInstallationAvailabilities>(QuickTaskCLIBackend preferred)>
        checkInstallations;
    AttachmentStore *attachments = nullptr;
    SpeechRecognizer *speechRecognizer = nullptr;
    // Where "Copy and Close" puts the text of a request its terminal gave up on.
    Clipboard *clipboard = nullptr;
    // The editing aids': earlier prompts to recall (none: no recall or search), and spelling.
    PromptHistory *history = nullptr;
    SpellCheckService *spelling = nullptr;
};
