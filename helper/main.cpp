// tarvel-edit: the $VISUAL command. Hands the file to the Tarvel application's composer
// and waits for the answer; without an application it runs a terminal editor instead.
#include "core/TarvelError.h"
#include "helper/EditSession.h"
#include "helper/EditedFile.h"
#include "helper/FallbackEditor.h"
#include "platform/InterruptWatcher.h"
#include "platform/DistributedNotificationPoster.h"
#include "platform/RunningApplicationWatcher.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int kUsageError = 2;

const char kUsage[] = "Usage: tarvel-edit [--help | --version] FILE\n"
                      "\n"
                      "Edits FILE in Tarvel's composer, for use as VISUAL or EDITOR by terminal tools.\n"
                      "Exits 0 when the text was submitted (FILE now holds it) and 1 when editing was\n"
                      "cancelled (FILE is unchanged).\n"
                      "\n"
                      "Tarvel is started when it is not running. When it cannot be reached, FILE opens\n"
                      "in a terminal editor instead: TARVEL_FALLBACK_EDITOR, else EDITOR, else vi.\n"
                      "\n"
                      "Environment:\n"
                      "  TARVEL_APP_PATH         the Tarvel application to start\n"
                      "  TARVEL_FALLBACK_EDITOR  the terminal editor to use when Tarvel is unavailable\n";

int fail(const QString &message, int exitCode = 1)
{
    std::fputs(QStringLiteral("tarvel-edit: %1\n").arg(message).toLocal8Bit().constData(), stderr);
    return exitCode;
}

} // namespace

int main(int argc, char **argv)
{
    QString path;
    bool onlyOperands = false;
    for (int index = 1; index < argc; ++index) {
        const char *argument = argv[index];
        if (!onlyOperands && std::strcmp(argument, "--") == 0) {
            onlyOperands = true;
        } else if (!onlyOperands &&
                   (std::strcmp(argument, "--help") == 0 || std::strcmp(argument, "-h") == 0)) {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (!onlyOperands && std::strcmp(argument, "--version") == 0) {
            std::fputs("tarvel-edit " TARVEL_VERSION "\n", stdout);
            return 0;
        } else if (!onlyOperands && argument[0] == '-' && argument[1] != '\0') {
            return fail(QStringLiteral("unknown option \u201c%1\u201d (see tarvel-edit --help)")
                            .arg(QString::fromLocal8Bit(argument)),
                        kUsageError);
        } else if (path.isEmpty()) {
            path = QFile::decodeName(argument);
        } else {
            return fail(QStringLiteral("expected one FILE, got more (see tarvel-edit --help)"), kUsageError);
        }
    }
    if (path.isEmpty())
        return fail(QStringLiteral("expected a FILE to edit (see tarvel-edit --help)"), kUsageError);

    QCoreApplication application(argc, argv);
    try {
        // Before the request exists, so that no interruption can leave it behind.
        InterruptWatcher interrupts;
        EditedFile file(path);
        EditSession session(file, {DistributedNotificationPoster::create(),
                                   RunningApplicationWatcher::create(), &ApplicationLauncher::launch});
        QObject::connect(&interrupts, &InterruptWatcher::interrupted, &session, &EditSession::interrupt);
        QObject::connect(&session, &EditSession::finished, &application, &QCoreApplication::quit,
                         Qt::QueuedConnection);
        session.start();
        if (!session.isFinished())
            application.exec();

        if (session.ending() == EditSession::Ending::exit) {
            // Everything the caller needs is on disk; tearing down the bus connection
            // and Qt would only keep the caller waiting.
            std::fflush(stdout);
            std::fflush(stderr);
            ::_exit(session.exitCode());
        }
        file.close();
        const QString editor = FallbackEditor::command();
        fail(QStringLiteral("%1; opening \u201c%2\u201d instead").arg(session.fallbackReason(), editor));
        const QString reason = FallbackEditor::exec(editor, file.absolutePath());
        return fail(QStringLiteral("Could not run \u201c%1\u201d: %2").arg(editor, reason), 127);
    } catch (const TarvelError &error) {
        return fail(error.description());
    }
}
