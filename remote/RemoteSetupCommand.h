#pragma once

#include <QStringList>
#include <QTextStream>

// `tarvel remote setup|status HOST`: the ssh configuration that carries prompts from tarvel-edit
// on another machine to the composer here, and tarvel-edit there.
namespace RemoteSetupCommand {

inline constexpr auto name = "remote";
inline constexpr auto synopsis = "setup|status HOST";

// setup: shows the ~/.ssh/config block for HOST; --write adds it (nothing else writes the file),
// --install also puts tarvel-edit on HOST and sets it up as the editor there (and implies
// --write); --remote-home PATH names HOST's home folder, which ssh cannot expand. Exit 0, or 1
// with the reason (also when the user's own entry for HOST keeps the block out).
// status: what is in place, exit 0 when all of it is. Anything else: usage on err, exit 2.
int run(const QStringList &arguments, QTextStream &out, QTextStream &err);

} // namespace RemoteSetupCommand
