#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// The three command-line assistants Tarvel drives. The raw value is also the
// executable's name and the persisted form.
enum class QuickTaskCLIBackend { codex, claude, opencode };

namespace QuickTaskCLIBackends {

// Every backend, in the order menus and settings list them.
const QList<QuickTaskCLIBackend> &allCases();

QString rawValue(QuickTaskCLIBackend backend);
std::optional<QuickTaskCLIBackend> fromRawValue(const QString &rawValue);

QString executableName(QuickTaskCLIBackend backend);
QString displayTitle(QuickTaskCLIBackend backend); // "Codex", "Claude", "OpenCode"
QString longTitle(QuickTaskCLIBackend backend);    // "Codex CLI", "Claude CLI", "OpenCode"
QStringList versionArguments(QuickTaskCLIBackend backend);
// The executable name, a blank and the version arguments: "codex -V".
QString versionCommandDisplay(QuickTaskCLIBackend backend);
// A path tried when the executable is nowhere else; only opencode has one.
std::optional<QString> fallbackExecutablePath(QuickTaskCLIBackend backend);

} // namespace QuickTaskCLIBackends
