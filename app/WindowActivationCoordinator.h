#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QUuid>
#include <QWidget>

#include <optional>

class WindowSystem;

// Puts Tarvel's windows in front of whatever the user was doing and hands the focus
// back afterwards. A background application may be refused the focus at first, so an
// activation is retried on a fixed schedule until the window is active.
class WindowActivationCoordinator final : public QObject {
    Q_OBJECT

public:
    static constexpr int secondAttemptDelayMs = 350;
    static constexpr int finalAttemptDelayMs = 1000;
    static constexpr int settleDelayMs = 50;
    // After an activation, how long until the Dock icon goes again when no window is left.
    static constexpr int accessoryRestoreDelayMs = 1200;

    explicit WindowActivationCoordinator(WindowSystem &windows, QObject *parent = nullptr);

    // Shows the window and makes it the active one. Where the system has a Dock, the application
    // shows its icon there while one of its windows is up. An activation token (Wayland's
    // xdg-activation) from the process that asked for the window goes with the first request.
    void requestWindowActivation(QWidget *window, const QString &activationToken = {});
    // The Dock icon goes once no window of the application is visible.
    void restoreAccessoryPolicyIfNeeded();
    bool hasPendingActivations() const { return !m_pending.isEmpty(); }

    // Gives the focus back to the process that asked for an editor: by process id when
    // that is another process, else by executable name. False when nothing was found.
    bool restoreFocus(const std::optional<QString> &executableName, const std::optional<qint64> &pid);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void attempt(const QUuid &id, const QString &activationToken = {});
    void complete(const QUuid &id);

    WindowSystem &m_windows;
    QHash<QUuid, QPointer<QWidget>> m_pending;
    bool m_showsInDock = false;
};
