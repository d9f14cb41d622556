#include "platform/SystemDiagnostics.h"

#include "platform/linux/DBusContract.h"
#include "platform/linux/GlobalShortcutsPortal.h"
#include "platform/linux/I3IpcClient.h"
#include "platform/linux/ManualShortcutBinding.h"
#include "platform/linux/NotificationServer.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QFile>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace SystemDiagnostics {
namespace {

using Severity = DiagnosticFinding::Severity;

struct FreeDeleter {
    void operator()(void *pointer) const { std::free(pointer); }
};

struct XcbDisconnect {
    void operator()(xcb_connection_t *connection) const { xcb_disconnect(connection); }
};
using XcbConnection = std::unique_ptr<xcb_connection_t, XcbDisconnect>;

bool ownsSelection(xcb_connection_t *connection, const QByteArray &name)
{
    std::unique_ptr<xcb_intern_atom_reply_t, FreeDeleter> atom(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, std::uint16_t(name.size()), name.constData()), nullptr));
    if (!atom)
        return false;
    std::unique_ptr<xcb_get_selection_owner_reply_t, FreeDeleter> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom), nullptr));
    return owner && owner->owner != XCB_NONE;
}

bool hasOwner(QDBusConnection &bus, const QString &name)
{
    return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(name).value();
}

DiagnosticFinding displayFinding(const XcbConnection &x11, int screen)
{
    const QString x11Name = qEnvironmentVariable("DISPLAY");
    const QString waylandName = qEnvironmentVariable("WAYLAND_DISPLAY");
    if (x11)
        return {QStringLiteral("Display"),
                Severity::ok,
                QStringLiteral("X11 display %1 (screen %2) is reachable.").arg(x11Name).arg(screen),
                {}};
    if (!waylandName.isEmpty() && !I3IpcClient::socketPathFromEnvironment().isEmpty())
        return {QStringLiteral("Display"),
                Severity::ok,
                QStringLiteral("Wayland display %1 with the window manager's IPC socket, so composers "
                               "are placed over their terminal.")
                    .arg(waylandName),
                {}};
    if (!waylandName.isEmpty())
        return {QStringLiteral("Display"),
                Severity::ok,
                QStringLiteral("Wayland display %1; the compositor shows no client the other windows, so "
                               "it places composers itself instead of over their terminal.")
                    .arg(waylandName),
                {}};
    if (!x11Name.isEmpty())
        return {QStringLiteral("Display"), Severity::problem,
                QStringLiteral("X11 display %1 cannot be opened.").arg(x11Name),
                QStringLiteral("Check that the display is running and that XAUTHORITY names its cookie.")};
    return {QStringLiteral("Display"), Severity::problem, QStringLiteral("No display is set."),
            QStringLiteral("Run Tarvel inside a graphical session (DISPLAY and WAYLAND_DISPLAY are "
                           "both unset here).")};
}

DiagnosticFinding busFinding(QDBusConnection &bus)
{
    if (!bus.isConnected())
        return {QStringLiteral("Session bus"), Severity::problem,
                QStringLiteral("There is no D-Bus session bus, so tarvel-edit cannot reach Tarvel and "
                               "opens a terminal editor instead."),
                QStringLiteral("Log in through a desktop session, or start one with dbus-run-session.")};
    if (hasOwner(bus, DBusContract::serviceName))
        return {
            QStringLiteral("Session bus"), Severity::ok, QStringLiteral("Connected; Tarvel is running."), {}};
    const QDBusReply<QStringList> activatable = bus.interface()->activatableServiceNames();
    if (activatable.isValid() && activatable.value().contains(DBusContract::serviceName))
        return {QStringLiteral("Session bus"),
                Severity::ok,
                QStringLiteral("Connected; Tarvel is not running and the bus starts it on demand."),
                {}};
    return {QStringLiteral("Session bus"),
            Severity::ok,
            QStringLiteral("Connected; Tarvel is not running and tarvel-edit starts it on demand."),
            {}};
}

