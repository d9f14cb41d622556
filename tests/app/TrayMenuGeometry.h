#pragma once

// Where things sit in tarvel's tray menu with one session row. Qt draws the row's buttons
// inside the menu's one X window, so they are found by building the same menu in this
// process (same display, style and fonts) and measuring it.
#include "DesktopTestSupport.h"

#include "app/QuickTaskMenuItemView.h"

#include <QAbstractButton>
#include <QLabel>
#include <QLayout>
#include <QMenu>
#include <QWidgetAction>

namespace desktop_test {
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

// Clicks a point of the measured menu in the real one. The row's buttons are right-aligned,
// so x counts from the right edge; only the items above a point decide its height.
inline void clickInMenu(const QString &menu, const MeasuredMenu &measured, const QPoint &point)
{
    const Geometry frame = geometry(menu);
    click(frame.right() - (measured.menu.width() - point.x()), frame.y + point.y());
}

inline void clickInlineButton(const QString &menu, const QStringList &actionTitles, const QString &title)
{
    const MeasuredMenu measured(actionTitles);
    const auto *button = measured.row->findChild<QAbstractButton *>(QStringLiteral("InlineAction_") + title);
    QVERIFY(button);
    clickInMenu(menu, measured, measured.rowRect.topLeft() + button->geometry().center());
}

inline void clickClearFinishedTasks(const QString &menu)
{
    const MeasuredMenu measured({});
    clickInMenu(menu, measured, measured.menu.actionGeometry(measured.clear).center());
}

// Clicks the row's prompt line, away from its buttons; the line is left-aligned.
inline void clickRowText(const QString &menu, const QStringList &actionTitles)
{
    const MeasuredMenu measured(actionTitles);
    const auto *title = measured.row->findChild<QLabel *>(QStringLiteral("SessionTitle"));
    QVERIFY(title);
    const QPoint offset =
        measured.rowRect.topLeft() + title->geometry().topLeft() + QPoint(8, title->height() / 2);
    const Geometry frame = geometry(menu);
    click(frame.x + offset.x(), frame.y + offset.y());
}
} // namespace desktop_test
