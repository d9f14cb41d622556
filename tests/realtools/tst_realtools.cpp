// The real codex, claude and opencode, as installed by `make real-tools`, against a
// stand-in model server on the loopback interface: their versions pass verification, and
// a quick task and a prompt rewrite through each come back with the server's text. Every
// base URL points at that server and the tools' own update checks and telemetry are off,
// so nothing leaves the machine. Without the tools each test says why and skips.
#include "core/Clock.h"
#include "errorlog/ErrorLogManager.h"
#include "quicktasks/QuickTaskError.h"
#include "quicktasks/QuickTaskManager.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "settings/QuickTaskModelCatalog.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"
#include "voice/PromptRewriteService.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#include <memory>
#include <variant>

#include <unistd.h>

namespace {

const QString kTaskAnswer = QStringLiteral("The loopback model finished the quick task.");
const QString kRewriteAnswer =
    QStringLiteral("Fix the login bug in auth.py and add a regression test for it.");
const QString kTaskPrompt = QStringLiteral("Real tools quick task: say something.");
const QString kTranscript = QStringLiteral("um fix the the login bug in auth dot py and uh add a test");
constexpr int kRunTimeout = 180000;

QString toolsDirectory()
{
    const QString fromEnvironment = qEnvironmentVariable("TARVEL_REAL_TOOLS_DIR");
    return fromEnvironment.isEmpty() ? QStringLiteral(TARVEL_REAL_TOOLS_CONFIGURED_DIR) : fromEnvironment;
}

QString toolsBinDirectory()
{
    return QDir(toolsDirectory()).filePath(QStringLiteral("node_modules/.bin"));
}

// Why the tool cannot be tested here, or empty.
QString missingReason(QuickTaskCLIBackend backend)
{
    const QString name = QuickTaskCLIBackends::executableName(backend);
    if (!QFileInfo(QDir(toolsBinDirectory()).filePath(name)).isExecutable()) {
        return QStringLiteral("%1 is not installed in %2; run `make real-tools` to install the real tools.")
            .arg(name, toolsDirectory());
    }
    if (QStandardPaths::findExecutable(
            QStringLiteral("node"),
            {QStringLiteral("/usr/local/bin"), QStringLiteral("/usr/bin"), QStringLiteral("/bin")})
            .isEmpty())
        return QStringLiteral("node is not installed; the real tools need it.");
    return {};
}

void writeText(const QString &path, const QByteArray &text)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(text);
}

// The stand-in model server (fake_model_server.py), one per test.
class LoopbackModelServer final {
public:
    explicit LoopbackModelServer(const QString &logPath)
        : m_logPath(logPath)
    {
        m_process.setProgram(QStringLiteral(TARVEL_PYTHON3));
        m_process.setArguments({QStringLiteral(TARVEL_FAKE_MODEL_SERVER), QStringLiteral("--log"), logPath,
                                QStringLiteral("--task-answer"), kTaskAnswer,
                                QStringLiteral("--rewrite-answer"), kRewriteAnswer});
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start();
        if (!m_process.waitForStarted(10000))
            return;
        while (m_process.canReadLine() || m_process.waitForReadyRead(10000)) {
            const QByteArray line = m_process.readLine().trimmed();
            if (line.startsWith("PORT ")) {
                m_port = line.mid(5).toInt();
                break;
            }
        }
    }
    ~LoopbackModelServer()
    {
        // It serves until its standard input closes.
        m_process.closeWriteChannel();
        if (!m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }
    LoopbackModelServer(const LoopbackModelServer &) = delete;
    LoopbackModelServer &operator=(const LoopbackModelServer &) = delete;

    int port() const { return m_port; }
    QString baseURL() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }

