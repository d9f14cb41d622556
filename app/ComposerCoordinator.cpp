#include "app/ComposerCoordinator.h"

#include "app/RequestIntake.h"
#include "app/WindowActivationCoordinator.h"
#include "backends/BackendProfiles.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"
#include "composer/ComposerTextView.h"
#include "composer/EditorComposer.h"
#include "composer/PanelPlacement.h"
#include "composer/ScratchWindowFrameStore.h"
#include "composer/TerminalWindowLocator.h"
#include "core/AttachmentStore.h"
#include "core/DraftKeeper.h"
#include "core/RequestFileIO.h"
#include "core/TarvelError.h"
#include "editing/PromptHistory.h"
#include "errorlog/ErrorLogManager.h"
#include "platform/Clipboard.h"
#include "platform/WindowSystem.h"
#include "quicktasks/QuickTaskManager.h"
#include "settings/AppSettings.h"

#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <QTextEdit>
#include <QThreadPool>
#include <QTimer>

namespace {
const QString kQuickTasks = QStringLiteral("Quick Tasks");
const QString kPromptHistory = QStringLiteral("Prompt History");
} // namespace

ComposerCoordinator::ComposerCoordinator(RequestIntake &intake, QuickTaskManager &tasks,
                                         WindowSystem &windows, WindowActivationCoordinator &activation,
                                         ScratchWindowFrameStore &frames, ErrorLogManager &errorLog,
                                         ComposerServices services, QObject *parent)
    : QObject(parent)
    , m_intake(intake)
    , m_tasks(tasks)
    , m_windows(windows)
    , m_activation(activation)
    , m_frames(frames)
    , m_errorLog(errorLog)
    , m_services(std::move(services))
{
    // Drafts hold their attachments where the sessions hold theirs.
    m_services.attachments = &tasks.attachments();
    m_prepareSoon.setSingleShot(true);
    m_prepareSoon.setInterval(prepareDelayMs);
    connect(&m_prepareSoon, &QTimer::timeout, this, &ComposerCoordinator::prepareComposers);
    connect(&intake, &RequestIntake::answerFailed, this, [this](const QString &message, const QString &text) {
        if (m_editor)
            m_editor->surface().presentAlert(message, text);
    });
}

ComposerCoordinator::~ComposerCoordinator() = default;

void ComposerCoordinator::processPendingRequests()
{
    if (m_terminated)
        return;
    if (m_request) {
        m_intake.loadQueuedRequests(m_request->id);
        // Ctrl-C in the terminal, or the assistant ended its editor: what was typed stays.
        if (!m_editor->isWithdrawn() && m_intake.isWithdrawn(*m_request))
            m_editor->markWithdrawn();
        return;
    }
    std::optional<ComposerRequest> request = m_intake.takeNextRequest();
    if (!request)
        return;
    m_request = std::move(request);
    // A copy of Tarvel that stopped while this request was open left what had been typed.
    const QString draftName = DraftStore::requestDraftName(m_request->id);
    const std::optional<QString> draft = m_drafts.load(draftName);
    const bool restored = draft && !draft->trimmed().isEmpty() && *draft != m_request->initialText;
    const QString &text = restored ? *draft : m_request->initialText;
    EditorComposer *editor = std::exchange(m_preparedEditor, nullptr);
    if (editor)
        editor->surface().replaceInitialText(text);
    else
        editor = new EditorComposer(text, m_services, this);
    m_editor = editor;
    editor->surface().preferredWorkingDirectory = [cwd = m_request->cwd] {
        return cwd;
    };
    editor->surface().setWorkingFolder(m_request->cwd);
    m_editorDraft = keepDraft(editor, editor->surface(), draftName);
    if (m_request->remote)
        editor->markRemote(*m_request->remote);
    if (restored)
        editor->showNotice(QStringLiteral("Restored from before Tarvel stopped."));
    // A composer on its way out must not answer the request that followed it.
    connect(editor, &EditorComposer::submitted, this, [this, editor](const QString &text) {
        if (editor != m_editor)
            return;
        if (editor->isWithdrawn())
            closeWithdrawnEditor(text);
        else
            answerEditorRequest(ComposerResponse::Disposition::submitted, text);
    });
    connect(editor, &EditorComposer::cancelled, this, [this, editor] {
        if (editor != m_editor)
            return;
        if (editor->isWithdrawn())
            closeWithdrawnEditor(std::nullopt);
        else
            answerEditorRequest(ComposerResponse::Disposition::cancelled, std::nullopt);
    });
    noteComposersOnScreen();
    present(m_editor->surface(), false);
    m_editor->showWindow();
    m_activation.requestWindowActivation(m_editor->panel(), m_request->activationToken.value_or(QString()));
    m_editor->surface().completeInitialPlacement();
    // The next is made while the user types; not before this one has its first frame and the
    // keyboard, which the window manager gives it while the event loop is free.
    m_prepareSoon.start();
}

