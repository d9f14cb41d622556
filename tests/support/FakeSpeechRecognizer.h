#pragma once

#include "platform/SpeechRecognizer.h"

#include <QStringList>

#include <optional>

// A recogniser the test speaks for: it reports what the test says was heard, answers access
// questions as told and records what it was asked, in order.
class FakeSpeechRecognizer final : public SpeechRecognizer {
public:
    Access speechAccess = Access::authorized;
    Access microphoneAccessState = Access::authorized;
    bool speechAnswer = true;
    bool microphoneAnswer = true;
    QString unavailable;
    // What happens when the audio ends (a final result, an error, or nothing), and at a start.
    std::function<void()> onFinishAudio;
    std::function<void()> onStart;
    // Set: it transcribes only after the stop, within this time.
    std::optional<std::chrono::milliseconds> timeLimit;
    QStringList calls;

    Access speechRecognitionAccess() const override { return speechAccess; }
    Access microphoneAccess() const override { return microphoneAccessState; }
    void requestSpeechRecognitionAccess(std::function<void(bool)> answer) override
    {
        calls.append(QStringLiteral("askSpeech"));
        answer(speechAnswer);
    }
    void requestMicrophoneAccess(std::function<void(bool)> answer) override
    {
        calls.append(QStringLiteral("askMicrophone"));
        answer(microphoneAnswer);
    }
    QString unavailableReason() const override { return unavailable; }
    void start() override
    {
        calls.append(QStringLiteral("start"));
        if (onStart)
            onStart();
    }
    void finishAudio() override
    {
        if (onFinishAudio)
            onFinishAudio();
    }
    void cancel() override { calls.append(QStringLiteral("cancel")); }
    std::optional<std::chrono::milliseconds> finalResultTimeLimit() const override { return timeLimit; }

    void hear(const QString &transcript, bool isFinal = false)
    {
        Q_EMIT recognitionUpdated(transcript, isFinal);
    }
    void fail(const QString &errorText) { Q_EMIT recognitionFailed(errorText); }
};
