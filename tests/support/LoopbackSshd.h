#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

// Debian's sshd on 127.0.0.1, started for a test with its own host key, configuration and port,
// and a throwaway key pair for the client; stopped by its process id. The "other machine" is this
// one as the same user, with a home folder of its own (SetEnv HOME) and /bin/sh as its shell.
class LoopbackSshd final {
public:
    LoopbackSshd(const QString &folder, const QString &remoteHome)
        : m_folder(folder)
    {
        const QString sshd = QStringLiteral("/usr/sbin/sshd");
        if (!QFileInfo(sshd).isExecutable() ||
            QStandardPaths::findExecutable(QStringLiteral("ssh")).isEmpty()) {
            m_unavailable = QStringLiteral("openssh-server and openssh-client are not installed");
            return;
        }
        QDir().mkpath(folder);
        QDir().mkpath(remoteHome);
        for (const char *key : {"host_key", "client_key"}) {
            if (QProcess::execute(QStringLiteral("ssh-keygen"),
                                  {QStringLiteral("-q"), QStringLiteral("-t"), QStringLiteral("ed25519"),
                                   QStringLiteral("-N"), QString(), QStringLiteral("-f"),
                                   path(QString::fromLatin1(key))}) != 0) {
                m_unavailable = QStringLiteral("ssh-keygen failed");
                return;
            }
        }
        QFile::copy(path(QStringLiteral("client_key.pub")), path(QStringLiteral("authorized_keys")));
        // Privilege separation needs this folder when sshd starts as root.
        if (::geteuid() == 0)
            QDir().mkpath(QStringLiteral("/run/sshd"));
        m_port = freePort();
        write(
            path(QStringLiteral("sshd_config")),
            QStringLiteral("Port %1\nListenAddress 127.0.0.1\nHostKey %2\nAuthorizedKeysFile %3\nPidFile %4\n"
                           "StrictModes no\nUsePAM no\nPasswordAuthentication no\n"
                           "KbdInteractiveAuthentication no\nPermitRootLogin prohibit-password\n"
                           "AllowStreamLocalForwarding yes\nStreamLocalBindUnlink yes\n"
                           "SetEnv HOME=%5 SHELL=/bin/sh\n")
                .arg(m_port)
                .arg(path(QStringLiteral("host_key")), path(QStringLiteral("authorized_keys")),
                     path(QStringLiteral("sshd.pid")), remoteHome));
        m_sshd.setProcessChannelMode(QProcess::ForwardedChannels);
        m_sshd.start(sshd, {QStringLiteral("-D"), QStringLiteral("-e"), QStringLiteral("-f"),
                            path(QStringLiteral("sshd_config"))});
        if (!m_sshd.waitForStarted() || !QTest::qWaitFor([this] { return accepts(); }, 10000))
            m_unavailable = QStringLiteral("sshd did not start on 127.0.0.1:%1").arg(m_port);
    }
    ~LoopbackSshd()
    {
        if (m_sshd.state() != QProcess::NotRunning) {
            m_sshd.terminate();
            m_sshd.waitForFinished(5000);
        }
    }

    // Why the test cannot have its sshd, or empty.
    const QString &unavailableReason() const { return m_unavailable; }
    int port() const { return m_port; }

    // ssh configuration lines that reach it under any host name.
    QString clientOptions() const
    {
        return QStringLiteral(
                   "Host *\n    HostName 127.0.0.1\n    Port %1\n    User %2\n    IdentityFile %3\n"
                   "    IdentitiesOnly yes\n    StrictHostKeyChecking no\n"
                   "    UserKnownHostsFile /dev/null\n    LogLevel ERROR\n")
            .arg(m_port)
            .arg(QString::fromLocal8Bit(::getpwuid(::geteuid())->pw_name),
                 path(QStringLiteral("client_key")));
    }

private:
    QString path(const QString &name) const { return QDir(m_folder).filePath(name); }

    static void write(const QString &path, const QString &text)
    {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(text.toUtf8());
    }

    static int freePort()
    {
        const int descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        ::bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address);
        ::getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size);
        ::close(descriptor);
        return ntohs(address.sin_port);
    }

    bool accepts() const
    {
        const int descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(quint16(m_port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool connected =
            ::connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        ::close(descriptor);
        return connected;
    }

    QString m_folder;
    QString m_unavailable;
    int m_port = 0;
    QProcess m_sshd;
};
