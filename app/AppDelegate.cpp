#include "app/AppDelegate.h"

#include "app/QuickTaskMenuItemView.h"
#include "app/RequestIntake.h"
#include "app/StatusItemController.h"
#include "app/WindowActivationCoordinator.h"
#include "composer/ComposerPanel.h"
#include "composer/PanelPlacement.h"
#include "composer/ScratchWindowFrameStore.h"
#include "composer/TerminalWindowLocator.h"
#include "core/AppConstants.h"
#include "core/Clock.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"
#include "errorlog/ErrorLogManager.h"
#include "errorlog/ErrorsWindow.h"
#include "platform/Clipboard.h"
#include "platform/DistributedNotificationObserver.h"
#include "platform/FileOpener.h"
#include "platform/TrayHost.h"
#include "platform/UserNotificationCenter.h"
#include "platform/WindowSystem.h"
#include "quicktasks/QuickTaskManager.h"
#include "quicktasks/QuickTaskStore.h"
#include "settings/AppSettings.h"
#include "core/UserDefaults.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QApplication>
#include <QFileSystemWatcher>
#include <QGuiApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTimer>

namespace {
const QString kLaunch = QStringLiteral("Launch");
const QString kQuickTasks = QStringLiteral("Quick Tasks");
} // namespace

AppDelegate::AppDelegate(ErrorLogManager &errorLog, UserDefaults &defaults, QObject *parent)
    : QObject(parent)
    , m_errorLog(errorLog)
    , m_defaults(defaults)
    , m_windowSystem(WindowSystem::create())
    , m_intake(std::make_unique<RequestIntake>(errorLog, Clock::system()))
    , m_statusItem(std::make_unique<StatusItemController>(TrayHost::exportsMenus()))
    , m_activation(std::make_unique<WindowActivationCoordinator>(*m_windowSystem))
    , m_scratchFrameStore(std::make_unique<ScratchWindowFrameStore>(defaults))
    , m_shortcuts(std::make_unique<KeyboardShortcuts>(defaults))
    , m_notifications(UserNotificationCenter::create())
    , m_clipboard(Clipboard::create())
    , m_fileOpener(FileOpener::create())
{
    m_quickTaskManager = std::make_unique<QuickTaskManager>(
        QuickTaskStore(), errorLog, defaults, Clock::system(),
        QuickTaskDesktopServices{m_notifications.get(), m_clipboard.get(), m_fileOpener.get()});
    m_quickTaskManager->setFrontmostTerminalContextProvider([this] { return frontmostTerminalContext(); });
    m_quickTaskManager->setAttachmentsInUseProvider([this] {
        QSet<QString> paths;
        for (const ComposerPanelController *controller : std::as_const(m_scratchPanelControllers)) {
            for (const PromptAttachment &attachment : controller->scratchAttachments())
                paths.insert(attachment.path);
        }
        return paths;
    });
    connect(m_quickTaskManager.get(), &QuickTaskManager::sessionsChanged, this,
            &AppDelegate::quickTaskStateChanged);
    connect(m_quickTaskManager.get(), &QuickTaskManager::runningSessionCountChanged, this,
            [this](int count) { m_statusItem->setTasksRunning(count > 0); });
    connect(m_quickTaskManager.get(), &QuickTaskManager::retryRequested, this,
            [this](const QuickTaskSession &session) {
                presentComposer(std::nullopt, session.prompt, session.attachments, session.sourceContext);
            });

    connect(m_intake.get(), &RequestIntake::composerRequested, this,
            [this](const ComposerRequest &request) { presentComposer(request, request.initialText); });
    connect(m_intake.get(), &RequestIntake::alertRequested, this, &AppDelegate::presentAlert);
    connect(m_intake.get(), &RequestIntake::workingDirectoryNoted, this,
            [this](const QString &path) { m_quickTaskManager->noteWorkingDirectory(path); });

    m_statusItem->stateProvider = [this] {
        m_sessionRows.clear(); // the menu is being rebuilt: its rows are about to go
        StatusMenuState state;
        const std::optional<ComposerRequest> &current = m_intake->currentRequest();
        state.isEditingRequest = current.has_value();
        if (current)
            state.editingRequestCwd = current->cwd;
        state.queuedRequestCount = int(m_intake->queuedRequests().size());
        state.hasWaitingRequests = [this] {
            try {
                return !m_intake->recoverablePendingRequests().isEmpty();
            } catch (const TarvelError &) {
                return false;
            }
        };
        for (const QuickTaskSession &session : m_quickTaskManager->menuSessions())
            state.sessionIds.append(session.id);
        state.hasFinishedSessions = m_quickTaskManager->hasFinishedSessions();
        state.hasErrors = !m_errorLog.entries().isEmpty();
        state.applicationDisplayName = AppConstants::appName;
        return state;
    };
    m_statusItem->sessionRowFactory = [this](const QUuid &id, QWidget *parent) {
        return makeSessionRow(id, parent);
    };
    connect(m_statusItem.get(), &StatusItemController::menuRefreshTick, this,
            &AppDelegate::refreshSessionRows);
    connect(m_statusItem.get(), &StatusItemController::actionTriggered, this,
            [this](StatusMenuEntry::Action action) {
                switch (action) {
                case StatusMenuEntry::Action::openScratchComposer:
                    openScratchComposer();
                    break;
                case StatusMenuEntry::Action::checkPendingRequests:
                    processPendingRequests();
                    break;
                case StatusMenuEntry::Action::openErrors:
                    openErrors();
                    break;
                case StatusMenuEntry::Action::quit:
                    // Leave the menu's own event loop before a modal confirmation opens.
                    QTimer::singleShot(0, this, &AppDelegate::quit);
                    break;
                case StatusMenuEntry::Action::clearFinishedTasks:
                    m_quickTaskManager->clearFinishedTasks();
                    break;
                case StatusMenuEntry::Action::openPreferences:
                case StatusMenuEntry::Action::none:
                    break;
                }
            });
    connect(&m_errorLog, &ErrorLogManager::errorLogDidChange, this, [this] {
        if (m_statusItem->isMenuOpen())
            m_statusItem->rebuildMenu();
    });
    connect(qApp, &QCoreApplication::aboutToQuit, this, &AppDelegate::applicationWillTerminate);
}

