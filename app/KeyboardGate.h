#pragma once

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <functional>

class Clock;

// The one place that decides when a window Tarvel raises by itself (the editor set-up offer, an
// alert nobody asked for, a permission request) may take the keyboard. Someone typing into a
// composer or recording a shortcut must not have the keys land elsewhere, so such a window waits
// until no composer is on screen and no shortcut is being recorded, and a moment longer after the
// last composer closed: the keys that follow a submit belong to the window the focus went back
// to. What the user asks for (from the tray or the preferences) is never held back.
class KeyboardGate final : public QObject {
    Q_OBJECT

public:
    enum class Origin { askedByUser, unrequested };
    static constexpr std::chrono::milliseconds defaultGracePeriod{1000};

    explicit KeyboardGate(const Clock &clock, std::chrono::milliseconds gracePeriod = defaultGracePeriod,
                          QObject *parent = nullptr);

    // Editor and scratch composers on screen now; a rise claims the keyboard.
    void setComposersOnScreen(int count);
    // A shortcut recorder started or stopped listening; a start claims the keyboard.
    void noteShortcutRecording(bool recording);

    bool mayTakeKeyboard(Origin origin) const;
    // Runs action once an unrequested window may take the keyboard: at once when it may now,
    // never when context is gone by then. Waiting actions run oldest first.
    void whenKeyboardFree(QObject *context, std::function<void()> action);

Q_SIGNALS:
    // A composer came up or a recording began: an unrequested window that holds the keyboard
    // gives it back.
    void keyboardClaimed();

private:
    struct WaitingAction {
        QPointer<QObject> context;
        std::function<void()> action;
    };

    void releaseWhenFree();

    const Clock &m_clock;
    std::chrono::milliseconds m_gracePeriod;
    int m_composers = 0;
    int m_recordings = 0;
    QDateTime m_lastComposerClosedAt;
    QTimer m_graceTimer;
    QList<WaitingAction> m_waiting;
};
