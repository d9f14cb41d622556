#pragma once

#include <QDBusMessage>
#include <QString>

class QDBusConnection;

// The desktop's notification server on the session bus, as both `tarvel doctor` and the
// permissions window see it.
namespace NotificationServer {

extern const QString serviceName;

// Whether a server owns org.freedesktop.Notifications on the bus.
bool isRunning(QDBusConnection &bus);
// The bus's question of the same, for an asynchronous call; the answer is one boolean.
QDBusMessage isRunningQuestion();

// What to do when none is running, as a sentence for the user.
QString installRemedy();

} // namespace NotificationServer
