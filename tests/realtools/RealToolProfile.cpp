#include "RealToolProfile.h"

#include "LoopbackModelServer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

#include <unistd.h>

namespace {

QString writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        return QStringLiteral("Could not write %1: %2").arg(path, file.errorString());
    return {};
}

QByteArray codexConfiguration(const QString &baseURL)
{
    // No retries: a server that is down must end the run, not hold it forever.
    return QStringLiteral(R"(model = "gpt-5.5"
model_provider = "loopback"
check_for_update_on_startup = false

[model_providers.loopback]
name = "Loopback"
base_url = "%1/v1"
wire_api = "responses"
env_key = "TARVEL_LOOPBACK_API_KEY"
supports_websockets = false
request_max_retries = 0
stream_max_retries = 0

[analytics]
enabled = false

[features]
plugins = false
unbounded_connection_retries = false
)")
        .arg(baseURL)
        .toUtf8();
}

QByteArray openCodeConfiguration(const QString &baseURL)
{
    // The loopback model is also opencode's default, which is what the "default" preset runs.
    return QStringLiteral(R"({
  "autoupdate": false,
  "share": "disabled",
  "model": "loopback/echo",
  "provider": {
    "loopback": {
      "npm": "@ai-sdk/openai-compatible",
      "name": "Loopback",
      "options": {"baseURL": "%1/v1", "apiKey": "loopback"},
      "models": {"echo": {"name": "Echo"}}
    }
  }
}
)")
        .arg(baseURL)
        .toUtf8();
}

} // namespace

RealToolProfile::RealToolProfile(QuickTaskCLIBackend backend, const LoopbackModelServer &server)
    : m_backend(backend)
    , m_baseURL(server.baseURL())
{
    m_variables.insert(QStringLiteral("PATH"),
                       binDirectory() + QStringLiteral(":/usr/local/bin:/usr/bin:/bin"));
    m_variables.insert(QStringLiteral("NO_PROXY"), QStringLiteral("127.0.0.1,localhost"));
    m_variables.insert(QStringLiteral("no_proxy"), QStringLiteral("127.0.0.1,localhost"));
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        m_requestPath = QStringLiteral("/v1/responses");
        m_variables.insert(QStringLiteral("TARVEL_LOOPBACK_API_KEY"), QStringLiteral("loopback"));
        break;
    case QuickTaskCLIBackend::claude:
        m_requestPath = QStringLiteral("/v1/messages");
        m_variables.insert(QStringLiteral("ANTHROPIC_BASE_URL"), m_baseURL);
        m_variables.insert(QStringLiteral("ANTHROPIC_API_KEY"), QStringLiteral("loopback"));
        for (const QString &name :
             {QStringLiteral("CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC"),
              QStringLiteral("DISABLE_AUTOUPDATER"), QStringLiteral("DISABLE_TELEMETRY"),
              QStringLiteral("DISABLE_ERROR_REPORTING")})
            m_variables.insert(name, QStringLiteral("1"));
        // As root, --dangerously-skip-permissions is only accepted inside a sandbox.
        if (::geteuid() == 0)
            m_variables.insert(QStringLiteral("IS_SANDBOX"), QStringLiteral("1"));
        break;
    case QuickTaskCLIBackend::opencode:
        m_requestPath = QStringLiteral("/v1/chat/completions");
        for (const QString &name :
             {QStringLiteral("OPENCODE_DISABLE_MODELS_FETCH"), QStringLiteral("OPENCODE_DISABLE_AUTOUPDATE"),
              QStringLiteral("OPENCODE_DISABLE_LSP_DOWNLOAD")})
            m_variables.insert(name, QStringLiteral("1"));
        // Left alone it installs its plugin from npm on every run; a closed port ends that.
        m_variables.insert(QStringLiteral("npm_config_registry"), QStringLiteral("http://127.0.0.1:9"));
        break;
    }
}

QString RealToolProfile::toolsDirectory()
{
    const QString fromEnvironment = qEnvironmentVariable("TARVEL_REAL_TOOLS_DIR");
    return fromEnvironment.isEmpty() ? QStringLiteral(TARVEL_REAL_TOOLS_CONFIGURED_DIR) : fromEnvironment;
}

QString RealToolProfile::binDirectory()
{
    return QDir(toolsDirectory()).filePath(QStringLiteral("node_modules/.bin"));
}

