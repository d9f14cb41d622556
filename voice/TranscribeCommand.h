#pragma once

#include <QStringList>
#include <QTextStream>

// `tarvel transcribe FILE`: runs the recogniser the settings name on a recording and prints
// its transcript, so users can check their set-up and the recogniser can be measured.
namespace TranscribeCommand {

// The subcommand's body: arguments after its name; returns the exit status.
int run(const QStringList &arguments, QTextStream &out, QTextStream &err);

} // namespace TranscribeCommand
