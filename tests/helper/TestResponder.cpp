// Stands in for the Tarvel application in the helper's end-to-end tests and benchmark:
// owns the bus name, listens for request notifications, scans the Requests folder on
// start and on every notification, and answers each pending request through the same
// file operations as the application.
//
// Configuration (command line or environment):
//   --mode submit|cancel|never   TARVEL_RESPONDER_MODE (default submit)
//   --text TEXT                  TARVEL_RESPONDER_TEXT: submit this text instead of
//                                "Edited: " + the request's text
//   --log FILE                   TARVEL_RESPONDER_LOG: one JSON line per answer (the
//                                request's fields, "disposition", "handlingMicroseconds");
//                                in never mode one "unanswered" line per request
// Prints "ready" on standard output once it owns the bus name.
#include "core/AppConstants.h"
#include "core/Clock.h"
#include "core/RequestFileIO.h"
#include "core/TarvelError.h"
#include "platform/DistributedNotificationObserver.h"
#include "platform/linux/DBusContract.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <cstdio>

namespace {

struct Configuration {
    QString mode;
    std::optional<QString> text;
    QString logPath;
};

Configuration configuration(const QStringList &arguments)
{
    // An option on the command line wins over its variable.
    const auto value = [&arguments](const QString &option, const char *variable) -> std::optional<QString> {
        if (const qsizetype at = arguments.indexOf(option); at > 0 && at + 1 < arguments.size())
            return arguments.at(at + 1);
        if (qEnvironmentVariableIsSet(variable))
            return qEnvironmentVariable(variable);
        return std::nullopt;
    };
    return {value(QStringLiteral("--mode"), "TARVEL_RESPONDER_MODE").value_or(QStringLiteral("submit")),
            value(QStringLiteral("--text"), "TARVEL_RESPONDER_TEXT"),
            value(QStringLiteral("--log"), "TARVEL_RESPONDER_LOG").value_or(QString())};
}

class Responder final : public QObject {
    Q_OBJECT

public:
    explicit Responder(Configuration configuration)
        : m_configuration(std::move(configuration))
    {
    }

    void scan()
    {
        QElapsedTimer timer;
        timer.start();
        try {
            for (const QString &url : RequestFileIO::pendingRequestURLs())
                handle(url, timer);
        } catch (const TarvelError &error) {
            std::fprintf(stderr, "responder: %s\n", error.what());
        }
    }

public Q_SLOTS:
    // Started detached by a helper, the responder would outlive the test's bus otherwise.
    void busDisconnected() { QCoreApplication::quit(); }

private:
    // Only the helper writes requests, whole and once, and every answer retires its request at
    // once: there is nothing malformed or half-answered to handle here.
    void handle(const QString &url, const QElapsedTimer &timer)
    {
        const ComposerRequest request = RequestFileIO::readRequest(url);
        if (m_configuration.mode == u"never") {
            // Logged once, so that a test knows the request has been seen.
            if (!m_seen.contains(request.id)) {
                m_seen.insert(request.id);
                log(request, QStringLiteral("unanswered"), timer.nsecsElapsed() / 1000);
            }
            return;
        }

        ComposerResponse response{
            request.id, Clock::system().now(), ComposerResponse::Disposition::cancelled, {}};
        if (m_configuration.mode == u"submit") {
            response.disposition = ComposerResponse::Disposition::submitted;
            response.updatedText =
                m_configuration.text.value_or(QStringLiteral("Edited: ") + request.initialText);
        }
        RequestFileIO::writeResponse(response);
        RequestFileIO::markRequestCompleted(request.id);
        RequestFileIO::retireCompletedRequestArtifacts(request.id);
        log(request, ComposerResponse::rawValue(response.disposition), timer.nsecsElapsed() / 1000);
    }

    void log(const ComposerRequest &request, const QString &disposition, qint64 microseconds)
    {
        if (m_configuration.logPath.isEmpty())
            return;
        QJsonObject line = request.toJson();
        line.insert(QStringLiteral("disposition"), disposition);
        line.insert(QStringLiteral("handlingMicroseconds"), microseconds);
        QFile file(m_configuration.logPath);
        if (file.open(QIODevice::Append))
            file.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
    }

    Configuration m_configuration;
    QSet<QUuid> m_seen;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    Responder responder(configuration(application.arguments()));

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.registerService(DBusContract::serviceName)) {
        std::fputs("responder: could not own the bus name\n", stderr);
        return 2;
    }
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), &responder,
                SLOT(busDisconnected()));
    const std::unique_ptr<DistributedNotificationObserver> observer =
        DistributedNotificationObserver::create();
    QObject::connect(observer.get(), &DistributedNotificationObserver::notificationPosted, &responder,
                     [&responder] { responder.scan(); });
    observer->observe(AppConstants::requestNotificationName);

    responder.scan();
    std::puts("ready");
    std::fflush(stdout);
    return application.exec();
}

#include "TestResponder.moc"
