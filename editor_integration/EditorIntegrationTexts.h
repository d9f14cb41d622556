#pragma once

#include "editor_integration/EditorIntegrationStatus.h"

#include <QString>

// What the set-up prompt and the alerts around it say, and what the command line prints.
namespace EditorIntegrationTexts {

struct Texts {
    QString headline;
    QString message;
};

// The prompt for a status that needs installing, or the alert that explains why no prompt
// is needed.
Texts forStatus(const EditorIntegrationStatus &status, const QString &displayName);
// After a successful install: which file new terminals read.
Texts installed(const EditorIntegrationInstallLocation &location, const QString &displayName);
// "Review .zshrc".
QString revealButtonTitle(const EditorIntegrationInstallLocation &location);
// A path under the home folder as ~/…, for messages.
QString displayPath(const QUrl &url);
// `tarvel editor-setup status`'s one line.
QString statusLine(const EditorIntegrationStatus &status);

} // namespace EditorIntegrationTexts