void ComposerCoordinator::prepareComposers()
{
    if (m_terminated)
        return;
    // One at a time, the editor's first: each holds the event loop for a few milliseconds, and a
    // request arriving meanwhile should wait for one of them at most. The native window too:
    // mapping it is then all that is left.
    if (!m_preparedEditor) {
        m_preparedEditor = new EditorComposer(QString(), m_services, this);
        m_preparedEditor->panel()->winId();
    } else if (!m_preparedScratch) {
        m_preparedScratch = new ScratchComposer(QString(), {}, m_services, this);
        m_preparedScratch->panel()->winId();
    }
    if (!m_preparedScratch)
        m_prepareSoon.start();
}

void ComposerCoordinator::openScratchComposer(const QString &initialText,
                                              const QList<PromptAttachment> &attachments,
                                              const std::optional<QuickTaskSourceContext> &sourceContext,
                                              const std::optional<QString> &workingDirectory)
{
    // What a scratch composer held when Tarvel stopped is offered to the next one.
    QString text = initialText;
    QList<PromptAttachment> held = attachments;
    std::optional<DraftStore::Draft> restored;
    if (initialText.isEmpty() && attachments.isEmpty()) {
        QList<QUuid> open;
        for (const ScratchComposer *composer : std::as_const(m_scratchComposers))
            open.append(composer->id());
        restored = m_drafts.takeNewestScratchDraft(open);
        if (restored) {
            text = restored->text;
            held = restored->attachments;
        }
    }
    // One made ahead starts empty; a retried task's or a restored draft's attachments need a new one.
    ScratchComposer *composer = held.isEmpty() ? std::exchange(m_preparedScratch, nullptr) : nullptr;
    if (composer)
        composer->surface().replaceInitialText(text);
    else
        composer = new ScratchComposer(text, held, m_services, this);
    composer->setWorkingDirectory(workingDirectory.value_or(m_tasks.workingDirectoryForNewTask()));
    DraftKeeper *draft =
        keepDraft(composer, composer->surface(), DraftStore::scratchDraftName(composer->id()),
                  [composer] { return composer->attachments(); });
    connect(composer, &ScratchComposer::attachmentsChanged, draft, &DraftKeeper::noteChange);
    m_scratchDrafts.insert(composer, draft);
    if (restored) {
        composer->showRestoredDraftNotice();
        draft->saveNow(); // under its new name, before anything is typed
    }
    connect(composer, &ScratchComposer::submitted, this,
            [this, composer](const QString &text, const QList<PromptAttachment> &submitted,
                             const std::optional<QuickTaskPreset> &preset) {
                submitScratch(composer, text, submitted, preset);
            });
    connect(composer, &ScratchComposer::cancelled, this, [this, composer] { closeScratch(composer); });
    m_scratchComposers.append(composer);
    m_sourceContexts.insert(composer,
                            sourceContext ? sourceContext : m_tasks.preferredScratchSourceContext());
    composer->surface().onFrameChanged = [this](const QRect &frame) {
        m_frames.save(frame);
    };
    noteComposersOnScreen();
    present(composer->surface(), true);
    composer->showWindow();
    m_activation.requestWindowActivation(composer->panel());
    composer->surface().completeInitialPlacement();
    m_prepareSoon.start();
}

