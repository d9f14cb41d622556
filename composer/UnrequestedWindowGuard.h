#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>

class QWidget;

// Keeps a window that Tarvel raises by itself, rather than at the user's request, from turning
// keys typed for another window into an answer: none of its buttons is armed for Return (only a
// button the user moved the focus to takes Return, Enter or Space), nothing else has the focus
// when it appears, and it takes no key at all in its first half second on screen.
class UnrequestedWindowGuard final : public QObject {
    Q_OBJECT

public:
    static constexpr int quietPeriodMs = 500;

    // Guards the window for as long as it exists; call before it is shown.
    static void install(QWidget *window);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    explicit UnrequestedWindowGuard(QWidget *window);
    bool belongsToWindow(QObject *object) const;
    void disarmButtons();

    QPointer<QWidget> m_window;
    QElapsedTimer m_shown;
};
