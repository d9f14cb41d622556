#pragma once

// What the desktop tests share: xdotool, xwininfo and xprop wrappers, screenshots, an X clipboard
// owner, file drags from another process, the window probe, and a running copy of tarvel with its
// own folders (and the fake backends on its PATH when given). It drives the built programs only,
// never the product's code. Include it from a test that runs inside tests/e2e/desktop-session.sh.
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
using namespace Qt::StringLiterals;

// A session that runs the test as another user (desktop-session.sh --wayland) hands it the programs
// where that user can run them, and a folder for screenshots it can write.
inline QString fromSession(const char *variable, const QString &name, const QString &built)
{
    const QString folder = qEnvironmentVariable(variable);
    return folder.isEmpty() ? built : name.isEmpty() ? folder : folder + u'/' + name;
}
inline const QString kTarvel =
    fromSession("TARVEL_TEST_PROGRAMS", u"tarvel"_s, QStringLiteral(TARVEL_APP_PATH));
inline const QString kTarvelEdit =
    fromSession("TARVEL_TEST_PROGRAMS", u"tarvel-edit"_s, QStringLiteral(TARVEL_EDIT_PATH));
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
    return run(u"xdotool"_s, arguments);
}

struct Geometry {
    int x = 0, y = 0, width = 0, height = 0;
    int right() const { return x + width; }
    int bottom() const { return y + height; }
    int centerX() const { return x + width / 2; }
    int centerY() const { return y + height / 2; }
    QRect rect() const { return {x, y, width, height}; }
};

// The client area, as xwininfo reports it (xdotool counts the frame twice).
inline Geometry geometry(const QString &windowId)
{
    const QString info = run(u"xwininfo"_s, {u"-id"_s, windowId});
    const auto field = [&](const QString &label) {
        return QRegularExpression(label + u":\\s+(-?\\d+)"_s).match(info).captured(1).toInt();
    };
    return {field(u"Absolute upper-left X"_s), field(u"Absolute upper-left Y"_s), field(u"Width"_s),
            field(u"Height"_s)};
}

// The client area with the window manager's frame around it, as _NET_FRAME_EXTENTS gives it.
inline QRect frameGeometry(const QString &windowId)
{
    QList<int> extents; // left, right, top, bottom
    for (const QString &part : run(u"xprop"_s, {u"-id"_s, windowId, u"_NET_FRAME_EXTENTS"_s})
                                   .section(u'=', 1)
                                   .split(u',', Qt::SkipEmptyParts))
        extents.append(part.trimmed().toInt());
    if (extents.size() != 4)
        extents = {0, 0, 0, 0};
    return geometry(windowId).rect().adjusted(-extents[0], -extents[2], extents[1], extents[3]);
}

// A rectangle as the window probe and sway's IPC write it: {"x", "y", "width", "height"}.
inline QRect rectOf(const QJsonValue &value)
{
    return {value[u"x"].toInt(), value[u"y"].toInt(), value[u"width"].toInt(), value[u"height"].toInt()};
}

// Asks tarvel's window probe, as an outside tool does, to write where the target window is to
// answerPath (the probe opens a closed window first).
inline void requestFrame(const QString &target, const QString &answerPath)
{
    run(u"dbus-send"_s,
        {u"--session"_s, u"--type=signal"_s, u"/zq/tarvel"_s, u"zq.tarvel.DistributedNotifications.Posted"_s,
         u"string:zq.tarvel.debug-window-request"_s,
         u"dict:string:string:target,%1,response,%2"_s.arg(target, answerPath)});
}

inline QStringList windowsOf(qint64 pid)
{
    return xdotool({u"search"_s, u"--onlyvisible"_s, u"--pid"_s, QString::number(pid)})
        .split(u'\n', Qt::SkipEmptyParts);
}

// Waits for find() to name a window and returns it (empty, with the test failed, if none came).
inline QString waitForWindow(const std::function<QString()> &find, int milliseconds = 10000)
{
    QString id;
    [&] {
        QTRY_VERIFY_WITH_TIMEOUT(!(id = find()).isEmpty(), milliseconds);
    }();
    return id;
}

// Through desktop-session.sh's screenshot helper, which makes the folder.
inline void screenshot(const QString &name, const QString &window = QString())
{
    QStringList arguments{kArtifacts + u'/' + name + u".png"_s};
    if (!window.isEmpty())
        arguments.append(window);
    if (const QString helper = qEnvironmentVariable("TARVEL_DESKTOP_SCREENSHOT"); !helper.isEmpty())
        run(helper, arguments);
}

inline void type(const QString &text)
{
    xdotool({u"type"_s, u"--delay"_s, u"10"_s, text});
}

