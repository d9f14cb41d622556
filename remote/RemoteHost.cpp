#include "remote/RemoteHost.h"

#include "core/TarvelError.h"

#include <QElapsedTimer>
#include <QProcess>

namespace {

// ssh may wait for a password or a host key answer in the terminal.
constexpr int kInteractiveTimeoutMs = 10 * 60 * 1000;
constexpr int kBatchTimeoutMs = 30 * 1000;

QString singleQuoted(const QString &value)
{
    QString escaped = value;
    escaped.replace(u'\'', QStringLiteral("'\\''"));
    return u'\'' + escaped + u'\'';
}

// Base64 in a here-document: any bytes, and no line of it can end the document early.
QByteArray hereDocument(const QByteArray &bytes, const QByteArray &command, const QByteArray &delimiter)
{
    QByteArray text = command + " <<'" + delimiter + "'\n";
    const QByteArray encoded = bytes.toBase64();
    for (qsizetype at = 0; at < encoded.size(); at += 76)
        text += encoded.mid(at, 76) + '\n';
    return text + delimiter + '\n';
}

// The last thing ssh or the remote shell said, for a sentence.
QString lastLine(const QByteArray &output)
{
    const QList<QByteArray> lines = output.trimmed().split('\n');
    return QString::fromUtf8(lines.isEmpty() ? QByteArray() : lines.constLast()).trimmed();
}

QStringList sshCommand()
{
    const QString named = qEnvironmentVariable("TARVEL_SSH").trimmed();
    const QStringList words = named.isEmpty() ? QStringList() : QProcess::splitCommand(named);
    return words.isEmpty() ? QStringList{QStringLiteral("ssh")} : words;
}

QString failure(const QString &what, const QString &host, QProcess &process, const QByteArray &errors)
{
    if (process.error() == QProcess::FailedToStart)
        return QStringLiteral("Could not %1: %2 did not start (%3).")
            .arg(what, sshCommand().constFirst(), process.errorString());
    const QString said = lastLine(errors);
    return QStringLiteral("Could not %1 on %2%3.")
        .arg(what, host,
             said.isEmpty() ? QStringLiteral(" (ssh exited with %1)").arg(process.exitCode())
                            : QStringLiteral(": ") + said);
}

} // namespace

RemoteHost::RemoteHost(QString host)
    : m_host(std::move(host))
{
}

QStringList RemoteHost::sshArguments(const QStringList &options) const
{
    QStringList arguments = sshCommand().mid(1);
    arguments << QStringLiteral("-T") << QStringLiteral("-o") << QStringLiteral("ClearAllForwardings=yes")
              << options << m_host << QStringLiteral("/bin/sh") << QStringLiteral("-s");
    return arguments;
}

QStringList RemoteHost::effectiveOptions() const
{
    QProcess ssh;
    ssh.start(sshCommand().constFirst(), sshCommand().mid(1) + QStringList{QStringLiteral("-G"), m_host});
    if (!ssh.waitForFinished(kBatchTimeoutMs) || ssh.exitStatus() != QProcess::NormalExit ||
        ssh.exitCode() != 0)
        throw TarvelError(failure(QStringLiteral("read ssh's settings for %1").arg(m_host), m_host, ssh,
                                  ssh.readAllStandardError()));
    QStringList lines;
    for (const QByteArray &line : ssh.readAllStandardOutput().split('\n')) {
        if (!line.trimmed().isEmpty())
            lines.append(QString::fromUtf8(line).trimmed());
    }
    return lines;
}

std::pair<RemoteHost::Facts, RemoteHost::StartupFile>
RemoteHost::inspect(const std::function<QString(const Facts &)> &startupPath) const
{
    // One function, so the shell has read all of it before the read below takes the path.
    const QByteArray script = R"SH(tarvel_inspect() {
printf 'home=%s\n' "$HOME"
printf 'shell=%s\n' "${SHELL-}"
printf 'config=%s\n' "${XDG_CONFIG_HOME-}"
printf 'system=%s\n' "$(uname -s)"
printf 'machine=%s\n' "$(uname -m)"
printf 'ready\n'
IFS= read -r file
if [ ! -e "$file" ] && [ ! -L "$file" ]; then
    printf 'missing\n'
elif [ -f "$file" ] && [ -r "$file" ]; then
    printf 'present\n'
    cat "$file"
else
    printf 'unreadable\n'
fi
}
tarvel_inspect
)SH";
    QProcess ssh;
    ssh.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    ssh.start(sshCommand().constFirst(), sshArguments({}));
    ssh.write(script);
    QByteArray output;
    QElapsedTimer waited;
    waited.start();
    while (!output.contains("\nready\n") && waited.elapsed() < kInteractiveTimeoutMs &&
           ssh.state() != QProcess::NotRunning) {
        ssh.waitForReadyRead(1000);
        output += ssh.readAllStandardOutput();
    }
    const qsizetype ready = output.indexOf("\nready\n");
    if (ready < 0) {
        ssh.kill();
        ssh.waitForFinished();
        throw TarvelError(failure(QStringLiteral("ask what kind of machine it is"), m_host, ssh, {}));
    }
    Facts facts;
    for (const QByteArray &line : output.left(ready).split('\n')) {
        const QString text = QString::fromUtf8(line);
        const QString key = text.section(u'=', 0, 0);
        const QString value = text.section(u'=', 1);
        if (key == u"home")
            facts.home = value;
        else if (key == u"shell")
            facts.shell = value;
        else if (key == u"config")
            facts.configHome = value;
        else if (key == u"system")
            facts.system = value;
        else if (key == u"machine")
            facts.machine = value;
    }
    StartupFile startup;
    startup.path = facts.home.startsWith(u'/') ? startupPath(facts) : QString();
    ssh.write(startup.path.toUtf8() + '\n');
    ssh.closeWriteChannel();
    ssh.waitForFinished(kInteractiveTimeoutMs);
    output = output.mid(ready + 7) + ssh.readAllStandardOutput();
    if (ssh.exitStatus() != QProcess::NormalExit || ssh.exitCode() != 0 || !facts.home.startsWith(u'/'))
        throw TarvelError(failure(QStringLiteral("ask what kind of machine it is"), m_host, ssh, {}));
    if (output.startsWith("present\n")) {
        startup.state = StartupFile::State::present;
        startup.bytes = output.mid(8);
    } else if (output.startsWith("unreadable\n")) {
        startup.state = StartupFile::State::unreadable;
    }
    return {facts, startup};
}

