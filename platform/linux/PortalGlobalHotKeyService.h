#pragma once

#include "platform/GlobalHotKeyService.h"

#include <QDBusObjectPath>
#include <QMap>
#include <QVariantMap>

// System-wide shortcuts through the desktop portal (Wayland, where no client may grab keys). The
// desktop owns the combinations: it binds them for a session and may ask the user, so a
// registration succeeds here and the desktop has the last word. Every change binds the whole set
// again in a new session, as a session binds its shortcuts once.
class PortalGlobalHotKeyService final : public GlobalHotKeyService {
    Q_OBJECT

public:
    explicit PortalGlobalHotKeyService(QObject *parent = nullptr);
    ~PortalGlobalHotKeyService() override;

    QString unavailableReason() const override;
    QString registerHotKey(int id, const Shortcut &shortcut) override;
    void unregisterHotKey(int id) override;
    QString manualBindingInstructions(const std::optional<Shortcut> &shortcut) const override;

private:
    void rebind();
    void closeSession();
    // The object path of the Request the portal makes for a call with this token.
    QString requestPath(const QString &token) const;

private Q_SLOTS:
    // Called by name by QtDBus.
    void sessionCreated(uint response, const QVariantMap &results);
    void activated(const QDBusObjectPath &session, const QString &shortcutId, qulonglong timestamp,
                   const QVariantMap &options);
    void deactivated(const QDBusObjectPath &session, const QString &shortcutId, qulonglong timestamp,
                     const QVariantMap &options);

private:
    bool m_available = false;
    // The portal's trigger for each id.
    QMap<int, QString> m_triggers;
    QString m_session;
    QString m_pendingRequest;
    int m_requestCount = 0;
};
