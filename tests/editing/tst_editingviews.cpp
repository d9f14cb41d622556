// The editing aids in a real composer (offscreen): highlighting that follows typing and takes a
// large paste in slices, colours from the palette in force, `@` completion over a real git
// folder, Up/Down and the search through earlier prompts, and find and replace.
#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"
#include "composer/ComposerTextView.h"
#include "composer/EditorComposer.h"
#include "core/Clock.h"
#include "core/UserDefaults.h"
#include "editing/CompletionPopup.h"
#include "editing/FindBar.h"
#include "editing/HistorySearchPopup.h"
#include "editing/MentionCompleter.h"
#include "editing/PromptEditingAids.h"
#include "editing/PromptHighlighter.h"
#include "editing/PromptHistory.h"
#include "editing/SpellCheckService.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/TestEnvironment.h"

#include <QContextMenuEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QProcess>
#include <QTextBlock>
#include <QTextLayout>
#include <QToolButton>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

class WordList final : public SpellChecker {
public:
    bool isCorrect(const QString &word) override { return word.toLower() != u"teh"; }
    QStringList suggestions(const QString &) override { return {u"the"_s}; }
    void addWord(const QString &) override {}
    QString name() const override { return u"list"_s; }
};

struct Fixture {
    explicit Fixture(const QString &text = QString())
    {
        spelling.setChecker(std::make_unique<WordList>());
        composer = std::make_unique<EditorComposer>(text, services());
        QObject::connect(composer.get(), &EditorComposer::submitted, [this] { ++submits; });
        QObject::connect(composer.get(), &EditorComposer::cancelled, [this] { ++cancels; });
        composer->showWindow();
        QVERIFY(QTest::qWaitForWindowActive(composer->panel()));
    }
    ComposerServices services()
    {
        ComposerServices services;
        services.defaults = &defaults;
        services.shortcuts = &shortcuts;
        services.history = &history;
        services.spelling = &spelling;
        return services;
    }
    ComposerTextView *view() const { return composer->panel()->textView(); }
    PromptEditingAids &aids() const { return *composer->surface().editingAids(); }
    // The format the highlighter gave a character of a line.
    QTextCharFormat formatAt(int line, int column) const
    {
        const QTextBlock block = view()->document()->findBlockByNumber(line);
        for (const QTextLayout::FormatRange &range : block.layout()->formats()) {
            if (column >= range.start && column < range.start + range.length)
                return range.format;
        }
        return {};
    }

    TestEnvironment environment;
    UserDefaults defaults{environment.path(u"settings.conf"_s)};
    KeyboardShortcuts shortcuts{defaults};
    PromptHistory history{environment.path(u"History/prompts.json"_s), Clock::system()};
    SpellCheckService spelling{defaults};
    std::unique_ptr<EditorComposer> composer;
    int submits = 0;
    int cancels = 0;
};

QString makeRepository(const TestEnvironment &environment)
{
    const QString repo = environment.path(u"repo"_s);
    for (const char *file : {"src/parser/lexer.cpp", "src/parser/lexer.h", "docs/guide.md", "README.md"}) {
        const QString path = repo + u'/' + QString::fromLatin1(file);
        QDir().mkpath(QFileInfo(path).path());
        QFile(path).open(QIODevice::WriteOnly);
    }
    QProcess::execute(u"git"_s, {u"-C"_s, repo, u"init"_s, u"-q"_s});
    return repo;
}

} // namespace

class EditingViewsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void highlightingFollowsTypingTakesAPasteInSlicesAndSpellingHasAMenu()
    {
        Fixture f(u"# Title\nteh `teh` here\nplain"_s);
        f.aids().highlighter()->finishNow();
        QCOMPARE(f.formatAt(0, 2).fontWeight(), int(QFont::Bold));
        QCOMPARE(f.formatAt(1, 1).underlineStyle(), QTextCharFormat::SpellCheckUnderline);
        QVERIFY(f.formatAt(1, 5).hasProperty(QTextFormat::BackgroundBrush));
        QCOMPARE(f.formatAt(2, 1).underlineStyle(), QTextCharFormat::NoUnderline);

        // A fence typed above the text turns the lines after it into code as it is typed.
        QTextCursor cursor(f.view()->document()->findBlockByNumber(1));
        f.view()->setTextCursor(cursor);
        QTest::keyClicks(f.view(), u"```"_s);
        QTest::keyClick(f.view(), Qt::Key_Return);
        QVERIFY(f.formatAt(3, 1).hasProperty(QTextFormat::BackgroundBrush));
        QCOMPARE(f.formatAt(2, 1).underlineStyle(), QTextCharFormat::NoUnderline); // code is not spelled
        QTextCursor fence(f.view()->document()->findBlockByNumber(1));
        fence.movePosition(QTextCursor::NextBlock, QTextCursor::KeepAnchor);
        fence.removeSelectedText();
        QCOMPARE(f.formatAt(1, 1).underlineStyle(), QTextCharFormat::SpellCheckUnderline);
        QVERIFY(!f.formatAt(2, 1).hasProperty(QTextFormat::BackgroundBrush));

        // A pasted log is highlighted after the paste returns, a slice at a time.
        QString log;
        for (int line = 0; line < 6000; ++line)
            log += u"2026-03-01 line %1 teh value `x` of the run\n"_s.arg(line);
        f.view()->moveCursor(QTextCursor::End);
        f.view()->insertTypedText(log);
        PromptHighlighter *highlighter = f.aids().highlighter();
        QVERIFY(highlighter->isPending());
        QCOMPARE(f.formatAt(4500, 20).underlineStyle(), QTextCharFormat::NoUnderline);
        QTRY_VERIFY_WITH_TIMEOUT(!highlighter->isPending(), 30000);
        QCOMPARE(f.formatAt(4500, 22).underlineStyle(), QTextCharFormat::SpellCheckUnderline);

        // Colours come from the palette in force: a dark window gets a dark code shade.
        QPalette dark = f.composer->panel()->palette();
        dark.setColor(QPalette::Window, QColor(30, 30, 30));
        dark.setColor(QPalette::Text, QColor(230, 230, 230));
        f.composer->panel()->setPalette(dark);
        QTRY_VERIFY_WITH_TIMEOUT(!highlighter->isPending(), 30000);
        QVERIFY(f.formatAt(4500, 30).background().color().lightness() < 80);

        // A right-click on a misspelled word offers the dictionary's suggestions and its own entry.
        f.view()->moveCursor(QTextCursor::Start);
        const auto rightClickAndChoose = [&f](int position, const QString &choice) {
            QStringList offered;
            QTimer::singleShot(0, [&offered, choice] {
                auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
                for (QAction *action : menu ? menu->actions() : QList<QAction *>()) {
                    offered.append(action->text());
                    if (action->text() == choice)
                        action->trigger();
                }
                if (menu)
                    menu->close();
            });
            QTextCursor at(f.view()->document());
            at.setPosition(position);
            const QPoint point = f.view()->cursorRect(at).center() + QPoint(2, 0);
            QContextMenuEvent event(QContextMenuEvent::Mouse, point,
                                    f.view()->viewport()->mapToGlobal(point));
            QApplication::sendEvent(f.view()->viewport(), &event);
            return offered;
        };
        // The suggestions come first; the test's word list stays, as a load never replaces a checker.
        const QStringList offered = rightClickAndChoose(9, QString());
        QVERIFY2(offered.value(0) == u"the"_s && offered.indexOf(u"Add to Dictionary"_s) > 0,
                 qPrintable(offered.join(u", ")));
        QVERIFY(!rightClickAndChoose(14, QString()).contains(u"the"_s)); // code is not spelled
        rightClickAndChoose(9, u"the"_s);
        QCOMPARE(f.view()->document()->findBlockByNumber(1).text(), u"the `teh` here"_s);

        // The composer on screen holds the dictionary; once it has left, the dictionary goes.
        f.spelling.setReleaseDelay(std::chrono::milliseconds(50));
        QTest::qWait(200);
        QVERIFY(f.spelling.isActive());
        f.composer->panel()->hide();
        QTRY_VERIFY(!f.spelling.isActive());
    }

    void mentionsCompleteFromTheWorkingFolder()
    {
        Fixture f;
        f.composer->surface().setWorkingFolder(makeRepository(f.environment));
        MentionCompleter *mentions = f.aids().mentions();
        QSignalSpy ready(mentions, &MentionCompleter::indexReady);
        QVERIFY(ready.wait(10000));
        QTest::keyClicks(f.view(), u"see @lexc"_s);
        QTRY_VERIFY(mentions->isShowing());
        QCOMPARE(mentions->popup()->item(0)->text(), u"src/parser/lexer.cpp"_s);
        QTest::keyClick(f.view(), Qt::Key_Tab);
        QCOMPARE(f.view()->toPlainText(), u"see @src/parser/lexer.cpp "_s);
        QVERIFY(!mentions->isShowing());

        // Escape closes the list and leaves the text; the composer stays.
        QTest::keyClicks(f.view(), u"and @gui"_s);
        QTRY_VERIFY(mentions->isShowing());
        QTest::keyClick(f.view(), Qt::Key_Escape);
        QVERIFY(!mentions->isShowing());
        QCOMPARE(f.view()->toPlainText(), u"see @src/parser/lexer.cpp and @gui"_s);
        QCOMPARE(f.cancels, 0);

        // A folder goes in with its slash and the list goes on inside it; Return takes a file.
        QTest::keyClicks(f.view(), u" @docs"_s);
        QTRY_VERIFY(mentions->isShowing());
        QCOMPARE(mentions->popup()->item(0)->text(), u"docs/"_s);
        QTest::keyClick(f.view(), Qt::Key_Return);
        QVERIFY(f.view()->toPlainText().endsWith(u" @docs/"));
        QTRY_VERIFY(mentions->isShowing());
        QCOMPARE(mentions->popup()->item(0)->text(), u"docs/guide.md"_s);
        QTest::keyClick(f.view(), Qt::Key_Return);
        QVERIFY(f.view()->toPlainText().endsWith(u" @docs/guide.md "));
        QCOMPARE(f.submits, 0);

        // No folder, no list.
        f.composer->surface().setWorkingFolder(std::nullopt);
        QTest::keyClicks(f.view(), u"@src"_s);
        QTest::qWait(50);
        QVERIFY(!mentions->isShowing());
    }

    void upRecallsThisFoldersPromptsAndTheSearchFillsTheComposer()
    {
        Fixture f;
        f.history.record(u"elsewhere"_s, u"/projects/other"_s);
        f.history.record(u"older\nsecond line"_s, u"/projects/app"_s);
        f.history.record(u"newest"_s, u"/projects/app"_s);
        f.composer->surface().setWorkingFolder(u"/projects/app"_s);
        QTest::keyClick(f.view(), Qt::Key_Up);
        QCOMPARE(f.view()->toPlainText(), u"newest"_s);
        QTest::keyClick(f.view(), Qt::Key_Up);
        QCOMPARE(f.view()->toPlainText(), u"older\nsecond line"_s);
        // Within a recalled prompt Up moves the cursor first.
        QTest::keyClick(f.view(), Qt::Key_Up);
        QCOMPARE(f.view()->textCursor().blockNumber(), 0);
        QTest::keyClick(f.view(), Qt::Key_Up);
        QCOMPARE(f.view()->toPlainText(), u"older\nsecond line"_s); // nothing older here
        QTest::keyClick(f.view(), Qt::Key_Down);
        QTest::keyClick(f.view(), Qt::Key_Down);
        QCOMPARE(f.view()->toPlainText(), u"newest"_s);
        QTest::keyClick(f.view(), Qt::Key_Down);
        QCOMPARE(f.view()->toPlainText(), QString());
        // A recalled prompt once edited ends the browsing: like a text of one's own, neither key
        // replaces it.
        QTest::keyClick(f.view(), Qt::Key_Up);
        QTest::keyClicks(f.view(), u" mine"_s);
        for (const Qt::Key key : {Qt::Key_Up, Qt::Key_Up, Qt::Key_Down})
            QTest::keyClick(f.view(), key);
        QCOMPARE(f.view()->toPlainText(), u"newest mine"_s);

        // The search (its named shortcut) fills the composer for editing, undoably; nothing is sent.
        QTest::keyClick(f.view(), Qt::Key_H, Qt::ControlModifier | Qt::ShiftModifier);
        HistorySearchPopup *search = f.aids().historySearch();
        QVERIFY(search && search->isVisible());
        QCOMPARE(search->list()->item(0)->text().section(u"   \u2014"_s, 0, 0), u"newest"_s);
        QCOMPARE(search->list()->count(), 3); // this folder's first, the other one's too
        QTest::keyClicks(search->field(), u"elsw"_s);
        QCOMPARE(search->list()->count(), 1);
        QTest::keyClick(search->field(), Qt::Key_Return);
        QVERIFY(!search->isVisible());
        QCOMPARE(f.view()->toPlainText(), u"elsewhere"_s);
        QCOMPARE(f.submits, 0);
        f.view()->undo();
        QCOMPARE(f.view()->toPlainText(), u"newest mine"_s);
    }

    void findAndReplaceWithoutClosingTheComposer()
    {
        Fixture f(u"error one\nError two\nerrors three"_s);
        const int height = f.composer->panel()->height();
        QTest::keyClick(f.view(), Qt::Key_F, Qt::ControlModifier);
        FindBar *bar = f.aids().findBar();
        QVERIFY(bar->isVisible() && bar->findField()->hasFocus());
        QTRY_VERIFY(f.composer->panel()->height() > height); // the panel makes room for it
        QTest::keyClicks(bar->findField(), u"error"_s);
        QCOMPARE(bar->status()->text(), u"1 of 3"_s);
        QTest::keyClick(bar->findField(), Qt::Key_Return);
        QCOMPARE(bar->status()->text(), u"2 of 3"_s);
        QCOMPARE(f.view()->textCursor().selectionStart(), 10);
        QTest::keyClick(bar->findField(), Qt::Key_Return, Qt::ShiftModifier);
        QCOMPARE(bar->status()->text(), u"1 of 3"_s);
        bar->wholeWords()->click();
        bar->caseSensitive()->click();
        QCOMPARE(bar->matches().size(), 1);

        bar->wholeWords()->click();
        bar->caseSensitive()->click();
        bar->replaceField()->setText(u"fault"_s);
        bar->replaceCurrent();
        QCOMPARE(f.view()->toPlainText(), u"fault one\nError two\nerrors three"_s);
        bar->replaceAll();
        QCOMPARE(f.view()->toPlainText(), u"fault one\nfault two\nfaults three"_s);
        QCOMPARE(bar->status()->text(), u"Replaced 2"_s);
        f.view()->undo(); // the whole replacement is one step
        QCOMPARE(f.view()->toPlainText(), u"fault one\nError two\nerrors three"_s);

        QTest::keyClick(bar->findField(), Qt::Key_Escape);
        QVERIFY(!bar->isVisible());
        QCOMPARE(f.cancels, 0);
        QVERIFY(f.view()->extraSelections().isEmpty());
        QTRY_COMPARE(f.composer->panel()->height(), height);
    }
};

QTEST_MAIN(EditingViewsTest)
#include "tst_editingviews.moc"
