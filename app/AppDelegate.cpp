#include "app/AppDelegate.h"

#include "app/ComposerCoordinator.h"
#include "app/QuitPolicy.h"
#include "app/RequestIntake.h"
#include "app/StatusItemController.h"
#include "app/TrayMenuPresenter.h"
#include "app/WindowActivationCoordinator.h"
#include "composer/ScratchWindowFrameStore.h"
#include "core/AppConstants.h"
#include "core/Clock.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"
#include "core/UserDefaults.h"
#include "editor_integration/EditorIntegrationError.h"
#include "editor_integration/EditorIntegrationManager.h"
#include "editor_integration/EditorIntegrationPromptWindow.h"
#include "editor_integration/EditorIntegrationTexts.h"
#include "errorlog/ErrorLogManager.h"
#include "errorlog/ErrorsWindow.h"
#include "platform/DistributedNotificationObserver.h"
#include "platform/WindowSystem.h"
#include "quicktasks/QuickTaskManager.h"
#include "quicktasks/QuickTaskStore.h"
#include "settings/AppSettings.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QCoreApplication>
#include <QFileSystemWatcher>
#include <QMessageBox>
#include <QTimer>

namespace {
const QString kLaunch = QStringLiteral("Launch");
const QString kEditorPromptSuppressed = QStringLiteral("EditorIntegrationPromptSuppressed");
// Long enough for the tray icon to come up before the prompt asks for attention.
constexpr int kEditorPromptDelayMs = 1000;
} // namespace

