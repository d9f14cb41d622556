#include "app/CommandLine.h"

#include "core/AppConstants.h"
#include "voice/TranscribeCommand.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstring>

namespace {

constexpr int kUsageError = 2;

QString usage()
{
    QString text = QStringLiteral("Usage: tarvel [--help | --version]\n"
                                  "       tarvel COMMAND [ARGUMENTS]\n"
                                  "\n"
                                  "Without a command, starts Tarvel in the tray (or brings up a quick-task\n"
                                  "composer when it is already running).\n"
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
        QCoreApplication app(argc, argv);
        QCoreApplication::setApplicationName(AppConstants::appName);
        QCoreApplication::setOrganizationName(AppConstants::appName);
        QStringList arguments;
        for (int index = 2; index < argc; ++index)
            arguments << QString::fromLocal8Bit(argv[index]);
        return command.run(arguments, out, err);
    }
    // Options are Qt's own (-platform, -style): those start the application.
    if (first[0] == '-')
        return std::nullopt;
    err << QStringLiteral("tarvel: \u201c%1\u201d is not a tarvel command (see tarvel --help)\n").arg(name);
    return kUsageError;
}

} // namespace CommandLine
