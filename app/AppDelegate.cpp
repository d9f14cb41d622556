#include "app/AppDelegate.h"

#include "app/AlertPresenter.h"
#include "app/AppearanceController.h"
#include "app/ComposerCoordinator.h"
#include "app/EditorSetupOffer.h"
#include "app/KeyboardGate.h"
#include "app/QuitPolicy.h"
#include "app/RequestIntake.h"
#include "app/StatusItemController.h"
#include "app/TrayMenuPresenter.h"
#include "app/WindowActivationCoordinator.h"
#include "composer/ScratchWindowFrameStore.h"
#include "core/AppConstants.h"
#include "core/Clock.h"
#include "core/DataFile.h"
#include "core/DataFolderMove.h"
#include "core/DebugWindowFrame.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"
#include "core/UserDefaults.h"
#include "editing/PromptHistory.h"
#include "editing/SpellCheckService.h"
#include "editor_integration/EditorIntegrationManager.h"
#include "errorlog/ErrorLogManager.h"
#include "errorlog/ErrorsWindow.h"
#include "permissions/PermissionCenter.h"
#include "permissions/PermissionsWindow.h"
#include "platform/DistributedNotificationObserver.h"
#include "platform/GlobalHotKeyService.h"
#include "platform/PermissionPlatform.h"
#include "platform/WindowSystem.h"
#include "preferences/PreferencesWindow.h"
#include "preferences/ShortcutRecorder.h"
#include "quicktasks/QuickTaskManager.h"
#include "quicktasks/QuickTaskStore.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "remote/RemoteRequestServer.h"
#include "settings/AppSettings.h"
#include "shortcuts/GlobalShortcutRegistrar.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QCoreApplication>
#include <QFileSystemWatcher>
#include <QMessageBox>
#include <QTimer>

namespace {
const QString kLaunch = QStringLiteral("Launch");
const QString kHotKeyFailed = QStringLiteral("The system-wide shortcut could not be set up.");
const QString kShortcuts = QStringLiteral("Shortcuts");
constexpr int kSearchPathDelayMs = 1000;
} // namespace

