#include "remote/RemoteSetupCommand.h"

#include "core/TarvelError.h"
#include "editor_integration/EditorIntegrationManager.h"
#include "editor_integration/MarkedBlock.h"
#include "platform/UnixSocket.h"
#include "remote/RemoteHost.h"
#include "remote/RemoteProtocol.h"
#include "remote/RemoteRequestServer.h"
#include "remote/SshConfigBlock.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/utsname.h>
#include <unistd.h>

namespace RemoteSetupCommand {
namespace {

constexpr int kUsageError = 2;
constexpr QFileDevice::Permissions kPrivateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

QString usage()
{
    return QStringLiteral("Usage: tarvel remote setup HOST [--write] [--install] [--remote-home PATH]\n"
                          "       tarvel remote status HOST\n");
}

// A path in the home folder as people write it.
QString shown(const QString &path, const QString &home = QDir::homePath())
{
    if (!home.isEmpty() && path.startsWith(home + u'/'))
        return u'~' + path.mid(home.size());
    return QDir::toNativeSeparators(path);
}

QString sshConfigPath()
{
    return QDir::home().filePath(QStringLiteral(".ssh/config"));
}

QString remoteSocketIn(QString home)
{
    while (home.size() > 1 && home.endsWith(u'/'))
        home.chop(1);
    return home + u'/' + QString::fromLatin1(RemoteProtocol::remoteSocketInHome);
}

QString shellName(const RemoteHost::Facts &facts)
{
    const QString name = QFileInfo(facts.shell).fileName();
    return name.isEmpty() ? QStringLiteral("sh") : name;
}

// Where ssh logs in, as far as this machine can tell without asking the other one.
QString guessedHome(const RemoteHost &remote)
{
    QString user;
    for (const QString &line : remote.effectiveOptions()) {
        if (line.startsWith(QStringLiteral("user ")))
            user = line.mid(5).trimmed();
    }
    if (user.isEmpty())
        throw TarvelError(
            QStringLiteral("ssh does not say which user it logs in to %1 as; give --remote-home PATH.")
                .arg(remote.host()));
    return user == u"root" ? QStringLiteral("/root") : QStringLiteral("/home/") + user;
}

// The helper here runs there only on the same system and processor.
void checkSameKind(const RemoteHost &remote, const RemoteHost::Facts &facts)
{
    utsname here{};
    ::uname(&here);
    const QString system = QString::fromLocal8Bit(here.sysname);
    const QString machine = QString::fromLocal8Bit(here.machine);
    if (facts.system != system || facts.machine != machine)
        throw TarvelError(QStringLiteral("%1 runs %2 on %3, and the tarvel-edit here is built for %4 on %5; "
                                         "install Tarvel's tarvel-edit for that system there yourself.")
                              .arg(remote.host(), facts.system, facts.machine, system, machine));
}

QByteArray helperBinary()
{
    const QString path = QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("tarvel-edit"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw SystemError(QStringLiteral("read %1").arg(QDir::toNativeSeparators(path)), file.errorString());
    return file.readAll();
}

// Puts tarvel-edit there and points VISUAL at it in the start-up file of its shell.
QString installOn(const RemoteHost &remote, const RemoteHost::Facts &facts,
                  const RemoteHost::StartupFile &startup)
{
    const QString shell = shellName(facts);
    const QByteArray merged = EditorIntegrationManager::mergedShellConfig(
        startup.bytes, EditorIntegrationManager::syntaxFor(shell));
    std::optional<RemoteHost::StartupFile> changed;
    if (startup.state == RemoteHost::StartupFile::State::missing || merged != startup.bytes)
        changed = RemoteHost::StartupFile{startup.path, startup.state, merged};
    const QString helper = facts.home + QStringLiteral("/.local/bin/") + RemoteHost::helperName;
    remote.install(helperBinary(), EditorIntegrationManager::shimScript(helper).toUtf8(), changed);
    return QStringLiteral(
               "Installed tarvel-edit on %1 in ~/.local/bin; VISUAL in %2 runs it in new shells there.\n")
        .arg(remote.host(), shown(startup.path, facts.home));
}

int setup(const QString &host, const QStringList &options, QTextStream &out, QTextStream &err)
{
    bool write = false;
    bool install = false;
    QString remoteHome;
    for (qsizetype index = 0; index < options.size(); ++index) {
        if (options.at(index) == u"--write") {
            write = true;
        } else if (options.at(index) == u"--install") {
            install = write = true;
        } else if (options.at(index) == u"--remote-home" && index + 1 < options.size() &&
                   options.at(index + 1).startsWith(u'/')) {
            remoteHome = options.at(++index);
        } else {
            err << usage();
            return kUsageError;
        }
    }

    const RemoteHost remote(host);
    const QString localSocket = RemoteRequestServer::defaultSocketPath();
    QString config = sshConfigPath();
    try {
        std::optional<std::pair<RemoteHost::Facts, RemoteHost::StartupFile>> inspected;
        if (install) {
            inspected = remote.inspect([](const RemoteHost::Facts &facts) {
                return EditorIntegrationManager::locationFor(facts.home, shellName(facts), facts.configHome)
                    .configURL.toLocalFile();
            });
            const auto &[facts, startup] = *inspected;
            checkSameKind(remote, facts);
            if (startup.state == RemoteHost::StartupFile::State::unreadable)
                throw TarvelError(QStringLiteral("%1 on %2 cannot be read, so Tarvel does not change it.")
                                      .arg(shown(startup.path, facts.home), host));
            if (remoteHome.isEmpty())
                remoteHome = facts.home;
        }
        QString assumption;
        if (remoteHome.isEmpty()) {
            remoteHome = guessedHome(remote);
            assumption =
                QStringLiteral("That takes %1 to be your home folder on %2; give --remote-home PATH if "
                               "it is another.\n")
                    .arg(remoteHome, host);
        }
        const QString remoteSocket = remoteSocketIn(remoteHome);
        const QByteArray block = SshConfigBlock::block(host, remoteSocket, localSocket);
        const QByteArray existing = MarkedBlock::readFile(config);
        const std::optional<int> ownEntry = SshConfigBlock::hasBlock(existing, host)
                                                ? std::nullopt
                                                : SshConfigBlock::userEntryLine(existing, host);

        if (ownEntry) {
            out << QStringLiteral("%1 has your own entry for %2 (line %3), which Tarvel leaves as it is. For "
                                  "remote editing, add these lines to it:\n")
                       .arg(shown(config), host)
                       .arg(*ownEntry);
            for (const QString &line : SshConfigBlock::optionLines(remoteSocket, localSocket))
                out << "    " << line << '\n';
            if (write)
                out << QStringLiteral("Nothing was written to %1.\n").arg(shown(config));
        } else if (!write) {
            out << QStringLiteral("These lines carry prompts from tarvel-edit on %1 to Tarvel here; "
                                  "\u201ctarvel remote setup %1 --write\u201d adds them to %2:\n\n")
                       .arg(host, shown(config))
                << QString::fromUtf8(block) << '\n';
        } else {
            const QByteArray merged = SshConfigBlock::merged(existing, host, block);
            if (merged == existing) {
                out << QStringLiteral("%1 already has Tarvel's block for %2; nothing changed.\n")
                           .arg(shown(config), host);
            } else {
                const QString folder = QFileInfo(config).path();
                if (!QFileInfo(folder).exists() &&
                    !QDir().mkdir(folder,
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner))
                    throw TarvelError(QStringLiteral("The folder %1 could not be made.").arg(shown(folder)));
                MarkedBlock::writeFile(config, merged, kPrivateFile);
                out << QStringLiteral("%1 Tarvel's block for %2 in %3.\n")
                           .arg(SshConfigBlock::hasBlock(existing, host) ? QStringLiteral("Updated")
                                                                         : QStringLiteral("Added"),
                                host, shown(config));
            }
        }
        out << assumption;
        if (inspected)
            out << installOn(remote, inspected->first, inspected->second);
        out.flush();
        return ownEntry && write ? 1 : 0;
    } catch (const TarvelError &error) {
        out.flush();
        err << "tarvel remote: " << error.description() << '\n';
        return 1;
    }
}

int status(const QString &host, QTextStream &out)
{
    bool complete = true;
    const QString localSocket = RemoteRequestServer::defaultSocketPath();
    // Closed at once, unsent: the application forgets such a connection without a word.
    const UnixSocket::Result probe = UnixSocket::connectTo(QFile::encodeName(localSocket).toStdString());
    if (probe.descriptor >= 0) {
        ::close(probe.descriptor);
        out << QStringLiteral("Tarvel takes requests from other machines at %1.\n").arg(shown(localSocket));
    } else {
        complete = false;
        out << QStringLiteral("Nothing listens at %1: Tarvel is not running here, or its error log says why "
                              "remote editing is off.\n")
                   .arg(shown(localSocket));
    }

    const RemoteHost remote(host);
    const QString config = sshConfigPath();
    try {
        const QByteArray existing = MarkedBlock::readFile(config);
        if (SshConfigBlock::hasBlock(existing, host))
            out << QStringLiteral("%1 has Tarvel's block for %2.\n").arg(shown(config), host);
        else if (const std::optional<int> line = SshConfigBlock::userEntryLine(existing, host))
            out << QStringLiteral("%1 has your own entry for %2 (line %3) and no block of Tarvel's.\n")
                       .arg(shown(config), host)
                       .arg(*line);
        else
            out << QStringLiteral("%1 has no block for %2.\n").arg(shown(config), host);

        // What ssh will do, whoever wrote the lines.
        QString forwarded;
        bool unlinks = false;
        for (const QString &line : remote.effectiveOptions()) {
            if (line.startsWith(QStringLiteral("remoteforward ")) && line.endsWith(u' ' + localSocket))
                forwarded = line.mid(14, line.size() - 14 - localSocket.size() - 1);
            unlinks = unlinks || line == u"streamlocalbindunlink yes";
        }
        if (forwarded.isEmpty()) {
            complete = false;
            out << QStringLiteral("ssh forwards nothing on %1 to that socket (\u201ctarvel remote setup %1 "
                                  "--write\u201d sets it up).\n")
                       .arg(host);
        } else {
            out << QStringLiteral("ssh forwards %1 on %2 to it").arg(forwarded, host)
                << (unlinks ? QStringLiteral(".\n")
                            : QStringLiteral(", but without StreamLocalBindUnlink a socket left there by an "
                                             "earlier connection stays in the way.\n"));
            complete = complete && unlinks;
        }
    } catch (const TarvelError &error) {
        complete = false;
        out << error.description() << '\n';
    }

    try {
        const RemoteHost::Installed installed = remote.installed();
        if (installed.helperVersion.isEmpty()) {
            complete = false;
            out << QStringLiteral(
                       "%1 has no tarvel-edit of Tarvel's (\u201ctarvel remote setup %1 --install\u201d "
                       "puts it there).\n")
                       .arg(host);
        } else {
            out << QStringLiteral("%1 has %2 in ~/.local/bin%3.\n")
                       .arg(host, installed.helperVersion,
                            installed.shim ? QStringLiteral(", with its shim") : QString());
        }
        if (!installed.socketFolder) {
            complete = false;
            out << QStringLiteral(
                       "%1 has no ~/.local/state/tarvel folder, so ssh cannot put the socket there.\n")
                       .arg(host);
        }
    } catch (const TarvelError &error) {
        complete = false;
        out << error.description() << '\n';
    }
    return complete ? 0 : 1;
}

} // namespace

int run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    const QString what = arguments.value(0);
    const QString host = arguments.value(1);
    if ((what != u"setup" && what != u"status") || host.isEmpty() ||
        (what == u"status" && arguments.size() != 2)) {
        err << usage();
        return kUsageError;
    }
    if (!SshConfigBlock::isUsableHost(host)) {
        err << QStringLiteral("tarvel remote: \u201c%1\u201d is not a host name ssh can have an entry for.\n")
                   .arg(host);
        return kUsageError;
    }
    if (what == u"status")
        return status(host, out);
    return setup(host, arguments.mid(2), out, err);
}

} // namespace RemoteSetupCommand
