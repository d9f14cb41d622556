// Finding and verifying the backends, against fake programs on a private PATH.
#include "backends/BackendProfiles.h"
#include "fakebackends/FakeBackendSetup.h"
#include "quicktasks/QuickTaskError.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "quicktasks/VersionCheckCache.h"

#include <QFutureWatcher>
#include <QThread>
#include <QTimer>
#include <QtTest>

namespace Locator = TaskCLIExecutableLocator;

namespace {

constexpr int kFutureTimeout = 15000;

// A login shell that records how it was asked and answers with a given text.
QString writeShell(const FakeBackends &fakes, const QString &body)
{
    const QString path = QDir(fakes.binDirectory()).filePath(QStringLiteral("login-shell"));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write("#!/bin/sh\nprintf '%s\\0' \"$@\" > \"$(dirname \"$0\")/../record/shell.argv\"\n");
        file.write(body.toUtf8() + '\n');
    }
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

} // namespace

class ExecutableLocatorTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // The login shell is asked for its PATH as `-lc 'printf %s "$PATH"'`; its answer is trimmed,
    // noise on stderr and a failing profile do not spoil it, and one that hangs gives none.
    void loginShellPathQuery()
    {
        for (const auto &[body, expected] :
             {std::pair{QStringLiteral("printf '  /from/login:/usr/bin\\n\\n'"),
                        QStringLiteral("/from/login:/usr/bin")},
              std::pair{QStringLiteral("printf ' \\n '"), QString()},
              std::pair{QStringLiteral("echo 'profile noise' >&2; printf /a"), QStringLiteral("/a")},
              std::pair{QStringLiteral("printf /b; exit 1"), QStringLiteral("/b")},
              std::pair{QStringLiteral("trap '' INT TERM; while :; do sleep 1; done"), QString()}}) {
            FakeBackendSetup setup;
            setup.environment.set("SHELL", writeShell(setup.fakes, body));
            QCOMPARE(Locator::loginShellPath().value_or(QString()), expected);
            QCOMPARE(setup.fakes.recorded(QStringLiteral("shell.argv")),
                     QByteArray("-lc\0printf %s \"$PATH\"\0", 22));
        }
    }

    // An answer is kept per shell; a failure (a shell slow at login, say) is not, so the next
    // check asks again. A launch searches our PATH, then the login shell's, and keeps the rest
    // of our environment.
    void loginShellAnswerIsKeptPerShell()
    {
        FakeBackendSetup setup;
        const QString body = QStringLiteral("calls=\"$(dirname \"$0\")/../record/shell.calls\"; echo >> "
                                            "\"$calls\"; [ \"$(wc -l < \"$calls\")\" -gt 1 ] || exit 1; "
                                            "printf /from/login");
        setup.environment.set("SHELL", writeShell(setup.fakes, body));
        setup.environment.set("TARVEL_TEST_MARKER", QStringLiteral("kept"));
        QVERIFY(!Locator::candidateDirectories().contains(QStringLiteral("/from/login")));
        for (int call = 0; call < 3; ++call)
            QVERIFY(Locator::candidateDirectories().contains(QStringLiteral("/from/login")));
        QCOMPARE(setup.fakes.recorded(QStringLiteral("shell.calls")).count('\n'), 2);
        std::optional<QuickTaskLaunchTarget> target;
        Locator::prepareLaunch(QuickTaskCLIBackend::opencode)
            .then(this, [&](const QuickTaskLaunchTarget &value) { target = value; });
        QVERIFY(QTest::qWaitFor([&] { return target.has_value(); }, kFutureTimeout));
        QCOMPARE(target->executablePath, setup.fakes.executable(QStringLiteral("opencode")));
        QCOMPARE(target->version, QStringLiteral("1.0.0-fake"));
        const QStringList path = target->environment.value(QStringLiteral("PATH")).split(u':');
        QCOMPARE(path.mid(0, 4), (QStringList{setup.fakes.binDirectory(), QStringLiteral("/usr/bin"),
                                              QStringLiteral("/bin"), QStringLiteral("/from/login")}));
        QCOMPARE(target->environment.value(QStringLiteral("TARVEL_TEST_MARKER")), QStringLiteral("kept"));

        // Another shell is asked for itself; without SHELL the platform's default answers, and a
        // SHELL that does not exist gives nothing.
        setup.environment.set("SHELL", QStringLiteral("/bin/sh"));
        QVERIFY(!Locator::candidateDirectories().contains(QStringLiteral("/from/login")));
        setup.environment.set("SHELL", QString());
        QVERIFY(Locator::loginShellPath().has_value());
        setup.environment.set("SHELL", setup.environment.path(QStringLiteral("no-such-shell")));
        QCOMPARE(Locator::loginShellPath(), std::nullopt);
    }

    // The folders searched: our PATH, the login shell's and the usual install folders, each once.
    // The first executable file of the candidates wins: the backend's own fallback, then the
    // override variable (an empty one is ignored), then the folders in order.
    void resolutionTakesTheFirstExecutableFile()
    {
        FakeBackendSetup setup;
        setup.environment.set("PATH", QStringLiteral("/p1::/p2:/usr/bin:/p1:"));
        const QString home = setup.environment.root();
        QCOMPARE(Locator::candidateDirectories(QStringLiteral("/p2:/login:/usr/local/bin")),
                 (QStringList{QStringLiteral("/p1"), QStringLiteral("/p2"), QStringLiteral("/usr/bin"),
                              QStringLiteral("/login"), QStringLiteral("/usr/local/bin"),
                              QStringLiteral("/opt/homebrew/bin"), home + QStringLiteral("/.opencode/bin"),
                              home + QStringLiteral("/.local/bin")}));
        // Without a login-shell path only our PATH and the fixed folders are searched.
        QCOMPARE(Locator::candidateDirectories(std::nullopt).mid(0, 4),
                 (QStringList{QStringLiteral("/p1"), QStringLiteral("/p2"), QStringLiteral("/usr/bin"),
                              QStringLiteral("/opt/homebrew/bin")}));

        const QString first = setup.environment.path(QStringLiteral("first"));
        const QString second = setup.environment.path(QStringLiteral("second"));
        QDir().mkpath(first + QStringLiteral("/claude")); // a folder, not a program
        QDir().mkpath(second);
        QFile plain(second + QStringLiteral("/claude")); // a file without the execute permission
        QVERIFY(plain.open(QIODevice::WriteOnly));
        plain.close();
        const QStringList directories{first, second, setup.fakes.binDirectory()};
        setup.environment.set("CLAUDE_BIN_PATH", QString());
        QCOMPARE(Locator::resolveExecutableURL(QuickTaskCLIBackend::claude, directories),
                 setup.fakes.executable(QStringLiteral("claude")));

        const QString custom = setup.environment.path(QStringLiteral("custom-claude"));
        QVERIFY(QFile::copy(setup.fakes.executable(QStringLiteral("claude")), custom));
        setup.environment.set("CLAUDE_BIN_PATH", custom);
        QCOMPARE(Locator::resolveExecutableURL(QuickTaskCLIBackend::claude, directories), custom);

        // opencode's own install folder comes before its override.
        const QString installed = setup.environment.path(QStringLiteral(".opencode/bin/opencode"));
        QDir().mkpath(QFileInfo(installed).path());
        QVERIFY(QFile::copy(custom, installed));
        setup.environment.set("OPENCODE_BIN_PATH", custom);
        QCOMPARE(Locator::resolveExecutableURL(QuickTaskCLIBackend::opencode, directories), installed);
    }

    // What each backend's version query must answer, where, and the sentence when it does not;
    // a program that cannot start at all is explained too.
    void versionVerification()
    {
        const auto codex = QuickTaskCLIBackend::codex;
        const auto claude = QuickTaskCLIBackend::claude;
        const auto opencode = QuickTaskCLIBackend::opencode;
        struct Row {
            QuickTaskCLIBackend backend;
            QStringList settings; // NAME=VALUE pairs for the fake
            QString version;      // empty: the check fails
            QString message;
        };
        for (const Row &row : QList<Row>{
                 {codex,
                  {QStringLiteral("FAKE_CODEX_VERSION_STDOUT=codex-cli 0.169.0")},
                  QStringLiteral("codex-cli 0.169.0"),
                  {}},
                 {codex,
                  {QStringLiteral("FAKE_CODEX_VERSION_STDOUT=codex 0.169.0")},
                  {},
                  QStringLiteral("Codex CLI returned an unexpected result for `codex -V`: codex 0.169.0")},
                 // codex on stderr is not read
                 {codex,
                  {QStringLiteral("FAKE_CODEX_VERSION_STDOUT="),
                   QStringLiteral("FAKE_CODEX_VERSION_STDERR=codex-cli 1.0.0")},
                  {},
                  QStringLiteral("Codex CLI returned an unexpected result for `codex -V`: no output")},
                 {claude,
                  {QStringLiteral("FAKE_CLAUDE_VERSION_STDOUT="),
                   QStringLiteral("FAKE_CLAUDE_VERSION_STDERR=  2.1.197 (Claude Code)  ")},
                  QStringLiteral("2.1.197 (Claude Code)"),
                  {}},
                 {claude,
                  {QStringLiteral("FAKE_CLAUDE_VERSION_STDOUT="),
                   QStringLiteral("FAKE_CLAUDE_VERSION_STDERR=Error: cannot find module"),
                   QStringLiteral("FAKE_CLAUDE_VERSION_EXIT=3")},
                  {},
                  QStringLiteral(
                      "Claude CLI failed verification with `claude --version`: Error: cannot find module")},
                 {opencode,
                  {QStringLiteral("FAKE_OPENCODE_VERSION_STDOUT="),
                   QStringLiteral("FAKE_OPENCODE_VERSION_EXIT=1")},
                  {},
                  QStringLiteral("OpenCode failed verification with `opencode --version`: no output")},
                 {opencode,
                  {QStringLiteral("FAKE_OPENCODE_VERSION_STDOUT=unknown")},
                  {},
                  QStringLiteral("OpenCode returned an unexpected result for `opencode --version`: unknown")},
                 {codex,
                  {QStringLiteral("FAKE_CODEX_VERSION_HANG=1")},
                  {},
                  QStringLiteral(
                      "Codex CLI did not respond to `codex -V`. Install or repair Codex CLI so `codex -V` "
                      "returns a version string in Terminal.")}}) {
            FakeBackendSetup setup;
            for (const QString &setting : row.settings) {
                const qsizetype equals = setting.indexOf(u'=');
                setup.environment.set(setting.left(equals).toLatin1().constData(), setting.mid(equals + 1));
            }
            const QString executable = setup.fakes.executable(BackendProfiles::of(row.backend).rawValue());
            try {
                QCOMPARE(Locator::verifiedVersionString(row.backend, executable), row.version);
                QVERIFY(!row.version.isEmpty());
            } catch (const QuickTaskError &error) {
                QCOMPARE(error.description(), row.message);
                QCOMPARE(error.kind(), QuickTaskError::Kind::versionCheckFailed);
                QVERIFY(row.version.isEmpty());
            }
        }

        // Executable, but neither a binary nor a script.
        FakeBackendSetup setup;
        const QString broken = setup.environment.path(QStringLiteral("claude"));
        QFile file(broken);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(QByteArray("\x7F"
                                                                         "ELF\x01\x02",
                                                                         6)) == 6);
        file.close();
        file.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
        try {
            Locator::verifiedVersionString(QuickTaskCLIBackend::claude, broken);
            QFAIL("the check should have failed");
        } catch (const QuickTaskError &error) {
            QCOMPARE(error.description(),
                     QStringLiteral("Claude CLI is installed but could not be started for "
                                    "verification: Could not start claude: Exec format error"));
        }
    }

    void availabilitiesArriveOnTheMainThreadWithoutBlockingIt()
    {
        FakeBackendSetup setup;
        setup.environment.set("FAKE_CLAUDE_VERSION_HANG", QStringLiteral("1"));
        setup.environment.set("FAKE_OPENCODE_VERSION_STDOUT", QStringLiteral("1.18.33"));
        setup.environment.set("PATH", setup.fakes.searchPath());

        int ticks = 0;
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, this, [&ticks] { ++ticks; });
        ticker.start(20);
        // Codex is preferred: its pass comes first, alone, while claude's check still hangs.
        QFutureWatcher<QuickTaskCLIInstallationAvailabilities> watcher;
        QList<QuickTaskCLIInstallationAvailabilities> results;
        QList<bool> finishedAtResult;
        QThread *deliveredOn = nullptr;
        connect(&watcher, &QFutureWatcherBase::resultReadyAt, this, [&](int index) {
            results.append(watcher.resultAt(index));
            finishedAtResult.append(watcher.isFinished());
            deliveredOn = QThread::currentThread();
        });
        watcher.setFuture(Locator::installationAvailabilities(QuickTaskCLIBackend::codex));
        QVERIFY(results.isEmpty()); // not answered synchronously
        QVERIFY(QTest::qWaitFor([&] { return watcher.isFinished() && results.size() == 2; }, kFutureTimeout));
        QCOMPARE(deliveredOn, QThread::currentThread());
        // The claude check took its full 2 s; the event loop kept running meanwhile.
        QVERIFY2(ticks > 20, qPrintable(QString::number(ticks)));

        const auto codex =
            QuickTaskCLIInstallationAvailability::available(QStringLiteral("codex-cli 0.0.1-fake"));
        QCOMPARE(results.first(),
                 (QuickTaskCLIInstallationAvailabilities{{QuickTaskCLIBackend::codex, codex}}));
        QVERIFY(!finishedAtResult.first());
        const QuickTaskCLIInstallationAvailabilities result = results.last();
        QCOMPARE(result.size(), 3);
        QCOMPARE(result.value(QuickTaskCLIBackend::codex), codex);
        QCOMPARE(result.value(QuickTaskCLIBackend::opencode),
                 QuickTaskCLIInstallationAvailability::available(QStringLiteral("1.18.33")));
        QVERIFY(!result.value(QuickTaskCLIBackend::claude).isAvailable());
        QVERIFY(
            result.value(QuickTaskCLIBackend::claude).message().startsWith(u"Claude CLI did not respond"));

        // A preferred backend that fails gives no early result: the only one names all three.
        const QFuture<QuickTaskCLIInstallationAvailabilities> failing =
            Locator::installationAvailabilities(QuickTaskCLIBackend::claude);
        QVERIFY(QTest::qWaitFor([&] { return failing.isFinished(); }, kFutureTimeout));
        QCOMPARE(failing.resultCount(), 1);
        QCOMPARE(failing.result().size(), 3);
    }

    // A passed check holds while the file is the same one, in memory and across starts; a
    // failure, and a changed file (touched, replaced, deleted), mean asking again.
    void versionCheckIsKeptWhileTheExecutableIsUnchanged()
    {
        FakeBackendSetup setup;
        const QString claude = setup.fakes.executable(QStringLiteral("claude"));
        const auto calls = [&] {
            return setup.fakes.recorded(QStringLiteral("claude.version-calls")).count('\n');
        };
        const auto check = [] {
            return Locator::launchTarget(QuickTaskCLIBackend::claude).version;
        };
        const QString version = QStringLiteral("2.0.0 (Claude Code)");

        setup.environment.set("FAKE_CLAUDE_VERSION_EXIT", QStringLiteral("1"));
        QVERIFY_THROWS_EXCEPTION(QuickTaskError, check());
        setup.environment.unset("FAKE_CLAUDE_VERSION_EXIT");
        QCOMPARE(check(), version);
        QCOMPARE(check(), version);
        QVERIFY(Locator::checkInstallationAvailabilities().value(QuickTaskCLIBackend::claude).isAvailable());
        QCOMPARE(calls(), 2);
        const auto identity = ExecutableIdentity::of(claude);
        VersionCheckCache nextStart(VersionCheckCache::defaultStoragePath());
        QCOMPARE(nextStart.version(QuickTaskCLIBackend::claude, *identity), std::optional<QString>(version));
        QCOMPARE(nextStart.version(QuickTaskCLIBackend::codex, *identity), std::nullopt);

        const auto setTime = [&](const QString &path, int seconds) {
            QFile file(path);
            return file.open(QIODevice::ReadWrite) &&
                   file.setFileTime(QFileInfo(claude).lastModified().addSecs(seconds),
                                    QFileDevice::FileModificationTime);
        };
        QVERIFY(setTime(claude, 60));
        QCOMPARE(check(), version);
        QCOMPARE(calls(), 3);
        // A copy with the same size and time: only the inode tells them apart.
        const QString copy = claude + QStringLiteral(".copy");
        QVERIFY(QFile::copy(claude, copy) && setTime(copy, 0));
        QCOMPARE(::rename(QFile::encodeName(copy).constData(), QFile::encodeName(claude).constData()), 0);
        QCOMPARE(check(), version);
        QCOMPARE(calls(), 4);
        QVERIFY(QFile::copy(claude, copy) && QFile::remove(claude));
        QVERIFY_THROWS_EXCEPTION(QuickTaskError, check());
        QVERIFY(QFile::rename(copy, claude));
        QCOMPARE(check(), version);
        QCOMPARE(calls(), 5);
    }
};

QTEST_GUILESS_MAIN(ExecutableLocatorTest)
#include "tst_executablelocator.moc"
