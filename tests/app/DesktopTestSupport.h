#pragma once

// What the desktop tests share: xdotool and xwininfo wrappers, screenshots, an X clipboard
// owner, file drags from another process, and a running copy of tarvel with its own folders
// (and the fake backends on its PATH when given). It drives the built programs only, never
// the product's code. Include it from a test that runs inside tests/e2e/desktop-session.sh.
#include "fakebackends/FakeBackends.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QtTest>

#include <csignal>
#include <functional>
#include <memory>

namespace desktop_test {
// A session that runs the test as another user (desktop-session.sh --wayland) hands it the programs
// where that user can run them, and a folder for screenshots it can write.
inline QString fromSession(const char *variable, const QString &name, const QString &built)
{
    const QString folder = qEnvironmentVariable(variable);
    return folder.isEmpty() ? built : name.isEmpty() ? folder : folder + u'/' + name;
}
inline const QString kTarvel =
    fromSession("TARVEL_TEST_PROGRAMS", QStringLiteral("tarvel"), QStringLiteral(TARVEL_APP_PATH));
inline const QString kTarvelEdit =
    fromSession("TARVEL_TEST_PROGRAMS", QStringLiteral("tarvel-edit"), QStringLiteral(TARVEL_EDIT_PATH));
inline const QString kArtifacts =
    fromSession("TARVEL_TEST_ARTIFACTS", {}, QStringLiteral(TARVEL_ARTIFACTS_DIR));
inline const QString kTestData = QStringLiteral(TARVEL_TEST_DATA_DIR);

inline QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

inline QString xdotool(const QStringList &arguments)
{
    return run(QStringLiteral("xdotool"), arguments);
}

struct Geometry {
    int x = 0, y = 0, width = 0, height = 0;
    int right() const { return x + width; }
    int bottom() const { return y + height; }
    int centerX() const { return x + width / 2; }
    int centerY() const { return y + height / 2; }
};

// The client area, as xwininfo reports it (xdotool counts the frame twice).
inline Geometry geometry(const QString &windowId)
{
    const QString info = run(QStringLiteral("xwininfo"), {QStringLiteral("-id"), windowId});
    const auto field = [&](const QString &label) {
        const QRegularExpression pattern(label + QStringLiteral(":\\s+(-?\\d+)"));
        return pattern.match(info).captured(1).toInt();
    };
    return {field(QStringLiteral("Absolute upper-left X")), field(QStringLiteral("Absolute upper-left Y")),
            field(QStringLiteral("Width")), field(QStringLiteral("Height"))};
}

inline QStringList windowsOf(qint64 pid)
{
    return xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--pid"),
                    QString::number(pid)})
        .split(u'\n', Qt::SkipEmptyParts);
}

inline void screenshot(const QString &name, const QString &window = QString())
{
    QDir().mkpath(kArtifacts);
    const QString helper = qEnvironmentVariable("TARVEL_DESKTOP_SCREENSHOT");
    QStringList arguments{kArtifacts + u'/' + name + QStringLiteral(".png")};
    if (!window.isEmpty())
        arguments.append(window);
    if (!helper.isEmpty())
        run(helper, arguments);
}

inline void type(const QString &text)
{
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("10"), text});
}

inline void key(const QString &keys)
{
    xdotool({QStringLiteral("key"), keys});
}

inline void click(int x, int y)
{
    xdotool({QStringLiteral("mousemove"), QString::number(x), QString::number(y), QStringLiteral("click"),
             QStringLiteral("1")});
}

inline void activate(const QString &window)
{
    xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), window});
}