    // The requests that reached the server, oldest first.
    QList<QJsonObject> requests() const
    {
        QList<QJsonObject> requests;
        QFile log(m_logPath);
        if (!log.open(QIODevice::ReadOnly))
            return requests;
        for (const QByteArray &line : log.readAll().split('\n')) {
            if (!line.isEmpty())
                requests.append(QJsonDocument::fromJson(line).object());
        }
        return requests;
    }
    bool received(const QString &path, const QString &text) const
    {
        for (const QJsonObject &request : requests()) {
            if (request.value(QStringLiteral("path")).toString().startsWith(path) &&
                request.value(QStringLiteral("body")).toString().contains(text))
                return true;
        }
        return false;
    }

private:
    QString m_logPath;
    QProcess m_process;
    int m_port = 0;
};

// A private profile with one real tool on PATH, configured to talk to the server only.
struct RealToolSetup {
    RealToolSetup(QuickTaskCLIBackend backend)
        : backend(backend)
        , server(environment.path(QStringLiteral("requests.jsonl")))
    {
        workingDirectory = environment.path(QStringLiteral("project"));
        QDir().mkpath(workingDirectory);
        environment.set("PATH", toolsBinDirectory() + QStringLiteral(":/usr/local/bin:/usr/bin:/bin"));
        environment.set("SHELL", environment.path(QStringLiteral("no-login-shell")));
        for (const char *name :
             {"CODEX_BIN_PATH", "CLAUDE_BIN_PATH", "OPENCODE_BIN_PATH", "http_proxy", "https_proxy",
              "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "all_proxy", "OPENAI_API_KEY", "ANTHROPIC_AUTH_TOKEN",
              "CLAUDE_CODE_USE_BEDROCK", "CLAUDE_CODE_USE_VERTEX"})
            environment.unset(name);
        environment.set("NO_PROXY", QStringLiteral("127.0.0.1,localhost"));
        environment.set("no_proxy", QStringLiteral("127.0.0.1,localhost"));
        if (server.port() > 0)
            configure();
    }

    void configure()
    {
        const QByteArray port = QByteArray::number(server.port());
        switch (backend) {
        case QuickTaskCLIBackend::codex:
            environment.set("CODEX_HOME", environment.path(QStringLiteral(".codex")));
            environment.set("TARVEL_LOOPBACK_API_KEY", QStringLiteral("loopback"));
            // No retries: a server that is down must end the run, not hold it forever.
            writeText(environment.path(QStringLiteral(".codex/config.toml")),
                      "model = \"gpt-5.5\"\n"
                      "model_provider = \"loopback\"\n"
                      "check_for_update_on_startup = false\n"
                      "\n"
                      "[model_providers.loopback]\n"
                      "name = \"Loopback\"\n"
                      "base_url = \"http://127.0.0.1:" +
                          port +
                          "/v1\"\n"
                          "wire_api = \"responses\"\n"
                          "env_key = \"TARVEL_LOOPBACK_API_KEY\"\n"
                          "supports_websockets = false\n"
                          "request_max_retries = 0\n"
                          "stream_max_retries = 0\n"
                          "\n"
                          "[analytics]\n"
                          "enabled = false\n"
                          "\n"
                          "[features]\n"
                          "plugins = false\n"
                          "unbounded_connection_retries = false\n");
            preset = QuickTaskPreset{QStringLiteral("gpt-5.5"), QStringLiteral("low")};
            break;
        case QuickTaskCLIBackend::claude: {
            environment.set("ANTHROPIC_BASE_URL", server.baseURL());
            environment.set("ANTHROPIC_API_KEY", QStringLiteral("loopback"));
            environment.set("CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC", QStringLiteral("1"));
            environment.set("DISABLE_AUTOUPDATER", QStringLiteral("1"));
            environment.set("DISABLE_TELEMETRY", QStringLiteral("1"));
            environment.set("DISABLE_ERROR_REPORTING", QStringLiteral("1"));
            // As root, --dangerously-skip-permissions is only accepted inside a sandbox.
            if (::geteuid() == 0)
                environment.set("IS_SANDBOX", QStringLiteral("1"));
            const QuickTaskModelCatalog::Model model =
                QuickTaskModelCatalog::claudeAvailableModels().constFirst();
            preset = QuickTaskPreset{model.identifier, model.resolvedDefaultReasoningEffort()};
            break;
        }
        case QuickTaskCLIBackend::opencode: {
            environment.set("OPENCODE_DISABLE_MODELS_FETCH", QStringLiteral("1"));
            environment.set("OPENCODE_DISABLE_AUTOUPDATE", QStringLiteral("1"));
            environment.set("OPENCODE_DISABLE_LSP_DOWNLOAD", QStringLiteral("1"));
            // Left alone it installs its plugin from npm on every run; a closed port ends that.
            environment.set("npm_config_registry", QStringLiteral("http://127.0.0.1:9"));
            writeText(QuickTaskModelCatalog::openCodeConfigPath(),
                      "{\n"
                      "  \"autoupdate\": false,\n"
                      "  \"share\": \"disabled\",\n"
                      "  \"provider\": {\n"
                      "    \"loopback\": {\n"
                      "      \"npm\": \"@ai-sdk/openai-compatible\",\n"
                      "      \"name\": \"Loopback\",\n"
                      "      \"options\": {\"baseURL\": \"http://127.0.0.1:" +
                          port +
                          "/v1\", \"apiKey\": \"loopback\"},\n"
                          "      \"models\": {\"echo\": {\"name\": \"Echo\"}}\n"
                          "    }\n"
                          "  }\n"
                          "}\n");
            // The model as the preferences would offer it, from the tool's own configuration.
            for (const QuickTaskModelCatalog::Model &model :
                 QuickTaskModelCatalog::loadOpenCodeAvailableModels()) {
                if (model.identifier.contains(QStringLiteral("echo")))
                    preset = QuickTaskPreset{model.identifier, QStringLiteral("low")};
            }
            break;
        }
        }
    }