void ComposerCoordinator::present(ComposerSurface &surface, bool restoresScratchFrame)
{
    surface.panel()->installEventFilter(this);
    surface.setCompositingAvailable(m_windows.compositorRunning());
    surface.panel()->setHeightFixedToContent(m_windows.floatsFixedSizeWindows());
    place(surface, restoresScratchFrame);
    // Where the compositor places windows, it is asked to put the panel where it was placed here
    // and to keep it there as it grows.
    surface.panel()->winId();
    m_windows.followOwnWindow(surface.panel()->windowHandle());
    connect(&surface, &ComposerSurface::voicePromptStateChanged, this,
            [this, composer = &surface](VoicePromptBuilder::State state) {
                noteVoicePromptRecording(composer, state == VoicePromptBuilder::State::recording);
            });
    connect(&surface, &QObject::destroyed, this,
            [this, composer = &surface] { noteVoicePromptRecording(composer, false); });
}

void ComposerCoordinator::noteVoicePromptRecording(ComposerSurface *surface, bool recording)
{
    const bool wasRecording = !m_recordingSurfaces.isEmpty();
    if (recording)
        m_recordingSurfaces.insert(surface);
    else
        m_recordingSurfaces.remove(surface);
    if (wasRecording != !m_recordingSurfaces.isEmpty())
        Q_EMIT voicePromptRecordingChanged(!wasRecording);
}

void ComposerCoordinator::place(ComposerSurface &surface, bool restoresScratchFrame)
{
    ComposerPanel *panel = surface.panel();
    QList<ScreenArea> screens = m_windows.screens();
    int primary = m_windows.primaryScreenIndex();
    if (screens.isEmpty()) {
        for (const QScreen *screen : QGuiApplication::screens())
            screens.append({screen->geometry(), screen->availableGeometry()});
        primary = int(QGuiApplication::screens().indexOf(QGuiApplication::primaryScreen()));
    }
    if (restoresScratchFrame) {
        const QScreen *screen = panel->screen() ? panel->screen() : QGuiApplication::primaryScreen();
        const std::optional<QRect> workArea =
            screen ? std::optional<QRect>(screen->availableGeometry()) : std::nullopt;
        if (const auto restored = m_frames.restoredFrame(panel->geometry(), workArea)) {
            panel->setGeometry(*restored);
            return;
        }
    }
    // An editor goes over the terminal that asked; a scratch composer over the one in front.
    const std::optional<QRect> terminal =
        TerminalWindowLocator(m_windows).bestFrame(restoresScratchFrame ? std::nullopt : m_request);
    if (const auto frame = PanelPlacement::requestPanelFrame(panel->size(), terminal, screens, primary))
        panel->setGeometry(*frame);
}

void ComposerCoordinator::answerEditorRequest(ComposerResponse::Disposition disposition,
                                              const std::optional<QString> &text)
{
    if (!m_request)
        return;
    // Kept before the answer is written: a prompt the assistant has is one the history has.
    if (disposition == ComposerResponse::Disposition::submitted && text)
        rememberPrompt(*text, m_request->cwd);
    if (!m_intake.answer(*m_request, disposition, text))
        return; // the composer stays open so nothing typed is lost
    closeEditor();
}

void ComposerCoordinator::closeWithdrawnEditor(const std::optional<QString> &copiedText)
{
    if (copiedText) {
        rememberPrompt(*copiedText, m_request->cwd);
        if (m_services.clipboard)
            m_services.clipboard->setText(*copiedText);
    }
    closeEditor();
}

