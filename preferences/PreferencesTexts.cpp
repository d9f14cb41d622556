#include "preferences/PreferencesTexts.h"

#include <QRegularExpression>

#include <cmath>

namespace PreferencesTexts {

QString editorSetupStatusLine(const std::optional<EditorIntegrationStatus> &status, bool promptSuppressed)
{
    if (!status)
        return QStringLiteral("Editor setup status is unavailable right now.");
    switch (status->kind) {
    case EditorIntegrationStatus::Kind::installed:
        return QStringLiteral("Editor setup is already in place.");
    case EditorIntegrationStatus::Kind::configuredElsewhere:
        return QStringLiteral("Another editor is already configured for prompt editing.");
    case EditorIntegrationStatus::Kind::needsInstall:
        break;
    }
    return promptSuppressed
               ? QStringLiteral("The editor setup prompt is currently dismissed forever.")
               : QStringLiteral("The editor setup prompt is already enabled when setup needs attention.");
}

QString contentSizeString(const QSize &size)
{
    return QStringLiteral("{%1, %2}").arg(size.width()).arg(size.height());
}

std::optional<QSize> contentSizeFromString(const QString &text)
{
    static const QRegularExpression form(QStringLiteral(R"(^\s*\{\s*([0-9.]+)\s*,\s*([0-9.]+)\s*\}\s*$)"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    bool widthOk = false;
    bool heightOk = false;
    const double width = match.captured(1).toDouble(&widthOk);
    const double height = match.captured(2).toDouble(&heightOk);
    if (!widthOk || !heightOk || width < 1 || height < 1 || width > 100000 || height > 100000)
        return std::nullopt;
    return QSize(int(std::lround(width)), int(std::lround(height)));
}

} // namespace PreferencesTexts
