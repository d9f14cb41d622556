// Quick tasks from the desktop: the real tarvel with the fake backends first on its PATH,
// scratch composers opened from the tray menu or by a second start, attachments pasted
// through the X clipboard, session rows clicked in the tray menu, and the completion
// notification answered through dunst. Runs inside tests/e2e/desktop-session.sh.
#include "app/QuickTaskMenuItemView.h"
#include "fakebackends/FakeBackends.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLayout>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QWidgetAction>
#include <QtTest>

#include <csignal>

namespace {
const QString kTarvel = QStringLiteral(TARVEL_APP_PATH);
const QString kArtifacts = QStringLiteral(TARVEL_ARTIFACTS_DIR);
const QString kTestData = QStringLiteral(TARVEL_TEST_DATA_DIR);

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
    int right() const { return x + width; }
    int centerX() const { return x + width / 2; }
    int centerY() const { return y + height / 2; }
};

Geometry geometry(const QString &windowId)
{
    const QString info = run(QStringLiteral("xwininfo"), {QStringLiteral("-id"), windowId});
    const auto field = [&](const QString &label) {
        const QRegularExpression pattern(label + QStringLiteral(":\\s+(-?\\d+)"));
        return pattern.match(info).captured(1).toInt();
    };
    return {field(QStringLiteral("Absolute upper-left X")), field(QStringLiteral("Absolute upper-left Y")),
            field(QStringLiteral("Width")), field(QStringLiteral("Height"))};
}

void screenshot(const QString &name, const QString &window = QString())
{
    QDir().mkpath(kArtifacts);
    const QString helper = qEnvironmentVariable("TARVEL_DESKTOP_SCREENSHOT");
    QStringList arguments{kArtifacts + u'/' + name + QStringLiteral(".png")};
    if (!window.isEmpty())
        arguments.append(window);
    if (!helper.isEmpty())
        run(helper, arguments);
}

QImage windowImage(const QString &window)
{
    QProcess import;
    import.start(QStringLiteral("import"), {QStringLiteral("-window"), window, QStringLiteral("png:-")});
    import.waitForFinished(10000);
    return QImage::fromData(import.readAllStandardOutput(), "PNG");
}

void type(const QString &text)
{
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("10"), text});
}

void key(const QString &keys)
{
    xdotool({QStringLiteral("key"), keys});
}

void click(int x, int y)
{
    xdotool({QStringLiteral("mousemove"), QString::number(x), QString::number(y), QStringLiteral("click"),
             QStringLiteral("1")});
}

void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

QByteArray readFile(const QString &path)
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