void ComposerCoordinator::rememberPrompt(const QString &text, const std::optional<QString> &cwd)
{
    if (!m_services.history)
        return;
    try {
        m_services.history->record(text, cwd);
    } catch (const TarvelError &error) {
        m_errorLog.record(QStringLiteral("The prompt could not be kept in the prompt history."),
                          error.description(), kPromptHistory);
    }
}

void ComposerCoordinator::closeEditor()
{
    const ComposerRequest request = *std::exchange(m_request, std::nullopt);
    EditorComposer *editor = std::exchange(m_editor, nullptr);
    std::exchange(m_editorDraft, nullptr)->discard();
    editor->surface().closeProgrammatically();
    editor->deleteLater();
    noteComposersOnScreen();
    processPendingRequests();
    restoreFocus(request.sourceApplicationBundleIdentifier, request.sourceApplicationPID);
}

DraftKeeper *ComposerCoordinator::keepDraft(QObject *composer, ComposerSurface &surface, const QString &name,
                                            std::function<QList<PromptAttachment>()> attachments)
{
    auto *keeper = new DraftKeeper(
        m_drafts, name, [&surface] { return surface.text(); }, std::move(attachments), composer);
    connect(surface.panel()->textView(), &QTextEdit::textChanged, keeper, &DraftKeeper::noteChange);
    return keeper;
}

void ComposerCoordinator::sweepImportedAttachments(const QDateTime &cutoff)
{
    // What refers to a copy is gathered here, on the main thread that changes it; the folder is
    // read and pruned elsewhere. Anything that names a copy from now on names either one gathered
    // here or a newer one.
    QSet<QString> referenced = m_drafts.attachmentPaths();
    referenced.unite(m_tasks.attachments().heldPaths());
    QThreadPool::globalInstance()->start([referenced, texts = m_drafts.texts(), cutoff] {
        AttachmentStore::removeUnreferencedCopies(referenced, texts, cutoff);
    });
}

void ComposerCoordinator::forgetDraftsOfAnsweredRequests()
{
    QList<QUuid> waiting;
    try {
        for (const QString &url : RequestFileIO::pendingRequestURLs()) {
            if (const std::optional<QUuid> id = RequestFileIO::requestIdentifier(url))
                waiting.append(*id);
        }
    } catch (const TarvelError &) {
        return; // keep them all rather than lose one still needed
    }
    if (m_request)
        waiting.append(m_request->id);
    m_drafts.removeRequestDraftsExcept(waiting);
}

void ComposerCoordinator::submitScratch(ScratchComposer *composer, const QString &text,
                                        const QList<PromptAttachment> &attachments,
                                        const std::optional<QuickTaskPreset> &preset)
{
    if (m_startingTasks.contains(composer))
        return; // already on its way
    if (text.trimmed().isEmpty()) {
        closeScratch(composer);
        return;
    }
    const std::optional<QuickTaskPreset> chosen =
        preset ? preset : AppSettings(*m_services.defaults).selectedQuickTaskPreset();
    if (!chosen) {
        presentErrorAlert(
            composer->surface(), QStringLiteral("No quick-task model preset is available."),
            QStringLiteral("Choose a valid model in Preferences before starting a quick task."));
        return;
    }
    rememberPrompt(text, composer->workingDirectory());
    const QuickTaskCLIBackend backend = composer->backend();
    m_startingTasks.insert(composer);
    const QPointer<ScratchComposer> guarded(composer);
    // Cancelled before the backend was found and checked: it must not start after all.
    const auto stillWanted = [this, guarded] {
        return guarded && m_startingTasks.contains(guarded.data());
    };
    m_tasks
        .startTask(text, m_sourceContexts.value(composer), attachments, *chosen, backend,
                   composer->workingDirectory(), stillWanted)
        .then(this,
              [this, guarded](const QUuid &id) {
                  if (!guarded || id.isNull())
                      return;
                  m_startingTasks.remove(guarded.data());
                  // The session holds the attachments now: closing keeps them.
                  closeScratch(guarded.data());
              })
        .onFailed(this, [this, guarded, backend](const TarvelError &error) {
            const QString message = QStringLiteral("Failed to start the ") +
                                    BackendProfiles::of(backend).displayTitle() + QStringLiteral(" task.");
            if (!guarded) {
                m_errorLog.record(message, error.description(), kQuickTasks);
                return;
            }
            m_startingTasks.remove(guarded.data());
            presentErrorAlert(guarded->surface(), message, error.description());
        });
}

