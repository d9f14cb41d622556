#include "app/CommandLine.h"

#include "app/AutostartCommand.h"
#include "app/Doctor.h"

#include "core/AppConstants.h"
#include "editor_integration/EditorSetupCommand.h"
#include "remote/RemoteSetupCommand.h"
#include "voice/TranscribeCommand.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstring>

namespace {

constexpr int kUsageError = 2;
const QString kVerbose = QStringLiteral("--verbose");

// Qt and the libraries under it (the sound server's client, the platform plugins) speak up on
// stderr when their services are missing, which is what `tarvel doctor` reports in its own words.
void discardLibraryMessages(QtMsgType, const QMessageLogContext &, const QString &) {}

QString usage()
{
    QString text = QStringLiteral("Usage: tarvel [--help | --version]\n"
                                  "       tarvel COMMAND [ARGUMENTS]\n"
                                  "\n"
                                  "Without a command, starts Tarvel in the tray (or brings up a quick-task\n"
                                  "composer when it is already running). A command prints only its own\n"
                                  "output; with --verbose, Qt's and the sound server's messages too.\n"
                                  "\n"
                                  "Commands:\n");
    qsizetype width = 0;
    for (const CommandLine::Subcommand &command : CommandLine::subcommands())
        width = std::max(width, command.name.size() + 1 + command.synopsis.size());
    for (const CommandLine::Subcommand &command : CommandLine::subcommands()) {
        const QString head = (command.name + u' ' + command.synopsis).trimmed();
        text += QStringLiteral("  %1  %2\n").arg(head.leftJustified(width), command.summary);
    }
    return text;
}

} // namespace

namespace CommandLine {

const QList<Subcommand> &subcommands()
{
    static const QList<Subcommand> list = {
        {QStringLiteral("autostart"), QStringLiteral("on|off|status"),
         QStringLiteral("start Tarvel in the tray at login, or not"), runAutostartCommand},
        {QStringLiteral("doctor"), QStringLiteral("[--json]"),
         QStringLiteral("check everything Tarvel depends on and say how to fix what fails"), Doctor::run},
        {QString::fromLatin1(EditorSetupCommand::name), QString::fromLatin1(EditorSetupCommand::synopsis),
         QStringLiteral("point VISUAL in your shell at Tarvel, or show whether it does"),
         &EditorSetupCommand::run},
        {QString::fromLatin1(RemoteSetupCommand::name), QString::fromLatin1(RemoteSetupCommand::synopsis),
         QStringLiteral("let tarvel-edit on HOST, reached over ssh, open its prompts here"),
         &RemoteSetupCommand::run},
        {QStringLiteral("transcribe"), QStringLiteral("FILE"),
         QStringLiteral("print the transcript of a recording (WAV, or raw 16 kHz mono 16-bit)"),
         &TranscribeCommand::run},
    };
    return list;
}

std::optional<int> run(int argc, char **argv)
{
    if (argc < 2)
        return std::nullopt;
    const char *first = argv[1];
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (std::strcmp(first, "--help") == 0 || std::strcmp(first, "-h") == 0 ||
        std::strcmp(first, "help") == 0) {
        out << usage();
        return 0;
    }
    if (std::strcmp(first, "--version") == 0) {
        out << "tarvel " TARVEL_VERSION "\n";
        return 0;
    }
    const QString name = QString::fromLocal8Bit(first);
    for (const Subcommand &command : subcommands()) {
        if (command.name != name)
            continue;
        QStringList arguments;
        for (int index = 2; index < argc; ++index)
            arguments << QString::fromLocal8Bit(argv[index]);
        if (!arguments.removeAll(kVerbose))
            qInstallMessageHandler(discardLibraryMessages);
        QCoreApplication app(argc, argv);
        QCoreApplication::setApplicationName(AppConstants::appName);
        QCoreApplication::setOrganizationName(AppConstants::appName);
        return command.run(arguments, out, err);
    }
    // Options are Qt's own (-platform, -style): those start the application.
    if (first[0] == '-')
        return std::nullopt;
    err << QStringLiteral("tarvel: \u201c%1\u201d is not a tarvel command (see tarvel --help)\n").arg(name);
    return kUsageError;
}

} // namespace CommandLine
