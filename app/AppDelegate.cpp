#include "app/AppDelegate.h"

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
#include "platform/DistributedNotificationObserver.h"
#include "platform/TrayHost.h"
#include "platform/WindowSystem.h"
#include "settings/AppSettings.h"
#include "settings/UserDefaults.h"

#include <QApplication>
#include <QFileSystemWatcher>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTimer>

namespace {
const QString kLaunch = QStringLiteral("Launch");
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
{
    connect(m_intake.get(), &RequestIntake::composerRequested, this,
            [this](const ComposerRequest &request) { presentComposer(request, request.initialText); });
    connect(m_intake.get(), &RequestIntake::alertRequested, this, &AppDelegate::presentAlert);
    connect(m_intake.get(), &RequestIntake::workingDirectoryNoted, this, [this](const QString &path) {
        if (!path.isEmpty())
            AppSettings(m_defaults).setQuickTaskLastWorkingDirectory(path);
    });

    m_statusItem->stateProvider = [this] {
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
        state.hasErrors = !m_errorLog.entries().isEmpty();
        state.applicationDisplayName = AppConstants::appName;
        return state;
    };
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

    m_statusItem->show();

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

void AppDelegate::presentComposer(const std::optional<ComposerRequest> &request, const QString &initialText)
{
    auto *controller = new ComposerPanelController(request, initialText, this);
    controller->setDelegate(this);
    controller->setCompositingAvailable(m_windowSystem->compositorRunning());
    if (request) {
        m_editorPanelController = controller;
    } else {
        m_scratchPanelControllers.append(controller);
        controller->onScratchFrameChanged = [this](const QRect &frame) {
            m_scratchFrameStore->save(frame);
        };
    }
    positionPanel(controller);
    controller->showWindow();
    m_activation->requestWindowActivation(controller->panel());
    controller->completeInitialPlacement();
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
                                                   const std::optional<ComposerRequest> &request)
{
    if (request) {
        if (!m_intake->finishCurrentRequest(ComposerResponse::Disposition::submitted, text))
            return; // the composer stays open so nothing typed is lost
        closeComposer(controller);
        processPendingRequests();
        restoreFocusAfterClosingComposer(request);
        return;
    }
    if (text.trimmed().isEmpty()) {
        closeComposer(controller);
        processPendingRequests();
        restoreFocusAfterClosingComposer(std::nullopt);
        return;
    }
    // Quick tasks are started from scratch composers once a backend is wired in.
    QApplication::beep();
}

void AppDelegate::composerPanelControllerDidCancel(ComposerPanelController *controller,
                                                   const std::optional<ComposerRequest> &request)
{
    if (request && !m_intake->finishCurrentRequest(ComposerResponse::Disposition::cancelled, std::nullopt))
        return;
    closeComposer(controller);
    processPendingRequests();
    restoreFocusAfterClosingComposer(request);
}

void AppDelegate::closeComposer(ComposerPanelController *controller)
{
    if (controller == m_editorPanelController)
        m_editorPanelController = nullptr;
    m_scratchPanelControllers.removeOne(controller);
    controller->closeProgrammatically();
    controller->deleteLater();
}

void AppDelegate::restoreFocusAfterClosingComposer(const std::optional<ComposerRequest> &request)
{
    if (focusTopmostOpenComposerWindow())
        return;
    if (request)
        m_activation->restoreFocus(request->sourceApplicationBundleIdentifier, request->sourceApplicationPID);
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

void AppDelegate::openErrors()
{
    if (!m_errorsWindow)
        m_errorsWindow = std::make_unique<ErrorsWindow>(m_errorLog, AppConstants::appName);
    m_activation->requestWindowActivation(m_errorsWindow.get());
}

void AppDelegate::setRunningTaskCount(int count)
{
    m_runningTaskCount = count;
    m_statusItem->setTasksRunning(count > 0);
}

bool AppDelegate::applicationShouldTerminate()
{
    const int running = m_runningTaskCount;
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
    for (ComposerPanelController *controller : std::as_const(m_scratchPanelControllers))
        controller->closeProgrammatically();
    if (m_editorPanelController)
        m_editorPanelController->closeProgrammatically();
}
