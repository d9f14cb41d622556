#pragma once

// What the desktop tests of quick tasks share: xdotool and xwininfo wrappers, screenshots,
// an X clipboard owner, file drags from another process, a running copy of tarvel with its
// own folders and the fake backends on its PATH, and the positions of things in its tray
// menu. Include it from a test that runs inside tests/e2e/desktop-session.sh.
#include "app/QuickTaskMenuItemView.h"
#include "fakebackends/FakeBackends.h"

#include <QAbstractButton>
#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLayout>
#include <QMenu>
#include <QProcess>
#include <QRegularExpression>
#include <QWidgetAction>
#include <QtTest>

#include <csignal>
#include <memory>

namespace desktop_test {
inline const QString kTarvel = QStringLiteral(TARVEL_APP_PATH);
inline const QString kArtifacts = QStringLiteral(TARVEL_ARTIFACTS_DIR);
inline const QString kTestData = QStringLiteral(TARVEL_TEST_DATA_DIR);

inline QString run(const QString &program, const QStringList &arguments, int *exitCode = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    if (exitCode)
        *exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

inline QString xdotool(const QStringList &arguments)
{
    return run(QStringLiteral("xdotool"), arguments);
}

struct Geometry {
    int x = 0, y = 0, width = 0, height = 0;
    int right() const { return x + width; }
    int centerX() const { return x + width / 2; }
    int centerY() const { return y + height / 2; }
};

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

inline QImage windowImage(const QString &window)
{
    QProcess import;
    import.start(QStringLiteral("import"), {QStringLiteral("-window"), window, QStringLiteral("png:-")});
    import.waitForFinished(10000);
    return QImage::fromData(import.readAllStandardOutput(), "PNG");
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
    ClipboardOwner(const QString &mimeType, const QString &file)
    {
        m_process.start(QStringLiteral("xclip"),
                        {QStringLiteral("-quiet"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
                         QStringLiteral("-t"), mimeType, QStringLiteral("-i"), file});
        m_process.waitForStarted();
    }
    ~ClipboardOwner()
    {
        if (m_process.state() != QProcess::NotRunning) {
            ::kill(pid_t(m_process.processId()), SIGTERM);
            m_process.waitForFinished(3000);
        }
    }
    static bool offers(const QString &mimeType)
    {
        return run(QStringLiteral("xclip"),
                   {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
                    QStringLiteral("-t"), QStringLiteral("TARGETS")})
            .split(u'\n')
            .contains(mimeType);
    }

private:
    QProcess m_process;
};

inline QString clipboardText()
{
    return run(QStringLiteral("xclip"),
               {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard")});
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

// A running copy of the application with its own home, data and settings folders, and the
// fake backends first on its PATH.
class Application final {
public:
    Application(const QString &root, const FakeBackends &fakes, const QMap<QString, QString> &extra = {})
        : m_root(root)
        , m_fakes(fakes)
        , m_extra(extra)
    {
        QDir().mkpath(home() + QStringLiteral("/.codex"));
        QFile::copy(kTestData + QStringLiteral("/codex/models_cache.json"),
                    home() + QStringLiteral("/.codex/models_cache.json"));
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
        environment.insert(QStringLiteral("PATH"), m_fakes.searchPath());
        environment.insert(QStringLiteral("SHELL"), QStringLiteral("/bin/sh"));
        environment.insert(QStringLiteral("FAKE_RECORD_DIR"), m_fakes.recordDirectory());
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
        QTRY_VERIFY_WITH_TIMEOUT(!trayIconWindow().isEmpty(), 10000);
    }

    // A second start asks this one for a scratch composer and exits.
    void startAgain() const
    {
        QProcess second;
        second.setProcessEnvironment(environment());
        second.start(kTarvel, {});
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 0);
    }

    qint64 pid() const { return m_process ? m_process->processId() : 0; }

    QStringList visibleWindows() const
    {
        return xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--pid"),
                        QString::number(pid())})
            .split(u'\n', Qt::SkipEmptyParts);
    }

    QString trayIconWindow() const
    {
        for (const QString &id : visibleWindows()) {
            if (geometry(id).y < 28)
                return id;
        }
        return {};
    }

    QString windowNamed(const QString &prefix) const
    {
        for (const QString &id : visibleWindows()) {
            if (xdotool({QStringLiteral("getwindowname"), id}).startsWith(prefix))
                return id;
        }
        return {};
    }

    QString composerWindow() const { return windowNamed(QStringLiteral("Tarvel Quick Task")); }

    QString waitForComposer() const
    {
        QString id;
        [&] {
            QTRY_VERIFY_WITH_TIMEOUT(!(id = composerWindow()).isEmpty(), 10000);
        }();
        return id;
    }

    // The open tray menu: a visible window below the tray that is no composer.
    QString menuWindow() const
    {
        for (const QString &id : visibleWindows()) {
            const Geometry frame = geometry(id);
            const QString name = xdotool({QStringLiteral("getwindowname"), id});
            if (frame.y >= 28 && !name.startsWith(u"Tarvel Quick Task") &&
                !name.startsWith(u"Tarvel Composer"))
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

    void kill(int signal)
    {
        if (m_process && m_process->state() != QProcess::NotRunning) {
            ::kill(pid_t(m_process->processId()), signal);
            m_process->waitForFinished(5000);
        }
    }

private:
    QString m_root;
    const FakeBackends &m_fakes;
    QMap<QString, QString> m_extra;
    std::unique_ptr<QProcess> m_process;
};

// The tray menu with one session row, built in this process the way tarvel builds it (same
// display, style and fonts), to measure where things sit in the real one.
struct MeasuredMenu {
    QMenu menu;
    QuickTaskMenuItemView *row = nullptr;
    QRect rowRect;
    QAction *clear = nullptr;

    explicit MeasuredMenu(const QStringList &actionTitles)
    {
        menu.addAction(QStringLiteral("Quick Tasks"));
        QList<QuickTaskInlineAction> actions;
        for (const QString &actionTitle : actionTitles)
            actions.append({actionTitle, true, {}});
        row = new QuickTaskMenuItemView(QStringLiteral("Describe the picture"),
                                        QStringLiteral("Codex \u00b7 Succeeded \u00b7 now"), actions, {},
                                        &menu);
        auto *rowAction = new QWidgetAction(&menu);
        rowAction->setDefaultWidget(row);
        menu.addAction(rowAction);
        menu.addSeparator();
        clear = menu.addAction(QStringLiteral("Clear Finished Tasks"));
        menu.addSeparator();
        menu.addAction(QStringLiteral("Quit Tarvel"));
        menu.adjustSize();
        rowRect = menu.actionGeometry(rowAction);
        row->setGeometry(rowRect);
        row->layout()->activate();
    }
};

// Where something sits in the tray menu with one session row: the x offset from the menu's
// right edge and the y offset from its top. The row's buttons are right-aligned, and only
// the items above a target decide its height.
inline QPoint menuOffset(const QStringList &actionTitles, const QString &buttonTitle,
                         bool clearFinishedItem = false)
{
    MeasuredMenu measured(actionTitles);
    if (clearFinishedItem) {
        const QRect item = measured.menu.actionGeometry(measured.clear);
        return {measured.menu.width() - item.center().x(), item.center().y()};
    }
    const auto *button =
        measured.row->findChild<QAbstractButton *>(QStringLiteral("InlineAction_") + buttonTitle);
    if (!button)
        return {};
    const QPoint center = measured.rowRect.topLeft() + button->geometry().center();
    return {measured.menu.width() - center.x(), center.y()};
}

inline void clickInMenu(const QString &menu, const QPoint &offset)
{
    QVERIFY(!offset.isNull());
    const Geometry frame = geometry(menu);
    click(frame.right() - offset.x(), frame.y + offset.y());
}

inline void clickInlineButton(const QString &menu, const QStringList &actionTitles, const QString &title)
{
    clickInMenu(menu, menuOffset(actionTitles, title));
}

// Clicks the row's prompt line, away from its buttons; the line is left-aligned.
inline void clickRowText(const QString &menu, const QStringList &actionTitles)
{
    MeasuredMenu measured(actionTitles);
    const auto *title = measured.row->findChild<QLabel *>(QStringLiteral("SessionTitle"));
    QVERIFY(title);
    const QPoint offset =
        measured.rowRect.topLeft() + title->geometry().topLeft() + QPoint(8, title->height() / 2);
    const Geometry frame = geometry(menu);
    click(frame.x + offset.x(), frame.y + offset.y());
}

// With OpenCode a folder brings up the alert: it is the one window besides the composer
// and the tray icon. Answers it, then submits a prompt, which must reach opencode without
// any file.
inline void answerFolderAlertThenSubmit(const Application &app, const FakeBackends &fakes,
                                        const QString &composer, const QString &screenshotName)
{
    const auto alertWindow = [&] {
        for (const QString &id : app.visibleWindows()) {
            if (id != composer && id != app.trayIconWindow())
                return id;
        }
        return QString();
    };
    QString alert;
    QTRY_VERIFY_WITH_TIMEOUT(!(alert = alertWindow()).isEmpty(), 5000);
    QTest::qWait(300);
    screenshot(screenshotName);
    QVERIFY(fakes.recorded(QStringLiteral("opencode.argv")).isEmpty());
    xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), alert});
    key(QStringLiteral("Return"));
    QTRY_VERIFY_WITH_TIMEOUT(!app.visibleWindows().contains(alert), 5000);

    xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), composer});
    type(QStringLiteral("List the files"));
    key(QStringLiteral("ctrl+Return"));
    QTRY_VERIFY_WITH_TIMEOUT(!fakes.recorded(QStringLiteral("opencode.argv")).isEmpty(), 15000);
    const QStringList arguments = fakes.recordedArguments(QStringLiteral("opencode"));
    QVERIFY2(!arguments.contains(QStringLiteral("--file")), qPrintable(arguments.join(u' ')));
    QCOMPARE(arguments.constLast(), QStringLiteral("List the files"));
}

inline int dunstCount(const QString &which)
{
    return run(QStringLiteral("dunstctl"), {QStringLiteral("count"), which}).toInt();
}
} // namespace desktop_test