AppDelegate::AppDelegate(PlatformServices platform, ErrorLogManager &errorLog, UserDefaults &defaults,
                         QObject *parent)
    : QObject(parent)
    , m_platform(std::move(platform))
    , m_errorLog(errorLog)
    , m_defaults(defaults)
    , m_shortcuts(std::make_unique<KeyboardShortcuts>(defaults))
    , m_scratchFrameStore(std::make_unique<ScratchWindowFrameStore>(defaults))
    , m_activation(std::make_unique<WindowActivationCoordinator>(*m_platform.windowSystem))
    , m_intake(std::make_unique<RequestIntake>(errorLog, Clock::system()))
    , m_quickTaskManager(std::make_unique<QuickTaskManager>(
          QuickTaskStore(), errorLog, defaults, Clock::system(),
          QuickTaskDesktopServices{m_platform.notifications.get(), m_platform.clipboard.get(),
                                   m_platform.fileOpener.get()}))
    , m_composers(std::make_unique<ComposerCoordinator>(
          *m_intake, *m_quickTaskManager, *m_platform.windowSystem, *m_activation, *m_scratchFrameStore,
          errorLog,
          ComposerServices{&defaults, m_shortcuts.get(), {}, nullptr, m_platform.speechRecognizer.get()}))
    , m_trayMenu(
          std::make_unique<TrayMenuPresenter>(*m_quickTaskManager, *m_intake, errorLog, Clock::system()))
    , m_statusItem(std::make_unique<StatusItemController>(m_platform.trayExportsMenus))
    , m_quitPolicy(std::make_unique<QuitPolicy>(*m_quickTaskManager, *m_intake, *m_composers, *m_activation))
    , m_editorIntegration(std::make_unique<EditorIntegrationManager>(QCoreApplication::applicationDirPath(),
                                                                     m_platform.fileOpener.get()))
{
    QuickTaskManager &tasks = *m_quickTaskManager;
    ComposerCoordinator &composers = *m_composers;
    tasks.setFrontmostTerminalContextProvider([&composers] { return composers.frontmostTerminalContext(); });
    connect(&tasks, &QuickTaskManager::runningSessionCountChanged, this,
            [this](int count) { m_statusItem->setTasksRunning(count > 0); });
    connect(&tasks, &QuickTaskManager::retryRequested, this, [&composers](const QuickTaskSession &session) {
        composers.openScratchComposer(session.prompt, session.attachments, session.sourceContext);
    });
    connect(m_intake.get(), &RequestIntake::alertRequested, this, &AppDelegate::presentAlert);
    connect(m_intake.get(), &RequestIntake::workingDirectoryNoted, &tasks,
            &QuickTaskManager::noteWorkingDirectory);
    connect(&composers, &ComposerCoordinator::alertRequested, this, &AppDelegate::presentAlert);
    connect(&composers, &ComposerCoordinator::voicePromptRecordingChanged, m_statusItem.get(),
            &StatusItemController::setVoicePromptRecording);

    TrayMenuPresenter &menu = *m_trayMenu;
    m_statusItem->stateProvider = [this, &menu, &composers] {
        StatusMenuState state = menu.menuState(composers.currentRequest());
        const std::optional<EditorIntegrationStatus> editor = m_editorIntegration->status();
        state.editorSetupNeeded = editor && editor->kind == EditorIntegrationStatus::Kind::needsInstall;
        return state;
    };
    m_statusItem->sessionRow = [&menu](const QUuid &id) {
        return menu.sessionRow(id);
    };
    m_statusItem->onSessionAction = [&menu](const QUuid &id, SessionMenuRow::Action action) {
        menu.perform(id, action);
    };
    m_statusItem->onSessionOpened = [&menu](const QUuid &id) {
        menu.openTranscript(id);
    };
    connect(&menu, &TrayMenuPresenter::menuChanged, m_statusItem.get(), &StatusItemController::refreshIfOpen);
    connect(m_statusItem.get(), &StatusItemController::actionTriggered, this,
            [this](StatusMenuEntry::Action action) {
                switch (action) {
                case StatusMenuEntry::Action::openScratchComposer:
                    openScratchComposer();
                    break;
                case StatusMenuEntry::Action::checkPendingRequests:
                    m_composers->processPendingRequests();
                    break;
                case StatusMenuEntry::Action::openErrors:
                    openErrors();
                    break;
                case StatusMenuEntry::Action::quit:
                    // Leave the menu's own event loop before a modal confirmation opens.
                    QTimer::singleShot(0, m_quitPolicy.get(), &QuitPolicy::quit);
                    break;
                case StatusMenuEntry::Action::setUpEditor:
                    QTimer::singleShot(0, this, [this] { showEditorIntegrationPrompt(true); });
                    break;
                case StatusMenuEntry::Action::clearFinishedTasks:
                    m_trayMenu->clearFinishedTasks();
                    break;
                case StatusMenuEntry::Action::openPreferences:
                case StatusMenuEntry::Action::none:
                    break;
                }
            });
    connect(m_quitPolicy.get(), &QuitPolicy::terminating, this, &AppDelegate::stopListening);
    m_quitPolicy->endOnInterrupts();
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    AppSettings settings(m_defaults);
    settings.removeObsoleteKeys();
    settings.resetQuickTaskConfigurationForCurrentSchemaIfNeeded();
    settings.normalizeQuickTaskCLIBackend();

    try {
        FileStore::ensureDirectoriesExist();
    } catch (const TarvelError &error) {
        m_errorLog.record(QStringLiteral("Failed to prepare app support data."), error.description(),
                          kLaunch);
        presentAlert(QStringLiteral("Failed to prepare app support data."), error.description());
    }
    m_errorLog.load();
    m_quickTaskManager->load();

    m_statusItem->show();
    m_statusItem->setTasksRunning(m_quickTaskManager->hasRunningSessions());

    listenForRequests();
    m_composers->processPendingRequests();
    scheduleEditorIntegrationPromptIfNeeded();
}

void AppDelegate::scheduleEditorIntegrationPromptIfNeeded()
{
    if (m_defaults.boolean(kEditorPromptSuppressed).value_or(false))
        return;
    QTimer::singleShot(kEditorPromptDelayMs, this, [this] {
        const std::optional<EditorIntegrationStatus> status = m_editorIntegration->status();
        if (status && status->kind == EditorIntegrationStatus::Kind::needsInstall)
            showEditorIntegrationPrompt(false);
    });
}

