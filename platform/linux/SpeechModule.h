#pragma once

#include "platform/SpeechEngine.h"

#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>

// Capture of the default microphone feeding an engine, on a thread of its own. Answers arrive on
// the thread that made it, through the callbacks, each naming the session it belongs to.
class SpeechCapture {
public:
    struct Callbacks {
        std::function<void(quint64 session, const QString &transcript, bool isFinal)> updated;
        std::function<void(quint64 session, const QString &errorText)> failed;
    };

    virtual ~SpeechCapture() = default;

    // Throws SpeechRecognizerError (captureFailed) when there is no input device to open.
    virtual void start(quint64 session, const SpeechEngine::Options &options, std::stop_token stop) = 0;
    virtual void finish(quint64 session) = 0;
    virtual void cancel(quint64 session) = 0;
};

// What is loaded only when dictation, `tarvel transcribe` or a microphone check first needs it: Qt
// Multimedia's capture and PocketSphinx, with all they pull in (the sound server's client, codecs,
// BLAS), which a tray application that mostly idles has no use for. The module and the application
// come from one build and share these declarations; only plain C++ objects cross, never a QObject,
// whose signals would not match between the two copies of its meta-object.
class SpeechModule {
public:
    virtual ~SpeechModule() = default;

    virtual bool hasAudioInput() = 0;
    // Loads the model. Throws SpeechRecognizerError when it cannot.
    virtual std::unique_ptr<SpeechEngine> createBuiltInEngine() = 0;
    virtual std::unique_ptr<SpeechCapture> createCapture(std::chrono::milliseconds modelIdleRelease,
                                                         SpeechCapture::Callbacks callbacks) = 0;

    // The module, loaded on the first call and kept. Throws SpeechRecognizerError
    // (recognitionUnavailable) saying which file is missing or broken.
    static SpeechModule &load();
};

// The module's one exported function, which load() looks up by this name.
#define TARVEL_SPEECH_MODULE_ENTRY "tarvel_speech_module"
extern "C" SpeechModule *tarvel_speech_module();