QString clipboardText()
{
    return run(QStringLiteral("xclip"),
               {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard")});
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

// Where something sits in the tray menu with one session row, measured on a menu built the
// same way in this process (same display, style and fonts): the x offset from the menu's
// right edge and the y offset from its top. The row's buttons are right-aligned, and only
// the items above a target decide its height.
QPoint menuOffset(const QStringList &actionTitles, const QString &buttonTitle, bool clearFinishedItem = false)
{
    QMenu menu;
    menu.addAction(QStringLiteral("Quick Tasks"));
    QList<QuickTaskInlineAction> actions;
    for (const QString &actionTitle : actionTitles)
        actions.append({actionTitle, true, {}});
    auto *row =
        new QuickTaskMenuItemView(QStringLiteral("Describe the picture"),
                                  QStringLiteral("Codex \u00b7 Succeeded \u00b7 now"), actions, {}, &menu);
    auto *rowAction = new QWidgetAction(&menu);
    rowAction->setDefaultWidget(row);
    menu.addAction(rowAction);
    menu.addSeparator();
    QAction *clear = menu.addAction(QStringLiteral("Clear Finished Tasks"));
    menu.addSeparator();
    menu.addAction(QStringLiteral("Quit Tarvel"));
    menu.adjustSize();
    if (clearFinishedItem) {
        const QRect item = menu.actionGeometry(clear);
        return {menu.width() - item.center().x(), item.center().y()};
    }
    const QRect rowRect = menu.actionGeometry(rowAction);
    row->setGeometry(rowRect);
    row->layout()->activate();
    const auto *button = row->findChild<QPushButton *>(QStringLiteral("InlineAction_") + buttonTitle);
    if (!button)
        return {};
    const QPoint center = rowRect.topLeft() + button->geometry().center();
    return {menu.width() - center.x(), center.y()};
}

void clickInMenu(const QString &menu, const QPoint &offset)
{
    QVERIFY(!offset.isNull());
    const Geometry frame = geometry(menu);
    click(frame.right() - offset.x(), frame.y + offset.y());
}

void clickInlineButton(const QString &menu, const QStringList &actionTitles, const QString &title)
{
    clickInMenu(menu, menuOffset(actionTitles, title));
}

int dunstCount(const QString &which)
{
    return run(QStringLiteral("dunstctl"), {QStringLiteral("count"), which}).toInt();
}
} // namespace

class QuickTaskEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("xclip")).isEmpty(), "xclip is needed");
        QVERIFY(m_root.isValid());
        writeFile(m_root.filePath(QStringLiteral("files/notes.txt")), "notes\n");
        QImage picture(48, 32, QImage::Format_RGB32);
        picture.fill(QColor(30, 120, 200));
        QVERIFY(picture.save(m_root.filePath(QStringLiteral("picture.png"))));
    }

    // Checking, then ready; typing while the check runs goes nowhere.
    void composerChecksTheBackendThenBecomesReady()
    {
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes,
                        {{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("1.5")}});
        app.start();
        const QString answered =
            QDir(fakes.recordDirectory()).filePath(QStringLiteral("codex.version-answered"));

        QFile::remove(answered);
        const QString composer = app.openComposerFromMenu();
        type(QStringLiteral("early"));
        screenshot(QStringLiteral("scratch-checking"), composer);
        QVERIFY2(!QFile::exists(answered), "the check ended before the composer could be seen checking");
        key(QStringLiteral("ctrl+Return")); // not ready: a beep, nothing else
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(500); // the answer reaches the composer through the event loop
        QCOMPARE(app.composerWindow(), composer);
        screenshot(QStringLiteral("scratch-ready"), composer);

        QFile::remove(answered);
        type(QStringLiteral("Summarize the notes"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_VERIFY_WITH_TIMEOUT(!fakes.recorded(QStringLiteral("codex.argv")).isEmpty(), 15000);
        QCOMPARE(fakes.recordedArguments(QStringLiteral("codex")).constLast(),
                 QStringLiteral("Summarize the notes"));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 15000);
    }

    // No backend answers its version query: the composer says so and submits nothing.
    void unavailableBackendSubmitsNothing()
    {
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes,
                        {{QStringLiteral("FAKE_CODEX_VERSION_EXIT"), QStringLiteral("1")},
                         {QStringLiteral("FAKE_CLAUDE_VERSION_EXIT"), QStringLiteral("1")},
                         {QStringLiteral("FAKE_OPENCODE_VERSION_EXIT"), QStringLiteral("1")}});
        app.start();
        app.startAgain();
        const QString composer = app.waitForComposer();
        QTest::qWait(2500); // the three checks fail fast; let the overlay settle
        screenshot(QStringLiteral("scratch-unavailable"), composer);
        type(QStringLiteral("anything"));
        key(QStringLiteral("ctrl+Return"));
        QTest::qWait(1500);
        QCOMPARE(app.composerWindow(), composer);
        QVERIFY(fakes.recorded(QStringLiteral("codex.argv")).isEmpty());
        QVERIFY(app.sessions().isEmpty());
        key(QStringLiteral("Escape"));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);
    }

    // Prompt, a pasted image and a pasted file, submitted from a composer opened in the tray menu.
    void quickTaskWithAttachmentsRunsAndSucceeds()
    {
        m_app = std::make_unique<Application>(
            m_root.filePath(QStringLiteral("main")), m_fakes,
            QMap<QString, QString>{
                {QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")},
                {QStringLiteral("FAKE_STEPS"),
                 m_fakes.writeSteps({
                     QStringLiteral("sleep 3"),
                     QStringLiteral("out {\"type\":\"thread.started\",\"thread_id\":\"t1\"}\\n"),
                     QStringLiteral("out {\"type\":\"item.completed\",\"item\":{\"id\":\"i0\",\"type\":"
                                    "\"agent_message\",\"text\":\"The picture is blue.\"}}\\n"),
                 })}});
        Application &app = *m_app;
        // Notifications of earlier tests would offer their own "Copy" in dunst's menu.
        run(QStringLiteral("dunstctl"), {QStringLiteral("close-all")});
        app.start();
        const QString answered =
            QDir(m_fakes.recordDirectory()).filePath(QStringLiteral("codex.version-answered"));
        QFile::remove(answered);
        app.openComposerFromMenu();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(500);

        type(QStringLiteral("Describe the picture"));
        {
            ClipboardOwner image(QStringLiteral("image/png"), m_root.filePath(QStringLiteral("picture.png")));
            QTRY_VERIFY_WITH_TIMEOUT(ClipboardOwner::offers(QStringLiteral("image/png")), 5000);
            key(QStringLiteral("ctrl+v"));
            QTRY_COMPARE_WITH_TIMEOUT(QDir(app.importFolder()).entryList(QDir::Files).size(), 1, 5000);
        }
        const QString pasted = QDir(app.importFolder()).entryList(QDir::Files).constFirst();
        QVERIFY2(QRegularExpression(
                     QStringLiteral(
                         "^Pasted Image \\d{4}-\\d\\d-\\d\\d \\d\\d\\.\\d\\d\\.\\d\\d [0-9A-F]{6}\\.png$"))
                     .match(pasted)
                     .hasMatch(),
                 qPrintable(pasted));
        m_pastedImage = QDir(app.importFolder()).filePath(pasted);
        const QString notes = m_root.filePath(QStringLiteral("files/notes.txt"));
        const QString uriList = m_root.filePath(QStringLiteral("uri-list"));
        writeFile(uriList, QUrl::fromLocalFile(notes).toEncoded() + "\r\n");
        ClipboardOwner files(QStringLiteral("text/uri-list"), uriList);
        QTRY_VERIFY_WITH_TIMEOUT(ClipboardOwner::offers(QStringLiteral("text/uri-list")), 5000);
        key(QStringLiteral("ctrl+v"));
        screenshot(QStringLiteral("scratch-with-attachments"), app.composerWindow());
        QFile::remove(answered);
        key(QStringLiteral("ctrl+Return"));

        QTRY_VERIFY_WITH_TIMEOUT(!m_fakes.recorded(QStringLiteral("codex.argv")).isEmpty(), 15000);
        const QStringList arguments = m_fakes.recordedArguments(QStringLiteral("codex"));
        QVERIFY(arguments.size() > 7);
        const QString model = arguments.at(4);
        const QString effort = arguments.at(6).section(u'"', 1, 1);
        const QJsonArray models =
            QJsonDocument::fromJson(readFile(app.home() + QStringLiteral("/.codex/models_cache.json")))
                .object()
                .value(u"models")
                .toArray();
        bool known = false;
        for (const QJsonValue &entry : models)
            known = known || entry.toObject().value(u"slug").toString() == model;
        QVERIFY2(known, qPrintable(model));
        const QString prompt =
            QStringLiteral(
                "Attached Paths\n--------------\nThe following files and folders were attached from "
                "Tarvel and are available on disk:\n- ") +
            m_pastedImage + QStringLiteral("\n- ") + notes +
            QStringLiteral("\n\nUse these exact paths when reading, editing, or referencing the attached "
                           "items.\n\nDescribe the picture");
        const QStringList expected{QStringLiteral("exec"),
                                   QStringLiteral("--json"),
                                   QStringLiteral("--skip-git-repo-check"),
                                   QStringLiteral("--model"),
                                   model,
                                   QStringLiteral("-c"),
                                   QStringLiteral("model_reasoning_effort=\"%1\"").arg(effort),
                                   QStringLiteral("-C"),
                                   app.home(),
                                   QStringLiteral("--add-dir"),
                                   app.importFolder(),
                                   QStringLiteral("--add-dir"),
                                   m_root.filePath(QStringLiteral("files")),
                                   QStringLiteral("--image"),
                                   m_pastedImage,
                                   QStringLiteral("--"),
                                   prompt};
        QCOMPARE(arguments, expected);
        QVERIFY(!effort.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);

        // While it runs: a row in the menu, and the icon blinks.
        QCOMPARE(app.sessionStatus(), QStringLiteral("running"));
        const QString menu = app.openMenu();
        screenshot(QStringLiteral("menu-running"));
        app.closeMenu();
        QList<QImage> icons;
        QElapsedTimer blinking;
        blinking.start();
        while (blinking.elapsed() < 2000 && app.sessionStatus() == u"running") {
            const QImage icon = windowImage(app.trayIconWindow());
            if (!icon.isNull() && !icons.contains(icon))
                icons.append(icon);
            QTest::qWait(150);
        }
        QVERIFY2(icons.size() >= 2, "the tray icon did not change while the task ran");
        Q_UNUSED(menu);

        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 20000);
        QCOMPARE(app.sessions().at(0).toObject().value(u"finalResponse").toString(),
                 QStringLiteral("The picture is blue."));
        // Still: the icon stops blinking with its prompt line shown.
        QTest::qWait(800);
        const QImage still = windowImage(app.trayIconWindow());
        QTest::qWait(800);
        QCOMPARE(windowImage(app.trayIconWindow()), still);
        app.openMenu();
        screenshot(QStringLiteral("menu-rows"));
        app.closeMenu();
    }

    // dunst shows the completion; its "Copy" action, chosen in dunst's context menu, copies the answer.
    void notificationCopyActionCopiesTheResponse()
    {
        if (!m_app || m_pastedImage.isEmpty())
            QSKIP("needs the finished task of the previous test");
        QTRY_VERIFY_WITH_TIMEOUT(dunstCount(QStringLiteral("displayed")) >= 1, 10000);
        screenshot(QStringLiteral("notification"));
        writeFile(m_root.filePath(QStringLiteral("other.txt")), "something else\n");
        {
            ClipboardOwner other(QStringLiteral("UTF8_STRING"), m_root.filePath(QStringLiteral("other.txt")));
            QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QStringLiteral("something else"), 5000);
        }
        run(QStringLiteral("dunstctl"), {QStringLiteral("context")});
        QTest::qWait(1000); // dmenu maps and grabs the keyboard
        screenshot(QStringLiteral("notification-context-menu"));
        type(QStringLiteral("Copy"));
        key(QStringLiteral("Return"));
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QStringLiteral("The picture is blue."), 10000);
    }

    // Delete in the row removes the session and the pasted image it owned; the menu stays open.
    void deleteRemovesTheRowAndTheOwnedImage()
    {
        if (!m_app || m_pastedImage.isEmpty())
            QSKIP("needs the finished task of the previous test");
        Application &app = *m_app;
        // The first test run here (the composer's own check) left nothing; one session is listed.
        QCOMPARE(app.sessions().size(), 1);
        QVERIFY(QFile::exists(m_pastedImage));
        const QString menu = app.openMenu();
        const int heightWithRow = geometry(menu).height;
        clickInlineButton(menu, {QStringLiteral("Copy"), QStringLiteral("Retry"), QStringLiteral("Delete")},
                          QStringLiteral("Delete"));
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(m_pastedImage), 5000);
        QVERIFY(QFile::exists(m_root.filePath(QStringLiteral("files/notes.txt"))));
        QTest::qWait(300);
        screenshot(QStringLiteral("menu-after-delete"));
        // Delete should leave the menu open, with the row gone; the menu still closes.
        QEXPECT_FAIL("", "the tray menu closes when a row's Delete rebuilds it", Continue);
        QCOMPARE(app.menuWindow(), menu);
        if (app.menuWindow() == menu) {
            QTRY_VERIFY_WITH_TIMEOUT(geometry(menu).height < heightWithRow, 5000);
            app.closeMenu();
        }
        m_app.reset();
    }

    // Stop on a task that ignores SIGINT and SIGTERM and has a child of its own.
    void stopEndsTheWholeProcessGroup()
    {
        m_app.reset(); // a copy still running would take the next start for a second one
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(
            root.path(), fakes,
            {{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")},
             {QStringLiteral("FAKE_STEPS"),
              fakes.writeSteps({QStringLiteral("ignore-stop-signals"), QStringLiteral("grandchild"),
                                QStringLiteral("ready"), QStringLiteral("hang")})}});
        app.start();
        const QString answered =
            QDir(fakes.recordDirectory()).filePath(QStringLiteral("codex.version-answered"));
        app.startAgain();
        app.waitForComposer();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(500);
        type(QStringLiteral("Run forever"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_VERIFY_WITH_TIMEOUT(fakes.isReady(), 15000);
        const std::optional<pid_t> grandchild = fakes.grandchildProcessIdentifier();
        QVERIFY(grandchild);
        QVERIFY(isProcessAlive(*grandchild));
        QCOMPARE(app.sessionStatus(), QStringLiteral("running"));

        const QString menu = app.openMenu();
        screenshot(QStringLiteral("menu-stop"));
        clickInlineButton(menu, {QStringLiteral("Stop")}, QStringLiteral("Stop"));
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000); // Stop closes the menu
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("cancelled"), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!isProcessAlive(*grandchild), 5000);
        const QString stopped = app.openMenu();
        screenshot(QStringLiteral("menu-stopped"));

        // "Clear Finished Tasks" removes the stopped session.
        clickInMenu(stopped, menuOffset({}, {}, true));
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000);
    }

    // OpenCode takes files only: a pasted folder gets the alert and is not attached.
    void openCodeRefusesFolders()
    {
        m_app.reset(); // a copy still running would take the next start for a second one
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes,
                        {{QStringLiteral("FAKE_OPENCODE_VERSION_DELAY"), QStringLiteral("0.1")}});
        writeFile(app.settingsFile(), "[General]\nQuickTaskBackend=opencode\n");
        app.start();
        const QString answered =
            QDir(fakes.recordDirectory()).filePath(QStringLiteral("opencode.version-answered"));
        app.startAgain();
        const QString composer = app.waitForComposer();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(answered), 10000);
        QTest::qWait(500);
        screenshot(QStringLiteral("scratch-ready-opencode"), composer);

        const QString folder = m_root.filePath(QStringLiteral("files"));
        const QString uriList = root.filePath(QStringLiteral("uri-list"));
        writeFile(uriList, QUrl::fromLocalFile(folder).toEncoded() + "\r\n");
        {
            ClipboardOwner owner(QStringLiteral("text/uri-list"), uriList);
            QTRY_VERIFY_WITH_TIMEOUT(ClipboardOwner::offers(QStringLiteral("text/uri-list")), 5000);
            key(QStringLiteral("ctrl+v"));
            // The alert is the one window besides the composer, the tray icon and the menu.
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
            screenshot(QStringLiteral("opencode-folder-alert"));
            QVERIFY(fakes.recorded(QStringLiteral("opencode.argv")).isEmpty());
            xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), alert});
            key(QStringLiteral("Return"));
            QTRY_VERIFY_WITH_TIMEOUT(!app.visibleWindows().contains(alert), 5000);
        }
        xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), composer});
        type(QStringLiteral("List the files"));
        key(QStringLiteral("ctrl+Return"));
        QTRY_VERIFY_WITH_TIMEOUT(!fakes.recorded(QStringLiteral("opencode.argv")).isEmpty(), 15000);
        const QStringList arguments = fakes.recordedArguments(QStringLiteral("opencode"));
        QVERIFY2(!arguments.contains(QStringLiteral("--file")), qPrintable(arguments.join(u' ')));
        QCOMPARE(arguments.constLast(), QStringLiteral("List the files"));
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 15000);
    }

private:
    QTemporaryDir m_root;
    FakeBackends m_fakes;
    std::unique_ptr<Application> m_app;
    QString m_pastedImage;
};

QTEST_MAIN(QuickTaskEndToEndTest)
#include "tst_quicktask_e2e.moc"