AppDelegate::~AppDelegate()
{
    for (ComposerPanelController *controller : std::as_const(m_scratchPanelControllers))
        delete controller;
    delete m_editorPanelController.data();
}

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

    m_notificationObserver = DistributedNotificationObserver::create();
    connect(m_notificationObserver.get(), &DistributedNotificationObserver::notificationPosted, this,
            [this](const QString &name) {
                if (name == AppConstants::requestNotificationName)
                    processPendingRequests();
            });
    m_notificationObserver->observe(AppConstants::requestNotificationName);
    watchRequestsFolder();

    processPendingRequests();
}

void AppDelegate::watchRequestsFolder()
{
    // The bus signal is the fast path; the folder watch serves requests written while
    // the bus was out of reach.
    m_requestsWatcher = new QFileSystemWatcher(this);
    m_requestsWatcher->addPath(FileStore::requestsDirectory());
    connect(m_requestsWatcher, &QFileSystemWatcher::directoryChanged, this,
            [this] { QTimer::singleShot(0, this, &AppDelegate::processPendingRequests); });
}

void AppDelegate::processPendingRequests()
{
    if (m_terminated)
        return;
    m_intake->processPendingRequests();
}

void AppDelegate::openScratchComposer()
{
    presentComposer(std::nullopt, QString());
}

