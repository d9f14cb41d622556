#pragma once

#include <QHash>
#include <QObject>
#include <QSize>

class QWindow;

// Makes every top-level window of the application float at its own size on tiling Wayland
// compositors, which tile a window unless it has a parent or a size it cannot change. Each window
// is shown with its minimum and maximum sizes pinned to its size, which the compositor reads when it
// maps the window; once the first frame is out the sizes go back to what the window asked for, so a
// window the user could resize still can.
class FloatingWindowHints final : public QObject {
    Q_OBJECT

public:
    // Watches the application's windows from now on.
    explicit FloatingWindowHints(QObject *parent = nullptr);
    ~FloatingWindowHints() override;

    // Whether a window of this kind gets the hints: top-level windows the compositor places
    // itself, not menus, pop-ups or tool tips (they are placed by their parent).
    static bool appliesTo(const QWindow *window);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    struct Pinned {
        QSize minimum;
        QSize maximum;
        QSize pinned;
    };
    void pin(QWindow *window);
    void release(QWindow *window);

    QHash<QWindow *, Pinned> m_pinned;
};
