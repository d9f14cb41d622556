#pragma once

#include <QStringList>
#include <QTextStream>

// `tarvel editor-setup status | install`: the set-up prompt's work for terminals and dotfiles.
namespace EditorSetupCommand {

inline constexpr auto name = "editor-setup";
inline constexpr auto synopsis = "status | install";

// status: one line, exit 0 when installed and 1 otherwise. install: the files written, exit 0,
// or the error and exit 1. Anything else: the usage on err and exit 2.
int run(const QStringList &arguments, QTextStream &out, QTextStream &err);

} // namespace EditorSetupCommand
