#include "editor_integration/EditorIntegrationManager.h"

#include "core/AppConstants.h"
#include "core/DataFile.h"
#include "core/TarvelError.h"
#include "editor_integration/EditorIntegrationError.h"
#include "editor_integration/MarkedBlock.h"
#include "platform/FileOpener.h"
#include "platform/FileRevealer.h"
#include "platform/HostPlatform.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <utility>

namespace {
const QString kBeginMarker = QStringLiteral("# >>> Tarvel editor integration >>>");
const QString kEndMarker = QStringLiteral("# <<< Tarvel editor integration <<<");
constexpr QFileDevice::Permissions kExecutable =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup |
    QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
constexpr QFileDevice::Permissions kReadable =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther;

QString trimmedOf(const QString &text, QStringView characters)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && characters.contains(text.at(begin)))
        ++begin;
    while (end > begin && characters.contains(text.at(end - 1)))
        --end;
    return text.mid(begin, end - begin);
}

// Inside single quotes every character stands for itself except the quote, which closes them.
QString singleQuoted(const QString &value)
{
    QString escaped = value;
    escaped.replace(u'\'', QStringLiteral("'\\''"));
    return u'\'' + escaped + u'\'';
}

QString linuxHelperScript(const QString &helperPath)
{
    return QStringLiteral(R"SH(#!/bin/sh
# Tarvel editor integration: hands the file to edit to tarvel-edit.
# Tarvel writes this file; installing the integration again replaces it.
set -eu

default_cli_path=%1
cli_path="${TARVEL_EDIT_PATH:-}"

if [ -z "$cli_path" ] && [ -x "$default_cli_path" ]; then
    cli_path=$default_cli_path
fi

if [ -z "$cli_path" ]; then
    # A tarvel-edit on PATH, skipping this script, which has the same name.
    self_dir=$(cd -P -- "$(dirname -- "$0")" 2>/dev/null && pwd -P) || self_dir=
    set -f
    saved_ifs=$IFS
    IFS=:
    for dir in $PATH; do
        [ -n "$dir" ] || dir=.
        if [ -f "$dir/tarvel-edit" ] && [ -x "$dir/tarvel-edit" ] &&
            [ "$(cd -P -- "$dir" 2>/dev/null && pwd -P)" != "$self_dir" ]; then
            cli_path=$dir/tarvel-edit
            break
        fi
    done
    IFS=$saved_ifs
    set +f
fi

if [ -z "$cli_path" ]; then
    echo "tarvel-edit: %2 not found: no tarvel-edit at $default_cli_path or on PATH." >&2
    exit 1
fi
if [ ! -f "$cli_path" ] || [ ! -x "$cli_path" ]; then
    echo "tarvel-edit: tarvel-edit not found at $cli_path." >&2
    exit 1
fi

exec "$cli_path" "$@"
)SH")
        .arg(singleQuoted(helperPath), AppConstants::appName);
}

QString macHelperScript(const QString &applicationDirectory)
{
    // The executable sits in Contents/MacOS inside the bundle.
    const QString bundle = QDir::cleanPath(applicationDirectory + QStringLiteral("/../.."));
    return QStringLiteral(R"SH(#!/bin/zsh
set -euo pipefail

build_config="${TARVEL_BUILD_CONFIG:-Debug}"
derived_data_root="${HOME}/Library/Developer/Xcode/DerivedData"
default_app_path=%1
bundle_identifier=%2
app_path="${TARVEL_APP_PATH:-}"
cli_path="${TARVEL_EDIT_PATH:-}"

if [[ -z "$app_path" && -d "$default_app_path" ]]; then
  app_path="$default_app_path"
fi
if [[ -z "$app_path" ]]; then
  app_path="$(mdfind "kMDItemCFBundleIdentifier == '${bundle_identifier}'" 2>/dev/null | head -n 1 || true)"
fi
if [[ -z "$app_path" ]]; then
  apps=( "${derived_data_root}"/Tarvel-*/Build/Products/"${build_config}"/%3.app(N/om) )
  app_path="${apps[1]:-}"
fi

if [[ -z "$cli_path" && -n "$app_path" && -d "$app_path" ]]; then
  if [[ -x "$app_path/Contents/MacOS/tarvel-edit" ]]; then
    cli_path="$app_path/Contents/MacOS/tarvel-edit"
  elif [[ -x "${app_path:h}/tarvel-edit" ]]; then
    cli_path="${app_path:h}/tarvel-edit"
  else
    helpers=( "${derived_data_root}"/Tarvel-*/Build/Products/"${build_config}"/tarvel-edit(N*om) )
    cli_path="${helpers[1]:-}"
  fi
fi

if [[ -z "$app_path" || ! -d "$app_path" ]]; then
  echo "tarvel-edit: %3.app not found." >&2
  exit 1
fi
if [[ -z "$cli_path" || ! -x "$cli_path" ]]; then
  echo "tarvel-edit: tarvel-edit not found inside %3.app or matching build products." >&2
  exit 1
fi

export TARVEL_APP_PATH="$app_path"
exec "$cli_path" "$@"
)SH")
        .arg(singleQuoted(bundle), singleQuoted(AppConstants::appBundleIdentifier), AppConstants::appName);
}

} // namespace