void AppDelegate::showEditorIntegrationPrompt(bool askedByUser)
{
    if (m_editorPromptOpen)
        return;
    const std::optional<EditorIntegrationStatus> status = m_editorIntegration->status();
    if (!status) {
        if (askedByUser)
            presentAlert(
                QStringLiteral("Failed to install editor integration."),
                EditorIntegrationError(EditorIntegrationError::Kind::unavailableHomeDirectory).description());
        return;
    }
    const EditorIntegrationTexts::Texts texts =
        EditorIntegrationTexts::forStatus(*status, AppConstants::appName);
    if (status->kind != EditorIntegrationStatus::Kind::needsInstall) {
        if (askedByUser)
            presentNotice(texts.headline, texts.message);
        return;
    }
    const EditorIntegrationInstallLocation location = status->location;
    EditorIntegrationPromptWindow prompt(
        texts.headline, texts.message, EditorIntegrationTexts::revealButtonTitle(location),
        [this, location] { m_editorIntegration->revealConfigLocation(location); });
    m_editorPromptOpen = true;
    const EditorIntegrationPromptWindow::Response response = prompt.runModal();
    m_editorPromptOpen = false;
    switch (response) {
    case EditorIntegrationPromptWindow::Response::install:
        try {
            const EditorIntegrationInstallLocation written = m_editorIntegration->install();
            const EditorIntegrationTexts::Texts done =
                EditorIntegrationTexts::installed(written, AppConstants::appName);
            presentNotice(done.headline, done.message);
        } catch (const EditorIntegrationError &error) {
            presentErrorAlert(QStringLiteral("Failed to install editor integration."), error.description(),
                              QStringLiteral("Editor Integration"));
        }
        break;
    case EditorIntegrationPromptWindow::Response::cancelAndSuppress:
        m_defaults.setBool(kEditorPromptSuppressed, true);
        break;
    case EditorIntegrationPromptWindow::Response::cancel:
        break;
    }
}

void AppDelegate::listenForRequests()
{
    DistributedNotificationObserver *observer = m_platform.notificationObserver.get();
    connect(observer, &DistributedNotificationObserver::notificationPosted, this,
            [this](const QString &name) {
                if (name == AppConstants::requestNotificationName)
                    m_composers->processPendingRequests();
            });
    observer->observe(AppConstants::requestNotificationName);
    // The bus signal is the fast path; the folder watch serves requests written while
    // the bus was out of reach.
    m_requestsWatcher = new QFileSystemWatcher(this);
    m_requestsWatcher->addPath(FileStore::requestsDirectory());
    connect(m_requestsWatcher, &QFileSystemWatcher::directoryChanged, this, [this] {
        QTimer::singleShot(0, m_composers.get(), &ComposerCoordinator::processPendingRequests);
    });
}

void AppDelegate::stopListening()
{
    m_platform.notificationObserver.reset();
    delete m_requestsWatcher;
    m_requestsWatcher = nullptr;
    m_statusItem->setTasksRunning(false);
    m_statusItem->hide();
}

void AppDelegate::openScratchComposer()
{
    m_composers->openScratchComposer();
}

void AppDelegate::presentAlert(const QString &message, const QString &informativeText)
{
    QMessageBox box(QMessageBox::Warning, AppConstants::appName, message);
    box.setInformativeText(informativeText);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.exec();
}

void AppDelegate::presentErrorAlert(const QString &message, const QString &detail, const QString &source)
{
    m_errorLog.record(message, detail, source);
    presentAlert(message, detail);
}

void AppDelegate::presentNotice(const QString &message, const QString &informativeText)
{
    QMessageBox box(QMessageBox::Information, AppConstants::appName, message);
    box.setInformativeText(informativeText);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.exec();
}

void AppDelegate::openErrors()
{
    if (!m_errorsWindow)
        m_errorsWindow = std::make_unique<ErrorsWindow>(m_errorLog, AppConstants::appName);
    m_activation->requestWindowActivation(m_errorsWindow.get());
}