QString RealToolProfile::missingReason(QuickTaskCLIBackend backend)
{
    const QString name = BackendProfiles::of(backend).rawValue();
    if (!QFileInfo(QDir(binDirectory()).filePath(name)).isExecutable()) {
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

const QStringList &RealToolProfile::clearedVariables()
{
    static const QStringList names =
        QStringLiteral("CODEX_BIN_PATH CLAUDE_BIN_PATH OPENCODE_BIN_PATH CODEX_HOME CLAUDE_CONFIG_DIR "
                       "OPENCODE_CONFIG OPENCODE_CONFIG_DIR OPENCODE_CONFIG_CONTENT http_proxy https_proxy "
                       "HTTP_PROXY HTTPS_PROXY ALL_PROXY all_proxy OPENAI_API_KEY OPENAI_BASE_URL "
                       "ANTHROPIC_AUTH_TOKEN CLAUDE_CODE_USE_BEDROCK CLAUDE_CODE_USE_VERTEX")
            .split(u' ');
    return names;
}

QString RealToolProfile::networkIsolationProblem()
{
    // /proc/self/net follows this process's network namespace; /sys/class/net would not.
    QFile devices(QStringLiteral("/proc/self/net/dev"));
    if (!devices.open(QIODevice::ReadOnly))
        return QStringLiteral("Could not read %1: %2").arg(devices.fileName(), devices.errorString());
    QStringList names;
    for (const QByteArray &line : devices.readAll().split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0)
            names.append(QString::fromUtf8(line.left(colon).trimmed()));
    }
    if (names == QStringList{QStringLiteral("lo")})
        return {};
    return QStringLiteral("The network interfaces %1 are in reach; run the test through loopback-only.sh.")
        .arg(names.join(QStringLiteral(", ")));
}

QString RealToolProfile::writeConfigurationFiles(const QProcessEnvironment &environment) const
{
    const QString home = environment.value(QStringLiteral("HOME"));
    switch (m_backend) {
    case QuickTaskCLIBackend::codex:
        return writeFile(QDir(home).filePath(QStringLiteral(".codex/config.toml")),
                         codexConfiguration(m_baseURL));
    case QuickTaskCLIBackend::claude:
        return {}; // the environment says it all
    case QuickTaskCLIBackend::opencode: {
        const QString configHome = environment.value(QStringLiteral("XDG_CONFIG_HOME"),
                                                     QDir(home).filePath(QStringLiteral(".config")));
        return writeFile(QDir(configHome).filePath(QStringLiteral("opencode/opencode.json")),
                         openCodeConfiguration(m_baseURL));
    }
    }
    Q_UNREACHABLE();
}

QString RealToolProfile::writeInteractiveSettings(const QProcessEnvironment &environment,
                                                  const QString &project) const
{
    const QString home = environment.value(QStringLiteral("HOME"));
    switch (m_backend) {
    case QuickTaskCLIBackend::codex: {
        const QString path = QDir(home).filePath(QStringLiteral(".codex/config.toml"));
        QFile file(path);
        if (!file.open(QIODevice::Append))
            return QStringLiteral("Could not write %1: %2").arg(path, file.errorString());
        // The model_migrations answer is "Use existing model" on codex 0.169's offer of a newer one.
        file.write(QStringLiteral(R"(
[projects."%1"]
trust_level = "trusted"

[notice]
hide_full_access_warning = true
hide_world_writable_warning = true
hide_rate_limit_model_nudge = true
hide_gpt5_1_migration_prompt = true
"hide_gpt-5.1-codex-max_migration_prompt" = true

[notice.model_migrations]
"gpt-5.5" = "gpt-6-sol"

[tui]
screen_reader_detection_done = true

[tui.model_availability_nux]
"gpt-6.1-sol" = 1
)")
                       .arg(project)
                       .toUtf8());
        return {};
    }
    case QuickTaskCLIBackend::claude: {
        // claude keeps the last 20 characters of an approved key.
        const QString key = m_variables.value(QStringLiteral("ANTHROPIC_API_KEY")).right(20);
        const QJsonObject settings{
            {QStringLiteral("hasCompletedOnboarding"), true},
            {QStringLiteral("bypassPermissionsModeAccepted"), true},
            {QStringLiteral("customApiKeyResponses"),
             QJsonObject{{QStringLiteral("approved"), QJsonArray{key}},
                         {QStringLiteral("rejected"), QJsonArray{}}}},
            {QStringLiteral("projects"),
             QJsonObject{{project, QJsonObject{{QStringLiteral("hasTrustDialogAccepted"), true},
                                               {QStringLiteral("hasCompletedProjectOnboarding"), true}}}}}};
        return writeFile(QDir(home).filePath(QStringLiteral(".claude.json")),
                         QJsonDocument(settings).toJson());
    }
    case QuickTaskCLIBackend::opencode:
        return {};
    }
    Q_UNREACHABLE();
}
