#include "platform/linux/FreedesktopNotificationCenter.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

#include <utility>

namespace {

const QString kApplicationName = QStringLiteral("Tarvel");
const QString kDefaultActionLabel = QStringLiteral("Open");
// A short, neutral sound from the freedesktop sound theme.
const QString kDefaultSoundName = QStringLiteral("message-new-instant");

QDBusMessage methodCall(const QString &method)
{
    return QDBusMessage::createMethodCall(FreedesktopNotificationCenter::serviceName,
                                          FreedesktopNotificationCenter::objectPath,
                                          FreedesktopNotificationCenter::interfaceName, method);
}

} // namespace

FreedesktopNotificationCenter::FreedesktopNotificationCenter(const QDBusConnection &connection,
                                                             QObject *parent)
    : QObject(parent)
    , m_connection(connection)
{
    if (!m_connection.isConnected())
        return;
    // Naming the service keeps other applications' notifications out; Qt follows the name
    // to whichever server owns it, also one that starts later.
    m_connection.connect(serviceName, objectPath, interfaceName, QStringLiteral("ActionInvoked"), this,
                         SLOT(handleActionInvoked(uint, QString)));
    m_connection.connect(serviceName, objectPath, interfaceName, QStringLiteral("NotificationClosed"), this,
                         SLOT(handleNotificationClosed(uint, uint)));
}

FreedesktopNotificationCenter::~FreedesktopNotificationCenter() = default;

void FreedesktopNotificationCenter::registerCategory(const QString &categoryIdentifier,
                                                     const QList<UserNotificationAction> &actions)
{
    m_categories.insert(categoryIdentifier, actions);
}

void FreedesktopNotificationCenter::setResponseHandler(ResponseHandler handler)
{
    m_responseHandler = std::move(handler);
}

void FreedesktopNotificationCenter::post(const UserNotificationRequest &request)
{
    if (!m_connection.isConnected())
        return;
    m_removedInFlight.remove(request.identifier);
    if (m_serverReadsMarkup) {
        send(request);
        return;
    }
    m_waiting.append(request);
    if (m_waiting.size() == 1)
        askForCapabilities();
}

void FreedesktopNotificationCenter::remove(const QString &identifier)
{
    m_waiting.removeIf(
        [&](const UserNotificationRequest &request) { return request.identifier == identifier; });
    if (m_inFlight.value(identifier) > 0)
        m_removedInFlight.insert(identifier);
    if (const auto it = m_serverIds.constFind(identifier); it != m_serverIds.cend()) {
        const uint serverId = it.value();
        close(serverId);
        forget(serverId);
    }
}

QString FreedesktopNotificationCenter::bodyText(const UserNotificationRequest &request,
                                                bool serverReadsMarkup)
{
    QStringList lines;
    for (const QString &line : {request.subtitle, request.body}) {
        if (!line.isEmpty())
            lines.append(serverReadsMarkup ? line.toHtmlEscaped() : line);
    }
    return lines.join(u'\n');
}

void FreedesktopNotificationCenter::askForCapabilities()
{
    auto *watcher = new QDBusPendingCallWatcher(
        m_connection.asyncCall(methodCall(QStringLiteral("GetCapabilities"))), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
        call->deleteLater();
        const QDBusPendingReply<QStringList> reply = *call;
        const QList<UserNotificationRequest> waiting = std::exchange(m_waiting, {});
        if (reply.isError()) {
            // No server: these are lost, and the next post asks again, in case one has
            // started by then.
            return;
        }
        m_serverReadsMarkup = reply.value().contains(QStringLiteral("body-markup"));
        for (const UserNotificationRequest &request : waiting)
            send(request);
    });
}

void FreedesktopNotificationCenter::send(const UserNotificationRequest &request)
{
    QStringList actions{defaultActionIdentifier, kDefaultActionLabel};
    for (const UserNotificationAction &action : m_categories.value(request.categoryIdentifier))
        actions << action.identifier << action.title;

    QVariantMap hints;
    if (!request.categoryIdentifier.isEmpty())
        hints.insert(QStringLiteral("category"), QStringLiteral("x-tarvel.") + request.categoryIdentifier);
    if (request.playsDefaultSound)
        hints.insert(QStringLiteral("sound-name"), kDefaultSoundName);

    QDBusMessage call = methodCall(QStringLiteral("Notify"));
    call << kApplicationName << m_serverIds.value(request.identifier, 0u) << QString() << request.title
         << bodyText(request, m_serverReadsMarkup.value_or(false)) << actions << hints << qint32(-1);

    const QString identifier = request.identifier;
    const QMap<QString, QString> userInfo = request.userInfo;
    ++m_inFlight[identifier];
    auto *watcher = new QDBusPendingCallWatcher(m_connection.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, identifier, userInfo](QDBusPendingCallWatcher *pending) {
                pending->deleteLater();
                if (--m_inFlight[identifier] <= 0)
                    m_inFlight.remove(identifier);
                const QDBusPendingReply<uint> reply = *pending;
                if (reply.isError()) {
                    // The server went away or refused; a notification is never worth an error.
                    m_serverReadsMarkup.reset();
                    return;
                }
                const uint serverId = reply.value();
                if (m_removedInFlight.contains(identifier)) {
                    if (!m_inFlight.contains(identifier))
                        m_removedInFlight.remove(identifier);
                    close(serverId);
                    return;
                }
                if (const uint previous = m_serverIds.value(identifier, 0u);
                    previous != 0 && previous != serverId)
                    forget(previous);
                m_shown.insert(serverId, Shown{identifier, userInfo});
                m_serverIds.insert(identifier, serverId);
            });
}

void FreedesktopNotificationCenter::close(uint serverId)
{
    QDBusMessage call = methodCall(QStringLiteral("CloseNotification"));
    call << serverId;
    // Closing one the server has already dropped is answered with an error; nobody waits for it.
    m_connection.send(call);
}

void FreedesktopNotificationCenter::forget(uint serverId)
{
    const auto it = m_shown.constFind(serverId);
    if (it == m_shown.cend())
        return;
    if (m_serverIds.value(it->identifier) == serverId)
        m_serverIds.remove(it->identifier);
    m_shown.erase(it);
}

void FreedesktopNotificationCenter::handleActionInvoked(uint serverId, const QString &actionKey)
{
    const auto it = m_shown.constFind(serverId);
    if (it == m_shown.cend())
        return; // another application's notification
    const UserNotificationResponse response{it->identifier, actionKey, it->userInfo};
    if (m_responseHandler)
        m_responseHandler(response);
    // Servers differ in whether an action closes its notification; it must not linger.
    if (m_shown.contains(serverId)) {
        close(serverId);
        forget(serverId);
    }
}

void FreedesktopNotificationCenter::handleNotificationClosed(uint serverId, uint reason)
{
    Q_UNUSED(reason);
    forget(serverId);
}

std::unique_ptr<UserNotificationCenter> UserNotificationCenter::create()
{
    return std::make_unique<FreedesktopNotificationCenter>();
}
