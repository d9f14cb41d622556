// Dictation over a fake recogniser: the transcriber's stop rules (the wait for a final result,
// one answer per stop), access order, and the builder's states, preset choice and cancel; then
// the prompt rewrite against the fake backends: what each backend is given, how its answer
// becomes the draft, every failure text, and cancelling.
#include "FakeSpeechRecognizer.h"
#include "backends/BackendProfiles.h"
#include "core/UserDefaults.h"
#include "fakebackends/FakeBackendSetup.h"
#include "settings/AppSettings.h"
#include "voice/PromptRewriteService.h"
#include "voice/VoicePromptBuilder.h"
#include "voice/VoicePromptDraftError.h"
#include "voice/VoicePromptTranscriber.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using Access = SpeechRecognizer::Access;
using Kind = VoicePromptDraftError::Kind;
using State = VoicePromptBuilder::State;

namespace {

const QString kTranscript = u"um so fix the the login bug in auth dot py"_s;

// What a future delivered, and how often. A failure shows as its description, with the
// transcript it carries.
struct Outcome {
    int deliveries = 0;
    QString value;
    std::optional<Kind> kind;
    QString transcript;
};

template<typename T> std::shared_ptr<Outcome> observe(QFuture<T> future, QObject *context)
{
    auto outcome = std::make_shared<Outcome>();
    auto failed = [outcome](const TarvelError &error) {
        if (const auto *voice = dynamic_cast<const VoicePromptDraftError *>(&error))
            outcome->kind = voice->kind(), outcome->transcript = voice->transcript();
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

// The fake backends with claude chosen, a fake recogniser, a builder over both and a rewrite
// service of its own; both work in the private home.
struct Fixture : FakeBackendSetup {
    Fixture()
    {
        AppSettings(defaults).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        QObject::connect(&builder, &VoicePromptBuilder::stateChanged,
                         [this](State state) { states.append(state); });
    }
    std::shared_ptr<Outcome> stop(const std::optional<QuickTaskPreset> &preset = std::nullopt)
    {
        return observe(builder.stopRecordingAndBuildPrompt(environment.root(), preset), &builder);
    }
    std::shared_ptr<Outcome> rewrite(QuickTaskCLIBackend backend,
                                     const QuickTaskPreset &preset = {u"m-1"_s, u"low"_s})
    {
        return observe(service.rewritePrompt(kTranscript, environment.root(), preset, backend), &service);
    }

    UserDefaults defaults{environment.path(u"settings.conf"_s)};
    FakeSpeechRecognizer recognizer;
    VoicePromptBuilder builder{recognizer, defaults};
    PromptRewriteService service;
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

    // Speech recognition is settled first, then the microphone; a refusal starts nothing. (A denied
    // microphone's sentence is checked where the composer shows it, in tst_scratchcomposer.)
    void accessBeforeCapture()
    {
        const QString noModel =
            u"On-device Speech Recognition is unavailable on this computer right now. Install it."_s;
        const QString plainUnavailable = noModel.chopped(u" Install it."_s.size());
        const QString refused = u"Speech Recognition access is required to transcribe a dictated prompt."_s;
        const auto undetermined = Access::notDetermined, authorized = Access::authorized;
        // Speech and microphone access, the answer to every question asked, the recogniser's reason
        // to be unavailable; the calls made, and the error (empty: recording).
        for (const auto &[speech, microphone, answer, unavailable, calls, error] :
             {std::tuple{undetermined, undetermined, true, QString(),
                         QStringList{u"askSpeech"_s, u"askMicrophone"_s, u"start"_s}, QString()},
              std::tuple{undetermined, undetermined, false, QString(), QStringList{u"askSpeech"_s}, refused},
              // refused, whatever else stands in the way
              std::tuple{Access::denied, authorized, true, u"Install it."_s, QStringList{}, refused},
              std::tuple{authorized, authorized, true, plainUnavailable, QStringList{}, plainUnavailable},
              // the recogniser gone after access
              std::tuple{authorized, authorized, true, u"Install it."_s, QStringList{}, noModel}}) {
            Fixture f;
            f.recognizer.speechAccess = speech;
            f.recognizer.microphoneAccessState = microphone;
            f.recognizer.speechAnswer = f.recognizer.microphoneAnswer = answer;
            f.recognizer.unavailable = unavailable;
            const auto outcome = observe(f.builder.startRecording(), &f.builder);
            QVERIFY(delivered(outcome));
            f.recognizer.calls.removeAll(u"cancel"_s);
            QCOMPARE(f.recognizer.calls, calls);
            QCOMPARE(outcome->value, error);
            QCOMPARE(f.builder.state(), error.isEmpty() ? State::recording : State::idle);
        }
    }

    // The composer's preset when usable for the current backend, else the voice-draft preset,
    // else none, which the rewrite refuses. Every build ends idle.
    void dictationBecomesADraft()
    {
        // "voice": the voice-draft preset; empty: none.
        for (const auto &[backend, preferred, modelAndEffort] :
             {std::tuple{QuickTaskCLIBackend::claude, std::optional(QuickTaskPreset{u"opus"_s, u"max"_s}),
                         u"opus max"_s},
              std::tuple{QuickTaskCLIBackend::claude, std::optional(QuickTaskPreset{u"gpt-5.5"_s, u"low"_s}),
                         u"voice"_s},
              std::tuple{QuickTaskCLIBackend::codex, std::optional<QuickTaskPreset>(), QString()}}) {
            Fixture f;
            AppSettings(f.defaults).setQuickTaskCLIBackend(backend);
            const QuickTaskPreset voice = AppSettings(f.defaults).voicePromptRewritePreset();
            const QString expected =
                modelAndEffort == u"voice" ? voice.model + u' ' + voice.reasoningEffort : modelAndEffort;
            QCOMPARE(f.builder.isVoicePromptAvailable(preferred), !expected.isEmpty());
            QCOMPARE(f.stop()->kind, Kind::cancelled); // only from recording

            QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
            QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder))); // does nothing
            f.recognizer.onFinishAudio = [&f] {
                QTimer::singleShot(0, &f.recognizer,
                                   [&f] { f.recognizer.hear(u"  um go forward\n"_s, true); });
            };
            const auto draft = f.stop(preferred);
            QCOMPARE(f.builder.state(), State::transcribing);
            QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder))); // nor does this
            QVERIFY(delivered(draft));
            QCOMPARE(f.states,
                     (QList<State>{State::recording, State::transcribing, State::processing, State::idle}));
            QCOMPARE(f.recognizer.calls.count(u"start"_s), 1);
            if (expected.isEmpty()) {
                QCOMPARE(draft->kind, Kind::promptRewriteModelUnavailable);
                QCOMPARE(draft->value,
                         u"No model is available to turn the transcript into a prompt draft."_s);
                QVERIFY(f.fakes.recorded(u"codex.argv"_s).isNull());
                continue;
            }
            QCOMPARE(draft->value, u"Fake answer."_s);
            const QStringList arguments = f.fakes.recordedArguments(u"claude"_s);
            QVERIFY(arguments.last().endsWith(u"Dictated notes:\num go forward"_s)); // trimmed
            QCOMPARE(arguments.value(arguments.indexOf(u"--model"_s) + 1) + u' ' +
                         arguments.value(arguments.indexOf(u"--effort"_s) + 1),
                     expected);
        }
    }

    // The backend answers the stop signals with a full draft and a clean exit: still cancelled,
    // once. A new dictation at once is not disturbed by the old one's end; composers share the
    // recogniser, so the latest start wins and the earlier recording ends.
    void cancelWhileTheBackendRewrites()
    {
        Fixture f;
        f.useSteps(
            {u"report-stop-signals"_s, u"ready"_s, u"sleep 30"_s, u"out A fine draft\\n"_s, u"exit 0"_s});
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        f.recognizer.hear(u"go forward"_s, true);
        const auto draft = f.stop();
        QVERIFY(QTest::qWaitFor([&] { return f.fakes.isReady(); }, 10000));
        f.builder.cancel();
        QCOMPARE(f.builder.state(), State::idle);
        QVERIFY(delivered(draft));
        QCOMPARE(draft->kind, Kind::cancelled);
        QVERIFY(delivered(observe(f.builder.startRecording(), &f.builder)));
        QTest::qWait(200);
        QCOMPARE(draft->deliveries, 1);
        QCOMPARE(f.states, (QList<State>{State::recording, State::transcribing, State::processing,
                                         State::idle, State::recording}));

        VoicePromptBuilder other(f.recognizer, f.defaults);
        QVERIFY(delivered(observe(other.startRecording(), &other)));
        QCOMPARE(f.states.last(), State::idle);
        QCOMPARE(other.state(), State::recording);
    }

    // What each backend is given (its arguments, then the instructions and the transcript as one
    // argument after "--", in the working directory), and how its answer becomes the draft; a
    // failed run or an empty answer is an error that says why and carries the transcript.
    void rewriteOutcomes_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QuickTaskPreset>("preset");
        QTest::addColumn<QString>("arguments"); // one per line, {D} the working directory
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<bool>("succeeds");
        QTest::addColumn<QString>("expected"); // the draft, or the failure's description
        const auto codex = QuickTaskCLIBackend::codex;
        const auto claude = QuickTaskCLIBackend::claude;
        const auto opencode = QuickTaskCLIBackend::opencode;
        const QuickTaskPreset codexPreset{u"gpt-5.5"_s, u"low"_s}, claudePreset{u"sonnet"_s, u"high"_s};
        // What a quick task without attachments is given (tst_invocation's lists): codex and claude.
        const QString asQuickTask;
        QTest::newRow("codex: the last agent message")
            << codex << codexPreset << asQuickTask
            << QStringList{u"out not json\\n"_s, FakeBackends::codexAnswerStep(u"First draft"_s),
                           uR"(out {"type":"item.completed","item":{"type":"reasoning","text":"hmm"}}\n)"_s,
                           FakeBackends::codexAnswerStep(u"  Fix the login bug in auth.py.  "_s),
                           u"err noise\\n"_s}
            << true << u"Fix the login bug in auth.py."_s;
        QTest::newRow("claude: lines trimmed, blank ones dropped, split reads joined")
            << claude << claudePreset << asQuickTask
            << QStringList{u"out   Fix the login bug\\n\\n   \\n  in au"_s, u"sleep 0.1"_s, u"out th.py.  "_s}
            << true << u"Fix the login bug\nin auth.py."_s;
        QTest::newRow("opencode without a model: terminal codes removed")
            << opencode << QuickTaskPreset{QString(), u"high"_s} << u"run\n--variant\nhigh\n--dir\n{D}"_s
            << QStringList{u"out \\0033[0m\\n\\0033[1m<think>\\0033[0m\\n"_s,
                           u"out \\0033[32mFix the login bug.\\0033[0m\\r\\n"_s}
            << true << u"Fix the login bug."_s;

        QStringList tenErrors;
        for (int line = 1; line <= 10; ++line)
            tenErrors.append(u"err error line %1\\n"_s.arg(line));
        QTest::newRow("the last 3 of the kept stderr lines")
            << claude << claudePreset << asQuickTask
            << (tenErrors << u"out half an answer\\n"_s << u"exit 1"_s) << false
            << u"error line 8 | error line 9 | error line 10"_s;
        QTest::newRow("opencode with a model, fewer than three")
            << opencode << QuickTaskPreset{u"openrouter//qwen/qwen3"_s, u"minimal"_s}
            << u"run\n--variant\nminimal\n--dir\n{D}\n--model\nopenrouter/qwen/qwen3"_s
            << QStringList{u"err  \\n  only one  \\n"_s, u"exit 2"_s} << false << u"only one"_s;
        QTest::newRow("no stderr") << codex << codexPreset << asQuickTask << QStringList{u"exit 1"_s} << false
                                   << u"Codex could not turn the transcript into a prompt draft."_s;
        QTest::newRow("empty answer")
            << claude << claudePreset << asQuickTask << QStringList{u"out \\n  \\n"_s} << false
            << u"Claude returned an empty prompt draft."_s;
        QTest::newRow("codex without an agent message")
            << codex << codexPreset << asQuickTask
            << QStringList{uR"(out {"type":"item.completed","item":{"type":"agent_message","text":""}}\n)"_s}
            << false << u"Codex returned an empty prompt draft."_s;
    }
    void rewriteOutcomes()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QuickTaskPreset, preset);
        QFETCH(QString, arguments);
        QFETCH(QStringList, steps);
        QFETCH(bool, succeeds);
        Fixture f;
        f.useSteps(steps);
        const auto outcome = f.rewrite(backend, preset);
        QVERIFY(delivered(outcome));
        QVERIFY(!f.service.isRewriting());
        QTEST(outcome->value, "expected");
        QCOMPARE(outcome->kind, succeeds ? std::nullopt : std::optional(Kind::promptRewriteFailed));
        QCOMPARE(outcome->transcript, succeeds ? QString() : kTranscript);

        const BackendProfile &profile = BackendProfiles::of(backend);
        const QString name = profile.rawValue();
        const QStringList received = f.fakes.recordedArguments(name);
        const QString prompt = received.constLast();
        QVERIFY(prompt.startsWith(u"Rewrite the user's dictated notes into a clean prompt"_s));
        QVERIFY(prompt.endsWith(u"\n\nDictated notes:\n"_s + kTranscript));
        QCOMPARE(received, arguments.isEmpty()
                               ? profile.quickTaskArguments(prompt, f.environment.root(), {}, preset)
                               : arguments.replace(u"{D}"_s, f.environment.root()).split(u'\n')
                                     << u"--"_s << prompt);
        QCOMPARE(QString::fromUtf8(f.fakes.recorded(name + u".cwd"_s).trimmed()), f.environment.root());
    }

    // A backend that is not there or cannot be started says so. A cancel while the backend's version
    // is checked answers at once, and nothing starts when the check passes after it; a new rewrite
    // cancels the one in flight and runs. A backend deaf to SIGINT and SIGTERM notes each: SIGKILL
    // after the grace is the only way out, with one cancelled result. (That the whole process group
    // ends is ProcessGroupTask's, seen in tst_quicktaskmanager.)
    void rewriteProblemsAndCancels()
    {
        Fixture f;
        f.environment.set("PATH", u"/nonexistent"_s);
        auto outcome = f.rewrite(QuickTaskCLIBackend::claude);
        QVERIFY(delivered(outcome));
        QCOMPARE(outcome->kind, std::nullopt); // the backend's own error, unchanged
        QCOMPARE(outcome->value, u"Could not find the Claude CLI executable."_s);

        f.environment.set("PATH", f.fakes.searchPath());
        // Passes its version check, then cannot be started.
        QFile script(f.fakes.executable(u"opencode"_s));
        QVERIFY(script.open(QIODevice::WriteOnly | QIODevice::Truncate));
        script.write("#!/bin/sh\nif [ \"$1\" = --version ]; then echo 1.0; chmod -x \"$0\"; fi\n");
        script.close();
        outcome = f.rewrite(QuickTaskCLIBackend::opencode);
        QVERIFY(delivered(outcome));
        QCOMPARE(outcome->kind, Kind::promptRewriteFailed);
        QCOMPARE(outcome->value, u"Could not start opencode: Permission denied"_s);
        QCOMPARE(outcome->transcript, kTranscript);

        f.environment.set("FAKE_CODEX_VERSION_DELAY", u"1"_s);
        const auto checking = f.rewrite(QuickTaskCLIBackend::codex);
        QTest::qWait(100);
        f.service.cancel();
        QCOMPARE(checking->deliveries, 1);
        QCOMPARE(checking->kind, Kind::cancelled);
        QVERIFY(QTest::qWaitFor(
            [&] { return QFile::exists(f.fakes.recordPath(u"codex.version-answered"_s)); }, 10000));
        QTest::qWait(300);
        QVERIFY(f.fakes.recorded(u"codex.argv"_s).isNull());
        QCOMPARE(checking->deliveries, 1);

        f.useSteps({u"ready"_s, u"hang"_s});
        const auto first = f.rewrite(QuickTaskCLIBackend::claude);
        QVERIFY(QTest::qWaitFor([&] { return f.fakes.isReady(); }, 10000));
        f.environment.unset("FAKE_STEPS");
        const auto second = f.rewrite(QuickTaskCLIBackend::claude);
        QVERIFY(delivered(first));
        QCOMPARE(first->kind, Kind::cancelled);
        QVERIFY(delivered(second));
        QCOMPARE(second->value, u"Fake answer."_s);

        f.fakes.forget(u"ready"_s);
        QFile deaf(f.fakes.executable(u"claude"_s));
        QVERIFY(deaf.open(QIODevice::WriteOnly | QIODevice::Truncate));
        deaf.write("#!/bin/sh\n[ \"$1\" = --version ] && { echo '2.0.0 (Claude Code)'; exit 0; }\n"
                   "cd \"$FAKE_RECORD_DIR\"; trap 'echo INT >>signals' INT; trap 'echo TERM >>signals' TERM\n"
                   // A trap runs when wait returns, not when a sleep in front ends.
                   ": >ready; while :; do sleep 1 & wait $!; done\n");
        deaf.close();
        outcome = f.rewrite(QuickTaskCLIBackend::claude);
        QVERIFY(QTest::qWaitFor([&] { return f.fakes.isReady(); }, 10000));
        f.service.cancel();
        f.service.cancel();
        QVERIFY(delivered(outcome));
        QCOMPARE(f.fakes.recorded(u"signals"_s), QByteArray("INT\nTERM\n")); // in this order
        QCOMPARE(outcome->kind, Kind::cancelled);
        QCOMPARE(outcome->value, u"Voice capture was cancelled."_s);
        f.service.cancel();
        QTest::qWait(100);
        QCOMPARE(outcome->deliveries, 1);
        QVERIFY(!f.service.isRewriting());
    }
};

QTEST_GUILESS_MAIN(VoicePromptTest)
#include "tst_voiceprompt.moc"
