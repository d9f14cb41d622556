// `tarvel editor-setup` as a user runs it from a terminal, with a fresh home (a wrong word only
// gets the usage), and then the real shells reading what it wrote.
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
struct Result {
    int exitCode = -1;
    QString out;
    QString err;
};

Result run(const QString &program, const QStringList &arguments, const QProcessEnvironment &environment)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForFinished(20000))
        process.kill();
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}
} // namespace

class EditorSetupCommandTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void installThenEveryNewShellHasVisual_data()
    {
        QTest::addColumn<QString>("shell");
        QTest::addColumn<QString>("config");
        QTest::addColumn<QStringList>("echoVisual");
        QTest::newRow("bash") << "/usr/bin/bash"
                              << ".bashrc" << QStringList{u"-i"_s, u"-c"_s, u"echo $VISUAL"_s};
        QTest::newRow("zsh") << "/usr/bin/zsh"
                             << ".zshrc" << QStringList{u"-i"_s, u"-c"_s, u"echo $VISUAL"_s};
        QTest::newRow("fish") << "/usr/bin/fish"
                              << ".config/fish/conf.d/tarvel.fish" << QStringList{u"-c"_s, u"echo $VISUAL"_s};
    }
    void installThenEveryNewShellHasVisual()
    {
        QFETCH(QString, shell);
        QFETCH(QString, config);
        QFETCH(QStringList, echoVisual);
        QTemporaryDir home;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), home.path());
        environment.insert(QStringLiteral("SHELL"), shell);
        environment.remove(QStringLiteral("XDG_CONFIG_HOME"));
        environment.remove(QStringLiteral("VISUAL"));
        const auto editorSetup = [&](const QString &word) {
            return run(QStringLiteral(TARVEL_APP_PATH), {QStringLiteral("editor-setup"), word}, environment);
        };
        const Result usage = editorSetup(QStringLiteral("repair"));
        QCOMPARE(usage.exitCode, 2);
        QVERIFY(usage.err.startsWith(u"Usage: tarvel editor-setup") && usage.out.isEmpty());

        Result status = editorSetup(QStringLiteral("status"));
        QCOMPARE(status.exitCode, 1);
        QVERIFY2(status.out.startsWith(u"not set up:") && status.out.count(u'\n') == 1,
                 qPrintable(status.out));

        const Result install = editorSetup(QStringLiteral("install"));
        QCOMPARE(install.exitCode, 0);
        const QString shim = home.filePath(QStringLiteral(".local/bin/tarvel-edit"));
        QVERIFY2(install.out.contains(shim) && install.out.contains(home.filePath(config)),
                 qPrintable(install.out));
        QVERIFY(QFileInfo(shim).isExecutable());
        QVERIFY(QFileInfo(home.filePath(config)).isFile());

        status = editorSetup(QStringLiteral("status"));
        QCOMPARE(status.exitCode, 0);
        QVERIFY2(status.out.startsWith(u"installed:"), qPrintable(status.out));

        const Result echoed = run(shell, echoVisual, environment);
        QCOMPARE(echoed.out.trimmed().split(u'\n').constLast(), shim);
    }
};

QTEST_GUILESS_MAIN(EditorSetupCommandTest)
#include "tst_editorsetup_command.moc"
