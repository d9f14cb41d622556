// Dictation over a fake recogniser: the transcriber's stop rules (the wait for a final result,
// one answer per stop), access order, and the builder's states, preset choice and cancel, with
// the rewrite run by the fake claude.
#include "FakeSpeechRecognizer.h"
#include "core/UserDefaults.h"
#include "fakebackends/FakeBackendSetup.h"
#include "settings/AppSettings.h"
#include "voice/VoicePromptBuilder.h"
#include "voice/VoicePromptDraftError.h"
#include "voice/VoicePromptTranscriber.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using Access = SpeechRecognizer::Access;
using Kind = VoicePromptDraftError::Kind;
using State = VoicePromptBuilder::State;

namespace {

// What a future delivered, and how often. A failure shows as its description.
struct Outcome {
    int deliveries = 0;
    QString value;
    std::optional<Kind> kind;
};

template<typename T> std::shared_ptr<Outcome> observe(QFuture<T> future, QObject *context)
{
    auto outcome = std::make_shared<Outcome>();
    auto failed = [outcome](const TarvelError &error) {
        if (const auto *voice = dynamic_cast<const VoicePromptDraftError *>(&error))
            outcome->kind = voice->kind();
        outcome->value = error.description();
        ++outcome->deliveries;
    };
    if constexpr (std::is_void_v<T>)
        future.then(context, [outcome] { ++outcome->deliveries; }).onFailed(context, failed);
    else
        future.then(context, [outcome](const T &value) { outcome->value = value, ++outcome->deliveries; })
            .onFailed(context, failed);
    return outcome;
}

bool delivered(const std::shared_ptr<Outcome> &outcome)
{
    return QTest::qWaitFor([&] { return outcome->deliveries > 0; }, 10000);
}

struct BuilderFixture : FakeBackendSetup {
    BuilderFixture()
    {
        AppSettings(defaults).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QObject::connect(&builder, &VoicePromptBuilder::stateChanged,
                         [this](State state) { states.append(state); });
    }
    std::shared_ptr<Outcome> stop(const std::optional<QuickTaskPreset> &preset = std::nullopt)
    {
        return observe(builder.stopRecordingAndBuildPrompt(environment.root(), preset), &builder);
    }

    UserDefaults defaults{environment.path(u"settings.conf"_s)};
    FakeSpeechRecognizer recognizer;
    VoicePromptBuilder builder{recognizer, defaults};
    QList<State> states;
};

} // namespace

class VoicePromptTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // What a stop returns, given what was heard and what the recogniser does once the audio ends.
    void stopOutcomes_data()
    {
        QTest::addColumn<QStringList>("partials");
        QTest::addColumn<QString>("finalResult"); // null: none comes
        QTest::addColumn<QString>("failure");     // null: none
        QTest::addColumn<int>("answerDelay");     // milliseconds after the audio ends
        QTest::addColumn<QString>("expected");    // the transcript or the failure's description
        const QStringList heard{u"go"_s, u"go forward "_s};
        const int late = VoicePromptTranscriber::finalResultWaitMilliseconds + 1000;
        QTest::newRow("final result within the wait, untrimmed")
            << heard << u" go forward ten meters "_s << QString() << 50 << u" go forward ten meters "_s;
        QTest::newRow("no final result: the latest partial")
            << heard << QString() << QString() << 50 << u"go forward "_s;
        QTest::newRow("nothing heard")
            << QStringList{u" "_s} << QString() << QString() << 50 << u"No speech was transcribed."_s;
        QTest::newRow("error after speech keeps it")
            << heard << QString() << u"Decoder stopped."_s << 50 << u"go forward "_s;
        QTest::newRow("error before speech")
            << QStringList{} << QString() << u"Decoder stopped."_s << 50 << u"Decoder stopped."_s;
        // A recogniser that transcribes only after the stop gets its own time limit.
        QTest::newRow("transcribed after the stop, later than the wait")
            << QStringList{} << u"turn left"_s << QString() << late << u"turn left"_s;
    }
    void stopOutcomes()
    {
        QFETCH(QStringList, partials);
        QFETCH(QString, finalResult);
        QFETCH(QString, failure);
        QFETCH(int, answerDelay);
        FakeSpeechRecognizer recognizer;
        if (answerDelay > VoicePromptTranscriber::finalResultWaitMilliseconds)
            recognizer.timeLimit = std::chrono::seconds(30);
        VoicePromptTranscriber transcriber(recognizer);
        transcriber.startRecording();
        for (const QString &partial : partials)
            recognizer.hear(partial);
        recognizer.onFinishAudio = [&] {
            // The recogniser answers later than the call, from its own thread.
            QTimer::singleShot(answerDelay, &recognizer, [&] {
                if (!finalResult.isNull())
                    recognizer.hear(finalResult, true);
                if (!failure.isNull())
                    recognizer.fail(failure);
            });
        };
        const auto outcome = observe(transcriber.stopRecording(), &transcriber);
        QVERIFY(delivered(outcome));
        QTEST(outcome->value, "expected");
        // Torn down; what comes late (a final result after the fallback) is not delivered again.
        QCOMPARE(recognizer.calls.last(), u"cancel"_s);
        recognizer.hear(u"late"_s, true);
        QTest::qWait(VoicePromptTranscriber::finalResultWaitMilliseconds + 200);
        QCOMPARE(outcome->deliveries, 1);
    }

    void secondStopAndCancelAnswerCancelled()
    {
        FakeSpeechRecognizer recognizer;
        VoicePromptTranscriber transcriber(recognizer);
        transcriber.startRecording();
        const auto first = observe(transcriber.stopRecording(), &transcriber);
        const auto second = observe(transcriber.stopRecording(), &transcriber);
        QVERIFY(delivered(second));
        QCOMPARE(second->kind, Kind::cancelled);
        QCOMPARE(first->deliveries, 0); // still waiting, undisturbed
        recognizer.hear(u"words"_s, true);
        QVERIFY(delivered(first));
        QCOMPARE(first->value, u"words"_s);

        transcriber.startRecording();
        recognizer.hear(u"other words"_s);
        const auto cancelled = observe(transcriber.stopRecording(), &transcriber);
        transcriber.cancel();
        QVERIFY(delivered(cancelled));
        QCOMPARE(cancelled->kind, Kind::cancelled);
        QTest::qWait(VoicePromptTranscriber::finalResultWaitMilliseconds + 200);
        QCOMPARE(cancelled->deliveries, 1);
    }

    // Speech recognition is settled first, then the microphone; a refusal starts nothing.
    void accessBeforeCapture_data()
    {
        QTest::addColumn<Access>("speech");
        QTest::addColumn<Access>("microphone");
        QTest::addColumn<bool>("answer"); // to every question asked
        QTest::addColumn<QString>("unavailable");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QString>("error"); // empty: recording
        const QString micDenied = u"Microphone access is required to dictate a prompt."_s;
        const QString noModel =
            u"On-device Speech Recognition is unavailable on this computer right now. Install it."_s;
        const auto undetermined = Access::notDetermined;
        QTest::newRow("both asked, granted")
            << undetermined << undetermined << true << QString()
            << QStringList{u"askSpeech"_s, u"askMicrophone"_s, u"start"_s} << QString();
        QTest::newRow("microphone denied")
            << Access::authorized << Access::denied << true << QString() << QStringList{} << micDenied;
        QTest::newRow("speech refused: microphone not asked")
            << undetermined << undetermined << false << QString() << QStringList{u"askSpeech"_s}
            << u"Speech Recognition access is required to transcribe a dictated prompt."_s;
        QTest::newRow("refused, whatever else stands in the way")
            << Access::denied << Access::authorized << true << u"Install it."_s << QStringList{}
            << u"Speech Recognition access is required to transcribe a dictated prompt."_s;
        const QString plainUnavailable = noModel.chopped(u" Install it."_s.size());
        QTest::newRow("unavailable, said once") << Access::authorized << Access::authorized << true
                                                << plainUnavailable << QStringList{} << plainUnavailable;
        QTest::newRow("recogniser gone after access") << Access::authorized << Access::authorized << true
                                                      << u"Install it."_s << QStringList{} << noModel;
    }
    void accessBeforeCapture()
    {
        QFETCH(QString, error);
        BuilderFixture f;
        QFETCH(Access, speech);
        QFETCH(Access, microphone);
        QFETCH(bool, answer);
        QFETCH(QString, unavailable);
        f.recognizer.speechAccess = speech;
        f.recognizer.microphoneAccessState = microphone;
        f.recognizer.speechAnswer = f.recognizer.microphoneAnswer = answer;
        f.recognizer.unavailable = unavailable;
        const auto outcome = observe(f.builder.startRecording(), &f.builder);
        QVERIFY(delivered(outcome));
        f.recognizer.calls.removeAll(u"cancel"_s);
        QTEST(f.recognizer.calls, "calls");
        QCOMPARE(outcome->value, error);
        QCOMPARE(f.builder.state(), error.isEmpty() ? State::recording : State::idle);
    }

    // The composer's preset when usable for the current backend, else the voice-draft preset,
    // else none, which the rewrite refuses. Every build ends idle.
    void dictationBecomesADraft_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<std::optional<QuickTaskPreset>>("preferred");
        QTest::addColumn<QString>("modelAndEffort"); // "voice": the voice-draft preset; empty: none
        const auto claude = QuickTaskCLIBackend::claude;
        QTest::newRow("composer's preset")
            << claude << std::optional(QuickTaskPreset{u"opus"_s, u"max"_s}) << u"opus max"_s;
        QTest::newRow("composer's preset unknown: voice preset")
            << claude << std::optional(QuickTaskPreset{u"gpt-5.5"_s, u"low"_s}) << u"voice"_s;
        QTest::newRow("codex without models: none")
            << QuickTaskCLIBackend::codex << std::optional<QuickTaskPreset>() << QString();
    }
    void dictationBecomesADraft()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(std::optional<QuickTaskPreset>, preferred);
        QFETCH(QString, modelAndEffort);
        BuilderFixture f;
        AppSettings(f.defaults).setQuickTaskCLIBackend(backend);
        const QuickTaskPreset voice = AppSettings(f.defaults).voicePromptRewritePreset();
        if (modelAndEffort == u"voice")
            modelAndEffort = voice.model + u' ' + voice.reasoningEffort;
        QCOMPARE(f.builder.isVoicePromptAvailable(preferred), !modelAndEffort.isEmpty());
        QCOMPARE(f.stop()->kind, Kind::cancelled); // only from recording

        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder))); // does nothing
        f.recognizer.onFinishAudio = [&] {
            QTimer::singleShot(0, &f.recognizer, [&] { f.recognizer.hear(u"  um go forward\n"_s, true); });
        };
        const auto draft = f.stop(preferred);
        QCOMPARE(f.builder.state(), State::transcribing);
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder))); // nor does this
        QVERIFY(delivered(draft));
        QCOMPARE(f.states,
                 (QList<State>{State::recording, State::transcribing, State::processing, State::idle}));
        QCOMPARE(f.recognizer.calls.count(u"start"_s), 1);
        if (modelAndEffort.isEmpty()) {
            QCOMPARE(draft->kind, Kind::promptRewriteModelUnavailable);
            return;
        }
        QCOMPARE(draft->value, u"Fake answer."_s);
        const QStringList arguments = f.fakes.recordedArguments(u"claude"_s);
        QVERIFY(arguments.last().endsWith(u"Dictated notes:\num go forward"_s)); // trimmed
        const auto valueOf = [&](const QString &option) {
            return arguments.value(arguments.indexOf(option) + 1);
        };
        QCOMPARE(valueOf(u"--model"_s) + u' ' + valueOf(u"--effort"_s), modelAndEffort);
    }

    void cancelWhileTheBackendRewrites()
    {
        BuilderFixture f;
        f.useSteps({u"ready"_s, u"hang"_s});
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        f.recognizer.hear(u"go forward"_s, true);
        const auto draft = f.stop();
        QVERIFY(QTest::qWaitFor([&] { return f.fakes.isReady(); }, 10000));
        f.builder.cancel();
        QCOMPARE(f.builder.state(), State::idle);
        QVERIFY(delivered(draft));
        QCOMPARE(draft->kind, Kind::cancelled);
        // A new dictation at once is not disturbed by the old one's end.
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        QTest::qWait(200);
        QCOMPARE(f.states, (QList<State>{State::recording, State::transcribing, State::processing,
                                         State::idle, State::recording}));
    }

    // Composers share the recogniser: the latest start wins and the earlier recording ends.
    void aSecondDictationTakesTheRecogniserOver()
    {
        BuilderFixture f;
        VoicePromptBuilder other(f.recognizer, f.defaults);
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        QVERIFY(delivered(observe(other.startRecording(), &other)));
        QCOMPARE(f.states, (QList<State>{State::recording, State::idle}));
        QCOMPARE(other.state(), State::recording);
    }
};

QTEST_GUILESS_MAIN(VoicePromptTest)
#include "tst_voiceprompt.moc"
