#include "composer/UnrequestedWindowGuard.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPushButton>
#include <QTimer>
#include <QWidget>

UnrequestedWindowGuard::UnrequestedWindowGuard(QWidget *window)
    : QObject(window)
    , m_window(window)
{
    // Key events go to the focused child, so the watch is application-wide while the window lives.
    qApp->installEventFilter(this);
    // The dialog itself holds the focus at first: no button is one key away from an answer.
    window->setFocusPolicy(Qt::StrongFocus);
    disarmButtons();
}

void UnrequestedWindowGuard::install(QWidget *window)
{
    new UnrequestedWindowGuard(window);
}

bool UnrequestedWindowGuard::belongsToWindow(QObject *object) const
{
    const auto *widget = qobject_cast<QWidget *>(object);
    return m_window && widget && (widget == m_window || m_window->isAncestorOf(widget));
}

void UnrequestedWindowGuard::disarmButtons()
{
    for (QPushButton *button : m_window->findChildren<QPushButton *>()) {
        button->setDefault(false);
        button->setAutoDefault(false);
    }
}

bool UnrequestedWindowGuard::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_window && event->type() == QEvent::Show) {
        m_shown.start();
        m_window->setFocus(Qt::OtherFocusReason);
        // A button box arms its first accepting button as it shows; undo that once it has.
        QTimer::singleShot(0, this, [this] {
            if (m_window)
                disarmButtons();
        });
        return false;
    }
    switch (event->type()) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::ShortcutOverride:
    case QEvent::Shortcut:
        break;
    default:
        return false;
    }
    if (!belongsToWindow(watched))
        return false;
    if (!m_shown.isValid() || m_shown.elapsed() < quietPeriodMs) {
        event->accept();
        return true;
    }
    if (event->type() != QEvent::KeyPress)
        return false;
    const auto *key = static_cast<QKeyEvent *>(event);
    if (key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter)
        return false;
    // Return answers only through the button the user moved the focus to.
    if (auto *button = qobject_cast<QPushButton *>(watched);
        button && button->hasFocus() && (key->modifiers() & ~Qt::KeypadModifier) == 0)
        button->click();
    return true;
}