void AppDelegate::presentComposer(const std::optional<ComposerRequest> &request, const QString &initialText,
                                  const QList<PromptAttachment> &initialAttachments,
                                  const std::optional<QuickTaskSourceContext> &sourceContext)
{
    ComposerServices services;
    services.defaults = &m_defaults;
    services.shortcuts = m_shortcuts.get();
    auto *controller = new ComposerPanelController(request, initialText, initialAttachments, services, this);
    controller->setDelegate(this);
    controller->setCompositingAvailable(m_windowSystem->compositorRunning());
    if (request) {
        m_editorPanelController = controller;
    } else {
        m_scratchPanelControllers.append(controller);
        m_scratchSourceContexts.insert(
            controller, sourceContext ? sourceContext : m_quickTaskManager->preferredScratchSourceContext());
        controller->onScratchFrameChanged = [this](const QRect &frame) {
            m_scratchFrameStore->save(frame);
        };
    }
    positionPanel(controller);
    controller->showWindow();
    m_activation->requestWindowActivation(controller->panel());
    controller->completeInitialPlacement();
}

std::optional<QuickTaskSourceContext> AppDelegate::frontmostTerminalContext() const
{
    const std::optional<TopLevelWindow> active = m_windowSystem->activeWindow();
    if (!active || active->pid <= 0 || !TerminalWindowLocator::isTerminalWindow(*active))
        return std::nullopt;
    return QuickTaskSourceContext{m_windowSystem->executableName(active->pid), qint32(active->pid)};
}

void AppDelegate::positionPanel(ComposerPanelController *controller)
{
    ComposerPanel *panel = controller->panel();
    QList<ScreenArea> screens = m_windowSystem->screens();
    int primary = m_windowSystem->primaryScreenIndex();
    if (screens.isEmpty()) {
        for (const QScreen *screen : QGuiApplication::screens())
            screens.append({screen->geometry(), screen->availableGeometry()});
        primary = int(QGuiApplication::screens().indexOf(QGuiApplication::primaryScreen()));
    }
    if (controller->isScratch()) {
        const QScreen *screen = panel->screen() ? panel->screen() : QGuiApplication::primaryScreen();
        const std::optional<QRect> workArea =
            screen ? std::optional<QRect>(screen->availableGeometry()) : std::nullopt;
        if (const auto restored = m_scratchFrameStore->restoredFrame(panel->geometry(), workArea)) {
            panel->setGeometry(*restored);
            return;
        }
    }
    const std::optional<QRect> terminal =
        TerminalWindowLocator(*m_windowSystem).bestFrame(controller->request());
    if (const auto frame = PanelPlacement::requestPanelFrame(panel->size(), terminal, screens, primary))
        panel->setGeometry(*frame);
}

void AppDelegate::composerPanelControllerDidSubmit(ComposerPanelController *controller, const QString &text,
                                                   const QList<PromptAttachment> &attachments,
                                                   const std::optional<QuickTaskPreset> &preset,
                                                   const std::optional<ComposerRequest> &request)
{
    if (!request) {
        submitScratchComposer(controller, text, attachments, preset);
        return;
    }
    if (!m_intake->finishCurrentRequest(ComposerResponse::Disposition::submitted, text))
        return; // the composer stays open so nothing typed is lost
    closeComposer(controller);
    processPendingRequests();
    restoreFocusAfterClosingComposer(request, std::nullopt);
}

