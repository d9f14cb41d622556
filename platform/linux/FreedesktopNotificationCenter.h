#pragma once

#include "platform/UserNotificationCenter.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QSet>

#include <optional>

class QDBusMessage;

// Notifications through the desktop's notification server (org.freedesktop.Notifications
// on the session bus). The title becomes the summary; the subtitle is the first line of
// the body. The click on the notification is the "default" action. Without a server, or
// without a session bus, nothing is shown and nothing fails.
class FreedesktopNotificationCenter final : public QObject, public UserNotificationCenter {
    Q_OBJECT

public:
    static inline const QString serviceName = QStringLiteral("org.freedesktop.Notifications");
    static inline const QString objectPath = QStringLiteral("/org/freedesktop/Notifications");
    static inline const QString interfaceName = QStringLiteral("org.freedesktop.Notifications");

    explicit FreedesktopNotificationCenter(const QDBusConnection &connection = QDBusConnection::sessionBus(),
                                           QObject *parent = nullptr);
    ~FreedesktopNotificationCenter() override;

    void registerCategory(const QString &categoryIdentifier,
                          const QList<UserNotificationAction> &actions) override;
    void setResponseHandler(ResponseHandler handler) override;
    void post(const UserNotificationRequest &request) override;
    void remove(const QString &identifier) override;

    // The body as the server is sent it: subtitle line, then body; escaped for servers
    // that read markup.
    static QString bodyText(const UserNotificationRequest &request, bool serverReadsMarkup);

private Q_SLOTS:
    void handleActionInvoked(uint serverId, const QString &actionKey);
    void handleNotificationClosed(uint serverId, uint reason);

private:
    struct Shown {
        QString identifier;
        QMap<QString, QString> userInfo;
    };

    void askForCapabilities();
    void send(const UserNotificationRequest &request);
    void close(uint serverId);
    void forget(uint serverId);

    QDBusConnection m_connection;
    QMap<QString, QList<UserNotificationAction>> m_categories;
    ResponseHandler m_responseHandler;
    // Until the server has said whether it reads markup, posts wait here.
    std::optional<bool> m_serverReadsMarkup;
    QList<UserNotificationRequest> m_waiting;
    QHash<uint, Shown> m_shown;
    QHash<QString, uint> m_serverIds;
    // Posts whose server id has not come back yet, and which of them were removed meanwhile.
    QHash<QString, int> m_inFlight;
    QSet<QString> m_removedInFlight;
};
