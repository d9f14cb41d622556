// The editor set-up over a temporary home: what a start-up file says, what install writes,
// and the shim it writes run with sh.
#include "TestEnvironment.h"
#include "editor_integration/EditorIntegrationError.h"
#include "editor_integration/EditorIntegrationManager.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

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
    void status_data()
    {
        QTest::addColumn<QString>("shell");
        QTest::addColumn<QByteArray>("config");
        QTest::addColumn<bool>("shimExecutable");
        QTest::addColumn<QString>("expected");
        QTest::newRow("empty") << "bash" << QByteArray() << true << "notConfigured";
        QTest::newRow("export, double quotes") << "bash" << kBlock << true << "installed";
        QTest::newRow("no export, single quotes, indented")
            << "zsh" << QByteArray("  VISUAL = '~/.local/bin/tarvel-edit'\n") << true << "installed";
        QTest::newRow("shim not executable") << "bash" << kBlock << false << "helperMissing";
        QTest::newRow("commented out")
            << "bash" << QByteArray("  # export VISUAL=vim\n\n") << true << "notConfigured";
        QTest::newRow("EDITOR only") << "bash" << QByteArray("export EDITOR=vim\n") << true << "EDITOR=vim";
        QTest::newRow("last assignment wins") << "zsh" << kBlock + "VISUAL='nano'\n" << true << "VISUAL=nano";
        QTest::newRow("VISUAL before EDITOR") << "dash"
                                              << "export EDITOR=emacs\n" + kBlock << true << "installed";
        QTest::newRow("fish") << "fish" << QByteArray("set -gx VISUAL \"$HOME/.local/bin/tarvel-edit\"\n")
                              << true << "installed";
        QTest::newRow("fish, another editor")
            << "fish" << QByteArray("set -x EDITOR 'hx'\n") << true << "EDITOR=hx";
        QTest::newRow("fish reads no export line") << "fish" << kBlock << true << "notConfigured";
    }
    void status()
    {
        QFETCH(QString, shell);
        QFETCH(QByteArray, config);
        QFETCH(bool, shimExecutable);
        QFETCH(QString, expected);
        TestEnvironment environment;
        environment.set("SHELL", QStringLiteral("/usr/bin/") + shell);
        const EditorIntegrationManager manager(QStringLiteral("/nonexistent"));
        const EditorIntegrationInstallLocation location = *manager.installLocation();
        writeFile(location.configURL.toLocalFile(), config);
        writeFile(location.helperScriptURL.toLocalFile(), "#!/bin/sh\n",
                  shimExecutable ? kExecutable : QFileDevice::ReadOwner);
        QCOMPARE(describe(*manager.status()), expected);
    }

    void locationByShell()
    {
        TestEnvironment environment;
        const QList<std::pair<const char *, const char *>> cases{
            {"/bin/zsh", ".zshrc"},
            {"/bin/bash", ".bashrc"},
            {"/usr/local/bin/fish", ".config/fish/conf.d/tarvel.fish"},
            {"/bin/dash", ".profile"},
            {"", ".zshrc"}};
        for (const auto &[shell, config] : cases) {
            environment.set("SHELL", QString::fromLatin1(shell));
            QCOMPARE(EditorIntegrationManager(QString()).installLocation()->configURL.toLocalFile(),
                     environment.path(QString::fromLatin1(config)));
        }
        environment.unset("HOME");
        QVERIFY(!EditorIntegrationManager(QString()).installLocation());
    }

    void installReplacesTheBlockAndKeepsTheRest()
    {
        TestEnvironment environment;
        environment.set("SHELL", QStringLiteral("/bin/bash"));
        const EditorIntegrationManager manager(QStringLiteral("/opt/tar'vel"));
        const QString bashrc = environment.path(QStringLiteral(".bashrc"));
        writeFile(bashrc, "\n" + QByteArray(kBlock).replace("export ", "") + "\n\n"); // an older block alone
        manager.install();
        QCOMPARE(readFile(bashrc), kBlock);
        writeFile(bashrc, "alias ll='ls -l'\n" + kBlock + "export PATH=$PATH:/opt\n\n\n");
        manager.install();
        manager.install();
        QCOMPARE(readFile(bashrc), "alias ll='ls -l'\n\nexport PATH=$PATH:/opt\n\n" + kBlock);
        QCOMPARE(manager.status()->kind, EditorIntegrationStatus::Kind::installed);
    }

    void unwritableStartupFileKeepsTheShim()
    {
        TestEnvironment environment;
        environment.set("SHELL", QStringLiteral("/bin/zsh"));
        // A folder where the start-up file should be: no write can replace it, even as root.
        QVERIFY(QDir().mkpath(environment.path(QStringLiteral(".zshrc"))));
        try {
            EditorIntegrationManager(QString()).install();
            QFAIL("install succeeded");
        } catch (const EditorIntegrationError &error) {
            QCOMPARE(error.kind(), EditorIntegrationError::Kind::failedToWriteShellConfig);
            QVERIFY2(error.description().startsWith(u"Could not update the shell configuration file. "),
                     qPrintable(error.description()));
        }
        QVERIFY(QFileInfo(environment.path(QStringLiteral(".zshrc"))).isDir());
        QVERIFY(QFileInfo(environment.path(QStringLiteral(".local/bin/tarvel-edit"))).isExecutable());
    }

    // Which tarvel-edit the shim runs: TARVEL_EDIT_PATH, the one beside the application, one
    // on PATH (never the shim itself, which comes first there), or none.
    void shimFindsTarvelEdit_data()
    {
        QTest::addColumn<QString>("use");
        QTest::newRow("TARVEL_EDIT_PATH") << "variable";
        QTest::newRow("beside the application") << "app dir";
        QTest::newRow("PATH") << "on path";
        QTest::newRow("none") << "";
    }
    void shimFindsTarvelEdit()
    {
        QFETCH(QString, use);
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
};

QTEST_GUILESS_MAIN(EditorIntegrationManagerTest)
#include "tst_editorintegrationmanager.moc"