inline void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Owns the X clipboard with the given content, as a copy in another application would.
class ClipboardOwner final {
public:
    ClipboardOwner(const QString &mimeType, const QByteArray &content)
    {
        if (m_content.open()) {
            m_content.write(content);
            m_content.flush();
        }
        m_process.start(QStringLiteral("xclip"),
                        {QStringLiteral("-quiet"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
                         QStringLiteral("-t"), mimeType, QStringLiteral("-i"), m_content.fileName()});
        m_process.waitForStarted();
        const auto offered = [&] {
            return run(QStringLiteral("xclip"),
                       {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
                        QStringLiteral("-t"), QStringLiteral("TARGETS")})
                .split(u'\n')
                .contains(mimeType);
        };
        if (!QTest::qWaitFor(offered, 5000))
            qWarning("xclip does not offer %s", qPrintable(mimeType));
    }
    ~ClipboardOwner()
    {
        if (m_process.state() != QProcess::NotRunning) {
            ::kill(pid_t(m_process.processId()), SIGTERM);
            m_process.waitForFinished(3000);
        }
    }

private:
    QTemporaryFile m_content;
    QProcess m_process;
};

inline QString clipboardText()
{
    return run(QStringLiteral("xclip"),
               {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard")});
}

// Pastes files into the focused window as a file manager's copy offers them. The clipboard
// stays theirs while the returned owner lives.
inline std::unique_ptr<ClipboardOwner> pasteFiles(const QStringList &paths)
{
    QByteArray uriList;
    for (const QString &path : paths)
        uriList += QUrl::fromLocalFile(path).toEncoded() + "\r\n";
    auto owner = std::make_unique<ClipboardOwner>(QStringLiteral("text/uri-list"), uriList);
    key(QStringLiteral("ctrl+v"));
    QTest::qWait(300);
    return owner;
}

// Drags files from another process to a point on the screen over XDND, as from a file
// manager: the drag source is pressed, the pointer travels in small steps (XDND follows the
// motion events) and is released there. Returns whether the target took the drop.
inline bool dragFiles(const QStringList &paths, const QPoint &target)
{
    QProcess source;
    source.start(QStringLiteral(TARVEL_DRAG_SOURCE_PATH),
                 QStringList{QStringLiteral("--at"), QStringLiteral("40,80")} + paths);
    if (!source.waitForStarted())
        return false;
    const QString window =
        xdotool({QStringLiteral("search"), QStringLiteral("--sync"), QStringLiteral("--onlyvisible"),
                 QStringLiteral("--pid"), QString::number(source.processId())})
            .section(u'\n', 0, 0);
    if (window.isEmpty())
        return false;
    const Geometry from = geometry(window);
    const QPoint start(from.centerX(), from.centerY());
    const auto moveTo = [](const QPoint &point, const QString &pause) {
        return QStringList{QStringLiteral("mousemove"), QString::number(point.x()),
                           QString::number(point.y()), QStringLiteral("sleep"), pause};
    };
    QStringList gesture = moveTo(start, QStringLiteral("0.3"));
    gesture << QStringLiteral("mousedown") << QStringLiteral("1") << QStringLiteral("sleep")
            << QStringLiteral("0.3");
    constexpr int steps = 24;
    for (int step = 1; step <= steps; ++step)
        gesture << moveTo(start + (target - start) * step / steps, QStringLiteral("0.04"));
    // A last small move once the target has answered the ones before.
    gesture << moveTo(target + QPoint(1, 0), QStringLiteral("0.3")) << moveTo(target, QStringLiteral("0.5"));
    gesture << QStringLiteral("mouseup") << QStringLiteral("1");
    xdotool(gesture);
    if (!source.waitForFinished(10000)) {
        source.kill();
        source.waitForFinished();
        return false;
    }
    return source.exitStatus() == QProcess::NormalExit && source.exitCode() == 0;
}

// The values that follow each occurrence of option in a backend's arguments.
inline QStringList valuesOf(const QStringList &arguments, const QString &option)
{
    QStringList values;
    for (qsizetype index = 0; index + 1 < arguments.size(); ++index) {
        if (arguments.at(index) == option)
            values.append(arguments.at(++index));
    }
    return values;
}

// The paths an "Attached Paths" block in a prompt lists, in its order.
inline QStringList attachedPaths(const QString &prompt)
{
    QStringList paths;
    for (const QString &line : prompt.section(QStringLiteral("\n\n"), 0, 1).split(u'\n')) {
        if (line.startsWith(QStringLiteral("- ")))
            paths.append(line.mid(2));
    }
    return paths;
}

// A running copy of the application with its own home, data and settings folders, tarvel-edit
// as its editor, and the fake backends first on its PATH when given.
class Application final {
public:
    Application(const QString &root, const FakeBackends &fakes, const QMap<QString, QString> &extra = {})
        : Application(root, extra)
    {
        m_fakes = &fakes;
    }
    explicit Application(const QString &root, const QMap<QString, QString> &extra = {})
        : m_root(root)
        , m_extra(extra)
    {
        QDir().mkpath(home() + QStringLiteral("/.codex"));
        QFile::copy(kTestData + QStringLiteral("/codex/models_cache.json"),
                    home() + QStringLiteral("/.codex/models_cache.json"));
        // The editor set-up prompt would stand in front of every test's windows.
        QSettings(settingsFile(), QSettings::IniFormat)
            .setValue(QStringLiteral("EditorIntegrationPromptSuppressed"), true);
    }
    // For the tests of the prompt itself; call before start().
    void allowEditorSetupPrompt() const
    {
        QSettings(settingsFile(), QSettings::IniFormat)
            .remove(QStringLiteral("EditorIntegrationPromptSuppressed"));
    }
    ~Application() { kill(SIGKILL); }

    QString home() const { return m_root + QStringLiteral("/home"); }
    QString dataFolder() const { return m_root + QStringLiteral("/data/Tarvel"); }
    QString settingsFile() const { return m_root + QStringLiteral("/config/Tarvel/Tarvel.conf"); }
    QString importFolder() const { return dataFolder() + QStringLiteral("/ImportedAttachments"); }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), home());
        environment.insert(QStringLiteral("XDG_DATA_HOME"), m_root + QStringLiteral("/data"));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_root + QStringLiteral("/config"));
        environment.insert(QStringLiteral("SHELL"), QStringLiteral("/bin/sh"));
        environment.insert(QStringLiteral("TARVEL_APP_PATH"), kTarvel);
        environment.insert(QStringLiteral("VISUAL"), kTarvelEdit);
        environment.insert(QStringLiteral("EDITOR"), kTarvelEdit);
        if (m_fakes) {
            environment.insert(QStringLiteral("PATH"), m_fakes->searchPath());
            environment.insert(QStringLiteral("FAKE_RECORD_DIR"), m_fakes->recordDirectory());
        }
        for (auto it = m_extra.cbegin(); it != m_extra.cend(); ++it)
            environment.insert(it.key(), it.value());
        return environment;
    }

    void start()
    {
        m_process = std::make_unique<QProcess>();
        m_process->setProcessEnvironment(environment());
        m_process->setProcessChannelMode(QProcess::ForwardedChannels);
        m_process->start(kTarvel, {});
        QVERIFY(m_process->waitForStarted());
        // The tray icon is the last thing start-up makes.
        QTRY_VERIFY_WITH_TIMEOUT(hasTrayIcon(), 10000);
    }

    // Takes on the copy that tarvel-edit started, as on a first use: found by its home folder.
    void adoptStartedCopy(bool waitForTrayIcon = true)
    {
        const QByteArray home = "HOME=" + this->home().toUtf8();
        const auto startedCopy = [&] {
            for (const QString &pid :
                 run(QStringLiteral("pgrep"), {QStringLiteral("-x"), QStringLiteral("-f"), kTarvel})
                     .split(u'\n', Qt::SkipEmptyParts)) {
                QFile environment(QStringLiteral("/proc/%1/environ").arg(pid));
                if (environment.open(QIODevice::ReadOnly) && environment.readAll().split('\0').contains(home))
                    return pid.toLongLong();
            }
            return qint64(0);
        };
        QTRY_VERIFY_WITH_TIMEOUT((m_adoptedPid = startedCopy()) > 0, 10000);
        if (waitForTrayIcon)
            QTRY_VERIFY_WITH_TIMEOUT(hasTrayIcon(), 10000);
    }

    // On X11 the icon's window in the XEmbed tray; on Wayland a StatusNotifierItem that the tray's host
    // (swaybar) lists, registered from this process's bus connection.
    bool hasTrayIcon() const
    {
        if (qEnvironmentVariable("QT_QPA_PLATFORM") != u"wayland")
            return !trayIconWindow().isEmpty();
        const auto ask = [](const QString &destination, const QString &path, const QStringList &call) {
            return run(QStringLiteral("dbus-send"),
                       QStringList{QStringLiteral("--session"), QStringLiteral("--print-reply"),
                                   QStringLiteral("--dest=") + destination, path} +
                           call);
        };
        const QString items =
            ask(QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("/StatusNotifierWatcher"),
                {QStringLiteral("org.freedesktop.DBus.Properties.Get"),
                 QStringLiteral("string:org.kde.StatusNotifierWatcher"),
                 QStringLiteral("string:RegisteredStatusNotifierItems")});
        static const QRegularExpression connection(QStringLiteral("string \"(:[0-9.]+)/"));
        for (auto match = connection.globalMatch(items); match.hasNext();) {
            if (ask(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/"),
                    {QStringLiteral("org.freedesktop.DBus.GetConnectionUnixProcessID"),
                     QStringLiteral("string:") + match.next().captured(1)})
                    .endsWith(u' ' + QString::number(pid())))
                return true;
        }
        return false;
    }

    bool waitForExit(int milliseconds) { return m_process->waitForFinished(milliseconds); }

    void kill(int signal)
    {
        if (m_process && m_process->state() != QProcess::NotRunning) {
            ::kill(pid_t(m_process->processId()), signal);
            m_process->waitForFinished(5000);
        }
        if (const qint64 adopted = std::exchange(m_adoptedPid, 0); adopted > 0) {
            ::kill(pid_t(adopted), signal);
            static_cast<void>(QTest::qWaitFor(
                [&] { return !QFileInfo::exists(QStringLiteral("/proc/%1").arg(adopted)); }, 5000));
        }
    }

    qint64 pid() const { return m_adoptedPid > 0 ? m_adoptedPid : m_process ? m_process->processId() : 0; }
    QStringList visibleWindows() const { return windowsOf(pid()); }

    QString trayIconWindow() const
    {
        for (const QString &id : visibleWindows()) {
            if (geometry(id).y < 28)
                return id;
        }
        return {};
    }

    static bool isComposer(const QString &window)
    {
        const QString name = xdotool({QStringLiteral("getwindowname"), window});
        return name.startsWith(u"Tarvel Quick Task") || name.startsWith(u"Tarvel Composer");
    }

    // The visible composer panel, editor or scratch, if one is up.
    QString composerWindow() const
    {
        for (const QString &id : visibleWindows()) {
            if (isComposer(id))
                return id;
        }
        return {};
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

    // Opens a scratch composer with open() and returns it once the fake backend has answered
    // its version check (tests that wait for it give the check a delay) and the answer has
    // reached the composer through the event loop. A check that passed before is kept, so
    // then no check runs.
    QString readyComposerAfter(const std::function<void()> &open,
                               const QString &backend = QStringLiteral("codex")) const
    {
        const QString answered = backend + QStringLiteral(".version-answered");
        const QString kept =
            QString::fromUtf8(readFile(dataFolder() + QStringLiteral("/Backends/version-checks.json")));
        if (!kept.contains(QStringLiteral("\"%1\"").arg(backend)))
            m_fakes->forget(answered);
        open();
        const QString composer = waitForComposer();
        [&] {
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(m_fakes->recordPath(answered)), 10000);
        }();
        QTest::qWait(500);
        return composer;
    }
    // A second start asks this one for a scratch composer and exits.
    QString openReadyComposer(const QString &backend = QStringLiteral("codex")) const
    {
        return readyComposerAfter(
            [this] {
                QProcess second;
                second.setProcessEnvironment(environment());
                second.start(kTarvel, {});
                QVERIFY(second.waitForFinished(10000));
                QCOMPARE(second.exitCode(), 0);
            },
            backend);
    }

    // The one window besides the given ones and the tray icon: an alert.
    QString otherWindow(const QStringList &known) const
    {
        for (const QString &id : visibleWindows()) {
            if (!known.contains(id) && id != trayIconWindow())
                return id;
        }
        return {};
    }

    // The open tray menu: a visible window below the tray that is no composer.
    QString menuWindow() const
    {
        for (const QString &id : visibleWindows()) {
            if (geometry(id).y >= 28 && !isComposer(id))
                return id;
        }
        return {};
    }

    QString openMenu() const
    {
        const Geometry icon = geometry(trayIconWindow());
        click(icon.centerX(), icon.centerY());
        QString id;
        [&] {
            QTRY_VERIFY_WITH_TIMEOUT(!(id = menuWindow()).isEmpty(), 10000);
        }();
        QTest::qWait(300); // the menu draws its rows after it maps
        return id;
    }

    void closeMenu() const
    {
        key(QStringLiteral("Escape"));
        QTRY_VERIFY_WITH_TIMEOUT(menuWindow().isEmpty(), 5000);
    }

    // "Quick Tasks" is the first item of the tray menu.
    QString openComposerFromMenu() const
    {
        openMenu();
        key(QStringLiteral("Down"));
        key(QStringLiteral("Return"));
        return waitForComposer();
    }

    QJsonArray sessions() const
    {
        return QJsonDocument::fromJson(readFile(dataFolder() + QStringLiteral("/QuickTasks/sessions.json")))
            .array();
    }
    QString sessionStatus(int index = 0) const
    {
        const QJsonArray list = sessions();
        return index < list.size() ? list.at(index).toObject().value(u"status").toString() : QString();
    }

