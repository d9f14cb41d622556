#include "platform/ApplicationLauncher.h"

#include <QCoreApplication>
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
