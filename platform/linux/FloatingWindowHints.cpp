#include "platform/linux/FloatingWindowHints.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QTimer>
#include <QWindow>

FloatingWindowHints::FloatingWindowHints(QObject *parent)
    : QObject(parent)
{
    QCoreApplication::instance()->installEventFilter(this);
}

FloatingWindowHints::~FloatingWindowHints()
{
    QCoreApplication::instance()->removeEventFilter(this);
}

bool FloatingWindowHints::appliesTo(const QWindow *window)
{
    if (window == nullptr || !window->isTopLevel())
        return false;
    switch (window->type()) {
    case Qt::Window:
    case Qt::Dialog:
    case Qt::Sheet:
    case Qt::Tool:
        return true;
    default:
        return false;
    }
}

bool FloatingWindowHints::eventFilter(QObject *watched, QEvent *event)
{
    // A window's Show comes before Qt creates the compositor's side of it, so the sizes set here
    // are the ones the compositor sees when it maps the window.
    if (event->type() == QEvent::Show || event->type() == QEvent::Expose) {
        if (auto *window = qobject_cast<QWindow *>(watched); appliesTo(window)) {
            if (event->type() == QEvent::Show)
                pin(window);
            else if (window->isExposed() && m_pinned.contains(window))
                // The first frame goes out while the expose is handled; the sizes go back after it.
                QTimer::singleShot(0, this, [this, guarded = QPointer<QWindow>(window)] {
                    if (guarded)
                        release(guarded);
                });
        }
    }
    return QObject::eventFilter(watched, event);
}

void FloatingWindowHints::pin(QWindow *window)
{
    const QSize size = window->size();
    if (size.isEmpty() || m_pinned.contains(window) ||
        (window->minimumSize() == size && window->maximumSize() == size))
        return;
    m_pinned.insert(window, {window->minimumSize(), window->maximumSize(), size});
    connect(window, &QObject::destroyed, this, [this, window] { m_pinned.remove(window); });
    window->setMinimumSize(size);
    window->setMaximumSize(size);
}

void FloatingWindowHints::release(QWindow *window)
{
    const Pinned pinned = m_pinned.take(window);
    disconnect(window, &QObject::destroyed, this, nullptr);
    // Sizes the window changed meanwhile (a panel whose height follows its text) are its own.
    if (window->minimumSize() == pinned.pinned)
        window->setMinimumSize(pinned.minimum);
    if (window->maximumSize() == pinned.pinned)
        window->setMaximumSize(pinned.maximum);
}
