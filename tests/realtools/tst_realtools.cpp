// The real codex, claude and opencode, as installed by `make real-tools`, against a
// stand-in model server on the loopback interface: a prompt rewrite through each comes back
// with the server's text. (Their version checks and quick tasks run through the real tarvel
// in tst_realtools_composer.) Every base URL points at that server and the tools' own update
// checks and telemetry are off; loopback-only.sh runs the test where the loopback interface
// is the only one, so nothing could leave the machine anyway. Without the tools it says why
// and skips.
#include "LoopbackModelServer.h"
#include "RealToolProfile.h"
#include "core/TarvelError.h"
#include "settings/QuickTaskModelCatalog.h"
#include "support/TestEnvironment.h"
#include "voice/PromptRewriteService.h"

#include <QDir>
#include <QtTest>

namespace {

const QString kTranscript = QStringLiteral("um fix the the login bug in auth dot py and uh add a test");
constexpr int kRunTimeout = 180000;

// A private profile with one real tool on PATH, configured to talk to the server only.
struct RealToolSetup {
    explicit RealToolSetup(QuickTaskCLIBackend backend)
        : server(environment.path(QStringLiteral("requests.jsonl")))
        , profile(backend, server)
    {
        workingDirectory = environment.path(QStringLiteral("project"));
        QDir().mkpath(workingDirectory);
        for (const QString &name : RealToolProfile::clearedVariables())
            environment.unset(name.toLatin1().constData());
        for (auto it = profile.variables().cbegin(); it != profile.variables().cend(); ++it)
            environment.set(it.key().toLatin1().constData(), it.value());
        // No login shell: the search path is the one above.
        environment.set("SHELL", environment.path(QStringLiteral("no-login-shell")));
        if (server.port() > 0)
            configure();
    }

    void configure()
    {
        QCOMPARE(profile.writeConfigurationFiles(QProcessEnvironment::systemEnvironment()), QString());
        switch (profile.backend()) {
        case QuickTaskCLIBackend::codex:
            preset = QuickTaskPreset{QStringLiteral("gpt-5.5"), QStringLiteral("low")};
            break;
        case QuickTaskCLIBackend::claude: {
            const QuickTaskModelCatalog::Model model =
                BackendProfiles::of(QuickTaskCLIBackend::claude).availableModels().constFirst();
            preset = QuickTaskPreset{model.identifier, model.resolvedDefaultReasoningEffort()};
            break;
        }
        case QuickTaskCLIBackend::opencode:
            // The model as the preferences would offer it, from the tool's own configuration.
            for (const QuickTaskModelCatalog::Model &model :
                 BackendProfiles::of(QuickTaskCLIBackend::opencode).availableModels()) {
                if (model.identifier.contains(QStringLiteral("echo")))
                    preset = QuickTaskPreset{model.identifier, QStringLiteral("low")};
            }
            break;
        }
    }

    TestEnvironment environment;
    LoopbackModelServer server;
    RealToolProfile profile;
    QString workingDirectory;
    QuickTaskPreset preset;
};

// opencode needs about a second of processor time to print its version: on a busy machine
// that is close to the verification's 2.0 s limit. A time-out of the version check is
// tried again (and reported with its time); anything else fails at once.
constexpr int kVersionCheckAttempts = 5;

// The rewrite's draft, or what went wrong in failure.
QString rewrite(const RealToolSetup &setup, QuickTaskCLIBackend backend, QString &failure)
{
    PromptRewriteService service;
    for (int attempt = 1; attempt <= kVersionCheckAttempts; ++attempt) {
        QFuture<QString> future =
            service.rewritePrompt(kTranscript, setup.workingDirectory, setup.preset, backend);
        if (!QTest::qWaitFor([&] { return future.isFinished(); }, kRunTimeout)) {
            failure = QStringLiteral("No result within %1 s.").arg(kRunTimeout / 1000);
            return {};
        }
        try {
            return future.result();
        } catch (const TarvelError &error) {
            failure = error.description();
        }
        if (!failure.contains(QStringLiteral(" did not respond to `")))
            break;
        qInfo("Attempt %d: %s", attempt, qPrintable(failure));
    }
    return {};
}

} // namespace

class RealToolsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        const QString isolation = RealToolProfile::networkIsolationProblem();
        QVERIFY2(isolation.isEmpty(), qPrintable(isolation));
    }

    void rewriteReturnsTheServersDraft_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        for (const BackendProfile *profile : BackendProfiles::all())
            QTest::newRow(qPrintable(profile->rawValue())) << profile->backend();
    }
    void rewriteReturnsTheServersDraft()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        if (const QString reason = RealToolProfile::missingReason(backend); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        RealToolSetup setup(backend);
        QVERIFY2(setup.server.port() > 0, "The loopback model server did not start.");
        QString failure;
        const QString draft = rewrite(setup, backend, failure);
        QVERIFY2(failure.isEmpty() || !draft.isEmpty(), qPrintable(failure));
        QCOMPARE(draft, LoopbackModelServer::rewriteAnswer());
        QVERIFY(setup.server.received(setup.profile.modelRequestPath(), QStringLiteral("Dictated notes:")));
    }
};

QTEST_GUILESS_MAIN(RealToolsTest)
#include "tst_realtools.moc"