inline void key(const QString &keys)
{
    xdotool({u"key"_s, keys});
}

inline void click(int x, int y)
{
    xdotool({u"mousemove"_s, QString::number(x), QString::number(y), u"click"_s, u"1"_s});
}

inline void activate(const QString &window)
{
    xdotool({u"windowactivate"_s, u"--sync"_s, window});
}

inline QString activeWindow()
{
    return xdotool({u"getactivewindow"_s});
}

// The editor's completion list: a window of its own that never takes the keyboard (an
// override-redirect one on X11, which carries no process id).
inline bool completionListShows()
{
    return !xdotool({u"search"_s, u"--onlyvisible"_s, u"--name"_s, u"^Tarvel Completions$"_s}).isEmpty();
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
        m_process.start(u"xclip"_s, {u"-quiet"_s, u"-selection"_s, u"clipboard"_s, u"-t"_s, mimeType, u"-i"_s,
                                     m_content.fileName()});
        m_process.waitForStarted();
        const auto offered = [&] {
            return run(u"xclip"_s, {u"-o"_s, u"-selection"_s, u"clipboard"_s, u"-t"_s, u"TARGETS"_s})
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
    return run(u"xclip"_s, {u"-o"_s, u"-selection"_s, u"clipboard"_s});
}

// Pastes files into the focused window as a file manager's copy offers them. The clipboard
// stays theirs while the returned owner lives.
inline std::unique_ptr<ClipboardOwner> pasteFiles(const QStringList &paths)
{
    QByteArray uriList;
    for (const QString &path : paths)
        uriList += QUrl::fromLocalFile(path).toEncoded() + "\r\n";
    auto owner = std::make_unique<ClipboardOwner>(u"text/uri-list"_s, uriList);
    key(u"ctrl+v"_s);
    QTest::qWait(300);
    return owner;
}

// Drags files from another process to a point on the screen over XDND, as from a file
// manager: the drag source is pressed, the pointer travels in small steps (XDND follows the
// motion events) and is released there. Returns whether the target took the drop.
inline bool dragFiles(const QStringList &paths, const QPoint &target)
{
    QProcess source;
    source.start(QStringLiteral(TARVEL_DRAG_SOURCE_PATH), QStringList{u"--at"_s, u"40,80"_s} + paths);
    if (!source.waitForStarted())
        return false;
    const QString window = xdotool({u"search"_s, u"--sync"_s, u"--onlyvisible"_s, u"--pid"_s,
                                    QString::number(source.processId())})
                               .section(u'\n', 0, 0);
    if (window.isEmpty())
        return false;
    const Geometry from = geometry(window);
    const QPoint start(from.centerX(), from.centerY());
    const auto moveTo = [](const QPoint &point, const QString &pause) {
        return QStringList{u"mousemove"_s, QString::number(point.x()), QString::number(point.y()), u"sleep"_s,
                           pause};
    };
    QStringList gesture = moveTo(start, u"0.3"_s) + QStringList{u"mousedown"_s, u"1"_s, u"sleep"_s, u"0.3"_s};
    constexpr int steps = 24;
    for (int step = 1; step <= steps; ++step)
        gesture << moveTo(start + (target - start) * step / steps, u"0.04"_s);
    // A last small move once the target has answered the ones before.
    gesture << moveTo(target + QPoint(1, 0), u"0.3"_s) << moveTo(target, u"0.5"_s) << u"mouseup"_s << u"1"_s;
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
    for (const QString &line : prompt.section(u"\n\n"_s, 0, 1).split(u'\n')) {
        if (line.startsWith(u"- "_s))
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
        QDir().mkpath(home() + u"/.codex"_s);
        QFile::copy(kTestData + u"/codex/models_cache.json"_s, home() + u"/.codex/models_cache.json"_s);
        // The editor set-up prompt would stand in front of every test's windows.
        setSetting(u"EditorIntegrationPromptSuppressed"_s, true);
    }
    // For the tests of the prompt itself; call before start().
    void allowEditorSetupPrompt() const { setSetting(u"EditorIntegrationPromptSuppressed"_s, {}); }
    ~Application() { kill(SIGKILL); }

    QString home() const { return m_root + u"/home"_s; }
    QString dataFolder() const { return m_root + u"/data/Tarvel"_s; }
    QString settingsFile() const { return m_root + u"/config/Tarvel/Tarvel.conf"_s; }
    QString importFolder() const { return dataFolder() + u"/ImportedAttachments"_s; }
    QVariant setting(const QString &key) const
    {
        return QSettings(settingsFile(), QSettings::IniFormat).value(key);
    }
    // Sets a setting before start(), or removes it with an invalid value.
    void setSetting(const QString &key, const QVariant &value) const
    {
        QSettings settings(settingsFile(), QSettings::IniFormat);
        value.isValid() ? settings.setValue(key, value) : settings.remove(key);
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QMap<QString, QString> own{{u"HOME"_s, home()},
                                         {u"XDG_DATA_HOME"_s, m_root + u"/data"_s},
                                         {u"XDG_CONFIG_HOME"_s, m_root + u"/config"_s},
                                         {u"SHELL"_s, u"/bin/sh"_s},
                                         {u"TARVEL_APP_PATH"_s, kTarvel},
                                         {u"VISUAL"_s, kTarvelEdit},
                                         {u"EDITOR"_s, kTarvelEdit}};
        for (const QMap<QString, QString> &variables : {own, fakeVariables(), m_extra}) {
            for (auto it = variables.cbegin(); it != variables.cend(); ++it)
                environment.insert(it.key(), it.value());
        }
        return environment;
    }

    void start()
    {
        QVERIFY2(qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY"),
                 "run through tests/e2e/desktop-session.sh");
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
                 run(u"pgrep"_s, {u"-x"_s, u"-f"_s, kTarvel}).split(u'\n', Qt::SkipEmptyParts)) {
                QFile environment(u"/proc/%1/environ"_s.arg(pid));
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
            return run(u"dbus-send"_s,
                       QStringList{u"--session"_s, u"--print-reply"_s, u"--dest="_s + destination, path} +
                           call);
        };
        const QString items =
            ask(u"org.kde.StatusNotifierWatcher"_s, u"/StatusNotifierWatcher"_s,
                {u"org.freedesktop.DBus.Properties.Get"_s, u"string:org.kde.StatusNotifierWatcher"_s,
                 u"string:RegisteredStatusNotifierItems"_s});
        static const QRegularExpression connection(u"string \"(:[0-9.]+)/"_s);
        for (auto match = connection.globalMatch(items); match.hasNext();) {
            if (ask(u"org.freedesktop.DBus"_s, u"/"_s,
                    {u"org.freedesktop.DBus.GetConnectionUnixProcessID"_s,
                     u"string:"_s + match.next().captured(1)})
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
            static_cast<void>(
                QTest::qWaitFor([&] { return !QFileInfo::exists(u"/proc/%1"_s.arg(adopted)); }, 5000));
        }
    }

    qint64 pid() const { return m_adoptedPid > 0 ? m_adoptedPid : m_process ? m_process->processId() : 0; }
    QStringList visibleWindows() const { return windowsOf(pid()); }

    // The first visible window of the application that wanted() accepts.
    QString window(const std::function<bool(const QString &)> &wanted) const
    {
        for (const QString &id : visibleWindows()) {
            if (wanted(id))
                return id;
        }
        return {};
    }
    QString trayIconWindow() const
    {
        return window([](const QString &id) { return geometry(id).y < 28; });
    }

    static bool isComposer(const QString &window)
    {
        const QString name = xdotool({u"getwindowname"_s, window});
        return name.startsWith(u"Tarvel Quick Task") || name.startsWith(u"Tarvel Composer");
    }

    // The visible composer panel, editor or scratch, if one is up.
    QString composerWindow() const { return window(&Application::isComposer); }

    QString waitForComposer() const
    {
        const QString id = waitForWindow([this] { return composerWindow(); });
        QTest::qWait(300); // let activation settle before typing
        return id;
    }

    // Opens a scratch composer with open() and returns it once the fake backend has answered its
    // version check (recorded, as the fakes here take a moment for it) and the answer has reached
    // the composer through the event loop. A check that passed before is kept, so then none runs.
    QString readyComposerAfter(const std::function<void()> &open, const QString &backend = u"codex"_s) const
    {
        const QString answered = backend + u".version-answered"_s;
        const QString kept = QString::fromUtf8(readFile(dataFolder() + u"/Backends/version-checks.json"_s));
        if (!kept.contains(u"\"%1\""_s.arg(backend)))
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
    QString openReadyComposer(const QString &backend = u"codex"_s) const
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
        const QString tray = trayIconWindow();
        return window([&](const QString &id) { return !known.contains(id) && id != tray; });
    }

    // The open tray menu: a visible window below the tray that is no composer.
    QString menuWindow() const
    {
        return window([](const QString &id) { return geometry(id).y >= 28 && !isComposer(id); });
    }

    QString openMenu() const
    {
        const Geometry icon = geometry(trayIconWindow());
        click(icon.centerX(), icon.centerY());
        const QString id = waitForWindow([this] { return menuWindow(); });
        QTest::qWait(300); // the menu draws its rows after it maps
        return id;
    }

    void closeMenu() const
    {
        key(u"Escape"_s);
        QTRY_VERIFY_WITH_TIMEOUT(menuWindow().isEmpty(), 5000);
    }

    // Picks the tray menu's item that many rows down with the keyboard: 1 is "Quick Tasks", -1 "Quit".
    void chooseFromMenu(int item) const
    {
        openMenu();
        for (int step = 0; step < std::abs(item); ++step)
            key(item > 0 ? u"Down"_s : u"Up"_s);
        key(u"Return"_s);
    }

    QString openComposerFromMenu() const
    {
        chooseFromMenu(1);
        return waitForComposer();
    }

    QJsonArray sessions() const
    {
        return QJsonDocument::fromJson(readFile(dataFolder() + u"/QuickTasks/sessions.json"_s)).array();
    }
    QString sessionStatus(int index = 0) const
    {
        return sessions().at(index).toObject().value(u"status").toString();
    }

private:
    QMap<QString, QString> fakeVariables() const
    {
        if (!m_fakes)
            return {};
        // A version check that takes a moment records its answer, which readyComposerAfter waits for.
        QMap<QString, QString> variables{{u"PATH"_s, m_fakes->searchPath()},
                                         {u"FAKE_RECORD_DIR"_s, m_fakes->recordDirectory()}};
        for (const QString &name : {u"CODEX"_s, u"CLAUDE"_s, u"OPENCODE"_s})
            variables.insert(u"FAKE_%1_VERSION_DELAY"_s.arg(name), u"0.1"_s);
        return variables;
    }

    QString m_root;
    const FakeBackends *m_fakes = nullptr;
    QMap<QString, QString> m_extra;
    std::unique_ptr<QProcess> m_process;
    qint64 m_adoptedPid = 0;
};

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

// xterm runs the shell in a session of its own: the helper's terminal is the xterm. The
// environment is the application's unless given.
inline void startXterm(QProcess &xterm, const Application &app, const QString &script,
                       const QString &shell = u"sh"_s,
                       const std::optional<QProcessEnvironment> &environment = std::nullopt)
{
    xterm.setProcessEnvironment(environment.value_or(app.environment()));
    QStringList command{u"-geometry"_s, u"90x30+150+120"_s, u"-e"_s, shell};
    if (shell == u"bash")
        command << u"-i"_s; // reads .bashrc as a terminal the user opens
    xterm.start(u"xterm"_s, command << u"-c"_s << script);
    QVERIFY(xterm.waitForStarted());
}

// An xterm that ends with the test; startXterm() starts it.
class Xterm final : public QProcess {
public:
    ~Xterm() override
    {
        kill();
        waitForFinished();
    }
    QString window() const { return windowsOf(processId()).value(0); }
};

// `git commit` in an xterm, in the repository under root (made when new, with the given files
// added); its exit status lands in status(). before runs first in the same shell.
class GitCommitInXterm final {
public:
    GitCommitInXterm(const QTemporaryDir &root, const Application &app, const QStringList &files = {})
        : GitCommitInXterm(root, app, files, {}, u"sh"_s, std::nullopt)
    {
    }
    GitCommitInXterm(const QTemporaryDir &root, const Application &app, const QStringList &files,
                     const QString &before, const QString &shell,
                     const std::optional<QProcessEnvironment> &environment)
        : m_repo(root.filePath(u"repo"_s))
        , m_status(root.filePath(u"status"_s))
    {
        QDir().mkpath(m_repo);
        QFile::remove(m_status);
        run(u"git"_s, {u"-C"_s, m_repo, u"init"_s, u"-q"_s});
        for (const QString &file : files) {
            writeFile(m_repo + u'/' + file, {});
            run(u"git"_s, {u"-C"_s, m_repo, u"add"_s, file});
        }
        startXterm(m_xterm, app,
                   u"cd '%1' && %2 git -c user.name=T -c user.email=t@example.invalid commit "
                   "--allow-empty -q; echo $? > '%3'; sleep 60"_s.arg(m_repo, before, m_status),
                   shell, environment);
    }
    QString terminalWindow() const { return m_xterm.window(); }
    const QString &repository() const { return m_repo; }
    QByteArray status() const { return readFile(m_status).trimmed(); }
    QString lastMessage() const
    {
        return run(u"git"_s, {u"-C"_s, m_repo, u"log"_s, u"-1"_s, u"--format=%B"_s});
    }

private:
    QString m_repo;
    QString m_status;
    Xterm m_xterm;
};
} // namespace desktop_test