private:
    QString m_root;
    const FakeBackends *m_fakes = nullptr;
    QMap<QString, QString> m_extra;
    std::unique_ptr<QProcess> m_process;
    qint64 m_adoptedPid = 0;
};

inline QString activeWindow()
{
    return xdotool({QStringLiteral("getactivewindow")});
}

// A helper run as a terminal editor would run it, without a terminal (in the given folder, which
// its request names as its cwd).
inline std::unique_ptr<QProcess> startHelper(const Application &app, const QString &file,
                                             const QString &workingDirectory = QString())
{
    auto helper = std::make_unique<QProcess>();
    helper->setProcessEnvironment(app.environment());
    helper->setWorkingDirectory(workingDirectory);
    helper->start(kTarvelEdit, {file});
    helper->waitForStarted();
    return helper;
}

// xterm runs the shell in a session of its own: the helper's terminal is the xterm.
inline void startXterm(QProcess &xterm, const Application &app, const QString &script)
{
    xterm.setProcessEnvironment(app.environment());
    xterm.start(QStringLiteral("xterm"),
                {QStringLiteral("-geometry"), QStringLiteral("90x30+150+120"), QStringLiteral("-e"),
                 QStringLiteral("sh"), QStringLiteral("-c"), script});
    QVERIFY(xterm.waitForStarted());
}

