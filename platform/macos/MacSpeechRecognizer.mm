#include "platform/SpeechRecognizer.h"

#include <QCoreApplication>
#include <QPointer>

#import <AVFoundation/AVFoundation.h>
#import <Speech/Speech.h>

namespace {

const QString unavailableText =
    QStringLiteral("On-device Speech Recognition is unavailable on this Mac right now.");

SpeechRecognizer::Access accessOf(SFSpeechRecognizerAuthorizationStatus status)
{
    switch (status) {
    case SFSpeechRecognizerAuthorizationStatusAuthorized:
        return SpeechRecognizer::Access::authorized;
    case SFSpeechRecognizerAuthorizationStatusDenied:
        return SpeechRecognizer::Access::denied;
    case SFSpeechRecognizerAuthorizationStatusRestricted:
        return SpeechRecognizer::Access::restricted;
    default:
        return SpeechRecognizer::Access::notDetermined;
    }
}

SpeechRecognizer::Access accessOf(AVAuthorizationStatus status)
{
    switch (status) {
    case AVAuthorizationStatusAuthorized:
        return SpeechRecognizer::Access::authorized;
    case AVAuthorizationStatusDenied:
        return SpeechRecognizer::Access::denied;
    case AVAuthorizationStatusRestricted:
        return SpeechRecognizer::Access::restricted;
    default:
        return SpeechRecognizer::Access::notDetermined;
    }
}

SFSpeechRecognizer *makeRecognizer()
{
    SFSpeechRecognizer *recognizer =
        [[SFSpeechRecognizer alloc] initWithLocale:[NSLocale autoupdatingCurrentLocale]];
    // Recognition never falls back to a server.
    if (!recognizer || !recognizer.isAvailable || !recognizer.supportsOnDeviceRecognition)
        return nil;
    return recognizer;
}

// Runs on the main thread when the object still exists; the system answers on its own queues.
template<typename Object, typename Function> void onMainThread(Object *object, Function function)
{
    QPointer<Object> guarded(object);
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [guarded, function = std::move(function)] {
            if (guarded)
                function(guarded.data());
        },
        Qt::QueuedConnection);
}

// SFSpeechRecognizer on device, fed by AVAudioEngine's input tap. Dictation on the Mac does not
// use the recogniser command (that serves `tarvel transcribe`).
class MacSpeechRecognizer final : public SpeechRecognizer {
public:
    ~MacSpeechRecognizer() override { tearDown(); }

    Access speechRecognitionAccess() const override
    {
        return accessOf([SFSpeechRecognizer authorizationStatus]);
    }
    Access microphoneAccess() const override
    {
        return accessOf([AVCaptureDevice authorizationStatusForMediaType:AVMediaTypeAudio]);
    }

    void requestSpeechRecognitionAccess(std::function<void(bool granted)> answer) override
    {
        [SFSpeechRecognizer requestAuthorization:^(SFSpeechRecognizerAuthorizationStatus status) {
          const bool granted = status == SFSpeechRecognizerAuthorizationStatusAuthorized;
          onMainThread(this, [answer, granted](MacSpeechRecognizer *) { answer(granted); });
        }];
    }

    void requestMicrophoneAccess(std::function<void(bool granted)> answer) override
    {
        [AVCaptureDevice
            requestAccessForMediaType:AVMediaTypeAudio
                    completionHandler:^(BOOL granted) {
                      onMainThread(this, [answer, granted](MacSpeechRecognizer *) { answer(granted); });
                    }];
    }

    QString unavailableReason() const override { return makeRecognizer() ? QString() : unavailableText; }

    void start() override
    {
        cancel();
        SFSpeechRecognizer *recognizer = makeRecognizer();
        if (!recognizer)
            throw SpeechRecognizerError(SpeechRecognizerError::Kind::recognitionUnavailable, unavailableText);
        AVAudioEngine *engine = [[AVAudioEngine alloc] init];
        SFSpeechAudioBufferRecognitionRequest *request = [[SFSpeechAudioBufferRecognitionRequest alloc] init];
        request.shouldReportPartialResults = YES;
        request.requiresOnDeviceRecognition = YES;
        AVAudioInputNode *input = engine.inputNode;
        [input removeTapOnBus:0];
        [input installTapOnBus:0
                    bufferSize:1024
                        format:[input outputFormatForBus:0]
                         block:^(AVAudioPCMBuffer *buffer, AVAudioTime *) {
                           [request appendAudioPCMBuffer:buffer];
                         }];
        const quint64 session = ++m_session;
        SFSpeechRecognitionTask *task = [recognizer
            recognitionTaskWithRequest:request
                         resultHandler:^(SFSpeechRecognitionResult *result, NSError *error) {
                           const bool hasResult = result != nil;
                           const QString transcript =
                               hasResult ? QString::fromNSString(result.bestTranscription.formattedString)
                                         : QString();
                           const bool isFinal = hasResult && result.isFinal;
                           const QString errorText =
                               error ? QString::fromNSString(error.localizedDescription) : QString();
                           onMainThread(this, [=](MacSpeechRecognizer *self) {
                               self->handleUpdate(session, hasResult, transcript, isFinal, errorText);
                           });
                         }];
        m_engine = engine;
        m_request = request;
        m_task = task;
        [engine prepare];
        NSError *startError = nil;
        if (![engine startAndReturnError:&startError]) {
            cancel();
            throw SpeechRecognizerError(SpeechRecognizerError::Kind::captureFailed,
                                        QStringLiteral("Could not start microphone capture."));
        }
    }

    void finishAudio() override
    {
        if (!m_engine)
            return;
        [m_engine stop];
        [m_engine.inputNode removeTapOnBus:0];
        [m_request endAudio];
    }

    void cancel() override
    {
        ++m_session;
        tearDown();
    }

private:
    void handleUpdate(quint64 session, bool hasResult, const QString &transcript, bool isFinal,
                      const QString &errorText)
    {
        if (session != m_session)
            return;
        if (hasResult) {
            if (isFinal)
                tearDown();
            Q_EMIT recognitionUpdated(transcript, isFinal);
        } else if (!errorText.isEmpty()) {
            tearDown();
            Q_EMIT recognitionFailed(errorText);
        }
    }

    void tearDown()
    {
        if (m_engine) {
            [m_engine stop];
            [m_engine.inputNode removeTapOnBus:0];
        }
        [m_request endAudio];
        [m_task cancel];
        m_engine = nil;
        m_request = nil;
        m_task = nil;
    }

    quint64 m_session = 0;
    AVAudioEngine *m_engine = nil;
    SFSpeechAudioBufferRecognitionRequest *m_request = nil;
    SFSpeechRecognitionTask *m_task = nil;
};

} // namespace

std::unique_ptr<SpeechRecognizer> SpeechRecognizer::create(Configuration)
{
    return std::make_unique<MacSpeechRecognizer>();
}
