// The application on a real desktop: xterm, git and tarvel-edit against the real
// tarvel, driven with xdotool. Runs inside tests/e2e/desktop-session.sh.
#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "core/RequestFileIO.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <optional>

namespace {
const QString kTarvel = QStringLiteral(TARVEL_APP_PATH);
const QString kTarvelEdit = QStringLiteral(TARVEL_EDIT_PATH);
const QString kArtifacts = QStringLiteral(TARVEL_ARTIFACTS_DIR);

QString run(const QString &program, const QStringList &arguments, int *exitCode = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    if (exitCode)
        *exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

QString xdotool(const QStringList &arguments)
{
    return run(QStringLiteral("xdotool"), arguments);
}

struct Geometry {
    int x = 0, y = 0, width = 0, height = 0;
    int bottom() const { return y + height; }
    int centerX() const { return x + width / 2; }
};

// The client area, as xwininfo reports it.
Geometry geometry(const QString &windowId)
{
    const QString info = run(QStringLiteral("xwininfo"), {QStringLiteral("-id"), windowId});
    Geometry result;
    const auto field = [&](const QString &label) {
        const QRegularExpression pattern(label + QStringLiteral(":\\s+(-?\\d+)"));
        return pattern.match(info).captured(1).toInt();
    };
    result.x = field(QStringLiteral("Absolute upper-left X"));
    result.y = field(QStringLiteral("Absolute upper-left Y"));
    result.width = field(QStringLiteral("Width"));
    result.height = field(QStringLiteral("Height"));
    return result;
}

// The window manager's frame around a client window: left, right, top, bottom.
QList<int> frameExtents(const QString &windowId)
{
    const QString text =
        run(QStringLiteral("xprop"), {QStringLiteral("-id"), windowId, QStringLiteral("_NET_FRAME_EXTENTS")});
    QList<int> extents;
    for (const QString &part : text.section(u'=', 1).split(u',', Qt::SkipEmptyParts))
        extents.append(part.trimmed().toInt());
    return extents.size() == 4 ? extents : QList<int>{0, 0, 0, 0};
}

Geometry outerGeometry(const QString &windowId)
{
    Geometry client = geometry(windowId);
    const QList<int> extents = frameExtents(windowId);
    return {client.x - extents[0], client.y - extents[2], client.width + extents[0] + extents[1],
            client.height + extents[2] + extents[3]};
}

QString activeWindow()
{
    return xdotool({QStringLiteral("getactivewindow")});
}

// A running copy of the application with its own data and settings folders.
class Application final {
public:
    explicit Application(const QString &root)
        : m_root(root)
    {
    }
    ~Application() { kill(SIGKILL); }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_DATA_HOME"), m_root + QStringLiteral("/data"));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_root + QStringLiteral("/config"));
        environment.insert(QStringLiteral("TARVEL_APP_PATH"), kTarvel);
        environment.insert(QStringLiteral("VISUAL"), kTarvelEdit);
        environment.insert(QStringLiteral("EDITOR"), kTarvelEdit);
        return environment;
    }

    void start()
    {
        m_process = std::make_unique<QProcess>();
        m_process->setProcessEnvironment(environment());
        m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process->start(kTarvel, {});
        QVERIFY(m_process->waitForStarted());
        // The tray icon is the last thing start-up makes.
        QTRY_VERIFY_WITH_TIMEOUT(!trayIconWindow().isEmpty(), 10000);
    }

    qint64 pid() const { return m_process ? m_process->processId() : 0; }

    QString trayIconWindow() const
    {
        for (const QString &id : visibleWindows()) {
            if (geometry(id).y < 28)
                return id;
        }
        return {};
    }

    QStringList visibleWindows() const
    {
        return xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--pid"),
                        QString::number(pid())})
            .split(u'\n', Qt::SkipEmptyParts);
    }

    // The visible composer panel, if one is up.
    QString composerWindow() const
    {
        QString found;
        for (const QString &id : visibleWindows()) {
            const QString name = xdotool({QStringLiteral("getwindowname"), id});
            if (name.startsWith(u"Tarvel Composer") || name.startsWith(u"Tarvel Quick Task"))
                found = id;
        }
        return found;
    }

    QString waitForComposer() const
    {
        QString id;
        [&] {
            QTRY_VERIFY_WITH_TIMEOUT(!(id = composerWindow()).isEmpty(), 10000);
        }();
        QTest::qWait(300); // let activation settle before typing
        return id;
    }

    bool waitForExit(int timeoutMs) { return m_process->waitForFinished(timeoutMs); }

    void kill(int signal)
    {
        if (m_process && m_process->state() != QProcess::NotRunning) {
            ::kill(pid_t(m_process->processId()), signal);
            m_process->waitForFinished(5000);
        }
    }

    QString dataFolder() const { return m_root + QStringLiteral("/data/Tarvel"); }

private:
    QString m_root;
    std::unique_ptr<QProcess> m_process;
};