// `git commit` in an xterm, in the repository under root (made when new, with the given files
// added); its exit status lands in status().
class GitCommitInXterm final {
public:
    GitCommitInXterm(const QTemporaryDir &root, const Application &app, const QStringList &files = {})
        : m_repo(root.filePath(QStringLiteral("repo")))
        , m_status(root.filePath(QStringLiteral("status")))
    {
        QDir().mkpath(m_repo);
        QFile::remove(m_status);
        run(QStringLiteral("git"),
            {QStringLiteral("-C"), m_repo, QStringLiteral("init"), QStringLiteral("-q")});
        for (const QString &file : files) {
            writeFile(m_repo + u'/' + file, {});
            run(QStringLiteral("git"), {QStringLiteral("-C"), m_repo, QStringLiteral("add"), file});
        }
        startXterm(m_xterm, app,
                   QStringLiteral("cd '%1' && git -c user.name=T -c user.email=t@example.invalid commit "
                                  "--allow-empty -q; echo $? > '%2'; sleep 60")
                       .arg(m_repo, m_status));
    }
    ~GitCommitInXterm()
    {
        m_xterm.kill();
        m_xterm.waitForFinished();
    }

    const QProcess &xterm() const { return m_xterm; }
    const QString &repository() const { return m_repo; }
    QByteArray status() const { return readFile(m_status).trimmed(); }
    QString lastMessage() const
    {
        return run(QStringLiteral("git"), {QStringLiteral("-C"), m_repo, QStringLiteral("log"),
                                           QStringLiteral("-1"), QStringLiteral("--format=%B")});
    }

private:
    QString m_repo;
    QString m_status;
    QProcess m_xterm;
};
} // namespace desktop_test
