#include "editor_integration/EditorSetupCommand.h"

#include "editor_integration/EditorIntegrationError.h"
#include "editor_integration/EditorIntegrationManager.h"
#include "editor_integration/EditorIntegrationTexts.h"

#include <QCoreApplication>

namespace EditorSetupCommand {

int run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    const EditorIntegrationManager manager(QCoreApplication::applicationDirPath());
    const QString what = arguments.size() == 1 ? arguments.constFirst() : QString();
    if (what == u"status") {
        const std::optional<EditorIntegrationStatus> status = manager.status();
        if (!status) {
            out << EditorIntegrationError(EditorIntegrationError::Kind::unavailableHomeDirectory)
                       .description()
                << '\n';
            return 1;
        }
        out << EditorIntegrationTexts::statusLine(*status) << '\n';
        return status->kind == EditorIntegrationStatus::Kind::installed ? 0 : 1;
    }
    if (what == u"install") {
        try {
            const EditorIntegrationInstallLocation location = manager.install();
            out << "wrote " << location.helperScriptURL.toLocalFile() << '\n';
            out << "updated " << location.configURL.toLocalFile() << '\n';
            out << "New terminals pick up VISUAL from "
                << EditorIntegrationTexts::displayPath(location.configURL)
                << "; existing shells need to reload it.\n";
            return 0;
        } catch (const EditorIntegrationError &error) {
            err << "tarvel editor-setup: " << error.description() << '\n';
            return 1;
        }
    }
    err << "Usage: tarvel " << name << ' ' << synopsis << '\n';
    return 2;
}

} // namespace EditorSetupCommand
