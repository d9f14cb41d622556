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

QByteArray codexConfiguration(const QByteArray &baseURL)
{
    // No retries: a server that is down must end the run, not hold it forever.
    return "model = \"gpt-5.5\"\n"
           "model_provider = \"loopback\"\n"
           "check_for_update_on_startup = false\n"
           "\n"
           "[model_providers.loopback]\n"
           "name = \"Loopback\"\n"
           "base_url = \"" +
           baseURL +
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
           "unbounded_connection_retries = false\n";
}

QByteArray openCodeConfiguration(const QByteArray &baseURL)
{
    // The loopback model is also opencode's default, which is what the "default" preset runs.
    return "{\n"
           "  \"autoupdate\": false,\n"
           "  \"share\": \"disabled\",\n"
           "  \"model\": \"loopback/echo\",\n"
           "  \"provider\": {\n"
           "    \"loopback\": {\n"
           "      \"npm\": \"@ai-sdk/openai-compatible\",\n"
           "      \"name\": \"Loopback\",\n"
           "      \"options\": {\"baseURL\": \"" +
           baseURL +
           "/v1\", \"apiKey\": \"loopback\"},\n"
           "      \"models\": {\"echo\": {\"name\": \"Echo\"}}\n"
           "    }\n"
           "  }\n"
           "}\n";
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
        m_variables.insert(QStringLiteral("TARVEL_LOOPBACK_API_KEY"), QStringLiteral("loopback"));
        break;
    case QuickTaskCLIBackend::claude:
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
    static const QStringList names{QStringLiteral("CODEX_BIN_PATH"),
                                   QStringLiteral("CLAUDE_BIN_PATH"),
                                   QStringLiteral("OPENCODE_BIN_PATH"),
                                   QStringLiteral("CODEX_HOME"),
                                   QStringLiteral("CLAUDE_CONFIG_DIR"),
                                   QStringLiteral("OPENCODE_CONFIG"),
                                   QStringLiteral("OPENCODE_CONFIG_DIR"),
                                   QStringLiteral("OPENCODE_CONFIG_CONTENT"),
                                   QStringLiteral("http_proxy"),
                                   QStringLiteral("https_proxy"),
                                   QStringLiteral("HTTP_PROXY"),
                                   QStringLiteral("HTTPS_PROXY"),
                                   QStringLiteral("ALL_PROXY"),
                                   QStringLiteral("all_proxy"),
                                   QStringLiteral("OPENAI_API_KEY"),
                                   QStringLiteral("OPENAI_BASE_URL"),
                                   QStringLiteral("ANTHROPIC_AUTH_TOKEN"),
                                   QStringLiteral("CLAUDE_CODE_USE_BEDROCK"),
                                   QStringLiteral("CLAUDE_CODE_USE_VERTEX")};
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
    const QByteArray baseURL = m_baseURL.toUtf8();
    const QString home = environment.value(QStringLiteral("HOME"));
    switch (m_backend) {
    case QuickTaskCLIBackend::codex:
        return writeFile(QDir(home).filePath(QStringLiteral(".codex/config.toml")),
                         codexConfiguration(baseURL));
    case QuickTaskCLIBackend::claude:
        return {}; // the environment says it all
    case QuickTaskCLIBackend::opencode: {
        const QString configHome = environment.value(QStringLiteral("XDG_CONFIG_HOME"),
                                                     QDir(home).filePath(QStringLiteral(".config")));
        return writeFile(QDir(configHome).filePath(QStringLiteral("opencode/opencode.json")),
                         openCodeConfiguration(baseURL));
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
        file.write("\n[projects.\"" + project.toUtf8() +
                   "\"]\n"
                   "trust_level = \"trusted\"\n"
                   "\n"
                   "[notice]\n"
                   "hide_full_access_warning = true\n"
                   "hide_world_writable_warning = true\n"
                   "hide_rate_limit_model_nudge = true\n"
                   "hide_gpt5_1_migration_prompt = true\n"
                   "\"hide_gpt-5.1-codex-max_migration_prompt\" = true\n"
                   // Answered "Use existing model" on codex 0.169's offer of a newer one.
                   "\n"
                   "[notice.model_migrations]\n"
                   "\"gpt-5.5\" = \"gpt-6-sol\"\n"
                   "\n"
                   "[tui]\n"
                   "screen_reader_detection_done = true\n"
                   "\n"
                   "[tui.model_availability_nux]\n"
                   "\"gpt-6.1-sol\" = 1\n");
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

QString RealToolProfile::modelRequestPath() const
{
    switch (m_backend) {
    case QuickTaskCLIBackend::codex:
        return QStringLiteral("/v1/responses");
    case QuickTaskCLIBackend::claude:
        return QStringLiteral("/v1/messages");
    case QuickTaskCLIBackend::opencode:
        return QStringLiteral("/v1/chat/completions");
    }
    Q_UNREACHABLE();
}
