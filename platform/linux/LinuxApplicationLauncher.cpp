#include "platform/ApplicationLauncher.h"
#include "platform/linux/DBusContract.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

namespace ApplicationLauncher {
namespace {

bool hasDisplay()
{
    // An explicit Qt platform (offscreen, vnc, ...) needs no display server.
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

bool isExecutableFile(const QString &path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

const QString kBusService = QStringLiteral("org.freedesktop.DBus");
const QString kBusPath = QStringLiteral("/org/freedesktop/DBus");
const QString kBusInterface = QStringLiteral("org.freedesktop.DBus");

// An installed Tarvel has a service file, and the bus starts it: one copy, however many
// helpers ask at once. The started copy needs this terminal's display, which a bus begun
// before the desktop may not have in its activation environment yet.
bool startThroughBus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    const QDBusReply<QStringList> activatable = bus.interface()->activatableServiceNames();
    if (!activatable.isValid() || !activatable.value().contains(DBusContract::serviceName))
        return false;

    QMap<QString, QString> display;
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY"}) {
        if (qEnvironmentVariableIsSet(name))
            display.insert(QString::fromLatin1(name), qEnvironmentVariable(name));
    }
    if (!display.isEmpty()) {
        DBusContract::registerTypes();
        QDBusMessage update = QDBusMessage::createMethodCall(kBusService, kBusPath, kBusInterface,
                                                             QStringLiteral("UpdateActivationEnvironment"));
        update << QVariant::fromValue(display);
        bus.call(update);
    }
    // The reply comes once the application owns its name; the helper watches for that itself.
    QDBusMessage start = QDBusMessage::createMethodCall(kBusService, kBusPath, kBusInterface,
                                                        QStringLiteral("StartServiceByName"));
    start << DBusContract::serviceName << 0u;
    return bus.send(start);
}

} // namespace

Outcome launch()
{
    if (!hasDisplay())
        return {false, QStringLiteral("no display")};

    QString program;
    const QString configured = qEnvironmentVariable("TARVEL_APP_PATH");
    if (!configured.isEmpty()) {
        if (!isExecutableFile(configured))
            return {false, QStringLiteral("TARVEL_APP_PATH is not an executable file")};
        program = configured;
    } else if (startThroughBus()) {
        return {true, {}};
    } else {
        // Installed side by side, or anywhere on PATH.
        const QString beside =
            QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("tarvel"));
        program =
            isExecutableFile(beside) ? beside : QStandardPaths::findExecutable(QStringLiteral("tarvel"));
        if (program.isEmpty())
            return {false, QStringLiteral("Tarvel is not installed")};
    }

    // startDetached() puts the application in a session of its own, so closing the
    // terminal does not take it down; it gets no terminal streams either.
    QProcess process;
    process.setProgram(program);
    process.setWorkingDirectory(QDir::homePath());
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    if (!process.startDetached())
        return {false, QStringLiteral("could not start %1").arg(QDir::toNativeSeparators(program))};
    return {true, {}};
}

} // namespace ApplicationLauncher
