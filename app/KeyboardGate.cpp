#include "app/KeyboardGate.h"

#include "core/Clock.h"

KeyboardGate::KeyboardGate(const Clock &clock, std::chrono::milliseconds gracePeriod, QObject *parent)
    : QObject(parent)
    , m_clock(clock)
    , m_gracePeriod(gracePeriod)
{
    m_graceTimer.setSingleShot(true);
    connect(&m_graceTimer, &QTimer::timeout, this, &KeyboardGate::releaseWhenFree);
}

void KeyboardGate::setComposersOnScreen(int count)
{
    const int before = std::exchange(m_composers, qMax(0, count));
    if (m_composers > before)
        Q_EMIT keyboardClaimed();
    else if (m_composers == 0 && before > 0)
        m_lastComposerClosedAt = m_clock.now();
    releaseWhenFree();
}

void KeyboardGate::noteShortcutRecording(bool recording)
{
    // Counted: one recorder may start before the one it replaces has stopped.
    m_recordings = qMax(0, m_recordings + (recording ? 1 : -1));
    if (recording)
        Q_EMIT keyboardClaimed();
    releaseWhenFree();
}

bool KeyboardGate::mayTakeKeyboard(Origin origin) const
{
    if (origin == Origin::askedByUser)
        return true;
    if (m_composers > 0 || m_recordings > 0)
        return false;
    return !m_lastComposerClosedAt.isValid() ||
           m_clock.now() >= m_lastComposerClosedAt.addMSecs(m_gracePeriod.count());
}

void KeyboardGate::whenKeyboardFree(QObject *context, std::function<void()> action)
{
    m_waiting.append({context, std::move(action)});
    releaseWhenFree();
}

void KeyboardGate::releaseWhenFree()
{
    m_graceTimer.stop();
    // One at a time, asking again before each: an action may open a modal window whose own
    // event loop brings a composer up.
    while (!m_waiting.isEmpty() && mayTakeKeyboard(Origin::unrequested)) {
        const WaitingAction next = m_waiting.takeFirst();
        if (next.context)
            next.action();
    }
    if (m_waiting.isEmpty() || m_composers > 0 || m_recordings > 0)
        return; // a change of either calls again
    const qint64 remaining = m_clock.now().msecsTo(m_lastComposerClosedAt.addMSecs(m_gracePeriod.count()));
    m_graceTimer.start(int(qBound(qint64(1), remaining, qint64(m_gracePeriod.count()))));
}