void AppDelegate::submitScratchComposer(ComposerPanelController *controller, const QString &text,
                                        const QList<PromptAttachment> &attachments,
                                        const std::optional<QuickTaskPreset> &preset)
{
    if (m_startingTasks.contains(controller))
        return; // already on its way
    if (text.trimmed().isEmpty()) {
        controller->discardScratchDraftAttachments();
        closeScratchComposer(controller);
        return;
    }
    const std::optional<QuickTaskPreset> chosen =
        preset ? preset : AppSettings(m_defaults).selectedQuickTaskPreset();
    if (!chosen) {
        presentErrorAlert(QStringLiteral("No quick-task model preset is available."),
                          QStringLiteral("Choose a valid model in Preferences before starting a quick task."),
                          kQuickTasks);
        return;
    }
    const QuickTaskCLIBackend backend = controller->backend();
    m_startingTasks.insert(controller);
    const QPointer<ComposerPanelController> guarded(controller);
    m_quickTaskManager
        ->startTask(text, m_scratchSourceContexts.value(controller), attachments, *chosen, backend)
        .then(this,
              [this, guarded](const QUuid &) {
                  if (!guarded)
                      return;
                  m_startingTasks.remove(guarded.data());
                  // The attachments now belong to the session: close without discarding them.
                  closeScratchComposer(guarded.data());
              })
        .onFailed(this, [this, guarded, backend](const TarvelError &error) {
            if (guarded)
                m_startingTasks.remove(guarded.data());
            presentErrorAlert(QStringLiteral("Failed to start the ") +
                                  QuickTaskCLIBackends::displayTitle(backend) + QStringLiteral(" task."),
                              error.description(), kQuickTasks);
        });
}

void AppDelegate::composerPanelControllerDidCancel(ComposerPanelController *controller,
                                                   const std::optional<ComposerRequest> &request)
{
    if (!request) {
        controller->discardScratchDraftAttachments();
        closeScratchComposer(controller);
        return;
    }
    if (!m_intake->finishCurrentRequest(ComposerResponse::Disposition::cancelled, std::nullopt))
        return;
    controller->discardManagedImportedAttachments();
    closeComposer(controller);
    processPendingRequests();
    restoreFocusAfterClosingComposer(request, std::nullopt);
}

void AppDelegate::closeScratchComposer(ComposerPanelController *controller)
{
    const std::optional<QuickTaskSourceContext> context = m_scratchSourceContexts.take(controller);
    closeComposer(controller);
    processPendingRequests();
    restoreFocusAfterClosingComposer(std::nullopt, context);
}

void AppDelegate::closeComposer(ComposerPanelController *controller)
{
    if (controller == m_editorPanelController)
        m_editorPanelController = nullptr;
    m_scratchPanelControllers.removeOne(controller);
    m_scratchSourceContexts.remove(controller);
    m_startingTasks.remove(controller);
    controller->closeProgrammatically();
    controller->deleteLater();
}

void AppDelegate::restoreFocusAfterClosingComposer(const std::optional<ComposerRequest> &request,
                                                   const std::optional<QuickTaskSourceContext> &sourceContext)
{
    if (focusTopmostOpenComposerWindow())
        return;
    if (request)
        m_activation->restoreFocus(request->sourceApplicationBundleIdentifier, request->sourceApplicationPID);
    else if (sourceContext)
        m_activation->restoreFocus(sourceContext->bundleIdentifier, sourceContext->processIdentifier);
}

bool AppDelegate::focusTopmostOpenComposerWindow()
{
    // The composer that opened last is the one in front.
    ComposerPanelController *topmost = m_editorPanelController;
    if (!topmost && !m_scratchPanelControllers.isEmpty())
        topmost = m_scratchPanelControllers.constLast();
    if (!topmost)
        return false;
    m_activation->requestWindowActivation(topmost->panel());
    return true;
}

void AppDelegate::presentAlert(const QString &message, const QString &informativeText)
{
    QMessageBox box(QMessageBox::Warning, AppConstants::appName, message);
    box.setInformativeText(informativeText);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.exec();
}

void AppDelegate::presentErrorAlert(const QString &message, const QString &errorDescription,
                                    const QString &source)
{
    m_errorLog.record(message, errorDescription, source);
    presentAlert(message, errorDescription);
}