// A helper run as a terminal editor would run it, without a terminal.
std::unique_ptr<QProcess> startHelper(const Application &app, const QString &file)
{
    auto helper = std::make_unique<QProcess>();
    helper->setProcessEnvironment(app.environment());
    helper->start(kTarvelEdit, {file});
    helper->waitForStarted();
    return helper;
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void screenshot(const QString &name)
{
    QDir().mkpath(kArtifacts);
    const QString helper = qEnvironmentVariable("TARVEL_DESKTOP_SCREENSHOT");
    if (!helper.isEmpty())
        run(helper, {kArtifacts + u'/' + name + QStringLiteral(".png")});
}

void type(const QString &text)
{
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("10"), text});
}

void key(const QString &keys)
{
    xdotool({QStringLiteral("key"), keys});
}
} // namespace

class AppEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
    }

    void gitCommitThroughTheComposer()
    {
        QTemporaryDir root;
        Application app(root.path());
        app.start();
        const QString repo = root.filePath(QStringLiteral("repo"));
        QVERIFY(QDir().mkpath(repo));
        run(QStringLiteral("git"),
            {QStringLiteral("-C"), repo, QStringLiteral("init"), QStringLiteral("-q")});
        const QString status = root.filePath(QStringLiteral("status"));

        // xterm runs the shell in a session of its own: the helper's terminal is the xterm.
        QProcess xterm;
        xterm.setProcessEnvironment(app.environment());
        const QString script = QStringLiteral("cd '%1' && git -c user.name=T -c user.email=t@example.invalid "
                                              "commit --allow-empty -q; echo $? > '%2'; sleep 60")
                                   .arg(repo, status);
        xterm.start(QStringLiteral("xterm"),
                    {QStringLiteral("-geometry"), QStringLiteral("90x30+150+120"), QStringLiteral("-e"),
                     QStringLiteral("sh"), QStringLiteral("-c"), script});
        QVERIFY(xterm.waitForStarted());
        const QString composer = app.waitForComposer();
        screenshot(QStringLiteral("composer-over-xterm"));

        // Over the xterm: centred on it, its bottom 20 pixels above the xterm's bottom.
        const QStringList xtermWindows =
            xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--pid"),
                     QString::number(xterm.processId())})
                .split(u'\n', Qt::SkipEmptyParts);
        QVERIFY(!xtermWindows.isEmpty());
        const Geometry terminal = outerGeometry(xtermWindows.constFirst());
        const Geometry panel = geometry(composer);
        QVERIFY2(
            qAbs(panel.centerX() - terminal.centerX()) <= 2,
            qPrintable(QStringLiteral("panel %1 terminal %2").arg(panel.centerX()).arg(terminal.centerX())));
        QVERIFY2(
            qAbs(panel.bottom() - (terminal.bottom() - 20)) <= 2,
            qPrintable(QStringLiteral("panel %1 terminal %2").arg(panel.bottom()).arg(terminal.bottom())));
        QCOMPARE(activeWindow(), composer);

        type(QStringLiteral("Fix the parser"));
        screenshot(QStringLiteral("composer-typed"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_COMPARE_WITH_TIMEOUT(readFile(status).trimmed(), QByteArray("0"), 10000);
        const QString message =
            run(QStringLiteral("git"), {QStringLiteral("-C"), repo, QStringLiteral("log"),
                                        QStringLiteral("-1"), QStringLiteral("--format=%B")});
        QCOMPARE(message, QStringLiteral("Fix the parser"));
        // The focus goes back to the terminal that asked.
        QTRY_COMPARE_WITH_TIMEOUT(activeWindow(), xtermWindows.constFirst(), 5000);
        QVERIFY(app.composerWindow().isEmpty());

        // Escape cancels: git aborts and the message file keeps git's own text.
        QFile::remove(status);
        xterm.kill();
        xterm.waitForFinished();
        const QString cancelScript =
            QStringLiteral("cd '%1' && git -c user.name=T -c user.email=t@example.invalid "
                           "commit --allow-empty -q; echo $? > '%2'; cp .git/COMMIT_EDITMSG "
                           "'%2.msg'; sleep 60")
                .arg(repo, status);
        xterm.start(QStringLiteral("xterm"),
                    {QStringLiteral("-geometry"), QStringLiteral("90x30+150+120"), QStringLiteral("-e"),
                     QStringLiteral("sh"), QStringLiteral("-c"), cancelScript});
        app.waitForComposer();
        type(QStringLiteral("never mind"));
        key(QStringLiteral("Escape"));
        QTRY_VERIFY_WITH_TIMEOUT(!readFile(status).trimmed().isEmpty(), 10000);
        QVERIFY(readFile(status).trimmed() != "0");
        QVERIFY(!readFile(status + QStringLiteral(".msg")).contains("never mind"));
        QCOMPARE(run(QStringLiteral("git"), {QStringLiteral("-C"), repo, QStringLiteral("rev-list"),
                                             QStringLiteral("--count"), QStringLiteral("HEAD")}),
                 QStringLiteral("1"));
        xterm.kill();
        xterm.waitForFinished();
    }

    void requestsQueueOldestFirst()
    {
        QTemporaryDir root;
        Application app(root.path());
        app.start();
        const QString first = root.filePath(QStringLiteral("first.txt"));
        const QString second = root.filePath(QStringLiteral("second.txt"));
        writeFile(first, "first:");
        writeFile(second, "second:");
        auto firstHelper = startHelper(app, first);
        app.waitForComposer();
        auto secondHelper = startHelper(app, second);
        QTest::qWait(500);

        type(QStringLiteral(" A"));
        key(QStringLiteral("ctrl+Return"));
        QVERIFY(firstHelper->waitForFinished(10000));
        QCOMPARE(firstHelper->exitCode(), 0);
        // The queued request follows without any new notification.
        app.waitForComposer();
        type(QStringLiteral(" B"));
        key(QStringLiteral("ctrl+Return"));
        QVERIFY(secondHelper->waitForFinished(10000));
        QCOMPARE(readFile(first), QByteArray("first: A"));
        QCOMPARE(readFile(second), QByteArray("second: B"));
    }

    void malformedAndAnsweredFilesAreNeverShown()
    {
        QTemporaryDir root;
        Application app(root.path());
        qputenv("XDG_DATA_HOME", (root.path() + QStringLiteral("/data")).toUtf8());
        FileStore::ensureDirectoriesExist();
        DataFile::write(QDir(FileStore::requestsDirectory()).filePath(QStringLiteral("garbage.json")),
                        "{ nope");
        const ComposerRequest answered{
            QUuid::createUuid(), QDateTime::currentDateTimeUtc(), {}, QStringLiteral("x"), {}, {}, {}};
        RequestFileIO::writeRequest(answered);
        RequestFileIO::writeResponse({answered.id, QDateTime::currentDateTimeUtc(),
                                      ComposerResponse::Disposition::submitted, QStringLiteral("done")});

        app.start();
        QTRY_VERIFY_WITH_TIMEOUT(RequestFileIO::pendingRequestURLs().isEmpty(), 5000);
        QTest::qWait(500);
        screenshot(QStringLiteral("after-malformed"));
        QVERIFY(app.composerWindow().isEmpty());
        const QStringList quarantined = QDir(FileStore::malformedRequestsDirectory()).entryList(QDir::Files);
        QCOMPARE(quarantined.size(), 1);
        QVERIFY(quarantined.constFirst().startsWith(QStringLiteral("garbage-invalid-")));
        QVERIFY(RequestFileIO::responseExists(answered.id)); // left for its helper

        const QByteArray log =
            readFile(QDir(FileStore::baseDirectory()).filePath(QStringLiteral("Errors/errors.json")));
        QVERIFY(log.contains("Ignored malformed pending request."));
        QVERIFY(log.contains(
            "No cancellation response could be written because the filename was not a valid UUID. "
            "Moved the request to " +
            quarantined.constFirst().toUtf8() + "."));
        qunsetenv("XDG_DATA_HOME");
    }

    void quitWithAWaitingRequestCancelsIt()
    {
        QTemporaryDir root;
        Application app(root.path());
        app.start();
        const QString file = root.filePath(QStringLiteral("edit.txt"));
        writeFile(file, "keep this");
        auto helper = startHelper(app, file);
        app.waitForComposer();

        // Quit from the tray menu: the last item.
        const Geometry icon = geometry(app.trayIconWindow());
        xdotool({QStringLiteral("mousemove"), QString::number(icon.centerX()),
                 QString::number(icon.y + icon.height / 2), QStringLiteral("click"), QStringLiteral("1")});
        QTest::qWait(700);
        screenshot(QStringLiteral("status-menu"));
        key(QStringLiteral("Up"));
        key(QStringLiteral("Return"));
        QTest::qWait(800);
        screenshot(QStringLiteral("quit-confirmation"));
        key(QStringLiteral("Return")); // "Quit" is the default button
        QVERIFY(app.waitForExit(10000));

        QVERIFY(helper->waitForFinished(10000));
        QCOMPARE(helper->exitCode(), 1);
        QVERIFY(helper->readAllStandardError().contains("tarvel-edit: editing cancelled"));
        QCOMPARE(readFile(file), QByteArray("keep this"));
    }

    void waitingRequestsSurviveACrash()
    {
        QTemporaryDir root;
        Application app(root.path());
        app.start();
        const QString one = root.filePath(QStringLiteral("one.txt"));
        const QString two = root.filePath(QStringLiteral("two.txt"));
        writeFile(one, "one");
        writeFile(two, "two");
        auto firstHelper = startHelper(app, one);
        app.waitForComposer();
        auto secondHelper = startHelper(app, two);
        QTest::qWait(500);
        app.kill(SIGKILL);

        app.start();
        app.waitForComposer();
        type(QStringLiteral("!"));
        key(QStringLiteral("ctrl+Return"));
        QVERIFY(firstHelper->waitForFinished(10000));
        app.waitForComposer();
        type(QStringLiteral("?"));
        key(QStringLiteral("ctrl+Return"));
        QVERIFY(secondHelper->waitForFinished(10000));
        QCOMPARE(readFile(one), QByteArray("one!"));
        QCOMPARE(readFile(two), QByteArray("two?"));
    }
};

QTEST_GUILESS_MAIN(AppEndToEndTest)
#include "tst_app_e2e.moc"
