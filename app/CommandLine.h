#pragma once

#include <QStringList>
#include <QTextStream>

#include <functional>
#include <optional>

// tarvel's command-line forms, in the style of git: `tarvel editor-setup status`,
// `tarvel transcribe FILE`. They run without the tray application, print plain lines and
// exit 0 on success.
namespace CommandLine {

struct Subcommand {
    QString name;
    // What follows the name in the usage line, e.g. "FILE".
    QString synopsis;
    // One line for `tarvel --help`.
    QString summary;
    // Gets the arguments after the name; returns the exit status.
    std::function<int(const QStringList &arguments, QTextStream &out, QTextStream &err)> run;
};

// Every subcommand, in the order `tarvel --help` lists them.
const QList<Subcommand> &subcommands();

// The exit status when the arguments name a subcommand, --help or --version; nothing when
// they ask for the tray application. Needs no QCoreApplication; makes one when a
// subcommand needs it.
std::optional<int> run(int argc, char **argv);

} // namespace CommandLine
