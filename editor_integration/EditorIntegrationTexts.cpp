#include "editor_integration/EditorIntegrationTexts.h"

#include <QDir>
#include <QFileInfo>

namespace EditorIntegrationTexts {

Texts forStatus(const EditorIntegrationStatus &status, const QString &displayName)
{
    switch (status.kind) {
    case EditorIntegrationStatus::Kind::installed:
        return {
            displayName + QStringLiteral(" is already set up."),
            QStringLiteral("The editor setup prompt only appears when prompt editing is not configured yet "
                           "or needs repair.")};
    case EditorIntegrationStatus::Kind::configuredElsewhere:
        return {QStringLiteral("Another editor is already configured."),
                QStringLiteral("The setup prompt only appears when prompt editing is not configured yet or "
                               "needs repair.")};
    case EditorIntegrationStatus::Kind::needsInstall:
        break;
    }
    if (status.reason == EditorIntegrationInstallReason::helperMissing)
        return {QStringLiteral("Repair ") + displayName + QStringLiteral(" editor integration?"),
                QStringLiteral("Prompt editing is already configured to open ") + displayName +
                    QStringLiteral(
                        ", but that setup is incomplete. Repair it once and future sessions will open ") +
                    displayName + QStringLiteral(" again automatically.")};
    return {
        QStringLiteral("Use ") + displayName + QStringLiteral(" for prompt editing?"),
        QStringLiteral(
            "When a supported terminal coding assistant needs you to edit a prompt, it can open ") +
            displayName +
            QStringLiteral(" instead of a terminal editor. Install this once and future sessions will send "
                           "prompt editing here automatically.")};
}

Texts installed(const EditorIntegrationInstallLocation &location, const QString &displayName)
{
    return {displayName + QStringLiteral(" editor integration installed."),
            QStringLiteral("New terminal sessions will pick up the VISUAL setting from ") +
                displayPath(location.configURL) +
                QStringLiteral(". Existing shells need to reload that file or start a new session.")};
}

QString revealButtonTitle(const EditorIntegrationInstallLocation &location)
{
    return QStringLiteral("Review ") + QFileInfo(location.configURL.toLocalFile()).fileName();
}

QString displayPath(const QUrl &url)
{
    const QString path = url.toLocalFile();
    const QString home = QDir::cleanPath(qEnvironmentVariable("HOME"));
    if (!home.isEmpty() && home != u"/" && path.startsWith(home + u'/'))
        return QStringLiteral("~") + path.mid(home.size());
    return path;
}

QString statusLine(const EditorIntegrationStatus &status)
{
    const QString config = displayPath(status.location.configURL);
    const QString helper = displayPath(status.location.helperScriptURL);
    switch (status.kind) {
    case EditorIntegrationStatus::Kind::installed:
        return QStringLiteral("installed: %1 sets VISUAL to %2").arg(config, helper);
    case EditorIntegrationStatus::Kind::configuredElsewhere:
        return QStringLiteral("another editor: %1 sets %2 to %3")
            .arg(config, status.variable, status.command);
    case EditorIntegrationStatus::Kind::needsInstall:
        break;
    }
    if (status.reason == EditorIntegrationInstallReason::helperMissing)
        return QStringLiteral("needs repair: %1 points at %2, which is missing or not executable")
            .arg(config, helper);
    return QStringLiteral("not set up: %1 sets neither VISUAL nor EDITOR").arg(config);
}

} // namespace EditorIntegrationTexts
