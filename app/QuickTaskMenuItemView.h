#pragma once

#include <QList>
#include <QString>
#include <QWidget>

#include <functional>

class QHBoxLayout;
class QLabel;

// An inline button of a session row: its title, whether pressing it also closes the
// menu, and what it does.
struct QuickTaskInlineAction {
    QString title;
    bool dismissesMenu = true;
    std::function<void()> handler;
};

// The custom row of one quick-task session in the status menu: the prompt, a detail line,
// and inline buttons. Clicking the row outside the buttons runs the primary action.
class QuickTaskMenuItemView final : public QWidget {
    Q_OBJECT

public:
    QuickTaskMenuItemView(const QString &title, const QString &detail,
                          const QList<QuickTaskInlineAction> &actions, std::function<void()> onPrimaryAction,
                          QWidget *parent = nullptr);

    void update(const QString &title, const QString &detail);
    QString title() const;
    QString detail() const;
    QStringList actionTitles() const;
    // Presses the inline button with this title, as a click would.
    bool trigger(const QString &actionTitle);

    // Closes the menu the row sits in; set by the menu's owner.
    std::function<void()> dismissMenu;

protected:
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QLabel *m_titleField = nullptr;
    QLabel *m_detailField = nullptr;
    QHBoxLayout *m_buttons = nullptr;
    QList<QuickTaskInlineAction> m_actions;
    std::function<void()> m_onPrimaryAction;
    bool m_isHighlighted = false;
};
