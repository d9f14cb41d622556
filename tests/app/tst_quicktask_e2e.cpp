// Quick tasks from the desktop: the real tarvel with the fake backends first on its PATH,
// scratch composers opened from the tray menu or by a second start, attachments pasted
// through the X clipboard or dropped by another process over XDND, and session rows clicked in
// the tray menu. What a paste or drop did is read from what reaches the backend. Runs inside
// tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"
#include "WindowImage.h"

#include "app/QuickTaskMenuItemView.h"
#include "composer/AttachmentStripView.h"
#include "composer/ComposerLayout.h"

#include <QAbstractButton>
#include <QImage>
#include <QLabel>
#include <QLayout>
#include <QMenu>
#include <QTemporaryDir>
#include <QWidgetAction>

using namespace desktop_test;

namespace {
// Where things sit in tarvel's tray menu with one session row. Qt draws the row's buttons inside
// the menu's one X window, so they are found by building the same menu in this process (same
// display, style and fonts) and measuring it.
struct MeasuredMenu {
    QMenu menu;
    QuickTaskMenuItemView *row = nullptr;
    QRect rowRect;
    QAction *clear = nullptr;

    explicit MeasuredMenu(const QStringList &actionTitles)
    {
        menu.addAction(u"Quick Tasks"_s);
        QList<QuickTaskInlineAction> actions;
        for (const QString &actionTitle : actionTitles)
            actions.append({actionTitle, true, {}});
        row = new QuickTaskMenuItemView(u"Describe the picture"_s, u"Codex \u00b7 Succeeded \u00b7 now"_s,
                                        actions, {}, &menu);
        auto *rowAction = new QWidgetAction(&menu);
        rowAction->setDefaultWidget(row);
        menu.addAction(rowAction);
        menu.addSeparator();
        clear = menu.addAction(u"Clear Finished Tasks"_s);
        menu.addSeparator();
        menu.addAction(u"Quit Tarvel"_s);
        menu.adjustSize();
        rowRect = menu.actionGeometry(rowAction);
        row->setGeometry(rowRect);
        row->layout()->activate();
    }
};

// Clicks in the real menu where the measured one with these row actions has the named inline
// button, the item "Clear Finished Tasks" or the row's "prompt line". The row's
// buttons and the items are right-aligned, so x counts from the right edge, the prompt line is
// left-aligned; only the items above a point decide its height.
void clickInMenu(const QString &menu, const QStringList &actionTitles, const QString &button)
{
    const MeasuredMenu measured(actionTitles);
    const Geometry frame = geometry(menu);
    QPoint point = measured.menu.actionGeometry(measured.clear).center();
    if (button == u"prompt line") {
        const auto *title = measured.row->findChild<QLabel *>(u"SessionTitle"_s);
        QVERIFY(title);
        point = measured.rowRect.topLeft() + title->geometry().topLeft() + QPoint(8, title->height() / 2);
        return click(frame.x + point.x(), frame.y + point.y());
    }
    if (button != u"Clear Finished Tasks") {
        const auto *widget = measured.row->findChild<QAbstractButton *>(u"InlineAction_"_s + button);
        QVERIFY(widget);
        point = measured.rowRect.topLeft() + widget->geometry().center();
    }
    click(frame.right() - (measured.menu.width() - point.x()), frame.y + point.y());
}

// Where to drop on a ready scratch composer, from its layout: the header is the panel's own
// surface, the text starts below it, and the strip's dashed box sits right above the footer.
QPoint onHeader(const Geometry &panel)
{
    return {panel.x + 200, panel.y + ComposerLayout::topPadding + 11};
}

QPoint onFirstTextLine(const Geometry &panel)
{
    return {panel.x + 300, panel.y + ComposerLayout::topPadding + 22 + ComposerLayout::headerSpacing + 10};
}

QPoint onEmptyStrip(const Geometry &panel)
{
    using namespace ComposerLayout;
    return {panel.centerX(), panel.y + panel.height - bottomPadding - footerHeight - interSectionSpacing -
                                 attachmentTopSpacing - AttachmentStripView::placeholderHeight / 2};
}

// How often the process's main thread went to sleep and woke up again over a while: a
// timer left running shows up here.
int wakeupsOver(qint64 pid, int milliseconds)
{
    const auto switches = [pid] {
        const QByteArray status = readFile(u"/proc/%1/status"_s.arg(pid));
        return QRegularExpression(u"\\nvoluntary_ctxt_switches:\\s+(\\d+)"_s)
            .match(QString::fromLatin1(status))
            .captured(1)
            .toInt();
    };
    const int before = switches();
    QTest::qWait(milliseconds);
    return switches() - before;
}
} // namespace

class QuickTaskEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!QStandardPaths::findExecutable(u"xclip"_s).isEmpty(), "xclip is needed");
        QVERIFY(m_root.isValid());
        writeFile(m_notes, "notes\n");
        writeFile(m_project + u"/main.c"_s, "int main(void) { return 0; }\n");
        QImage picture(48, 32, QImage::Format_RGB32);
        picture.fill(QColor(30, 120, 200));
        QDir().mkpath(QFileInfo(m_picture).path());
        QVERIFY(picture.save(m_picture));
    }

    // Dragging the panel's background moves it, dragging its sides resizes it; a quick click there
    // only returns the keyboard to the prompt, and what is typed next arrives. Stop in the running
    // row cancels that task (that it ends the whole process group is tst_quicktaskmanager's);
    // "Clear Finished Tasks" then removes the stopped session.
    void backgroundDragMovesClickKeepsTypingAndStopCancels()
    {
        QTemporaryDir root;
        FakeBackends fakes;
        Application app(root.path(), fakes, {{u"FAKE_STEPS"_s, fakes.writeSteps({u"ready"_s, u"hang"_s})}});
        app.start();
        const QString composer = app.openReadyComposer();
        const Geometry before = geometry(composer);
        // Presses at from and travels to to (on the screen) in steps of at most 20 pixels.
        const auto drag = [](const QPoint &from, QPoint to) {
            to = QPoint(std::clamp(to.x(), 0, 1279), std::clamp(to.y(), 0, 799));
            xdotool({u"mousemove"_s, QString::number(from.x()), QString::number(from.y()), u"mousedown"_s,
                     u"1"_s});
            const int steps = std::max((to - from).manhattanLength() / 20, 10);
            for (int step = 1; step <= steps; ++step) {
                QTest::qWait(30);
                const QPoint at = from + (to - from) * step / steps;
                xdotool({u"mousemove"_s, QString::number(at.x()), QString::number(at.y())});
            }
            xdotool({u"mouseup"_s, u"1"_s});
        };
        // The header row, right of its title: background.
        const QPoint grip(before.right() - 40, before.y + 12);
        drag(grip, grip + QPoint(-120, 80));
        QTRY_VERIFY_WITH_TIMEOUT(geometry(composer).x < before.x - 60, 5000);
        QVERIFY(geometry(composer).y > before.y + 40);

        // The sides resize it through the window manager, from 360 to 1100 pixels wide, while the
        // height stays the text's; the scratch composer keeps the width with its frame.
        const int middle = geometry(composer).centerY();
        drag(QPoint(geometry(composer).right() - 2, middle), QPoint(1279, middle));
        QTRY_VERIFY_WITH_TIMEOUT(geometry(composer).width > before.width + 200, 5000);
        drag(QPoint(geometry(composer).x + 1, middle), QPoint(0, middle));
        QTRY_COMPARE_WITH_TIMEOUT(geometry(composer).width, 1100, 5000);
        drag(QPoint(geometry(composer).right() - 2, middle), QPoint(0, middle));
        QTRY_COMPARE_WITH_TIMEOUT(geometry(composer).width, 360, 5000);
        QCOMPARE(geometry(composer).height, before.height);
        QTRY_VERIFY_WITH_TIMEOUT(app.setting(u"ScratchWindowFrame"_s).toString().contains(u", {360, "_s),
                                 5000);

        const Geometry moved = geometry(composer);
        click(moved.right() - 40, moved.y + 12);
        type(u"after the click"_s);
        key(u"ctrl+Return"_s);
        const QStringList arguments = fakes.nextArguments(u"codex"_s);
        QVERIFY2(!arguments.isEmpty(), "codex did not run");
        QCOMPARE(arguments.constLast(), u"after the click"_s);
        QTRY_VERIFY_WITH_TIMEOUT(fakes.isReady(), 15000);
        QCOMPARE(app.sessionStatus(), u"running"_s);

        const QString menu = app.openMenu();
        screenshot(u"menu-stop"_s);
        clickInMenu(menu, {u"Stop"_s}, u"Stop"_s);
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000); // Stop closes the menu
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), u"cancelled"_s, 10000);

        clickInMenu(app.openMenu(), {}, u"Clear Finished Tasks"_s);
        QTRY_VERIFY_WITH_TIMEOUT(app.sessions().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000);
    }

    // Prompt, a pasted image and a pasted file, submitted from a composer opened in the tray menu;
    // while the task runs, a blinking icon (its row is on the drag test's "menu-stop" screenshot).
    // Once it has finished, its row: Copy puts the answer on the X clipboard, the row itself opens
    // the transcript through xdg-open (a recording stand-in first on tarvel's PATH), Retry opens a
    // composer with the same prompt and attachments (its pill's remove button is
    // tst_scratchcomposer's), and Delete removes a row while the menu stays open.
    void quickTaskWithAttachmentsAndItsRowInTheMenu()
    {
        const QString opener = m_fakes.executable(u"xdg-open"_s);
        writeFile(opener, "#!/bin/sh\nprintf '%s\\n' \"$@\" >>\"$FAKE_RECORD_DIR/xdg-open.args\"\n");
        QVERIFY(QFile::setPermissions(opener, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        // Long enough to see the row and the blinking icon; the answer is tst_quicktaskmanager's.
        const QString steps =
            m_fakes.writeSteps({u"sleep 3"_s, FakeBackends::codexAnswerStep(u"Fake answer."_s)});
        Application app(m_root.filePath(u"main"_s), m_fakes, {{u"FAKE_STEPS"_s, steps}});
        app.start();
        app.readyComposerAfter([&] { app.openComposerFromMenu(); });

        type(u"Describe the picture"_s);
        {
            ClipboardOwner image(u"image/png"_s, readFile(m_picture));
            key(u"ctrl+v"_s);
            QTRY_COMPARE_WITH_TIMEOUT(QDir(app.importFolder()).entryList(QDir::Files).size(), 1, 5000);
        }
        const QDir imports(app.importFolder());
        const QString pastedImage = imports.filePath(imports.entryList(QDir::Files).constFirst());
        auto files = pasteFiles({m_notes});
        screenshot(u"scratch-with-attachments"_s, app.composerWindow());
        key(u"ctrl+Return"_s);

        // A model of codex's own list; the pasted picture as an image; the prompt names the
        // attachments in their order (the argument list itself is tst_invocation's).
        const QStringList arguments = m_fakes.nextArguments(u"codex"_s);
        QVERIFY(!arguments.isEmpty());
        const QString model = valuesOf(arguments, u"--model"_s).value(0);
        const QJsonArray models =
            QJsonDocument::fromJson(readFile(app.home() + u"/.codex/models_cache.json"_s))[u"models"]
                .toArray();
        QVERIFY2(std::any_of(models.begin(), models.end(),
                             [&](const QJsonValue &entry) { return entry[u"slug"].toString() == model; }),
                 qPrintable(model));
        QCOMPARE(valuesOf(arguments, u"--image"_s), QStringList{pastedImage});
        QCOMPARE(attachedPaths(arguments.constLast()), (QStringList{pastedImage, m_notes}));
        QVERIFY(arguments.constLast().endsWith(u" items.\n\nDescribe the picture"_s));
        QTRY_VERIFY_WITH_TIMEOUT(app.composerWindow().isEmpty(), 5000);

        QCOMPARE(app.sessionStatus(), u"running"_s);
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

        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), u"succeeded"_s, 20000);
        // Still: the icon stops blinking with its prompt line shown.
        QTest::qWait(800);
        const QImage still = windowImage(app.trayIconWindow());
        QTest::qWait(800);
        QCOMPARE(windowImage(app.trayIconWindow()), still);

        const QStringList finished{u"Copy"_s, u"Retry"_s, u"Delete"_s};
        files.reset(); // the clipboard is nobody's again
        QVERIFY(clipboardText().isEmpty());
        clickInMenu(app.openMenu(), finished, u"Copy"_s);
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), u"Fake answer."_s, 5000);

        clickInMenu(app.openMenu(), finished, u"prompt line"_s);
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!m_fakes.recorded(u"xdg-open.args"_s).isEmpty(), 5000);
        QTest::qWait(300); // a second opening would show up as a second line
        const QStringList opened =
            QString::fromUtf8(m_fakes.recorded(u"xdg-open.args"_s)).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(opened.size(), 1);
        const QUrl url(opened.constFirst());
        QVERIFY2(url.isLocalFile(), qPrintable(opened.constFirst()));
        QCOMPARE(QFileInfo(url.toLocalFile()).fileName(), app.sessions().at(0)[u"id"].toString() + u".txt"_s);
        QVERIFY(QFile::exists(url.toLocalFile()));

        // The composer comes back with the prompt and the attachments: submitted as it is, the
        // backend gets what the first run got.
        const QString menu = app.openMenu();
        screenshot(u"menu-rows"_s);
        const QString composer = app.readyComposerAfter([&] { clickInMenu(menu, finished, u"Retry"_s); });
        QTRY_VERIFY_WITH_TIMEOUT(app.menuWindow().isEmpty(), 5000);
        activate(composer);
        screenshot(u"scratch-retry"_s, composer);
        key(u"ctrl+Return"_s);
        QCOMPARE(m_fakes.nextArguments(u"codex"_s), arguments);
        QTRY_COMPARE_WITH_TIMEOUT(app.sessions().size(), 2, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), u"succeeded"_s, 20000);

        // Delete in a row: the row goes, the menu stays open (what the session owned goes with it,
        // tst_quicktaskmanager).
        const QString rows = app.openMenu();
        const int heightWithRows = geometry(rows).height;
        clickInMenu(rows, finished, u"Delete"_s);
        QTRY_COMPARE_WITH_TIMEOUT(app.sessions().size(), 1, 5000);
        QCOMPARE(app.menuWindow(), rows);
        QTRY_VERIFY_WITH_TIMEOUT(geometry(rows).height < heightWithRows, 5000);
        app.closeMenu();
    }

    // Codex: a file on the text is written as its path; a picture on the strip, then a
    // folder and the same picture under another spelling on the header, are attached once.
    void dropsAttachOnTheStripAndPanelAndWritePathsOnTheText()
    {
        FakeBackends fakes;
        Application app(m_root.filePath(u"codex"_s), fakes);
        app.start();
        const QString composer = app.openReadyComposer();
        type(u"Compare with "_s);

        // Once the drop on the text is done, the editor is as quiet as before it.
        const int idle = wakeupsOver(app.pid(), 2000);
        QVERIFY(dragFiles({m_notes}, onFirstTextLine(geometry(composer))));
        QTest::qWait(300);
        const int afterDrop = wakeupsOver(app.pid(), 2000);
        QVERIFY2(afterDrop <= idle + 6, qPrintable(u"%1 > %2"_s.arg(afterDrop).arg(idle)));
        QVERIFY(dragFiles({m_picture}, onEmptyStrip(geometry(composer))));
        // The pill row makes the panel taller, upward: measure it again.
        QTest::qWait(300);
        const QString samePicture = m_root.filePath(u"shots/../shots/picture.png"_s);
        QVERIFY(dragFiles({m_project, samePicture}, onHeader(geometry(composer))));
        QTest::qWait(300);
        screenshot(u"scratch-dropped-file"_s, composer);

        // The drag source had the focus; give it back to the composer.
        activate(composer);
        key(u"ctrl+Return"_s);
        const QStringList arguments = fakes.nextArguments(u"codex"_s);
        QVERIFY(!arguments.isEmpty());
        QCOMPARE(attachedPaths(arguments.constLast()), (QStringList{m_picture, m_project}));
        QVERIFY2(arguments.constLast().endsWith(u" items.\n\nCompare with "_s + m_notes),
                 qPrintable(arguments.constLast()));
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), u"succeeded"_s, 15000);
    }

private:
    QTemporaryDir m_root;
    const QString m_notes = m_root.filePath(u"files/notes.txt"_s);
    const QString m_picture = m_root.filePath(u"shots/picture.png"_s);
    const QString m_project = m_root.filePath(u"project"_s);
    FakeBackends m_fakes;
};

QTEST_MAIN(QuickTaskEndToEndTest)
#include "tst_quicktask_e2e.moc"
