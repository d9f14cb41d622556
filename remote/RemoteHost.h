#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// Another machine, reached with the user's own ssh and its configuration: what ssh would do for
// it, what the machine is, and putting tarvel-edit there. Every connection of Tarvel's own clears
// the forwardings, so it never replaces the socket of a connection the user has open. The ssh
// program is TARVEL_SSH when set (a command line), else ssh.
class RemoteHost final {
public:
    explicit RemoteHost(QString host);

    struct Facts {
        QString home;
        QString shell;
        QString configHome;
        // uname -s and -m.
        QString system;
        QString machine;
    };
    struct StartupFile {
        enum class State { missing, present, unreadable };
        QString path;
        State state = State::missing;
        QByteArray bytes;
    };
    struct Installed {
        // tarvel-edit-remote's --version line, empty when it is not there or does not run.
        QString helperVersion;
        bool shim = false;
        bool socketFolder = false;
    };

    const QString &host() const { return m_host; }

    // The options ssh would use for the host (`ssh -G`, which does not connect), as
    // "keyword value" lines with lower-case keywords. Throws TarvelError.
    QStringList effectiveOptions() const;
    // Asks the machine about itself, then reads the start-up file that startupPath picks from the
    // answer, over one connection (ssh may ask for a password). Throws TarvelError.
    std::pair<Facts, StartupFile> inspect(const std::function<QString(const Facts &)> &startupPath) const;
    // Puts the helper at ~/.local/bin/tarvel-edit-remote (checking that it runs there), the shim at
    // ~/.local/bin/tarvel-edit, makes ~/.local/state/tarvel (0700), and writes the start-up file
    // when given, keeping its permissions and writing through a link. Throws TarvelError.
    void install(const QByteArray &helper, const QByteArray &shim,
                 const std::optional<StartupFile> &startup) const;
    // What is there, without asking for a password. Throws TarvelError when it cannot be asked.
    Installed installed() const;

    static inline const QString helperName = QStringLiteral("tarvel-edit-remote");

private:
    QStringList sshArguments(const QStringList &options) const;

    QString m_host;
};
