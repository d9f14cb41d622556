#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

// The marked block Tarvel keeps in ~/.ssh/config for one host: a Host entry of its own whose
// RemoteForward carries the other machine's socket to the application's, with
// StreamLocalBindUnlink so that a socket left by an earlier connection is replaced. The rules of
// the shell start-up block hold (MarkedBlock): bytes outside the block stay as they were, there
// is never a second block for a host, and an entry of the user's own is never changed.
namespace SshConfigBlock {

// A name ssh can take as the host of one entry: no patterns, spaces or options.
bool isUsableHost(const QString &host);

// The two option lines, as they go into a Host entry.
QStringList optionLines(const QString &remoteSocket, const QString &localSocket);
// The whole block, newline-terminated.
QByteArray block(const QString &host, const QString &remoteSocket, const QString &localSocket);

// The 1-based line of a Host line of the user's own (outside Tarvel's blocks) that names host
// itself, not through a pattern; nothing when there is none.
std::optional<int> userEntryLine(const QByteArray &config, const QString &host);
bool hasBlock(const QByteArray &config, const QString &host);
// The configuration with the block for host: an earlier one replaced where it stands, else
// added at the end after a blank line.
QByteArray merged(const QByteArray &config, const QString &host, const QByteArray &block);

} // namespace SshConfigBlock
