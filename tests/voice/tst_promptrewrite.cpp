// The prompt rewrite against the fake backends: what each backend is given, how its answer
// becomes the draft, every failure text, and cancelling.
#include "backends/BackendProfiles.h"
#include "core/TarvelError.h"
#include "fakebackends/FakeBackendSetup.h"
#include "quicktasks/QuickTaskError.h"
#include "voice/PromptRewriteService.h"
#include "voice/VoicePromptDraftError.h"

#include <QElapsedTimer>
#include <QtTest>

#include <memory>

namespace {

const QString kTranscript = QStringLiteral("um so fix the the login bug in auth dot py");

// The outcome of one rewrite.
struct Outcome {
    bool finished = false;
    std::optional<QString> draft;
    std::optional<VoicePromptDraftError::Kind> kind;
    QString description;
    QString carriedTranscript;
    int deliveries = 0;
};

struct RewriteFixture : FakeBackendSetup {
    RewriteFixture() { QDir().mkpath(workingDirectory); }

    // Starts a rewrite; the outcome fills in when it ends. Every delivery is counted.
    std::shared_ptr<Outcome> rewrite(QuickTaskCLIBackend backend,
                                     const QuickTaskPreset &preset = {QStringLiteral("m-1"),
                                                                      QStringLiteral("low")})
    {
        auto outcome = std::make_shared<Outcome>();
        service.rewritePrompt(kTranscript, workingDirectory, preset, backend)
            .then(&service,
                  [outcome](const QString &draft) {
                      ++outcome->deliveries;
                      outcome->finished = true;
                      outcome->draft = draft;
                  })
            .onFailed(&service, [outcome](const TarvelError &error) {
                ++outcome->deliveries;
                outcome->finished = true;
                outcome->description = error.description();
                if (const auto *voice = dynamic_cast<const VoicePromptDraftError *>(&error)) {
                    outcome->kind = voice->kind();
                    outcome->carriedTranscript = voice->transcript();
                }
            });
        return outcome;
    }

    bool wait(const std::shared_ptr<Outcome> &outcome, int timeout = 10000)
    {
        return QTest::qWaitFor([&] { return outcome->finished; }, timeout);
    }

    QString workingDirectory = environment.path(QStringLiteral("project"));
    PromptRewriteService service;
};

} // namespace

class PromptRewriteTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void backendGetsInstructionsAndTranscript_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QuickTaskPreset>("preset");
        // One argument per line; {D} is the working directory.
        QTest::addColumn<QString>("arguments");
        QTest::newRow("codex") << QuickTaskCLIBackend::codex
                               << QuickTaskPreset{QStringLiteral("gpt-5.5"), QStringLiteral("low")}
                               << QStringLiteral("exec\n--json\n--skip-git-repo-check\n--model\ngpt-5.5\n-c\n"
                                                 "model_reasoning_effort=\"low\"\n-C\n{D}\n--");
        QTest::newRow("claude") << QuickTaskCLIBackend::claude
                                << QuickTaskPreset{QStringLiteral("sonnet"), QStringLiteral("high")}
                                << QStringLiteral(
                                       "-p\n--output-format\ntext\n--no-session-persistence\n"
                                       "--dangerously-skip-permissions\n--model\nsonnet\n--effort\nhigh\n--");
        QTest::newRow("opencode")
            << QuickTaskCLIBackend::opencode
            << QuickTaskPreset{QStringLiteral("openrouter//qwen/qwen3"), QStringLiteral("minimal")}
            << QStringLiteral("run\n--variant\nminimal\n--dir\n{D}\n--model\nopenrouter/qwen/qwen3\n--");
        QTest::newRow("opencode without a model")
            << QuickTaskCLIBackend::opencode << QuickTaskPreset{QString(), QStringLiteral("high")}
            << QStringLiteral("run\n--variant\nhigh\n--dir\n{D}\n--");
    }
    void backendGetsInstructionsAndTranscript()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QuickTaskPreset, preset);
        QFETCH(QString, arguments);
        RewriteFixture fixture;
        const auto outcome = fixture.rewrite(backend, preset);
        QVERIFY(fixture.wait(outcome));
        QCOMPARE(outcome->draft, QStringLiteral("Fake answer."));

        const QString name = BackendProfiles::of(backend).rawValue();
        QStringList received = fixture.fakes.recordedArguments(name);
        // The instructions, then the transcript, as one argument after "--".
        const QString prompt = received.takeLast();
        QVERIFY(prompt.startsWith(QStringLiteral("Rewrite the user's dictated notes into a clean prompt")));
        QVERIFY(prompt.endsWith(QStringLiteral("\n\nDictated notes:\n") + kTranscript));
        QCOMPARE(received.join(u'\n'),
                 QString(arguments).replace(QStringLiteral("{D}"), fixture.workingDirectory));
        QCOMPARE(QString::fromUtf8(fixture.fakes.recorded(name + QStringLiteral(".cwd")).trimmed()),
                 fixture.workingDirectory);
    }

    // The backend's answer becomes the draft; a failed run or an empty answer is an error that
    // says why and carries the transcript.
    void outcomes_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QString>("draft");  // null: the rewrite fails
        QTest::addColumn<QString>("detail"); // the failure's description
        const auto codex = QuickTaskCLIBackend::codex;
        const auto claude = QuickTaskCLIBackend::claude;
        const auto opencode = QuickTaskCLIBackend::opencode;
        QTest::newRow("codex: the last agent message")
            << codex
            << QStringList{QStringLiteral("out not json\\n"),
                           FakeBackends::codexAnswerStep(QStringLiteral("First draft")),
                           QStringLiteral(
                               R"(out {"type":"item.completed","item":{"type":"reasoning","text":"hmm"}}\n)"),
                           FakeBackends::codexAnswerStep(QStringLiteral("  Fix the login bug in auth.py.  ")),
                           QStringLiteral("err noise\\n")}
            << QStringLiteral("Fix the login bug in auth.py.") << QString();
        QTest::newRow("claude: lines trimmed, blank ones dropped, split reads joined")
            << claude
            << QStringList{QStringLiteral("out   Fix the login bug\\n\\n   \\n  in au"),
                           QStringLiteral("sleep 0.1"), QStringLiteral("out th.py.  ")}
            << QStringLiteral("Fix the login bug\nin auth.py.") << QString();
        QTest::newRow("opencode: terminal codes removed")
            << opencode
            << QStringList{QStringLiteral("out \\0033[0m\\n\\0033[1m<think>\\0033[0m\\n"),
                           QStringLiteral("out \\0033[32mFix the login bug.\\0033[0m\\r\\n")}
            << QStringLiteral("Fix the login bug.") << QString();

        QStringList tenErrors;
        for (int line = 1; line <= 10; ++line)
            tenErrors.append(QStringLiteral("err error line %1\\n").arg(line));
        QTest::newRow("the last 3 of the kept stderr lines")
            << claude << (tenErrors << QStringLiteral("out half an answer\\n") << QStringLiteral("exit 1"))
            << QString() << QStringLiteral("error line 8 | error line 9 | error line 10");
        QTest::newRow("fewer than three")
            << codex << QStringList{QStringLiteral("err  \\n  only one  \\n"), QStringLiteral("exit 2")}
            << QString() << QStringLiteral("only one");
        QTest::newRow("no stderr") << codex << QStringList{QStringLiteral("exit 1")} << QString()
                                   << QStringLiteral(
                                          "Codex could not turn the transcript into a prompt draft.");
        QTest::newRow("killed") << opencode << QStringList{QStringLiteral("kill TERM")} << QString()
                                << QStringLiteral(
                                       "OpenCode could not turn the transcript into a prompt draft.");
        QTest::newRow("empty answer") << claude << QStringList{QStringLiteral("out \\n  \\n")} << QString()
                                      << QStringLiteral("Claude returned an empty prompt draft.");
        QTest::newRow("only terminal codes")
            << opencode << QStringList{QStringLiteral("out \\0033[0m<think></think>\\n")} << QString()
            << QStringLiteral("OpenCode returned an empty prompt draft.");
        QTest::newRow("codex without an agent message")
            << codex
            << QStringList{QStringLiteral(
                   R"(out {"type":"item.completed","item":{"type":"agent_message","text":""}}\n)")}
            << QString() << QStringLiteral("Codex returned an empty prompt draft.");
    }
    void outcomes()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QStringList, steps);
        QFETCH(QString, draft);
        RewriteFixture fixture;
        fixture.useSteps(steps);
        const auto outcome = fixture.rewrite(backend);
        QVERIFY(fixture.wait(outcome));
        QVERIFY(!fixture.service.isRewriting());
        if (!draft.isNull()) {
            QCOMPARE(outcome->draft, draft);
            return;
        }
        QCOMPARE(outcome->kind, VoicePromptDraftError::Kind::promptRewriteFailed);
        QTEST(outcome->description, "detail");
        QCOMPARE(outcome->carriedTranscript, kTranscript);
    }

    void problemsBeforeTheRun()
    {
        RewriteFixture fixture;
        auto outcome = fixture.rewrite(QuickTaskCLIBackend::codex, QuickTaskPreset{});
        QVERIFY(fixture.wait(outcome));
        QCOMPARE(outcome->kind, VoicePromptDraftError::Kind::promptRewriteModelUnavailable);
        QCOMPARE(outcome->description,
                 QStringLiteral("No model is available to turn the transcript into a prompt draft."));
        QVERIFY(fixture.fakes.recorded(QStringLiteral("codex.argv")).isNull());

        fixture.environment.set("PATH", QStringLiteral("/nonexistent"));
        outcome = fixture.rewrite(QuickTaskCLIBackend::claude);
        QVERIFY(fixture.wait(outcome));
        QCOMPARE(outcome->kind, std::nullopt); // the backend's own error, unchanged
        QCOMPARE(outcome->description, QStringLiteral("Could not find the Claude CLI executable."));

        fixture.environment.set("PATH", fixture.fakes.searchPath());
        // Passes its version check, then cannot be started.
        QFile script(fixture.fakes.executable(QStringLiteral("opencode")));
        QVERIFY(script.open(QIODevice::WriteOnly | QIODevice::Truncate));
        script.write("#!/bin/sh\nif [ \"$1\" = --version ]; then echo 1.0; chmod -x \"$0\"; fi\n");
        script.close();
        outcome = fixture.rewrite(QuickTaskCLIBackend::opencode);
        QVERIFY(fixture.wait(outcome));
        QCOMPARE(outcome->kind, VoicePromptDraftError::Kind::promptRewriteFailed);
        QCOMPARE(outcome->description, QStringLiteral("Could not start opencode: Permission denied"));
        QCOMPARE(outcome->carriedTranscript, kTranscript);
    }

    // That the whole process group ends is ProcessGroupTask's, seen in tst_quicktaskmanager.
    void cancelEndsWithOneCancelledResult_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<int>("minimumMilliseconds");
        // SIGKILL 0.6 s after the cancel is the only way out.
        QTest::newRow("deaf to SIGINT and SIGTERM")
            << QStringList{QStringLiteral("ignore-stop-signals"), QStringLiteral("ready"),
                           QStringLiteral("hang")}
            << 550;
        // Answers the signals with a full answer and a clean exit: still cancelled.
        QTest::newRow("answers and exits 0")
            << QStringList{QStringLiteral("report-stop-signals"), QStringLiteral("ready"),
                           QStringLiteral("sleep 30"), QStringLiteral("out A fine draft\\n"),
                           QStringLiteral("exit 0")}
            << 0;
    }
    void cancelEndsWithOneCancelledResult()
    {
        QFETCH(QStringList, steps);
        QFETCH(int, minimumMilliseconds);
        RewriteFixture fixture;
        fixture.useSteps(steps);
        const auto outcome = fixture.rewrite(QuickTaskCLIBackend::claude);
        QVERIFY(QTest::qWaitFor([&] { return fixture.fakes.isReady(); }, 10000));

        QElapsedTimer timer;
        timer.start();
        fixture.service.cancel();
        fixture.service.cancel();
        QVERIFY(fixture.wait(outcome));
        QVERIFY2(timer.elapsed() >= minimumMilliseconds, qPrintable(QString::number(timer.elapsed())));
        QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(outcome->kind, VoicePromptDraftError::Kind::cancelled);
        QCOMPARE(outcome->description, QStringLiteral("Voice capture was cancelled."));
        fixture.service.cancel();
        QTest::qWait(100);
        QCOMPARE(outcome->deliveries, 1);
        QVERIFY(!fixture.service.isRewriting());
    }

    void cancelWhileTheBackendIsCheckedStartsNothing()
    {
        RewriteFixture fixture;
        fixture.environment.set("FAKE_CODEX_VERSION_HANG", QStringLiteral("1"));
        QElapsedTimer timer;
        timer.start();
        const auto outcome = fixture.rewrite(QuickTaskCLIBackend::codex);
        QTest::qWait(100);
        fixture.service.cancel();
        QVERIFY(outcome->finished);
        QVERIFY(timer.elapsed() < 1500);
        QCOMPARE(outcome->kind, VoicePromptDraftError::Kind::cancelled);
        QTest::qWait(2500); // the version check gives up; nothing may start after it
        QVERIFY(fixture.fakes.recorded(QStringLiteral("codex.argv")).isNull());
        QCOMPARE(outcome->deliveries, 1);
    }

    void aNewRewriteCancelsTheOneInFlight()
    {
        RewriteFixture fixture;
        fixture.useSteps({QStringLiteral("ready"), QStringLiteral("hang")});
        const auto first = fixture.rewrite(QuickTaskCLIBackend::claude);
        QVERIFY(QTest::qWaitFor([&] { return fixture.fakes.isReady(); }, 10000));
        fixture.environment.unset("FAKE_STEPS");
        const auto second = fixture.rewrite(QuickTaskCLIBackend::claude);
        QVERIFY(fixture.wait(first));
        QCOMPARE(first->kind, VoicePromptDraftError::Kind::cancelled);
        QVERIFY(fixture.wait(second));
        QCOMPARE(second->draft, QStringLiteral("Fake answer."));
    }
};

QTEST_GUILESS_MAIN(PromptRewriteTest)
#include "tst_promptrewrite.moc"