AppDelegate::AppDelegate(PlatformServices platform, ErrorLogManager &errorLog, UserDefaults &defaults,
                         QObject *parent)
    : QObject(parent)
    , m_platform(std::move(platform))
    , m_errorLog(errorLog)
    , m_defaults(defaults)
    , m_appearance(m_platform.colorScheme
                       ? std::make_unique<AppearanceController>(std::move(m_platform.colorScheme))
                       : nullptr)
    , m_keyboard(std::make_unique<KeyboardGate>(Clock::system()))
    , m_alerts(std::make_unique<AlertPresenter>(*m_keyboard))
    , m_permissionPlatform(PermissionPlatform::create(
          *m_platform.speechRecognizer,
          {[&defaults] { return AppSettings(defaults).areCompletionNotificationsEnabled(); },
           [&defaults] {
               AppSettings(defaults).setCompletionNotificationsEnabled(true);
           }}))
    , m_permissions(std::make_unique<PermissionCenter>(*m_permissionPlatform))
    , m_shortcuts(std::make_unique<KeyboardShortcuts>(defaults))
    , m_globalShortcuts(m_platform.hotKeys
                            ? std::make_unique<GlobalShortcutRegistrar>(*m_shortcuts, *m_platform.hotKeys)
                            : nullptr)
    , m_scratchFrameStore(std::make_unique<ScratchWindowFrameStore>(defaults))
    , m_activation(std::make_unique<WindowActivationCoordinator>(*m_platform.windowSystem))
    , m_remoteRequests(std::make_unique<RemoteRequestServer>(errorLog))
    , m_intake(std::make_unique<RequestIntake>(errorLog, Clock::system()))
    , m_quickTaskManager(std::make_unique<QuickTaskManager>(
          QuickTaskStore(), errorLog, defaults, Clock::system(),
          QuickTaskDesktopServices{m_platform.notifications.get(), m_platform.clipboard.get(),
                                   m_platform.fileOpener.get()}))
    , m_history(std::make_unique<PromptHistory>())
    , m_spelling(std::make_unique<SpellCheckService>(defaults))
    , m_composers(std::make_unique<ComposerCoordinator>(*m_intake, *m_quickTaskManager,
                                                        *m_platform.windowSystem, *m_activation,
                                                        *m_scratchFrameStore, errorLog,
                                                        ComposerServices{&defaults,
                                                                         m_shortcuts.get(),
                                                                         {},
                                                                         nullptr,
                                                                         m_platform.speechRecognizer.get(),
                                                                         m_platform.clipboard.get(),
                                                                         m_history.get(),
                                                                         m_spelling.get()}))
    , m_trayMenu(
          std::make_unique<TrayMenuPresenter>(*m_quickTaskManager, *m_intake, errorLog, Clock::system()))
    , m_statusItem(std::make_unique<StatusItemController>(m_platform.trayExportsMenus))
    , m_quitPolicy(std::make_unique<QuitPolicy>(*m_quickTaskManager, *m_intake, *m_composers, *m_activation))
    , m_editorSetup(std::make_unique<EditorSetupOffer>(
          std::make_unique<EditorIntegrationManager>(QCoreApplication::applicationDirPath(),
                                                     m_platform.fileOpener.get()),
          defaults, errorLog, *m_keyboard))
{
    QuickTaskManager &tasks = *m_quickTaskManager;
    ComposerCoordinator &composers = *m_composers;
    tasks.setFrontmostTerminalContextProvider([&composers] { return composers.frontmostTerminalContext(); });
    m_intake->setRemoteRequests(m_remoteRequests.get());
    // A request from another machine comes through ssh, in the terminal the user is typing in.
    m_remoteRequests->completeRequest = [&composers](ComposerRequest &request) {
        if (const std::optional<QuickTaskSourceContext> terminal = composers.frontmostTerminalContext()) {
            request.sourceApplicationBundleIdentifier = terminal->bundleIdentifier;
            request.sourceApplicationPID = terminal->processIdentifier;
        }
    };
    connect(&tasks, &QuickTaskManager::runningSessionCountChanged, this,
            [this](int count) { m_statusItem->setTasksRunning(count > 0); });
    connect(&tasks, &QuickTaskManager::retryRequested, this, [&composers](const QuickTaskSession &session) {
        composers.openScratchComposer(session.prompt, session.attachments, session.sourceContext,
                                      session.workingDirectory);
    });
    connect(m_intake.get(), &RequestIntake::alertRequested, m_alerts.get(),
            &AlertPresenter::presentUnrequested);
    connect(m_intake.get(), &RequestIntake::workingDirectoryNoted, &tasks,
            &QuickTaskManager::noteWorkingDirectory);
    connect(&composers, &ComposerCoordinator::composersOnScreenChanged, m_keyboard.get(),
            &KeyboardGate::setComposersOnScreen);
    connect(&composers, &ComposerCoordinator::voicePromptRecordingChanged, m_statusItem.get(),
            &StatusItemController::setVoicePromptRecording);

    TrayMenuPresenter &menu = *m_trayMenu;
    m_statusItem->stateProvider = [this, &menu, &composers] {
        StatusMenuState state = menu.menuState(composers.currentRequest());
        state.editorSetupNeeded = m_editorSetup->isNeeded();
        state.preferencesAvailable = true;
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
                    QTimer::singleShot(0, m_editorSetup.get(),
                                       [this] { m_editorSetup->offer(KeyboardGate::Origin::askedByUser); });
                    break;
                case StatusMenuEntry::Action::clearFinishedTasks:
                    m_trayMenu->clearFinishedTasks();
                    break;
                case StatusMenuEntry::Action::openPreferences:
                    openPreferences();
                    break;
                case StatusMenuEntry::Action::none:
                    break;
                }
            });
    if (m_globalShortcuts)
        connect(m_globalShortcuts.get(), &GlobalShortcutRegistrar::registrationFailed, this,
                [this](const QString &, const QString &message) {
                    m_errorLog.record(kHotKeyFailed, message, kShortcuts);
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

    // Before anything reads or makes the data folder; recorded once the log is loaded.
    DataFolderMove::fromHomeFolder();
    std::optional<QString> folderFailure;
    try {
        FileStore::ensureDirectoriesExist();
    } catch (const UnsafeFolderError &) {
        // The request intake refuses the folder and says so at its first scan, just below.
    } catch (const TarvelError &error) {
        folderFailure = error.description();
    }
    // Recorded only once the log is loaded: a record made earlier would be saved over it.
    m_errorLog.load();
    for (const DataFolderMove &move : DataFolderMove::takeUnrecorded())
        m_errorLog.record(move.title, move.detail, kLaunch);
    if (folderFailure) {
        const QString message = QStringLiteral("Failed to prepare app support data.");
        m_errorLog.record(message, *folderFailure, kLaunch);
        m_alerts->presentUnrequested(message, *folderFailure);
    }
    // The tray icon docks first: docked while a composer was already on screen, it let the window
    // manager move that composer (openbox put it at the screen's left edge, one start in five).
    m_statusItem->show();
    // A request that started Tarvel is waiting in a terminal: its composer goes up next. The rest
    // of the launch, which nobody is waiting for, follows once that composer has had its first
    // frame and the keyboard, which the window manager gives it while the event loop is free.
    listenForRequests();
    m_composers->processPendingRequests();
    QTimer::singleShot(m_composers->currentRequest() ? ComposerCoordinator::prepareDelayMs : 0, this,
                       &AppDelegate::finishLaunching);
}

void AppDelegate::finishLaunching()
{
    m_quickTaskManager->load();
    m_statusItem->setTasksRunning(m_quickTaskManager->hasRunningSessions());
    // Where the desktop binds the keys, its binding starts Tarvel again; there is nothing to register.
    if (m_globalShortcuts && manualShortcutBinding(std::nullopt).isEmpty())
        m_globalShortcuts->onKeyUp(ShortcutNames::openScratchComposer(), [this] { openScratchComposer(); });
    m_composers->prepareComposers();
    m_composers->forgetDraftsOfAnsweredRequests();
    m_composers->sweepImportedAttachments(QDateTime::currentDateTime().addDays(-1));
    m_editorSetup->scheduleAfterLaunch();
    // Where the system asks the user about notifications, that question is no one's request either.
    m_keyboard->whenKeyboardFree(this, [this] { m_permissions->requestNotificationAccessIfUnasked(); });
    // Asking the login shell for its PATH can take seconds; done once the launch has settled, the
    // first scratch composer or task need not wait for it.
    QTimer::singleShot(kSearchPathDelayMs, this, [] { TaskCLIExecutableLocator::prepareSearchPath(); });
}

void AppDelegate::listenForRequests()
{
    DistributedNotificationObserver *observer = m_platform.notificationObserver.get();
    connect(observer, &DistributedNotificationObserver::notificationPosted, this,
            [this](const QString &name, const DistributedNotificationUserInfo &userInfo) {
                if (name == AppConstants::requestNotificationName)
                    m_composers->processPendingRequests();
                else if (name == AppConstants::debugWindowRequestNotificationName)
                    handleDebugWindowRequest(userInfo);
            });
    observer->observe(AppConstants::requestNotificationName);
    observer->observe(AppConstants::debugWindowRequestNotificationName);
    // The bus signal is the fast path; the folder watch serves requests written while
    // the bus was out of reach.
    m_requestsWatcher = new QFileSystemWatcher(this);
    m_requestsWatcher->addPath(FileStore::requestsDirectory());
    connect(m_requestsWatcher, &QFileSystemWatcher::directoryChanged, this, [this] {
        QTimer::singleShot(0, m_composers.get(), &ComposerCoordinator::processPendingRequests);
    });
    // Requests from other machines; a failure is in the error log and leaves the rest working.
    connect(m_remoteRequests.get(), &RemoteRequestServer::requestsChanged, this, [this] {
        QTimer::singleShot(0, m_composers.get(), &ComposerCoordinator::processPendingRequests);
    });
    m_remoteRequests->listen();
}

void AppDelegate::stopListening()
{
    m_remoteRequests->stopListening();
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

void AppDelegate::openErrors()
{
    if (!m_errorsWindow)
        m_errorsWindow = std::make_unique<ErrorsWindow>(m_errorLog, m_defaults, AppConstants::appName);
    m_activation->requestWindowActivation(m_errorsWindow.get());
}

PreferencesWindow &AppDelegate::preferencesWindow()
{
    if (m_preferencesWindow)
        return *m_preferencesWindow;
    m_preferencesWindow = std::make_unique<PreferencesWindow>(
        m_defaults, *m_shortcuts, [] { return TaskCLIExecutableLocator::installationAvailabilities(); });
    PreferencesWindow *window = m_preferencesWindow.get();
    window->globalShortcutRecorder()->registration = [this](const std::optional<Shortcut> &shortcut) {
        return registerGlobalShortcut(shortcut);
    };
    connect(window, &PreferencesWindow::refreshRequested, this, [this, window] {
        window->setEditorSetupStatusLine(m_editorSetup->statusLine());
        refreshGlobalShortcutRemark();
        m_permissions->fetchSummary().then(window, [window](const PermissionSummary &summary) {
            window->setPermissionSummary(summary.title(), summary.detail());
        });
    });
    // The line to add to the desktop's settings follows the recorded combination.
    connect(m_shortcuts.get(), &KeyboardShortcuts::shortcutByNameDidChange, window,
            [this](const QString &name) {
                if (name == ShortcutNames::openScratchComposer().rawValue)
                    refreshGlobalShortcutRemark();
            });
    connect(window, &PreferencesWindow::openPermissionsRequested, this, &AppDelegate::openPermissions);
    connect(window, &PreferencesWindow::clearPromptHistoryRequested, this, [this, window] {
        try {
            m_history->clear();
        } catch (const TarvelError &error) {
            const QString message = QStringLiteral("The prompt history could not be cleared.");
            m_errorLog.record(message, error.description(), QStringLiteral("Prompt History"));
            QMessageBox box(QMessageBox::Warning, QStringLiteral("Tarvel"), message, QMessageBox::Ok, window);
            box.setInformativeText(error.description());
            box.exec();
        }
    });
    connect(window, &PreferencesWindow::shortcutRecordingChanged, m_keyboard.get(),
            &KeyboardGate::noteShortcutRecording);
    connect(window, &PreferencesWindow::showEditorIntegrationPromptRequested, this, [this, window] {
        // After the click's own event: the prompt runs a modal loop of its own.
        QTimer::singleShot(0, m_editorSetup.get(), [this, window] {
            m_editorSetup->offer(KeyboardGate::Origin::askedByUser);
            window->setEditorSetupStatusLine(m_editorSetup->statusLine());
        });
    });
    return *window;
}

void AppDelegate::refreshGlobalShortcutRemark()
{
    if (!m_preferencesWindow)
        return;
    const std::optional<Shortcut> stored = m_shortcuts->getShortcut(ShortcutNames::openScratchComposer());
    QString remark = manualShortcutBinding(stored);
    if (remark.isEmpty() && m_platform.hotKeys)
        remark = m_platform.hotKeys->unavailableReason();
    if (remark.isEmpty() && m_globalShortcuts)
        remark = m_globalShortcuts->problem(ShortcutNames::openScratchComposer());
    m_preferencesWindow->globalShortcutRecorder()->setRemark(remark);
}

QString AppDelegate::manualShortcutBinding(const std::optional<Shortcut> &shortcut) const
{
    if (!m_platform.hotKeys || m_platform.hotKeys->unavailableReason().isEmpty())
        return {};
    return m_platform.hotKeys->manualBindingInstructions(shortcut);
}

QString AppDelegate::registerGlobalShortcut(const std::optional<Shortcut> &shortcut)
{
    if (!m_globalShortcuts)
        return {};
    const QString unavailable = m_platform.hotKeys->unavailableReason();
    // Kept for the user to bind in the desktop's settings; the remark gives the line.
    if (!manualShortcutBinding(shortcut).isEmpty())
        return {};
    if (!unavailable.isEmpty() && shortcut)
        return unavailable;
    const QString problem = m_globalShortcuts->tryRegister(ShortcutNames::openScratchComposer(), shortcut);
    if (!problem.isEmpty())
        m_errorLog.record(kHotKeyFailed, problem, kShortcuts);
    return problem;
}

void AppDelegate::openPreferences()
{
    PreferencesWindow &window = preferencesWindow();
    window.present();
    m_activation->requestWindowActivation(&window);
}

void AppDelegate::openPermissions()
{
    if (!m_permissionsWindow)
        m_permissionsWindow = std::make_unique<PermissionsWindow>(*m_permissions);
    m_activation->requestWindowActivation(m_permissionsWindow.get());
}

void AppDelegate::handleDebugWindowRequest(const QMap<QString, QString> &userInfo)
{
    const std::optional<DebugWindowRequest> request = DebugWindowRequest::fromUserInfo(userInfo);
    if (!request)
        return;
    switch (request->target) {
    case DebugWindowTarget::preferences:
        openPreferences();
        preferencesWindow().measureFrame(
            [path = request->responsePath](const std::optional<DebugWindowFrameResponse> &response) {
                if (!response)
                    return;
                try {
                    DataFile::write(path, response->encoded(), DataFile::privatePermissions);
                } catch (const TarvelError &) {
                    // The asking tool sees no file; nothing else is owed to it.
                }
            });
        break;
    }
}