void ComposerCoordinator::closeScratch(ScratchComposer *composer)
{
    if (DraftKeeper *draft = m_scratchDrafts.take(composer))
        draft->discard(); // submitted or cancelled: nothing left to offer
    const std::optional<QuickTaskSourceContext> context = m_sourceContexts.take(composer);
    m_scratchComposers.removeOne(composer);
    m_startingTasks.remove(composer);
    composer->releaseAttachments();
    composer->closeProgrammatically();
    composer->deleteLater();
    noteComposersOnScreen();
    processPendingRequests();
    if (context)
        restoreFocus(context->bundleIdentifier, context->processIdentifier);
    else
        restoreFocus(std::nullopt, std::nullopt);
}

bool ComposerCoordinator::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::WindowActivate) {
        if (auto *panel = qobject_cast<QWidget *>(watched)) {
            m_activationOrder.removeAll(panel);
            m_activationOrder.append(panel);
        }
    }
    return QObject::eventFilter(watched, event);
}

QWidget *ComposerCoordinator::topmostOpenComposer() const
{
    QList<QWidget *> open;
    if (m_editor)
        open.append(m_editor->panel());
    for (const ScratchComposer *composer : m_scratchComposers)
        open.append(composer->panel());
    // Activation raises a panel, so the one activated last is in front of the others.
    for (auto it = m_activationOrder.crbegin(); it != m_activationOrder.crend(); ++it) {
        if (open.contains(it->data()))
            return it->data();
    }
    return open.isEmpty() ? nullptr : open.constLast();
}

void ComposerCoordinator::restoreFocus(const std::optional<QString> &executableName,
                                       const std::optional<qint32> &pid)
{
    // Another composer still open takes the focus: the one in front of the others.
    if (QWidget *topmost = topmostOpenComposer()) {
        m_activation.requestWindowActivation(topmost);
        return;
    }
    if (executableName || pid)
        m_activation.restoreFocus(executableName, pid);
}

std::optional<QuickTaskSourceContext> ComposerCoordinator::frontmostTerminalContext() const
{
    const std::optional<TopLevelWindow> active = m_windows.activeWindow();
    if (!active || active->pid <= 0 || !TerminalWindowLocator::isTerminalWindow(*active))
        return std::nullopt;
    return QuickTaskSourceContext{m_windows.executableName(active->pid), qint32(active->pid)};
}

void ComposerCoordinator::closeAllForTermination()
{
    m_terminated = true;
    for (ScratchComposer *composer : std::as_const(m_scratchComposers)) {
        // A scratch composer open at the end is offered to the next one, as typed to the last key.
        if (DraftKeeper *draft = m_scratchDrafts.value(composer))
            draft->saveNow();
        composer->closeProgrammatically();
    }
    if (m_editor)
        m_editor->surface().closeProgrammatically();
}

void ComposerCoordinator::presentErrorAlert(ComposerSurface &surface, const QString &message,
                                            const QString &errorDescription)
{
    m_errorLog.record(message, errorDescription, kQuickTasks);
    surface.presentAlert(message, errorDescription);
}

void ComposerCoordinator::noteComposersOnScreen()
{
    Q_EMIT composersOnScreenChanged((m_editor ? 1 : 0) + int(m_scratchComposers.size()));
}
