#include "app/EditorSetupOffer.h"

#include "app/AlertPresenter.h"
#include "composer/UnrequestedWindowGuard.h"
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
                                   ErrorLogManager &errorLog, KeyboardGate &keyboard, QObject *parent)
    : QObject(parent)
    , m_manager(std::move(manager))
    , m_defaults(defaults)
    , m_errorLog(errorLog)
    , m_keyboard(keyboard)
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
    return PreferencesTexts::editorSetupStatusLine(m_manager->status(), isSuppressed());
}

bool EditorSetupOffer::isSuppressed() const
{
    return m_defaults.boolean(kPromptSuppressed).value_or(false);
}

void EditorSetupOffer::scheduleAfterLaunch()
{
    if (isSuppressed())
        return;
    QTimer::singleShot(kPromptDelayMs, this, &EditorSetupOffer::offerWhenKeyboardFree);
}

void EditorSetupOffer::offerWhenKeyboardFree()
{
    m_keyboard.whenKeyboardFree(this, [this] {
        // Asked again when it is due: the set-up may have been done or declined meanwhile.
        if (!isSuppressed() && isNeeded())
            offer(KeyboardGate::Origin::unrequested);
    });
}

void EditorSetupOffer::offer(KeyboardGate::Origin origin)
{
    const bool askedByUser = origin == KeyboardGate::Origin::askedByUser;
    if (m_prompt) {
        if (askedByUser)
            m_prompt->activateWindow();
        return;
    }
    const std::optional<EditorIntegrationStatus> status = m_manager->status();
    if (!status) {
        if (askedByUser)
            AlertPresenter::showWarning(
                kInstallFailed,
                EditorIntegrationError(EditorIntegrationError::Kind::unavailableHomeDirectory).description());
        return;
    }
    const EditorIntegrationTexts::Texts texts =
        EditorIntegrationTexts::forStatus(*status, AppConstants::appName);
    if (status->kind != EditorIntegrationStatus::Kind::needsInstall) {
        if (askedByUser)
            AlertPresenter::showNotice(texts.headline, texts.message);
        return;
    }
    const EditorIntegrationInstallLocation location = status->location;
    EditorIntegrationPromptWindow prompt(texts.headline, texts.message,
                                         EditorIntegrationTexts::revealButtonTitle(location),
                                         [this, location] { m_manager->revealConfigLocation(location); });
    if (!askedByUser)
        UnrequestedWindowGuard::install(&prompt);
    // Modal, the prompt would hold a composer that comes up meanwhile: it steps aside instead.
    m_steppedAside = false;
    connect(&m_keyboard, &KeyboardGate::keyboardClaimed, &prompt, [this, &prompt] {
        m_steppedAside = true;
        prompt.reject();
    });
    m_prompt = &prompt;
    const EditorIntegrationPromptWindow::Response response = prompt.runModal();
    m_prompt = nullptr;
    if (m_steppedAside) {
        offerWhenKeyboardFree();
        return;
    }
    switch (response) {
    case EditorIntegrationPromptWindow::Response::install:
        try {
            const EditorIntegrationTexts::Texts done =
                EditorIntegrationTexts::installed(m_manager->install(), AppConstants::appName);
            AlertPresenter::showNotice(done.headline, done.message);
        } catch (const EditorIntegrationError &error) {
            m_errorLog.record(kInstallFailed, error.description(), QStringLiteral("Editor Integration"));
            AlertPresenter::showWarning(kInstallFailed, error.description());
        }
        break;
    case EditorIntegrationPromptWindow::Response::cancelAndSuppress:
        m_defaults.setBool(kPromptSuppressed, true);
        break;
    case EditorIntegrationPromptWindow::Response::cancel:
        break;
    }
}