QWidget *AppDelegate::makeSessionRow(const QUuid &sessionId, QWidget *parent)
{
    const std::optional<QuickTaskSession> session = m_quickTaskManager->session(sessionId);
    QList<QuickTaskInlineAction> actions;
    if (session && session->hasFinalResponse())
        actions.append({QStringLiteral("Copy"), true, [this, sessionId] {
                            m_quickTaskManager->copyFinalResponse(sessionId);
                        }});
    if (session && !session->isRunning()) {
        actions.append({QStringLiteral("Retry"), true, [this, sessionId] {
                            m_quickTaskManager->retry(sessionId);
                        }});
        actions.append({QStringLiteral("Delete"), false, [this, sessionId] {
                            m_quickTaskManager->dismiss(sessionId);
                        }});
    } else if (session) {
        actions.append({QStringLiteral("Stop"), true, [this, sessionId] {
                            m_quickTaskManager->stop(sessionId);
                        }});
    }
    auto *row = new QuickTaskMenuItemView(
        session ? QuickTaskManager::menuTitle(*session) : QString(),
        session ? m_quickTaskManager->menuDetail(*session) : QString(), actions,
        [this, sessionId] { m_quickTaskManager->openTranscript(sessionId); }, parent);
    row->dismissMenu = [this] {
        m_statusItem->menu()->hide();
    };
    m_sessionRows.insert(sessionId, row);
    return row;
}

void AppDelegate::refreshSessionRows()
{
    for (auto it = m_sessionRows.cbegin(); it != m_sessionRows.cend(); ++it) {
        if (!it.value())
            continue;
        if (const std::optional<QuickTaskSession> session = m_quickTaskManager->session(it.key()))
            it.value()->update(QuickTaskManager::menuTitle(*session),
                               m_quickTaskManager->menuDetail(*session));
    }
}

void AppDelegate::quickTaskStateChanged()
{
    // A session came, went or changed its status: the rows and their buttons are rebuilt.
    // Later, not now: a row's own Delete button gets here from inside its click, and the
    // menu must neither lose that button under the click nor close.
    QTimer::singleShot(0, this, [this] {
        if (m_statusItem->isMenuOpen()) {
            m_sessionRows.clear();
            m_statusItem->rebuildMenu();
        }
    });
}

void AppDelegate::openErrors()
{
    if (!m_errorsWindow)
        m_errorsWindow = std::make_unique<ErrorsWindow>(m_errorLog, AppConstants::appName);
    m_activation->requestWindowActivation(m_errorsWindow.get());
}

bool AppDelegate::applicationShouldTerminate()
{
    const int running = m_quickTaskManager->runningSessionCount();
    const int waiting = m_intake->activeEditorRequestCount();
    const int scratch = int(m_scratchPanelControllers.size());
    if (running < 1 && waiting < 1 && scratch < 1)
        return true;
    QMessageBox box(QMessageBox::Warning, AppConstants::appName, QStringLiteral("Quit Tarvel?"));
    box.setObjectName(QStringLiteral("QuitConfirmation"));
    box.setInformativeText(RequestIntake::quitConfirmationDetail(running, waiting, scratch));
    QPushButton *quitButton = box.addButton(QStringLiteral("Quit"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box.setDefaultButton(quitButton);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.show();
    m_activation->requestWindowActivation(&box);
    box.exec();
    return box.clickedButton() == quitButton;
}

void AppDelegate::quit()
{
    if (!applicationShouldTerminate())
        return;
    // Answer and close everything first: quit() would offer each window a close, and a
    // composer treats a close as the user's cancel.
    applicationWillTerminate();
    QCoreApplication::exit(0);
}

void AppDelegate::applicationWillTerminate()
{
    if (m_terminated)
        return;
    m_terminated = true;
    m_notificationObserver.reset();
    delete m_requestsWatcher;
    m_requestsWatcher = nullptr;
    m_statusItem->setTasksRunning(false);
    m_statusItem->hide();
    m_intake->cancelPendingEditorRequestsOnTermination();
    m_quickTaskManager->stopAllTasksForTermination();
    for (ComposerPanelController *controller : std::as_const(m_scratchPanelControllers))
        controller->closeProgrammatically();
    if (m_editorPanelController)
        m_editorPanelController->closeProgrammatically();
}
