// Tarvel against other editors a terminal tool can run as $VISUAL, the same way for each: the
// time from the editor command starting to its window being mapped and holding the focus (the
// window manager's _NET_ACTIVE_WINDOW names it), seen through X events. Then the benchmark types
// a line, saves and leaves by the editor's own keys, waits for the command to exit and checks
// that the file holds the line. The contenders take turns, run by run and in alternating order,
// after one round that is not counted; the table gives medians and each editor's time as a
// multiple of Tarvel's.
//
// Use bench/editor-race.sh, which installs the other editors, starts the headless desktop and
// the Emacs server, and passes:
//   bench_editor_race --runs N --tarvel PATH --helper PATH [--helper-before PATH]
//                     [--tarvel-before PATH] [--emacs-server NAME]
// Editors that are not installed (or an Emacs server not named) are left out. With
// --tarvel-before, the earlier helper starts (or, warm, finds running) the earlier application.
#include "BenchDesktop.h"
#include "BenchStatistics.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>

using bench::Display;

namespace {

constexpr int kWindowTimeoutMs = 20000;
const QString kServiceName = QStringLiteral("zq.tarvel");

struct Contender {
    QString name;
    QStringList command; // the file is appended
    // Part of the editor window's title: the file's name, or the composer's title.
    std::function<QByteArray(const QString &file)> title;
    // Types the line, then saves and leaves.
    std::function<void(Display &, const QByteArray &line)> keys;
    // Tarvel is not running when the command starts; the helper starts it.
    bool cold = false;
    // The application the helper starts, or finds running; none for the other editors.
    QString app{};
    QList<double> times{};
    int saved = 0;
};

pid_t spawn(const QStringList &command)
{
    QList<QByteArray> arguments;
    for (const QString &argument : command)
        arguments.append(argument.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    // What the editors print ("Waiting for Emacs...") would only break up the table.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? pid : -1;
}

// The exit status, or nothing when the command is still running after the time is up.
std::optional<int> waitForExit(pid_t pid, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (timer.elapsed() > timeoutMs)
            return std::nullopt;
        QThread::msleep(5);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

pid_t tarvelPid()
{
    const QDBusReply<uint> owner = QDBusConnection::sessionBus().interface()->servicePid(kServiceName);
    return owner.isValid() ? pid_t(owner.value()) : 0;
}

// Ends the Tarvel the helper started, and waits until it is gone.
bool stopTarvel()
{
    const pid_t pid = tarvelPid();
    if (pid <= 0)
        return true;
    ::kill(pid, SIGTERM);
    QElapsedTimer timer;
    timer.start();
    while (::kill(pid, 0) == 0 || tarvelPid() > 0) {
        if (timer.elapsed() > 10000)
            return false;
        QThread::msleep(20);
    }
    return true;
}

// One run; false when the editor never came up or did not leave.
bool race(Display &display, Contender &contender, const QDir &work, int run, bool counted)
{
    static const QRegularExpression notAWord(QStringLiteral("\\W+"));
    const QString stem = QString(contender.name).replace(notAWord, QStringLiteral("-"));
    const QString file = work.filePath(QStringLiteral("race-%1-%2.txt").arg(stem).arg(run));
    QFile(file).open(QIODevice::WriteOnly);
    const QByteArray line = "typed in run " + QByteArray::number(run);
    const QByteArray title = contender.title(file);

    if (!contender.app.isEmpty())
        qputenv("TARVEL_APP_PATH", contender.app.toLocal8Bit());
    QElapsedTimer timer;
    timer.start();
    const pid_t pid = spawn(contender.command + QStringList{file});
    if (pid < 0 || !display.waitUntil([&] { return display.activeWindowTitled(title); }, kWindowTimeoutMs)) {
        std::fprintf(stderr, "bench_editor_race: %s: no focused window\n", qPrintable(contender.name));
        if (pid > 0)
            ::kill(pid, SIGTERM);
        return false;
    }
    const double milliseconds = double(timer.nsecsElapsed()) / 1e6;

    QThread::msleep(150); // as a person would, before typing
    contender.keys(display, line);
    const std::optional<int> status = waitForExit(pid, kWindowTimeoutMs);
    if (!status) {
        std::fprintf(stderr, "bench_editor_race: %s did not exit\n", qPrintable(contender.name));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        return false;
    }
    QFile saved(file);
    saved.open(QIODevice::ReadOnly);
    const bool wasSaved = saved.readAll().trimmed() == line && *status == 0;
    display.waitUntil([&] { return !display.activeWindowTitled(title); }, 5000);
    if (contender.cold && !stopTarvel())
        return false;
    if (counted) {
        contender.times.append(milliseconds);
        contender.saved += wasSaved ? 1 : 0;
    }
    return true;
}

// Every other run in the opposite order, so that no contender always follows the same one.
QList<Contender *> inTurn(QList<Contender> &group, int run)
{
    QList<Contender *> order;
    for (Contender &contender : group)
        order.append(&contender);
    if (run % 2 == 1)
        std::reverse(order.begin(), order.end());
    return order;
}

void pressControl(Display &display, xcb_keysym_t key)
{
    display.press({Display::kControl, key});
}

} // namespace

int main(int argc, char **argv)
{
    int runs = 8;
    QString tarvel;
    QString helper;
    QString helperBefore;
    QString tarvelBefore;
    QString emacsServer;
    for (int index = 1; index + 1 < argc; index += 2) {
        const QByteArray option = argv[index];
        const QString value = QString::fromLocal8Bit(argv[index + 1]);
        if (option == "--runs")
            runs = value.toInt();
        else if (option == "--tarvel")
            tarvel = value;
        else if (option == "--helper")
            helper = value;
        else if (option == "--helper-before")
            helperBefore = value;
        else if (option == "--tarvel-before")
            tarvelBefore = value;
        else if (option == "--emacs-server")
            emacsServer = value;
    }
    Display display;
    if (tarvel.isEmpty() || helper.isEmpty() || runs < 1 || !bench::onDesktop(display, "bench_editor_race"))
        return 2;

    const auto composer = [](const QString &) {
        return QByteArrayLiteral("Tarvel Composer");
    };
    const auto fileName = [](const QString &file) {
        return QFileInfo(file).fileName().toUtf8();
    };
    const auto tarvelKeys = [](Display &display, const QByteArray &line) {
        display.type(line);
        display.pressCtrlReturn();
    };
    QList<Contender> warm;
    QList<Contender> cold;
    const auto addTarvel = [&](const QString &which, const QString &path, const QString &app) {
        warm.append(
            {QStringLiteral("Tarvel running (%1)").arg(which), {path}, composer, tarvelKeys, false, app});
        cold.append(
            {QStringLiteral("Tarvel not running (%1)").arg(which), {path}, composer, tarvelKeys, true, app});
    };
    addTarvel(QStringLiteral("now"), helper, tarvel);
    if (!helperBefore.isEmpty())
        addTarvel(QStringLiteral("before"), helperBefore, tarvelBefore.isEmpty() ? tarvel : tarvelBefore);
    QList<Contender> others;
    if (!emacsServer.isEmpty()) {
        others.append(
            {QStringLiteral("emacsclient -c"),
             {QStringLiteral("emacsclient"), QStringLiteral("-s"), emacsServer, QStringLiteral("-c")},
             fileName,
             [](Display &display, const QByteArray &line) {
                 display.type(line);
                 pressControl(display, 'x');
                 pressControl(display, 's');
                 pressControl(display, 'x');
                 display.type("#"); // server-edit: done, and the client's frame closes
             }});
    }
    if (!QStandardPaths::findExecutable(QStringLiteral("gvim")).isEmpty()) {
        others.append({QStringLiteral("gvim -f"),
                       {QStringLiteral("gvim"), QStringLiteral("-f")},
                       fileName,
                       [](Display &display, const QByteArray &line) {
                           display.type("i" + line);
                           display.press({Display::kEscape});
                           display.type(":wq");
                           display.press({Display::kReturn});
                       }});
    }
    if (!QStandardPaths::findExecutable(QStringLiteral("mousepad")).isEmpty()) {
        others.append({QStringLiteral("mousepad"),
                       {QStringLiteral("mousepad")},
                       fileName,
                       [](Display &display, const QByteArray &line) {
                           display.type(line);
                           pressControl(display, 's');
                           pressControl(display, 'q');
                       }});
    }

    // Tarvel keeps its data and settings here; the helper starts it from TARVEL_APP_PATH.
    QTemporaryDir root;
    const QDir work(root.filePath(QStringLiteral("work")));
    QDir().mkpath(work.path());
    if (tarvelPid() > 0) {
        std::fputs("bench_editor_race: a Tarvel is already running on this bus\n", stderr);
        return 2;
    }

    // Not running: each run starts Tarvel through the helper and ends it afterwards. The set-up
    // prompt would take the focus from the composer measured.
    QSettings(root.filePath(QStringLiteral("config/Tarvel/Tarvel.conf")), QSettings::IniFormat)
        .setValue(QStringLiteral("EditorIntegrationPromptSuppressed"), true);
    qputenv("XDG_DATA_HOME", root.filePath(QStringLiteral("data")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", root.filePath(QStringLiteral("config")).toLocal8Bit());
    qputenv("TARVEL_APP_PATH", tarvel.toLocal8Bit());
    for (int run = 0; run <= runs; ++run) {
        for (Contender *contender : inTurn(cold, run)) {
            if (!race(display, *contender, work, run, run > 0))
                return 1;
        }
    }

    // Running: each Tarvel contender with its own application started and settled beforehand, and
    // the other editors take their turns in between.
    std::unique_ptr<QProcess> app;
    const auto runningApplication = [&](const QString &path) {
        if (app && app->program() == path)
            return true;
        if (app) {
            app->terminate();
            app->waitForFinished(5000);
        }
        app = std::make_unique<QProcess>();
        return bench::startApplication(*app, root, path);
    };
    for (int run = 0; run <= runs; ++run) {
        for (QList<Contender> *group : {&warm, &others}) {
            for (Contender *contender : inTurn(*group, run)) {
                if ((!contender->app.isEmpty() && !runningApplication(contender->app)) ||
                    !race(display, *contender, work, run, run > 0))
                    return 1;
            }
        }
    }
    if (app) {
        app->terminate();
        app->waitForFinished(5000);
    }

    const double warmMedian = BenchStatistics::of(warm.first().times).median;
    const double coldMedian = BenchStatistics::of(cold.first().times).median;
    std::printf("\nFrom the command's start to its window mapped and focused, %d runs each:\n\n", runs);
    std::printf("| editor | median | min | max | text saved | × Tarvel running | × Tarvel not running |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    for (QList<Contender> *group : {&warm, &cold, &others}) {
        for (const Contender &contender : *group) {
            const BenchStatistics figures = BenchStatistics::of(contender.times);
            std::printf("| %s | %.1f ms | %.1f ms | %.1f ms | %d/%lld | %.1f | %.1f |\n",
                        qPrintable(contender.name), figures.median, figures.minimum, figures.maximum,
                        contender.saved, static_cast<long long>(figures.count), figures.median / warmMedian,
                        figures.median / coldMedian);
        }
    }
    return 0;
}
