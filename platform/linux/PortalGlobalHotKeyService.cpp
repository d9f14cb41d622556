#include "platform/linux/PortalGlobalHotKeyService.h"

#include "platform/linux/GlobalShortcutsPortal.h"
#include "platform/linux/ManualShortcutBinding.h"
#include "platform/linux/X11HotKeyMapping.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>

namespace {

const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
const QString desktopPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
const QString sessionInterface = QStringLiteral("org.freedesktop.portal.Session");

struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

namespace {

QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

PortalGlobalHotKeyService::PortalGlobalHotKeyService(QObject *parent)
    : GlobalHotKeyService(parent)
{
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    // Only a Wayland session needs the portal; elsewhere (no display at all) nothing is asked.
    QDBusConnection bus = QDBusConnection::sessionBus();
    m_available = GlobalShortcutsPortal::isOffered();
    if (!m_available)
        return;
    bus.connect(service, desktopPath, shortcutsInterface, QStringLiteral("Activated"), this,
                SLOT(activated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    bus.connect(service, desktopPath, shortcutsInterface, QStringLiteral("Deactivated"), this,
                SLOT(deactivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
}

PortalGlobalHotKeyService::~PortalGlobalHotKeyService()
{
    closeSession();
}

QString PortalGlobalHotKeyService::unavailableReason() const
{
    if (m_available)
        return {};
    return QStringLiteral("Global shortcuts need an X11 session or a desktop that offers the "
                          "GlobalShortcuts portal.");
}

QString PortalGlobalHotKeyService::registerHotKey(int id, const Shortcut &shortcut)
{
    if (!m_available)
        return unavailableReason();
    const QString trigger = X11HotKeyMapping::portalTrigger(shortcut);
    if (trigger.isEmpty()) {
        unregisterHotKey(id);
        return QStringLiteral("%1 cannot be used as a system-wide shortcut.")
            .arg(shortcut.displayText(nativeShortcutDisplayStyle()));
    }
    m_triggers.insert(id, trigger);
    rebind();
    return {};
}

QString PortalGlobalHotKeyService::manualBindingInstructions(const std::optional<Shortcut> &shortcut) const
{
    if (m_available)
        return {};
    return ManualShortcutBinding::instructions(ManualShortcutBinding::currentDesktop(), shortcut,
                                               ManualShortcutBinding::tarvelCommand());
}

void PortalGlobalHotKeyService::unregisterHotKey(int id)
{
    if (m_triggers.remove(id) > 0)
        rebind();
}

QString PortalGlobalHotKeyService::requestPath(const QString &token) const
{
    QString sender = QDBusConnection::sessionBus().baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
}

void PortalGlobalHotKeyService::rebind()
{
    closeSession();
    if (m_triggers.isEmpty())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QString token = QStringLiteral("tarvel%1").arg(++m_requestCount);
    // Listen before asking, as the answer may come before the call returns.
    m_pendingRequest = requestPath(token);
    bus.connect(service, m_pendingRequest, requestInterface, QStringLiteral("Response"), this,
                SLOT(sessionCreated(uint, QVariantMap)));
    QDBusMessage create = QDBusMessage::createMethodCall(service, desktopPath, shortcutsInterface,
                                                         QStringLiteral("CreateSession"));
    create << QVariantMap{{QStringLiteral("handle_token"), token},
                          {QStringLiteral("session_handle_token"), token}};
    bus.send(create);
}

void PortalGlobalHotKeyService::sessionCreated(uint response, const QVariantMap &results)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.disconnect(service, m_pendingRequest, requestInterface, QStringLiteral("Response"), this,
                   SLOT(sessionCreated(uint, QVariantMap)));
    m_pendingRequest.clear();
    if (response != 0)
        return;
    m_session = results.value(QStringLiteral("session_handle")).toString();
    QList<PortalShortcut> shortcuts;
    for (auto it = m_triggers.cbegin(); it != m_triggers.cend(); ++it) {
        shortcuts.append(
            {QString::number(it.key()),
             {{QStringLiteral("description"), QStringLiteral("Tarvel shortcut %1").arg(it.key())},
              {QStringLiteral("preferred_trigger"), it.value()}}});
    }
    QDBusMessage bind = QDBusMessage::createMethodCall(service, desktopPath, shortcutsInterface,
                                                       QStringLiteral("BindShortcuts"));
    bind << QVariant::fromValue(QDBusObjectPath(m_session)) << QVariant::fromValue(shortcuts) << QString()
         << QVariantMap();
    bus.send(bind);
}

void PortalGlobalHotKeyService::closeSession()
{
    if (!m_pendingRequest.isEmpty()) {
        QDBusConnection::sessionBus().disconnect(service, m_pendingRequest, requestInterface,
                                                 QStringLiteral("Response"), this,
                                                 SLOT(sessionCreated(uint, QVariantMap)));
        m_pendingRequest.clear();
    }
    if (m_session.isEmpty())
        return;
    QDBusConnection::sessionBus().send(
        QDBusMessage::createMethodCall(service, m_session, sessionInterface, QStringLiteral("Close")));
    m_session.clear();
}

void PortalGlobalHotKeyService::activated(const QDBusObjectPath &session, const QString &shortcutId,
                                          qulonglong, const QVariantMap &)
{
    bool ok = false;
    const int id = shortcutId.toInt(&ok);
    if (ok && session.path() == m_session && m_triggers.contains(id))
        Q_EMIT pressed(id);
}

void PortalGlobalHotKeyService::deactivated(const QDBusObjectPath &session, const QString &shortcutId,
                                            qulonglong, const QVariantMap &)
{
    bool ok = false;
    const int id = shortcutId.toInt(&ok);
    if (ok && session.path() == m_session && m_triggers.contains(id))
        Q_EMIT released(id);
}