EditorIntegrationManager::EditorIntegrationManager(QString applicationDirectory, FileOpener *fileOpener)
    : m_applicationDirectory(std::move(applicationDirectory))
    , m_fileOpener(fileOpener)
{
}

QString EditorIntegrationManager::preferredShellName()
{
    const QString shell = qEnvironmentVariable("SHELL");
    const QString name = QFileInfo(shell).fileName();
    return name.isEmpty() ? QStringLiteral("zsh") : name;
}

EditorIntegrationManager::ShellSyntax EditorIntegrationManager::syntaxFor(const QString &shellName)
{
    return shellName == u"fish" ? ShellSyntax::fish : ShellSyntax::posix;
}

std::optional<EditorIntegrationInstallLocation> EditorIntegrationManager::installLocation() const
{
    const QString home = QUrl::fromPercentEncoding(qEnvironmentVariable("HOME").toUtf8());
    if (home.isEmpty() || !QDir::isAbsolutePath(home))
        return std::nullopt;
    return locationFor(home, preferredShellName(), qEnvironmentVariable("XDG_CONFIG_HOME"));
}

EditorIntegrationInstallLocation
EditorIntegrationManager::locationFor(const QString &home, const QString &shell, const QString &xdgConfigHome)
{
    const QDir homeDir(home);
    QString config;
    if (shell == u"zsh") {
        config = homeDir.filePath(QStringLiteral(".zshrc"));
    } else if (shell == u"bash") {
        config = homeDir.filePath(QStringLiteral(".bashrc"));
    } else if (shell == u"fish") {
        // fish reads every file in conf.d, and reads them from XDG_CONFIG_HOME when it is set.
        const QString configHome =
            QDir::isAbsolutePath(xdgConfigHome) ? xdgConfigHome : homeDir.filePath(QStringLiteral(".config"));
        config = QDir(configHome).filePath(QStringLiteral("fish/conf.d/tarvel.fish"));
    } else {
        config = homeDir.filePath(QStringLiteral(".profile"));
    }
    return EditorIntegrationInstallLocation{
        shell, QUrl::fromLocalFile(config),
        QUrl::fromLocalFile(homeDir.filePath(QStringLiteral(".local/bin/tarvel-edit")))};
}

std::optional<std::pair<QString, QString>>
EditorIntegrationManager::parseEditorAssignment(const QString &line, ShellSyntax syntax)
{
    static const QRegularExpression posix(QStringLiteral(R"(^(?:export\s+)?(VISUAL|EDITOR)\s*=\s*(.+)$)"));
    // set -gx VISUAL …, with any of fish's scope and export flags.
    static const QRegularExpression fish(
        QStringLiteral(R"(^set\s+(?:-[a-zA-Z]+\s+)*(VISUAL|EDITOR)\s+(.+)$)"));
    const QRegularExpressionMatch match = (syntax == ShellSyntax::fish ? fish : posix).match(line);
    if (!match.hasMatch())
        return std::nullopt;
    const QString command = trimmedOf(trimmedOf(match.captured(2), u" \t"), u"\"'");
    return std::pair{match.captured(1).toUpper(), command};
}

QMap<QString, QString> EditorIntegrationManager::editorAssignments(const QString &text, ShellSyntax syntax)
{
    QMap<QString, QString> assignments;
    for (const QString &rawLine : text.split(u'\n')) {
        const QString line = trimmedOf(rawLine, u" \t\r");
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        if (const auto assignment = parseEditorAssignment(line, syntax))
            assignments.insert(assignment->first, assignment->second); // the last one wins
    }
    return assignments;
}

bool EditorIntegrationManager::usesTarvel(const QString &command)
{
    const QString lower = command.toLower();
    return lower.contains(u"tarvel-edit") || lower.contains(u"tarvel.app/contents/macos/tarvel-edit");
}

