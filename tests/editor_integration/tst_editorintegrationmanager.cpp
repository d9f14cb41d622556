// The editor set-up over a temporary home: what a start-up file says, what install writes,
// and the shim it writes run with sh.
#include "TestEnvironment.h"
#include "editor_integration/EditorIntegrationError.h"
#include "editor_integration/EditorIntegrationManager.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using Kind = EditorIntegrationStatus::Kind;
using Reason = EditorIntegrationInstallReason;

namespace {
void writeFile(const QString &path, const QByteArray &content, QFileDevice::Permissions permissions = {})
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
    file.close();
    if (permissions)
        file.setPermissions(permissions);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

constexpr auto kExecutable = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
const QByteArray kBlock = "# >>> Tarvel editor integration >>>\n"
                          "export VISUAL=\"$HOME/.local/bin/tarvel-edit\"\n"
                          "# <<< Tarvel editor integration <<<\n";
} // namespace

class EditorIntegrationManagerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void status_data()
    {
        QTest::addColumn<QString>("shell");
        QTest::addColumn<QByteArray>("config");
        QTest::addColumn<bool>("shimExecutable");
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("reason");
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("command");
        const int none = 0;
        const auto needs = int(Kind::needsInstall), installed = int(Kind::installed),
                   elsewhere = int(Kind::configuredElsewhere);
        const auto notConfigured = int(Reason::notConfigured), helperMissing = int(Reason::helperMissing);
        QTest::newRow("empty") << "bash" << QByteArray() << true << needs << notConfigured << ""
                               << "";
        QTest::newRow("export, double quotes") << "bash" << kBlock << true << installed << none << ""
                                               << "";
        QTest::newRow("no export, single quotes, indented")
            << "zsh" << QByteArray("  VISUAL = '~/.local/bin/tarvel-edit'\n") << true << installed << none
            << ""
            << "";
        QTest::newRow("shim not executable") << "bash" << kBlock << false << needs << helperMissing << ""
                                             << "";
        QTest::newRow("commented out")
            << "bash" << QByteArray("  # export VISUAL=vim\n\n") << true << needs << notConfigured << ""
            << "";
        QTest::newRow("EDITOR only") << "bash" << QByteArray("export EDITOR=vim\n") << true << elsewhere
                                     << none << "EDITOR"
                                     << "vim";
        QTest::newRow("last assignment wins") << "zsh" << kBlock + "VISUAL='nano'\n"
                                              << true << elsewhere << none << "VISUAL"
                                              << "nano";
        QTest::newRow("VISUAL before EDITOR")
            << "bash"
            << "export EDITOR=emacs\n" + kBlock << true << installed << none << ""
            << "";
        QTest::newRow("another shell's syntax is no assignment")
            << "fish" << kBlock << true << needs << notConfigured << ""
            << "";
        QTest::newRow("fish") << "fish" << QByteArray("set -gx VISUAL \"$HOME/.local/bin/tarvel-edit\"\n")
                              << true << installed << none << ""
                              << "";
        QTest::newRow("fish, another editor")
            << "fish" << QByteArray("set -x EDITOR 'hx'\n") << true << elsewhere << none << "EDITOR"
            << "hx";
    }

    void status()
    {
        QFETCH(QString, shell);
        QFETCH(QByteArray, config);
        QFETCH(bool, shimExecutable);
        QFETCH(int, kind);
        QFETCH(int, reason);
        QFETCH(QString, variable);
        QFETCH(QString, command);
        TestEnvironment environment;
        environment.set("SHELL", QStringLiteral("/usr/bin/") + shell);
        const EditorIntegrationManager manager(QStringLiteral("/nonexistent"));
        const EditorIntegrationInstallLocation location = *manager.installLocation();
        writeFile(location.configURL.toLocalFile(), config);
        writeFile(location.helperScriptURL.toLocalFile(), "#!/bin/sh\n",
                  shimExecutable ? kExecutable : QFileDevice::ReadOwner);

        const std::optional<EditorIntegrationStatus> status = manager.status();
        QVERIFY(status);
        QCOMPARE(int(status->kind), kind);
        if (status->kind == Kind::needsInstall)
            QCOMPARE(int(status->reason), reason);
        QCOMPARE(status->variable, variable);
        QCOMPARE(status->command, command);
    }

    void locationByShell_data()
    {
        QTest::addColumn<QString>("shell");
        QTest::addColumn<QString>("config");
        QTest::newRow("zsh") << "/bin/zsh"
                             << ".zshrc";
        QTest::newRow("bash") << "/bin/bash"
                              << ".bashrc";
        QTest::newRow("fish") << "/usr/local/bin/fish"
                              << ".config/fish/conf.d/tarvel.fish";
        QTest::newRow("other") << "/bin/dash"
                               << ".profile";
        QTest::newRow("unset") << ""
                               << ".zshrc";
    }
    void locationByShell()
    {
        QFETCH(QString, shell);
        QFETCH(QString, config);
        TestEnvironment environment;
        environment.set("SHELL", shell);
        QCOMPARE(EditorIntegrationManager(QString()).installLocation()->configURL.toLocalFile(),
                 environment.path(config));
        environment.unset("HOME");
        QVERIFY(!EditorIntegrationManager(QString()).installLocation());
    }

    void installReplacesTheBlockAndKeepsTheRest()
    {
        TestEnvironment environment;
        environment.set("SHELL", QStringLiteral("/bin/bash"));
        const EditorIntegrationManager manager(QStringLiteral("/opt/tar'vel"));
        const QString bashrc = environment.path(QStringLiteral(".bashrc"));
        // Only the old block: exactly the block afterwards.
        writeFile(bashrc, "\n" + QByteArray(kBlock).replace("export ", "") + "\n\n");
        manager.install();
        QCOMPARE(readFile(bashrc), kBlock);
        writeFile(bashrc, "alias ll='ls -l'\n" + kBlock + "export PATH=$PATH:/opt\n\n\n");
        manager.install();
        manager.install();
        QCOMPARE(readFile(bashrc), "alias ll='ls -l'\n\nexport PATH=$PATH:/opt\n\n" + kBlock);
        QCOMPARE(manager.status()->kind, Kind::installed);
    }

    void unwritableStartupFileKeepsTheShim()
    {
        TestEnvironment environment;
        environment.set("SHELL", QStringLiteral("/bin/zsh"));
        // A folder where the start-up file should be: no write can replace it, even as root.
        QVERIFY(QDir().mkpath(environment.path(QStringLiteral(".zshrc"))));
        const EditorIntegrationManager manager(QString{});
        try {
            manager.install();
            QFAIL("install succeeded");
        } catch (const EditorIntegrationError &error) {
            QCOMPARE(error.kind(), EditorIntegrationError::Kind::failedToWriteShellConfig);
            QVERIFY2(error.description().startsWith(u"Could not update the shell configuration file. "),
                     qPrintable(error.description()));
        }
        QVERIFY(QFileInfo(environment.path(QStringLiteral(".zshrc"))).isDir());
        QVERIFY(QFileInfo(environment.path(QStringLiteral(".local/bin/tarvel-edit"))).isExecutable());
    }

    void shimFindsTarvelEdit_data()
    {
        QTest::addColumn<QString>("use"); // which of the three lookups should win
        QTest::newRow("TARVEL_EDIT_PATH") << "variable";
        QTest::newRow("beside the application") << "beside";
        QTest::newRow("PATH") << "path";
        QTest::newRow("none") << "";
    }
    void shimFindsTarvelEdit()
    {
        QFETCH(QString, use);
        TestEnvironment environment;
        QTemporaryDir tools;
        const auto fake = [&](const QString &folder) {
            writeFile(tools.filePath(folder + QStringLiteral("/tarvel-edit")),
                      "#!/bin/sh\necho " + folder.toUtf8() + " \"$@\"\n", kExecutable);
        };
        fake(QStringLiteral("variable"));
        fake(QStringLiteral("on path"));
        if (use == u"beside")
            fake(QStringLiteral("app dir"));
        const QString shim = environment.path(QStringLiteral(".local/bin/tarvel-edit"));
        environment.set("SHELL", QStringLiteral("/bin/bash"));
        EditorIntegrationManager(tools.filePath(QStringLiteral("app dir"))).install();

        QProcessEnvironment shell = QProcessEnvironment::systemEnvironment();
        shell.remove(QStringLiteral("TARVEL_EDIT_PATH"));
        // The shim's own folder comes first on PATH: it must not run itself.
        QString path = QFileInfo(shim).path() + QStringLiteral(":/usr/bin:/bin");
        if (use == u"path")
            path += u':' + tools.filePath(QStringLiteral("on path"));
        shell.insert(QStringLiteral("PATH"), path);
        if (use == u"variable")
            shell.insert(QStringLiteral("TARVEL_EDIT_PATH"),
                         tools.filePath(QStringLiteral("variable/tarvel-edit")));
        QProcess process;
        process.setProcessEnvironment(shell);
        process.start(QStringLiteral("sh"), {shim, QStringLiteral("a file.txt")});
        QVERIFY(process.waitForFinished(10000));
        const QString expected = use == u"beside" ? QStringLiteral("app dir")
                                 : use == u"path" ? QStringLiteral("on path")
                                                  : use;
        if (use.isEmpty()) {
            QCOMPARE(process.exitCode(), 1);
            QVERIFY2(process.readAllStandardError().contains("not found"), "no not-found message");
        } else {
            QCOMPARE(process.exitCode(), 0);
            QCOMPARE(process.readAllStandardOutput(), expected.toUtf8() + " a file.txt\n");
        }
    }
};

QTEST_GUILESS_MAIN(EditorIntegrationManagerTest)
#include "tst_editorintegrationmanager.moc"