// Who keeps the StatusNotifierItem watcher: swaybar, plasmashell, gnome-shell (its AppIndicator
// extension), as "swaybar's"; "A" when the bus does not say.
QString trayHostName(QDBusConnection &bus)
{
    const QDBusReply<uint> pid = bus.interface()->servicePid(QStringLiteral("org.kde.StatusNotifierWatcher"));
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid.isValid() ? pid.value() : 0));
    const QString name =
        comm.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(comm.readAll()).trimmed() : QString();
    return name.isEmpty() ? QStringLiteral("A") : name + QStringLiteral("\u2019s");
}

DiagnosticFinding trayFinding(QDBusConnection &bus, const XcbConnection &x11, int screen)
{
    if (x11 && ownsSelection(x11.get(), QByteArrayLiteral("_NET_SYSTEM_TRAY_S") + QByteArray::number(screen)))
        return {
            QStringLiteral("Tray"), Severity::ok, QStringLiteral("An XEmbed system tray is running."), {}};
    if (hasOwner(bus, QStringLiteral("org.kde.StatusNotifierWatcher")))
        return {QStringLiteral("Tray"),
                Severity::ok,
                QStringLiteral("%1 StatusNotifierItem host is running; clicking Tarvel's icon opens its "
                               "menu.")
                    .arg(trayHostName(bus)),
                {}};
    return {QStringLiteral("Tray"), Severity::warning,
            QStringLiteral("No system tray is running, so Tarvel's icon and menu are not shown."),
            QStringLiteral("Enable your desktop's tray (on GNOME, the AppIndicator extension), or run a "
                           "stand-alone tray such as trayer or stalonetray.")};
}

DiagnosticFinding notificationsFinding(QDBusConnection &bus)
{
    const QString &service = NotificationServer::serviceName;
    if (!NotificationServer::isRunning(bus))
        return {QStringLiteral("Notifications"), Severity::warning,
                QStringLiteral("No notification server is on the session bus, so finished quick tasks "
                               "are not announced."),
                NotificationServer::installRemedy()};
    QDBusInterface server(service, QStringLiteral("/org/freedesktop/Notifications"), service, bus);
    const QDBusReply<QStringList> capabilities = server.call(QStringLiteral("GetCapabilities"));
    QString name = QStringLiteral("A notification server");
    const QDBusMessage information = server.call(QStringLiteral("GetServerInformation"));
    if (information.type() == QDBusMessage::ReplyMessage && !information.arguments().isEmpty())
        name = information.arguments().constFirst().toString();
    if (!capabilities.isValid() || !capabilities.value().contains(QStringLiteral("actions")))
        return {QStringLiteral("Notifications"), Severity::warning,
                QStringLiteral("%1 is running but shows no action buttons, so notifications have no "
                               "Copy button.")
                    .arg(name),
                QStringLiteral("Use a notification server that supports actions to copy answers from "
                               "notifications; the tray menu's Copy works either way.")};
    return {QStringLiteral("Notifications"),
            Severity::ok,
            QStringLiteral("%1 is running and shows action buttons.").arg(name),
            {}};
}

} // namespace

QList<DiagnosticFinding> desktopFindings()
{
    int screen = 0;
    XcbConnection x11;
    if (!qEnvironmentVariableIsEmpty("DISPLAY")) {
        x11.reset(xcb_connect(nullptr, &screen));
        if (xcb_connection_has_error(x11.get()))
            x11.reset();
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    return {displayFinding(x11, screen), busFinding(bus), trayFinding(bus, x11, screen),
            notificationsFinding(bus)};
}

QString globalShortcutsUnavailableReason()
{
    if (!qEnvironmentVariableIsEmpty("DISPLAY")) {
        const XcbConnection x11(xcb_connect(nullptr, nullptr));
        if (!xcb_connection_has_error(x11.get()))
            return {};
    }
    if (GlobalShortcutsPortal::isOffered())
        return {};
    return QStringLiteral("Global shortcuts need an X11 session or a desktop that offers the "
                          "GlobalShortcuts portal.");
}

QString manualShortcutInstructions(const std::optional<Shortcut> &shortcut)
{
    return ManualShortcutBinding::instructions(ManualShortcutBinding::currentDesktop(), shortcut,
                                               ManualShortcutBinding::tarvelCommand());
}

} // namespace SystemDiagnostics
