#include "app/EditorSetupOffer.h"

#include "app/Alerts.h"
#include "core/AppConstants.h"
#include "core/UserDefaults.h"
#include "editor_integration/EditorIntegrationError.h"
#include "editor_integration/EditorIntegrationManager.h"
#include "editor_integration/EditorIntegrationPromptWindow.h"
#include "editor_integration/EditorIntegrationTexts.h"
#include "errorlog/ErrorLogManager.h"
#include "preferences/PreferencesTexts.h"

#include <QTimer>

namespace {
const QString kPromptSuppressed = QStringLiteral("EditorIntegrationPromptSuppressed");
const QString kInstallFailed = QStringLiteral("Failed to install editor integration.");
// Long enough for the tray icon to come up before the prompt asks for attention.
constexpr int kPromptDelayMs = 1000;
} // namespace

EditorSetupOffer::EditorSetupOffer(std::unique_ptr<EditorIntegrationManager> manager, UserDefaults &defaults,
                                   ErrorLogManager &errorLog, QObject *parent)
    : QObject(parent)
    , m_manager(std::move(manager))
    , m_defaults(defaults)
    , m_errorLog(errorLog)
{
}

EditorSetupOffer::~EditorSetupOffer() = default;

bool EditorSetupOffer::isNeeded() const
{
    const std::optional<EditorIntegrationStatus> status = m_manager->status();
    return status && status->kind == EditorIntegrationStatus::Kind::needsInstall;
}

QString EditorSetupOffer::statusLine() const
{
    return PreferencesTexts::editorSetupStatusLine(m_manager->status(),
                                                   m_defaults.boolean(kPromptSuppressed).value_or(false));
}

void EditorSetupOffer::scheduleAfterLaunch()
{
    if (m_defaults.boolean(kPromptSuppressed).value_or(false))
        return;
    QTimer::singleShot(kPromptDelayMs, this, [this] {
        if (isNeeded())
            offer(false);
    });
}

void EditorSetupOffer::offer(bool askedByUser)
{
    if (m_isOpen)
        return;
    const std::optional<EditorIntegrationStatus> status = m_manager->status();
    if (!status) {
        if (askedByUser)
            Alerts::showWarning(
                kInstallFailed,
                EditorIntegrationError(EditorIntegrationError::Kind::unavailableHomeDirectory).description());
        return;
    }
    const EditorIntegrationTexts::Texts texts =
        EditorIntegrationTexts::forStatus(*status, AppConstants::appName);
    if (status->kind != EditorIntegrationStatus::Kind::needsInstall) {
        if (askedByUser)
            Alerts::showNotice(texts.headline, texts.message);
        return;
    }
    const EditorIntegrationInstallLocation location = status->location;
    EditorIntegrationPromptWindow prompt(texts.headline, texts.message,
                                         EditorIntegrationTexts::revealButtonTitle(location),
                                         [this, location] { m_manager->revealConfigLocation(location); });
    m_isOpen = true;
    const EditorIntegrationPromptWindow::Response response = prompt.runModal();
    m_isOpen = false;
    switch (response) {
    case EditorIntegrationPromptWindow::Response::install:
        try {
            const EditorIntegrationTexts::Texts done =
                EditorIntegrationTexts::installed(m_manager->install(), AppConstants::appName);
            Alerts::showNotice(done.headline, done.message);
        } catch (const EditorIntegrationError &error) {
            m_errorLog.record(kInstallFailed, error.description(), QStringLiteral("Editor Integration"));
            Alerts::showWarning(kInstallFailed, error.description());
        }
        break;
    case EditorIntegrationPromptWindow::Response::cancelAndSuppress:
        m_defaults.setBool(kPromptSuppressed, true);
        break;
    case EditorIntegrationPromptWindow::Response::cancel:
        break;
    }
}
