// The editor set-up over a temporary home: what a start-up file says, what install writes,
// and the shim it writes run with sh.
#include "TestEnvironment.h"
#include "editor_integration/EditorIntegrationError.h"
#include "editor_integration/EditorIntegrationManager.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr auto kExecutable = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
const QByteArray kBlock = "# >>> Tarvel editor integration >>>\n"
                          "export VISUAL=\"$HOME/.local/bin/tarvel-edit\"\n"
                          "# <<< Tarvel editor integration <<<\n";

void writeFile(const QString &path, const QByteArray &content,
               QFileDevice::Permissions permissions = kExecutable)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
    file.close();
    file.setPermissions(permissions);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString describe(const EditorIntegrationStatus &status)
{
    switch (status.kind) {
    case EditorIntegrationStatus::Kind::installed:
        return QStringLiteral("installed");
    case EditorIntegrationStatus::Kind::configuredElsewhere:
        return status.variable + u'=' + status.command;
    case EditorIntegrationStatus::Kind::needsInstall:
        break;
    }
    return status.reason == EditorIntegrationInstallReason::helperMissing ? QStringLiteral("helperMissing")
                                                                          : QStringLiteral("notConfigured");
}
} // namespace

class EditorIntegrationManagerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // What a start-up file says: VISUAL exported or not, quoted either way, the last assignment
    // winning, fish's own form only in fish; EDITOR alone is set up elsewhere; a shim that cannot
    // run needs the install again.
    void status()
    {
        for (const auto &[shell, config, shimExecutable, expected] :
             {std::tuple{"bash", kBlock, true, "installed"},
              std::tuple{"zsh", QByteArray("  VISUAL = '~/.local/bin/tarvel-edit'\n"), true, "installed"},
              std::tuple{"bash", kBlock, false, "helperMissing"},
              std::tuple{"bash", QByteArray("  # export VISUAL=vim\n\n"), true, "notConfigured"},
              std::tuple{"bash", QByteArray("export EDITOR=vim\n"), true, "EDITOR=vim"},
              std::tuple{"zsh", kBlock + "VISUAL='nano'\n", true, "VISUAL=nano"},
              std::tuple{"dash", "export EDITOR=emacs\n" + kBlock, true, "installed"},
              std::tuple{"fish", QByteArray("set -gx VISUAL \"$HOME/.local/bin/tarvel-edit\"\n"), true,
                         "installed"},
              std::tuple{"fish", kBlock, true, "notConfigured"},
              std::tuple{"bash", "# \xe9\xe8\n" + kBlock + "\xff", true, "installed"}}) {
            TestEnvironment environment;
            environment.set("SHELL", QStringLiteral("/usr/bin/") + QLatin1String(shell));
            const EditorIntegrationManager manager(QStringLiteral("/nonexistent"));
            const EditorIntegrationInstallLocation location = *manager.installLocation();
            writeFile(location.configURL.toLocalFile(), config);
            writeFile(location.helperScriptURL.toLocalFile(), "#!/bin/sh\n",
                      shimExecutable ? kExecutable : QFileDevice::ReadOwner);
            QCOMPARE(describe(*manager.status()), QString::fromLatin1(expected));
        }
    }

    // bash's and fish's files are read by the real shells in tst_editorsetup_command.
    void locationByShell()
    {
        TestEnvironment environment;
        for (const auto &[shell, config] :
             {std::pair{"/bin/zsh", ".zshrc"}, std::pair{"/bin/dash", ".profile"}, std::pair{"", ".zshrc"}}) {
            environment.set("SHELL", QString::fromLatin1(shell));
            QCOMPARE(EditorIntegrationManager(QString()).installLocation()->configURL.toLocalFile(),
                     environment.path(QString::fromLatin1(config)));
        }
        environment.unset("HOME");
        QVERIFY(!EditorIntegrationManager(QString()).installLocation());
    }

    // Every byte outside the block stays as it was, whatever its encoding; the block is replaced
    // where it stands, unless a later line sets VISUAL, and added at the end otherwise.
    void installKeepsEveryByteOutsideTheBlock()
    {
        const QByteArray latin1 = "# caf\xe9 cr\xe8me\r\nalias ll='ls -l'";
        const QByteArray olderBlock = QByteArray(kBlock).replace("export ", "");
        for (const auto &[shell, before, after] :
             {std::tuple{"bash", latin1, latin1 + "\n\n" + kBlock},
              // the block in the middle
              std::tuple{"bash", "\n" + latin1 + "\n" + olderBlock + "\xff\n\n\n",
                         "\n" + latin1 + "\n" + kBlock + "\xff\n\n\n"},
              // a stray marker above the block
              std::tuple{"bash", "# >>> Tarvel editor integration >>>\nx\n" + olderBlock,
                         "# >>> Tarvel editor integration >>>\nx\n" + kBlock},
              // a later VISUAL
              std::tuple{"zsh", "a\n" + kBlock + "VISUAL=nano\n", "a\nVISUAL=nano\n\n" + kBlock},
              std::tuple{"fish", QByteArray("# \xe9\n"),
                         "# \xe9\n\n" + QByteArray(kBlock).replace("export VISUAL=", "set -gx VISUAL ")}}) {
            TestEnvironment environment;
            environment.set("SHELL", QStringLiteral("/bin/") + QLatin1String(shell));
            const EditorIntegrationManager manager(QStringLiteral("/opt/tar'vel"));
            const QString config = manager.installLocation()->configURL.toLocalFile();
            writeFile(config, before);
            manager.install();
            QCOMPARE(readFile(config), after);
            manager.install();
            QCOMPARE(readFile(config), after);
            QCOMPARE(manager.status()->kind, EditorIntegrationStatus::Kind::installed);
        }
    }

    // A start-up file that cannot be read or replaced is refused and left as it was (never
    // replaced by the block alone); status still answers at once.
    void unusableStartupFileIsLeftAsItWas()
    {
        for (const int type : {S_IFDIR, S_IFLNK, S_IFIFO}) {
            TestEnvironment environment;
            environment.set("SHELL", QStringLiteral("/bin/zsh"));
            const QByteArray zshrc = QFile::encodeName(environment.path(QStringLiteral(".zshrc")));
            QCOMPARE(type == S_IFDIR   ? ::mkdir(zshrc, 0700)
                     : type == S_IFLNK ? ::symlink(zshrc, zshrc)
                                       : ::mkfifo(zshrc, 0600),
                     0);
            const EditorIntegrationManager manager{QString()};
            QCOMPARE(describe(*manager.status()), QStringLiteral("notConfigured"));
            try {
                manager.install();
                QFAIL("install succeeded");
            } catch (const EditorIntegrationError &error) {
                QCOMPARE(error.kind(), EditorIntegrationError::Kind::failedToWriteShellConfig);
                QVERIFY2(error.description().startsWith(u"Could not update the shell configuration file. "),
                         qPrintable(error.description()));
            }
            struct stat after {};
            QCOMPARE(::lstat(zshrc, &after), 0);
            QCOMPARE(int(after.st_mode & S_IFMT), type);
            QVERIFY(QFileInfo(environment.path(QStringLiteral(".local/bin/tarvel-edit"))).isExecutable());
        }
    }

    // Which tarvel-edit the shim runs: TARVEL_EDIT_PATH, the one beside the application, one
    // on PATH (never the shim itself, which comes first there), or none.
    void shimFindsTarvelEdit()
    {
        for (const QString &use :
             {QStringLiteral("variable"), QStringLiteral("app dir"), QStringLiteral("on path"), QString()}) {
            TestEnvironment environment;
            environment.set("SHELL", QStringLiteral("/bin/bash"));
            QTemporaryDir tools;
            for (const QString &folder :
                 {QStringLiteral("variable"), QStringLiteral("on path"), QStringLiteral("app dir")}) {
                if (folder != u"app dir" || use == folder)
                    writeFile(tools.filePath(folder + QStringLiteral("/tarvel-edit")),
                              "#!/bin/sh\necho " + folder.toUtf8() + " \"$@\"\n");
            }
            EditorIntegrationManager(tools.filePath(QStringLiteral("app dir"))).install();
            const QString shim = environment.path(QStringLiteral(".local/bin/tarvel-edit"));

            QProcessEnvironment shell = QProcessEnvironment::systemEnvironment();
            shell.remove(QStringLiteral("TARVEL_EDIT_PATH"));
            if (use == u"variable")
                shell.insert(QStringLiteral("TARVEL_EDIT_PATH"),
                             tools.filePath(QStringLiteral("variable/tarvel-edit")));
            shell.insert(QStringLiteral("PATH"),
                         QFileInfo(shim).path() + QStringLiteral(":/usr/bin:/bin") +
                             (use == u"on path" ? u':' + tools.filePath(use) : QString()));
            QProcess process;
            process.setProcessEnvironment(shell);
            process.start(QStringLiteral("sh"), {shim, QStringLiteral("a file.txt")});
            QVERIFY(process.waitForFinished(10000));
            if (use.isEmpty()) {
                QCOMPARE(process.exitCode(), 1);
                QVERIFY(process.readAllStandardError().contains("tarvel-edit: Tarvel not found"));
            } else {
                QCOMPARE(process.exitCode(), 0);
                QCOMPARE(process.readAllStandardOutput(), use.toUtf8() + " a file.txt\n");
            }
        }
    }
};

QTEST_GUILESS_MAIN(EditorIntegrationManagerTest)
#include "tst_editorintegrationmanager.moc"