std::optional<EditorIntegrationStatus> EditorIntegrationManager::status() const
{
    const std::optional<EditorIntegrationInstallLocation> location = installLocation();
    if (!location)
        return std::nullopt;
    QByteArray config;
    try {
        config = MarkedBlock::readFile(location->configURL.toLocalFile());
    } catch (const TarvelError &) {
        // Unreadable counts as empty here; install says why it cannot change the file.
    }
    // Decoded for the assignments only: a byte that is not UTF-8 becomes a replacement character
    // on its own line and hides no assignment.
    const QMap<QString, QString> assignments =
        editorAssignments(QString::fromUtf8(config), syntaxFor(location->shellName));
    EditorIntegrationStatus status;
    status.location = *location;
    QString variable = QStringLiteral("VISUAL");
    if (!assignments.contains(variable))
        variable = QStringLiteral("EDITOR");
    if (!assignments.contains(variable)) {
        status.kind = EditorIntegrationStatus::Kind::needsInstall;
        status.reason = EditorIntegrationInstallReason::notConfigured;
        return status;
    }
    const QString command = assignments.value(variable);
    if (!usesTarvel(command)) {
        status.kind = EditorIntegrationStatus::Kind::configuredElsewhere;
        status.variable = variable;
        status.command = command;
        return status;
    }
    const QFileInfo helper(location->helperScriptURL.toLocalFile());
    if (helper.isFile() && helper.isExecutable()) {
        status.kind = EditorIntegrationStatus::Kind::installed;
    } else {
        status.kind = EditorIntegrationStatus::Kind::needsInstall;
        status.reason = EditorIntegrationInstallReason::helperMissing;
    }
    return status;
}

QString EditorIntegrationManager::markedBlock(ShellSyntax syntax)
{
    const QString assignment = syntax == ShellSyntax::fish
                                   ? QStringLiteral("set -gx VISUAL \"$HOME/.local/bin/tarvel-edit\"")
                                   : QStringLiteral("export VISUAL=\"$HOME/.local/bin/tarvel-edit\"");
    return kBeginMarker + u'\n' + assignment + u'\n' + kEndMarker;
}

QByteArray EditorIntegrationManager::mergedShellConfig(const QByteArray &existing, ShellSyntax syntax)
{
    const QByteArray block = markedBlock(syntax).toUtf8() + '\n';
    QByteArray text = existing;
    if (const auto range = MarkedBlock::range(existing, kBeginMarker.toUtf8(), kEndMarker.toUtf8())) {
        const auto [begin, end] = *range;
        // Replaced where it stands, unless a later line sets VISUAL again and would win over it.
        const QString rest = QString::fromUtf8(existing.sliced(end));
        if (!editorAssignments(rest, syntax).contains(QStringLiteral("VISUAL")))
            return text.replace(begin, end - begin, block);
        text.remove(begin, end - begin);
    }
    return MarkedBlock::appended(text, block);
}

QString EditorIntegrationManager::helperScriptContents() const
{
    return HostPlatform::usesMacConventions()
               ? macHelperScript(m_applicationDirectory)
               : linuxHelperScript(QDir(m_applicationDirectory).filePath(QStringLiteral("tarvel-edit")));
}

QString EditorIntegrationManager::shimScript(const QString &helperPath)
{
    return linuxHelperScript(helperPath);
}

EditorIntegrationInstallLocation EditorIntegrationManager::install() const
{
    using Kind = EditorIntegrationError::Kind;
    const std::optional<EditorIntegrationInstallLocation> location = installLocation();
    if (!location)
        throw EditorIntegrationError(Kind::unavailableHomeDirectory);

    const QString helper = location->helperScriptURL.toLocalFile();
    const QString helperFolder = QFileInfo(helper).path();
    if (!QDir().mkpath(helperFolder))
        throw EditorIntegrationError(Kind::failedToCreateHelperDirectory,
                                     QStringLiteral("The folder \u201c%1\u201d could not be made.")
                                         .arg(QDir::toNativeSeparators(helperFolder)));
    try {
        DataFile::write(helper, helperScriptContents().toUtf8(), kExecutable);
    } catch (const TarvelError &error) {
        throw EditorIntegrationError(Kind::failedToWriteHelperScript, error.description());
    }
    if (!QFile::setPermissions(helper, kExecutable))
        throw EditorIntegrationError(Kind::failedToWriteHelperScript,
                                     QStringLiteral("Its permissions could not be set."));

    const QString config = location->configURL.toLocalFile();
    try {
        const QByteArray merged =
            mergedShellConfig(MarkedBlock::readFile(config), syntaxFor(location->shellName));
        // A new start-up file is readable by all, as start-up files are.
        MarkedBlock::writeFile(config, merged, kReadable);
    } catch (const TarvelError &error) {
        throw EditorIntegrationError(Kind::failedToWriteShellConfig, error.description());
    }
    return *location;
}

void EditorIntegrationManager::revealConfigLocation(const EditorIntegrationInstallLocation &location) const
{
    const QString config = location.configURL.toLocalFile();
    if (QFileInfo::exists(config) && FileRevealer::showItem(config))
        return;
    if (m_fileOpener)
        m_fileOpener->openInDefaultApplication(QFileInfo(config).path());
}
