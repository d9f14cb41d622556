// The composer panel's height rule and its submit/cancel paths (offscreen).
#include "composer/ComposerLayout.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"
#include "composer/ComposerTextView.h"
#include "composer/EditorComposer.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QPushButton>
#include <QtTest>

namespace {
QString lines(int count)
{
    QStringList list;
    for (int i = 0; i < count; ++i)
        list.append(QStringLiteral("line %1").arg(i));
    return list.join(u'\n');
}
} // namespace

class ComposerPanelTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // 8 top + text 100 + section + 22 footer + 8 bottom; the scratch panel adds its header (22 at
    // least) and 6, and once ready its strip at the text's width takes the checking overlay's place.
    void layoutSections()
    {
        using namespace ComposerLayout;
        Input input;
        input.mode = Mode::editorRequest;
        input.measuredTextHeight = 100;
        input.maximumVisibleTextHeight = 500;
        input.windowWidth = 520;
        input.headerIntrinsicHeight = 17.6; // below the 22-point floor
        double askedWidth = -1;
        input.stripHeightForWidth = [&](double width) {
            askedWidth = width;
            return 30.0;
        };
        const auto checkTotal = [&input](double expected) {
            QCOMPARE(compute(input).totalHeight, expected);
            QCOMPARE(minimumPanelHeight(input), expected - 100 + minTextHeight);
        };
        checkTotal(8 + 100 + 8 + 22 + 8.0);
        input.mode = Mode::scratch;
        checkTotal(8 + 22 + 6 + 100 + 32 + 22 + 8.0);
        input.scratchReady = true;
        checkTotal(8 + 22 + 6 + 100 + (30 + 5 + 8) + 22 + 8.0);
        QCOMPARE(askedWidth, 504.0);
        // Before layout the width falls back, with the editor's floor.
        QCOMPARE(fallbackTextWidth(Mode::editorRequest, std::nullopt), 468.0);
        QCOMPARE(fallbackTextWidth(Mode::editorRequest, 300.0), 308.0);
        QCOMPARE(fallbackTextWidth(Mode::scratch, 300.0), 344.0);
    }

    void panelGrowsUpwardFromAFixedBottomUpTo32Lines()
    {
        EditorComposer composer(QStringLiteral("one line"));
        ComposerSurface &controller = composer.surface();
        ComposerPanel *panel = controller.panel();
        panel->move(100, 300);
        composer.showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(panel));
        controller.recalculateHeight();
        controller.completeInitialPlacement();
        const int bottom = panel->geometry().bottom();
        const int smallHeight = panel->height();

        panel->textView()->setPlainText(lines(10));
        controller.recalculateHeight();
        QVERIFY(panel->height() > smallHeight);
        QCOMPARE(panel->geometry().bottom(), bottom);
        QVERIFY(!controller.lastAppliedLayoutMetrics()->showsVerticalScroller);

        panel->textView()->setPlainText(lines(200));
        controller.recalculateHeight();
        const int cappedHeight = panel->height();
        QCOMPARE(panel->geometry().bottom(), bottom);
        QVERIFY(controller.lastAppliedLayoutMetrics()->showsVerticalScroller);
        QCOMPARE(controller.lastAppliedLayoutMetrics()->visibleHeight,
                 std::ceil(controller.maximumVisibleTextHeight()));
        // 33 lines are already past the cap: the panel does not grow any further.
        panel->textView()->setPlainText(lines(33));
        controller.recalculateHeight();
        QCOMPARE(panel->height(), cappedHeight);
        panel->textView()->setPlainText(lines(31));
        controller.recalculateHeight();
        QVERIFY(panel->height() < cappedHeight);
        QCOMPARE(panel->geometry().bottom(), bottom);
    }

    void submitCancelAndClose()
    {
        EditorComposer controller(QStringLiteral("draft"));
        QSignalSpy submitted(&controller, &EditorComposer::submitted);
        QSignalSpy cancelled(&controller, &EditorComposer::cancelled);
        controller.showWindow();
        QVERIFY(QTest::qWaitForWindowExposed(controller.panel()));

        QTest::keyClicks(controller.panel()->textView(), QStringLiteral(" more"));
        QTest::keyClick(controller.panel()->textView(), Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(submitted.count(), 1);
        QCOMPARE(submitted.at(0).at(0).toString(), QStringLiteral("draft more"));

        // The buttons are driven by the coordinator's test.
        QTest::keyClick(controller.panel()->textView(), Qt::Key_Escape);
        // A window-manager close is a cancel and leaves the window up for the coordinator.
        controller.panel()->close();
        QCOMPARE(cancelled.count(), 2);
        QVERIFY(controller.panel()->isVisible());

        controller.surface().closeProgrammatically();
        QVERIFY(!controller.panel()->isVisible());
        QCOMPARE(cancelled.count(), 2);
    }

    // A click on the footer's empty space is a click on the background: it hands the keyboard
    // back to the prompt (the header is driven end to end). The panel's sides resize it.
    void footerClickFocusesThePrompt()
    {
        EditorComposer controller(QStringLiteral("draft"));
        controller.showWindow();
        ComposerPanel *panel = controller.panel();
        QVERIFY(QTest::qWaitForWindowActive(panel));
        panel->submitButton()->setFocusPolicy(Qt::StrongFocus);
        panel->submitButton()->setFocus();
        QWidget *footer = panel->cancelButton()->parentWidget();
        const QPoint gap = panel->cancelButton()->geometry().topLeft() - QPoint(30, -5);
        QCOMPARE(panel->childAt(footer->pos() + gap), footer);
        QTest::mouseClick(footer, Qt::LeftButton, {}, gap);
        QVERIFY(panel->textView()->hasFocus());

        // The sides resize the panel (end to end in tst_quicktask_e2e): the pointer says so there only.
        const auto cursorAt = [panel](int x) {
            QTest::mouseMove(panel, QPoint(x, panel->height() / 2));
            return panel->cursor().shape();
        };
        QCOMPARE(cursorAt(1), Qt::SizeHorCursor);
        QCOMPARE(cursorAt(ComposerLayout::horizontalPadding - 1), Qt::ArrowCursor);
        QCOMPARE(cursorAt(panel->width() - 2), Qt::SizeHorCursor);
    }

    void pastedFilesBecomePathText()
    {
        EditorComposer controller((QString()));
        QTemporaryDir dir;
        auto *data = new QMimeData;
        data->setUrls({QUrl::fromLocalFile(dir.filePath(QStringLiteral("a/../notes.txt"))),
                       QUrl::fromLocalFile(dir.filePath(QStringLiteral("b c.png"))),
                       QUrl(QStringLiteral("https://example.invalid/x"))});
        data->setText(QStringLiteral("should not be used"));
        QGuiApplication::clipboard()->setMimeData(data);
        controller.panel()->textView()->paste();
        QCOMPARE(controller.text(),
                 dir.filePath(QStringLiteral("notes.txt")) + u'\n' + dir.filePath(QStringLiteral("b c.png")));

        // Rich text arrives as plain text.
        auto *rich = new QMimeData;
        rich->setHtml(QStringLiteral("<b>bold</b>"));
        rich->setText(QStringLiteral("bold"));
        QGuiApplication::clipboard()->setMimeData(rich);
        controller.panel()->textView()->clear();
        controller.panel()->textView()->paste();
        QVERIFY(!controller.panel()->textView()->toHtml().contains(QStringLiteral("font-weight:700")));
        QCOMPARE(controller.text(), QStringLiteral("bold"));
    }
};

QTEST_MAIN(ComposerPanelTest)
#include "tst_composerpanel.moc"