    // Where the tool sends its model requests.
    QString modelRequestPath() const
    {
        switch (backend) {
        case QuickTaskCLIBackend::codex:
            return QStringLiteral("/v1/responses");
        case QuickTaskCLIBackend::claude:
            return QStringLiteral("/v1/messages");
        case QuickTaskCLIBackend::opencode:
            return QStringLiteral("/v1/chat/completions");
        }
        Q_UNREACHABLE();
    }

    QuickTaskCLIBackend backend;
    TestEnvironment environment;
    LoopbackModelServer server;
    QString workingDirectory;
    QuickTaskPreset preset;
};

// opencode needs about a second of processor time to print its version: on a busy machine
// that is close to the verification's 2.0 s limit. A time-out of the version check is
// tried again (and reported with its time); anything else fails at once.
constexpr int kVersionCheckAttempts = 5;

bool isVersionCheckTimeOut(const QString &message)
{
    return message.contains(QStringLiteral(" did not respond to `"));
}

struct Failure {
    QString description;
};

// Waits for the future: its result, or what went wrong.
template<typename T> std::variant<T, Failure> outcome(QFuture<T> future)
{
    if (!QTest::qWaitFor([&] { return future.isFinished(); }, kRunTimeout))
        return Failure{QStringLiteral("No result within %1 s.").arg(kRunTimeout / 1000)};
    try {
        return future.result();
    } catch (const TarvelError &error) {
        return Failure{error.description()};
    }
}

// Runs start() until it gets past the version check, at most kVersionCheckAttempts times.
template<typename T, typename Start> std::variant<T, Failure> startPastVersionCheck(Start start)
{
    std::variant<T, Failure> result = Failure{QStringLiteral("not started")};
    for (int attempt = 1; attempt <= kVersionCheckAttempts; ++attempt) {
        result = outcome(start());
        const Failure *failure = std::get_if<Failure>(&result);
        if (!failure || !isVersionCheckTimeOut(failure->description))
            break;
        qInfo("Attempt %d: %s", attempt, qPrintable(failure->description));
    }
    return result;
}

void addBackendRows()
{
    QTest::addColumn<QuickTaskCLIBackend>("backend");
    for (QuickTaskCLIBackend backend : QuickTaskCLIBackends::allCases())
        QTest::newRow(qPrintable(QuickTaskCLIBackends::rawValue(backend))) << backend;
}

} // namespace

class RealToolsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void versionPassesVerification_data() { addBackendRows(); }
    void versionPassesVerification()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        if (const QString reason = missingReason(backend); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        RealToolSetup setup(backend);
        const QString executable = TaskCLIExecutableLocator::resolveExecutableURL(backend);
        QVERIFY(executable.startsWith(toolsBinDirectory()));
        QString version;
        QString failure;
        for (int attempt = 1; attempt <= kVersionCheckAttempts && version.isEmpty(); ++attempt) {
            QElapsedTimer timer;
            timer.start();
            try {
                version = TaskCLIExecutableLocator::verifiedVersionString(backend, executable);
            } catch (const QuickTaskError &error) {
                failure = error.description();
                if (!isVersionCheckTimeOut(failure))
                    break;
            }
            qInfo("%s answered its version query in %lld ms%s",
                  qPrintable(QuickTaskCLIBackends::executableName(backend)),
                  static_cast<long long>(timer.elapsed()), version.isEmpty() ? " (too late)" : "");
        }
        QVERIFY2(!version.isEmpty(), qPrintable(failure));
        qInfo("%s printed \"%s\"", qPrintable(QuickTaskCLIBackends::executableName(backend)),
              qPrintable(version));
    }

    void quickTaskEndsWithTheServersAnswer_data() { addBackendRows(); }
    void quickTaskEndsWithTheServersAnswer()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        if (const QString reason = missingReason(backend); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        RealToolSetup setup(backend);
        QVERIFY2(setup.server.port() > 0, "The loopback model server did not start.");
        QVERIFY(!setup.preset.model.isEmpty());

        UserDefaults defaults(setup.environment.path(QStringLiteral("defaults.ini")));
        ErrorLogManager errorLog(Clock::system());
        QuickTaskManager manager(QuickTaskStore(), errorLog, defaults, Clock::system());
        manager.noteWorkingDirectory(setup.workingDirectory);
        const std::variant<QUuid, Failure> started = startPastVersionCheck<QUuid>(
            [&] { return manager.startTask(kTaskPrompt, std::nullopt, {}, setup.preset, backend); });
        if (const Failure *failure = std::get_if<Failure>(&started))
            QFAIL(qPrintable(failure->description));
        const QUuid id = std::get<QUuid>(started);
        QVERIFY(QTest::qWaitFor([&] { return !manager.session(id)->isRunning(); }, kRunTimeout));

        const QuickTaskSession session = *manager.session(id);
        const QByteArray rawLog = [&] {
            QFile file(manager.store().rawLogURL(id));
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        }();
        QVERIFY2(session.status == QuickTaskSession::Status::succeeded, rawLog.constData());
        QCOMPARE(session.finalResponse, kTaskAnswer);
        QVERIFY(setup.server.received(setup.modelRequestPath(), kTaskPrompt));
        if (backend == QuickTaskCLIBackend::codex)
            QVERIFY(session.threadID && !session.threadID->isEmpty());
        QVERIFY(errorLog.entries().isEmpty());
    }

    void rewriteReturnsTheServersDraft_data() { addBackendRows(); }
    void rewriteReturnsTheServersDraft()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        if (const QString reason = missingReason(backend); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        RealToolSetup setup(backend);
        QVERIFY2(setup.server.port() > 0, "The loopback model server did not start.");

        PromptRewriteService service;
        const std::variant<QString, Failure> draft = startPastVersionCheck<QString>([&] {
            return service.rewritePrompt(kTranscript, setup.workingDirectory, setup.preset, backend);
        });
        if (const Failure *failure = std::get_if<Failure>(&draft))
            QFAIL(qPrintable(failure->description));
        QCOMPARE(std::get<QString>(draft), kRewriteAnswer);
        QVERIFY(setup.server.received(setup.modelRequestPath(), QStringLiteral("Dictated notes:")));
    }
};

QTEST_GUILESS_MAIN(RealToolsTest)
#include "tst_realtools.moc"
