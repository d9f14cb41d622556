#pragma once

#include "voice/VoicePromptBuilder.h"

#include <QToolButton>

// The composer's microphone button: a microphone when idle, a red stop square while
// recording, an accent-coloured waveform (disabled) while the dictation is transcribed and
// processed.
class VoicePromptButton final : public QToolButton {
    Q_OBJECT

public:
    explicit VoicePromptButton(QWidget *parent = nullptr);

    // available: whether an idle button may start a dictation.
    void applyState(VoicePromptBuilder::State state, bool available);
    VoicePromptBuilder::State shownState() const noexcept { return m_state; }

private:
    VoicePromptBuilder::State m_state = VoicePromptBuilder::State::idle;
};