void RemoteHost::install(const QByteArray &helper, const QByteArray &shim,
                         const std::optional<StartupFile> &startup) const
{
    // Every file goes inside the script: a shell reading its commands from a pipe may have read
    // past them already, so what follows the script on standard input is not for cat to take.
    QByteArray script = R"SH(tarvel_install() {
set -e
umask 022
bin="$HOME/.local/bin"
mkdir -p "$bin" "$HOME/.local/state"
[ -d "$HOME/.local/state/tarvel" ] || mkdir -m 700 "$HOME/.local/state/tarvel"
helper=$(mktemp "$bin/.tarvel-edit-remote.XXXXXX")
trap 'rm -f "$helper" "${shim-}" "${startup-}"' EXIT
)SH";
    script += hereDocument(helper, R"SH(base64 -d > "$helper")SH", "TARVEL_HELPER");
    script += R"SH(chmod 755 "$helper"
"$helper" --version > /dev/null
mv -f "$helper" "$bin/tarvel-edit-remote"
shim=$(mktemp "$bin/.tarvel-edit.XXXXXX")
)SH";
    script += hereDocument(shim, R"SH(base64 -d > "$shim")SH", "TARVEL_SHIM");
    script += R"SH(chmod 755 "$shim"
mv -f "$shim" "$bin/tarvel-edit"
)SH";
    if (startup) {
        script += "file=" + singleQuoted(startup->path).toUtf8() + '\n';
        script += R"SH([ ! -L "$file" ] || file=$(readlink -f "$file")
if [ -e "$file" ] && [ ! -w "$file" ]; then
    echo "tarvel: you do not have permission to change $file" >&2
    exit 1
fi
mkdir -p "$(dirname "$file")"
startup=$(mktemp "$(dirname "$file")/.tarvel-startup.XXXXXX")
if [ -e "$file" ]; then cp -p "$file" "$startup"; else chmod 644 "$startup"; fi
)SH";
        script += hereDocument(startup->bytes, R"SH(base64 -d > "$startup")SH", "TARVEL_STARTUP");
        script += R"SH(mv -f "$startup" "$file"
)SH";
    }
    script += "printf 'installed\\n'\n}\ntarvel_install\n";

    QProcess ssh;
    ssh.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    ssh.start(sshCommand().constFirst(), sshArguments({}));
    ssh.write(script);
    ssh.closeWriteChannel();
    ssh.waitForFinished(kInteractiveTimeoutMs);
    if (ssh.exitStatus() != QProcess::NormalExit || ssh.exitCode() != 0 ||
        !ssh.readAllStandardOutput().contains("installed\n"))
        throw TarvelError(failure(QStringLiteral("install tarvel-edit"), m_host, ssh, {}));
}

RemoteHost::Installed RemoteHost::installed() const
{
    const QByteArray script = R"SH(bin="$HOME/.local/bin"
if [ -x "$bin/tarvel-edit-remote" ]; then
    printf 'helper=%s\n' "$("$bin/tarvel-edit-remote" --version 2>/dev/null | head -n 1)"
fi
[ ! -x "$bin/tarvel-edit" ] || printf 'shim=yes\n'
[ ! -d "$HOME/.local/state/tarvel" ] || printf 'folder=yes\n'
printf 'done\n'
)SH";
    QProcess ssh;
    ssh.start(sshCommand().constFirst(),
              sshArguments({QStringLiteral("-o"), QStringLiteral("BatchMode=yes"), QStringLiteral("-o"),
                            QStringLiteral("ConnectTimeout=10")}));
    ssh.write(script);
    ssh.closeWriteChannel();
    ssh.waitForFinished(kBatchTimeoutMs);
    const QByteArray output = ssh.readAllStandardOutput();
    if (ssh.exitStatus() != QProcess::NormalExit || ssh.exitCode() != 0 || !output.contains("done\n"))
        throw TarvelError(failure(QStringLiteral("look"), m_host, ssh, ssh.readAllStandardError()));
    Installed result;
    for (const QByteArray &line : output.split('\n')) {
        if (line.startsWith("helper="))
            result.helperVersion = QString::fromUtf8(line.mid(7)).trimmed();
        result.shim = result.shim || line == "shim=yes";
        result.socketFolder = result.socketFolder || line == "folder=yes";
    }
    return result;
}
