// Dictation over a fake recogniser: the transcriber's stop rules (the wait for a final result,
// exactly one answer, errors after speech), access order, and the builder's states, preset
// choice and cancel, with the rewrite run by the fake backends.
#include "FakeSpeechRecognizer.h"
#include "core/UserDefaults.h"
#include "fakebackends/FakeBackendSetup.h"
#include "settings/AppSettings.h"
#include "voice/VoicePromptBuilder.h"
#include "voice/VoicePromptDraftError.h"
#include "voice/VoicePromptTranscriber.h"

#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;
using Access = SpeechRecognizer::Access;
using Kind = VoicePromptDraftError::Kind;
using State = VoicePromptBuilder::State;

namespace {

// Everything a future delivered, counted.
struct Outcome {
    int deliveries = 0;
    std::optional<QString> value;
    std::optional<Kind> kind;
    QString description;
};

template<typename T> std::shared_ptr<Outcome> observe(QFuture<T> future, QObject *context)
{
    auto outcome = std::make_shared<Outcome>();
    auto handled = [outcome] {
        try {
            throw;
        } catch (const VoicePromptDraftError &error) {
            outcome->kind = error.kind();
            outcome->description = error.description();
        } catch (const TarvelError &error) {
            outcome->description = error.description();
        }
        ++outcome->deliveries;
    };
    if constexpr (std::is_void_v<T>)
        future.then(context, [outcome] { ++outcome->deliveries; }).onFailed(context, handled);
    else
        future
            .then(context,
                  [outcome](const T &value) {
                      outcome->value = value;
                      ++outcome->deliveries;
                  })
            .onFailed(context, handled);
    return outcome;
}

bool delivered(const std::shared_ptr<Outcome> &outcome)
{
    return QTest::qWaitFor([&] { return outcome->deliveries > 0; }, 10000);
}

struct BuilderFixture : FakeBackendSetup {
    BuilderFixture()
    {
        QDir().mkpath(workingDirectory);
        AppSettings(defaults).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QObject::connect(&builder, &VoicePromptBuilder::stateChanged,
                         [this](State state) { states.append(state); });
    }

    QString workingDirectory = environment.path(QStringLiteral("project"));
    UserDefaults defaults{environment.path(QStringLiteral("settings.conf"))};
    FakeSpeechRecognizer recognizer;
    VoicePromptBuilder builder{recognizer, defaults};
    QList<State> states;
};

} // namespace

class VoicePromptTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // What a stop returns, given what the recogniser heard and does once the audio ends.
    void stopOutcomes_data()
    {
        QTest::addColumn<QStringList>("partials");
        QTest::addColumn<QString>("failureBeforeStop"); // null: none
        QTest::addColumn<QString>("finalResult");       // null: no final result comes
        QTest::addColumn<QString>("failureAtStop");     // null: none
        QTest::addColumn<QString>("transcript");        // null: the stop fails
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("description");
        const QStringList heard{QStringLiteral("go"), QStringLiteral("go forward ")};
        QTest::newRow("final result within the wait, untrimmed")
            << heard << QString() << QStringLiteral(" go forward ten meters ") << QString()
            << QStringLiteral(" go forward ten meters ") << 0 << QString();
        QTest::newRow("no final result: the latest partial")
            << heard << QString() << QString() << QString() << QStringLiteral("go forward ") << 0
            << QString();
        QTest::newRow("nothing heard")
            << QStringList{QStringLiteral("  ")} << QString() << QString() << QString() << QString()
            << int(Kind::emptyTranscription) << QStringLiteral("No speech was transcribed.");
        QTest::newRow("error after speech keeps the speech")
            << heard << QString() << QString() << QStringLiteral("Decoder stopped.")
            << QStringLiteral("go forward ") << 0 << QString();
        QTest::newRow("error before any speech")
            << QStringList{} << QString() << QString() << QStringLiteral("Decoder stopped.") << QString()
            << int(Kind::recordingFailed) << QStringLiteral("Decoder stopped.");
        QTest::newRow("error during capture, speech heard")
            << heard << QStringLiteral("Device lost.") << QString() << QString()
            << QStringLiteral("go forward ") << 0 << QString();
        QTest::newRow("error during capture, nothing heard")
            << QStringList{} << QStringLiteral("Device lost.") << QString() << QString() << QString()
            << int(Kind::recordingFailed) << QStringLiteral("Device lost.");
    }
    void stopOutcomes()
    {
        QFETCH(QStringList, partials);
        QFETCH(QString, failureBeforeStop);
        QFETCH(QString, finalResult);
        QFETCH(QString, failureAtStop);
        QFETCH(QString, transcript);
        FakeSpeechRecognizer recognizer;
        VoicePromptTranscriber transcriber(recognizer);
        transcriber.startRecording();
        for (const QString &partial : partials)
            recognizer.hear(partial);
        if (!failureBeforeStop.isNull())
            recognizer.fail(failureBeforeStop);
        recognizer.onFinishAudio = [&] {
            // The recogniser answers from its own thread, so later than the call.
            QTimer::singleShot(50, &recognizer, [&] {
                if (!finalResult.isNull())
                    recognizer.hear(finalResult, true);
                if (!failureAtStop.isNull())
                    recognizer.fail(failureAtStop);
            });
        };
        const auto outcome = observe(transcriber.stopRecording(), &transcriber);
        QVERIFY(delivered(outcome));
        if (transcript.isNull()) {
            QTEST(int(outcome->kind.value_or(Kind::cancelled)), "kind");
            QTEST(outcome->description, "description");
        } else {
            QCOMPARE(outcome->value, transcript);
        }
        // The capture is torn down, and nothing that comes late is delivered a second time.
        QCOMPARE(recognizer.calls.last(), QStringLiteral("cancel"));
        QVERIFY(!transcriber.isCapturing());
        recognizer.hear(QStringLiteral("late final"), true);
        recognizer.fail(QStringLiteral("late error"));
        QTest::qWait(VoicePromptTranscriber::finalResultWaitMilliseconds + 200);
        QCOMPARE(outcome->deliveries, 1);
    }

    void secondStopAndCancelAnswerCancelled()
    {
        FakeSpeechRecognizer recognizer;
        VoicePromptTranscriber transcriber(recognizer);
        QVERIFY(delivered(observe(transcriber.stopRecording(), &transcriber))); // nothing to stop

        transcriber.startRecording();
        recognizer.hear(QStringLiteral("first words"));
        const auto first = observe(transcriber.stopRecording(), &transcriber);
        const auto second = observe(transcriber.stopRecording(), &transcriber);
        QVERIFY(delivered(second));
        QCOMPARE(second->kind, Kind::cancelled);
        QCOMPARE(first->deliveries, 0); // the first stop still waits
        recognizer.hear(QStringLiteral("first words, final"), true);
        QVERIFY(delivered(first));
        QCOMPARE(first->value, QStringLiteral("first words, final"));

        transcriber.startRecording();
        recognizer.hear(QStringLiteral("other words"));
        const auto cancelled = observe(transcriber.stopRecording(), &transcriber);
        transcriber.cancel();
        QVERIFY(delivered(cancelled));
        QCOMPARE(cancelled->kind, Kind::cancelled);
        QCOMPARE(cancelled->description, QStringLiteral("Voice capture was cancelled."));
        QTest::qWait(VoicePromptTranscriber::finalResultWaitMilliseconds + 200);
        QCOMPARE(cancelled->deliveries, 1);
        QCOMPARE(first->deliveries, 1);
    }

    // Speech recognition is settled first, then the microphone; a refusal starts nothing.
    void accessBeforeCapture_data()
    {
        QTest::addColumn<Access>("speech");
        QTest::addColumn<bool>("speechAnswer");
        QTest::addColumn<Access>("microphone");
        QTest::addColumn<bool>("microphoneAnswer");
        QTest::addColumn<QString>("unavailable");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QString>("error"); // empty: recording
        const QString micDenied = QStringLiteral("Microphone access is required to dictate a prompt.");
        const QString speechDenied =
            QStringLiteral("Speech Recognition access is required to transcribe a dictated prompt.");
        QTest::newRow("both asked and granted")
            << Access::notDetermined << true << Access::notDetermined << true << QString()
            << QStringList{u"askSpeech"_s, u"askMicrophone"_s, u"start"_s} << QString();
        QTest::newRow("microphone denied, speech granted") << Access::authorized << true << Access::denied
                                                           << true << QString() << QStringList{} << micDenied;
        QTest::newRow("microphone refused when asked")
            << Access::notDetermined << true << Access::notDetermined << false << QString()
            << QStringList{u"askSpeech"_s, u"askMicrophone"_s} << micDenied;
        QTest::newRow("speech refused: the microphone is not asked")
            << Access::notDetermined << false << Access::notDetermined << true << QString()
            << QStringList{u"askSpeech"_s} << speechDenied;
        QTest::newRow("speech restricted") << Access::restricted << true << Access::notDetermined << true
                                           << QString() << QStringList{} << speechDenied;
        QTest::newRow("no recogniser installed")
            << Access::denied << true << Access::authorized << true << QStringLiteral("Install the model.")
            << QStringList{}
            << QStringLiteral("On-device Speech Recognition is unavailable on this computer right now. "
                              "Install the model.");
        QTest::newRow("recogniser gone after access")
            << Access::authorized << true << Access::authorized << true
            << QStringLiteral("Install the model.") << QStringList{}
            << QStringLiteral("On-device Speech Recognition is unavailable on this computer right now. "
                              "Install the model.");
    }
    void accessBeforeCapture()
    {
        QFETCH(QStringList, calls);
        QFETCH(QString, error);
        BuilderFixture f;
        QFETCH(Access, speech);
        QFETCH(Access, microphone);
        f.recognizer.speechAccess = speech;
        f.recognizer.microphoneAccessState = microphone;
        QFETCH(bool, speechAnswer);
        QFETCH(bool, microphoneAnswer);
        f.recognizer.speechAnswer = speechAnswer;
        f.recognizer.microphoneAnswer = microphoneAnswer;
        QFETCH(QString, unavailable);
        f.recognizer.unavailable = unavailable;

        const auto outcome = observe(f.builder.startRecording(), &f.builder);
        QVERIFY(delivered(outcome));
        f.recognizer.calls.removeAll(QStringLiteral("cancel"));
        QCOMPARE(f.recognizer.calls, calls);
        QCOMPARE(outcome->description, error);
        QCOMPARE(f.builder.state(), error.isEmpty() ? State::recording : State::idle);
    }

    void captureThatCannotStart()
    {
        BuilderFixture f;
        f.recognizer.startFailure = SpeechRecognizerError::Kind::captureFailed;
        const auto outcome = observe(f.builder.startRecording(), &f.builder);
        QVERIFY(delivered(outcome));
        QCOMPARE(outcome->kind, Kind::recordingFailed);
        QCOMPARE(outcome->description, QStringLiteral("Could not start microphone capture."));
        QCOMPARE(f.builder.state(), State::idle);
        QVERIFY(f.states.isEmpty());
    }

    void dictationBecomesADraft()
    {
        BuilderFixture f;
        // Stopping needs a recording.
        QCOMPARE(observe(f.builder.stopRecordingAndBuildPrompt(f.workingDirectory, std::nullopt), &f.builder)
                     ->kind.value_or(Kind::emptyTranscription),
                 Kind::cancelled);
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder))); // does nothing
        QCOMPARE(f.recognizer.calls.count(QStringLiteral("start")), 1);
        f.recognizer.hear(QStringLiteral("um go forward"));
        f.recognizer.onFinishAudio = [&] {
            f.recognizer.hear(QStringLiteral("  um go forward ten meters\n"), true);
        };

        const auto draft =
            observe(f.builder.stopRecordingAndBuildPrompt(f.workingDirectory, std::nullopt), &f.builder);
        QCOMPARE(f.builder.state(), State::processing);
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder))); // nothing while processing
        QVERIFY(delivered(draft));
        QCOMPARE(draft->value, QStringLiteral("Fake answer."));
        QCOMPARE(f.states, (QList<State>{State::recording, State::processing, State::idle}));
        QCOMPARE(f.recognizer.calls.count(QStringLiteral("start")), 1);
        const QStringList arguments = f.fakes.recordedArguments(QStringLiteral("claude"));
        QVERIFY(arguments.last().endsWith(QStringLiteral("Dictated notes:\num go forward ten meters")));
    }

    // The composer's preset when it is usable for the current backend, else the voice-draft
    // preset, else none, which the rewrite refuses.
    void rewritePresetChoice_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<std::optional<QuickTaskPreset>>("preferred");
        QTest::addColumn<QString>("modelAndEffort"); // empty: promptRewriteModelUnavailable
        const auto claude = QuickTaskCLIBackend::claude;
        QTest::newRow("composer's preset")
            << claude << std::optional(QuickTaskPreset{QStringLiteral("opus"), QStringLiteral("max")})
            << QStringLiteral("opus max");
        QTest::newRow("composer's preset unknown to the backend: voice preset")
            << claude << std::optional(QuickTaskPreset{QStringLiteral("gpt-5.5"), QStringLiteral("low")})
            << QStringLiteral("voice");
        QTest::newRow("no composer preset: voice preset")
            << claude << std::optional<QuickTaskPreset>() << QStringLiteral("voice");
        QTest::newRow("codex without a model catalog: no voice preset")
            << QuickTaskCLIBackend::codex << std::optional<QuickTaskPreset>() << QString();
    }
    void rewritePresetChoice()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(std::optional<QuickTaskPreset>, preferred);
        QFETCH(QString, modelAndEffort);
        BuilderFixture f;
        AppSettings(f.defaults).setQuickTaskCLIBackend(backend);
        const QuickTaskPreset voice = AppSettings(f.defaults).voicePromptRewritePreset();
        if (modelAndEffort == QStringLiteral("voice"))
            modelAndEffort = voice.model + u' ' + voice.reasoningEffort;
        QCOMPARE(f.builder.isVoicePromptAvailable(preferred), !modelAndEffort.isEmpty());

        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        f.recognizer.hear(QStringLiteral("go forward"), true);
        const auto draft =
            observe(f.builder.stopRecordingAndBuildPrompt(f.workingDirectory, preferred), &f.builder);
        QVERIFY(delivered(draft));
        QCOMPARE(f.builder.state(), State::idle);
        if (modelAndEffort.isEmpty()) {
            QCOMPARE(draft->kind, Kind::promptRewriteModelUnavailable);
            return;
        }
        QCOMPARE(draft->value, QStringLiteral("Fake answer."));
        const QStringList arguments = f.fakes.recordedArguments(QStringLiteral("claude"));
        const qsizetype model = arguments.indexOf(QStringLiteral("--model"));
        const qsizetype effort = arguments.indexOf(QStringLiteral("--effort"));
        QVERIFY(model >= 0 && effort >= 0);
        QCOMPARE(arguments.at(model + 1) + u' ' + arguments.at(effort + 1), modelAndEffort);
    }

    // Composers share the recogniser: the latest start wins and the earlier recording ends.
    void aSecondDictationTakesTheRecogniserOver()
    {
        BuilderFixture f;
        VoicePromptBuilder other(f.recognizer, f.defaults);
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        QVERIFY(delivered(observe(other.startRecording(), &other)));
        QCOMPARE(f.builder.state(), State::idle);
        QCOMPARE(f.states, (QList<State>{State::recording, State::idle}));
        QCOMPARE(other.state(), State::recording);

        f.recognizer.hear(QStringLiteral("the other one"), true);
        const auto draft =
            observe(other.stopRecordingAndBuildPrompt(f.workingDirectory, std::nullopt), &other);
        QVERIFY(delivered(draft));
        QCOMPARE(draft->value, QStringLiteral("Fake answer."));
        QCOMPARE(f.states, (QList<State>{State::recording, State::idle}));
    }

    void cancelWhileTheBackendRewrites()
    {
        BuilderFixture f;
        f.useSteps({QStringLiteral("ready"), QStringLiteral("hang")});
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        f.recognizer.hear(QStringLiteral("go forward"), true);
        const auto draft =
            observe(f.builder.stopRecordingAndBuildPrompt(f.workingDirectory, std::nullopt), &f.builder);
        QVERIFY(QTest::qWaitFor([&] { return f.fakes.isReady(); }, 10000));
        f.builder.cancel();
        QCOMPARE(f.builder.state(), State::idle);
        QVERIFY(delivered(draft));
        QCOMPARE(draft->kind, Kind::cancelled);

        // A new dictation right away is not disturbed by the old one's end.
        f.environment.unset("FAKE_STEPS");
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        QTest::qWait(200);
        QCOMPARE(f.builder.state(), State::recording);
        QCOMPARE(draft->deliveries, 1);
        QCOMPARE(f.states,
                 (QList<State>{State::recording, State::processing, State::idle, State::recording}));
    }
};

QTEST_GUILESS_MAIN(VoicePromptTest)
#include "tst_voiceprompt.moc"
