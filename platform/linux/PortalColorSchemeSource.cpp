#include "platform/linux/PortalColorSchemeSource.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace {
const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString kNamespace = QStringLiteral("org.freedesktop.appearance");
const QString kKey = QStringLiteral("color-scheme");
} // namespace

std::unique_ptr<ColorSchemeSource> ColorSchemeSource::create()
{
    return std::make_unique<PortalColorSchemeSource>();
}

PortalColorSchemeSource::PortalColorSchemeSource()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    // From whichever client owns the portal's name now or later: a portal started on demand comes
    // after this subscription, and all it can change is the palette.
    bus.connect(QString(), kPath, kInterface, QStringLiteral("SettingChanged"), this,
                SLOT(settingChanged(QDBusMessage)));
    QDBusMessage read = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Read"));
    read << kNamespace << kKey;
    // Asked without waiting: a portal started on demand takes a moment, and nothing waits for it.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
        const QDBusPendingReply<QDBusVariant> reply = *call;
        if (reply.isValid())
            apply(fromPortalValue(QVariant::fromValue(reply.value())));
        call->deleteLater();
    });
}

ColorSchemeSource::Scheme PortalColorSchemeSource::fromPortalValue(const QVariant &value)
{
    QVariant inner = value;
    while (inner.userType() == qMetaTypeId<QDBusVariant>())
        inner = inner.value<QDBusVariant>().variant();
    bool isNumber = false;
    const uint number = inner.toUInt(&isNumber);
    if (!isNumber)
        return Scheme::noPreference;
    return number == 1 ? Scheme::dark : number == 2 ? Scheme::light : Scheme::noPreference;
}

void PortalColorSchemeSource::settingChanged(const QDBusMessage &message)
{
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() == 3 && arguments.at(0).toString() == kNamespace &&
        arguments.at(1).toString() == kKey)
        apply(fromPortalValue(arguments.at(2)));
}

void PortalColorSchemeSource::apply(Scheme scheme)
{
    if (scheme == m_scheme)
        return;
    m_scheme = scheme;
    Q_EMIT schemeChanged(scheme);
}
