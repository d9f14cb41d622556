#include "composer/ComposerSurface.h"

#include "composer/ComposerPanel.h"
#include "composer/ComposerServices.h"
#include "composer/ComposerTextView.h"
#include "composer/PastedImageImport.h"
#include "composer/UnrequestedWindowGuard.h"
#include "composer/VoicePromptButton.h"
#include "core/TarvelError.h"
#include "core/UserDefaults.h"
#include "editing/FindBar.h"
#include "editing/PromptEditingAids.h"
#include "settings/AppSettings.h"
#include "shortcuts/ComposerKeyMatcher.h"
#include "voice/VoicePromptDraftError.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QDir>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <cmath>

using namespace ComposerLayout;

ComposerSurface::ComposerSurface(Mode mode, const QString &initialText, QObject *parent)
    : QObject(parent)
    , m_mode(mode)
    , m_panel(std::make_unique<ComposerPanel>(mode == Mode::scratch))
{
    ComposerTextView *textView = m_panel->textView();
    setTextWithoutUndo(initialText);
    textView->onAttachmentPaste = [this](const QMimeData *data) {
        return handlePaste(data);
    };
    textView->onFilesDropped = [this](const QList<QUrl> &urls) {
        insertPaths(urls);
    };
    textView->onKeyPress = [this](QKeyEvent *event) {
        if (m_voicePromptBuilder && m_shortcuts &&
            ComposerKeyMatcher::match({event->key(), event->modifiers(), event->text()}, *m_shortcuts)
                    .action == ComposerKeyAction::toggleVoicePrompt) {
            voicePromptPressed();
            return true;
        }
        return onKey && onKey(event->key(), event->modifiers(), event->text());
    };
    connect(textView, &QTextEdit::textChanged, this, [this] { scheduleHeightRecalculation(); });

    m_panel->onSubmit = [this] {
        Q_EMIT submitRequested();
    };
    m_panel->onCancel = [this] {
        cancelPressed();
    };
    m_panel->onEscape = [this] {
        escapePressed();
    };
    m_panel->onUserClose = [this] {
        cancelPressed();
    };
    m_panel->onMoved = [this] {
        windowDidMove();
    };
    m_panel->onResized = [this] {
        windowDidResize();
    };
}

ComposerSurface::~ComposerSurface() = default;

void ComposerSurface::setTextWithoutUndo(const QString &text)
{
    ComposerTextView *textView = m_panel->textView();
    textView->setPlainText(text);
    textView->moveCursor(QTextCursor::End);
    textView->document()->clearUndoRedoStacks();
}

void ComposerSurface::replaceInitialText(const QString &text)
{
    setTextWithoutUndo(text);
    recalculateHeight();
}

void ComposerSurface::applyInitialSize()
{
    m_panel->resize(initialPanelWidth, 120);
    // Lay the panel out now so the first measurement uses the real text width.
    m_panel->layout()->activate();
    recalculateHeight();
}

QString ComposerSurface::text() const
{
    return m_panel->textView()->toPlainText();
}

void ComposerSurface::setCompositingAvailable(bool available)
{
    m_panel->setCompositingAvailable(available);
}

void ComposerSurface::show(bool focusText)
{
    m_panel->show();
    m_panel->raise();
    if (focusText)
        m_panel->textView()->setFocus(Qt::ActiveWindowFocusReason);
    scheduleHeightRecalculation();
}

void ComposerSurface::completeInitialPlacement()
{
    m_automaticHeightAnchorBottom = m_panel->geometry().bottom();
    m_isFramePersistenceEnabled = true;
    reportFrame();
}

void ComposerSurface::closeProgrammatically()
{
    if (m_voicePromptBuilder)
        m_voicePromptBuilder->cancel();
    reportFrame();
    m_panel->isProgrammaticClose = true;
    m_panel->close();
    Q_EMIT closed();
}

void ComposerSurface::reportFrame()
{
    if (m_isFramePersistenceEnabled && onFrameChanged)
        onFrameChanged(m_panel->geometry());
}

bool ComposerSurface::handlePaste(const QMimeData *data)
{
    if (acceptsPaste && !acceptsPaste())
        return false;
    const QList<QUrl> files = PromptAttachment::localFileUrls(data);
    if (!files.isEmpty()) {
        if (onPastedFiles)
            onPastedFiles(files);
        else
            insertPaths(files);
        return true;
    }
    std::optional<PromptAttachment> image;
    try {
        image = PastedImageImport::importImage(data);
    } catch (const TarvelError &error) {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Tarvel"),
                        QStringLiteral("Could not paste the image."), QMessageBox::Ok, m_panel.get());
        box.setInformativeText(error.description());
        box.exec();
        return true;
    }
    if (!image)
        return false;
    if (onPastedImage)
        onPastedImage(*image);
    else
        m_panel->textView()->insertTypedText(image->path);
    return true;
}

void ComposerSurface::insertPaths(const QList<QUrl> &urls)
{
    QStringList paths;
    for (const QUrl &url : urls) {
        if (url.isLocalFile())
            paths.append(PromptAttachment::standardizedPath(url.toLocalFile()));
    }
    if (!paths.isEmpty())
        m_panel->textView()->insertTypedText(paths.join(u'\n'));
}

void ComposerSurface::enableEditingAids(const ComposerServices &services)
{
    m_editingAids = new PromptEditingAids(m_panel->textView(),
                                          {services.history, services.spelling, services.shortcuts}, this);
    m_panel->setTopBarWidget(m_editingAids->findBar());
    connect(m_editingAids, &PromptEditingAids::layoutChanged, this,
            &ComposerSurface::scheduleHeightRecalculation);
}

void ComposerSurface::setWorkingFolder(const std::optional<QString> &folder)
{
    if (m_editingAids)
        m_editingAids->setWorkingFolder(folder);
}

// Dictation -------------------------------------------------------------------------------

void ComposerSurface::enableVoicePrompt(SpeechRecognizer &recognizer, UserDefaults &defaults,
                                        KeyboardShortcuts *shortcuts)
{
    m_defaults = &defaults;
    m_shortcuts = shortcuts;
    m_voicePromptBuilder = new VoicePromptBuilder(recognizer, defaults, this);
    m_voicePromptButton = new VoicePromptButton(m_panel.get());
    // Over the text rather than in the footer, which has no room for it beside a preset pop-up.
    m_voicePromptStatus = new QLabel(QStringLiteral("Transcribing\u2026 Esc cancels"), m_panel.get());
    m_voicePromptStatus->setObjectName(QStringLiteral("VoicePromptStatus"));
    m_voicePromptStatus->setAutoFillBackground(true);
    m_voicePromptStatus->setContentsMargins(6, 2, 6, 2);
    QHBoxLayout *footer = m_panel->footerLayout();
    footer->insertWidget(footer->indexOf(m_panel->cancelButton()), m_voicePromptButton);
    connect(m_voicePromptButton, &QToolButton::clicked, this, &ComposerSurface::voicePromptPressed);
    // The recogniser gave up while recording: stop at once, for what was heard or the failure.
    connect(m_voicePromptBuilder, &VoicePromptBuilder::captureFailed, this,
            &ComposerSurface::voicePromptPressed);
    connect(m_voicePromptBuilder, &VoicePromptBuilder::stateChanged, this,
            [this](VoicePromptBuilder::State state) {
                applyVoicePromptState();
                Q_EMIT voicePromptStateChanged(state);
            });
    // The backend and its presets are settings: a change may make dictation possible or not.
    connect(&defaults, &UserDefaults::didChange, this, &ComposerSurface::refreshVoicePromptAvailability);
    m_panel->onActiveChanged = [this](bool) {
        refreshVoicePromptAvailability();
    };
    applyVoicePromptState();
}

void ComposerSurface::refreshVoicePromptAvailability()
{
    if (m_voicePromptBuilder && m_voicePromptBuilder->state() == VoicePromptBuilder::State::idle)
        applyVoicePromptState();
}

void ComposerSurface::applyVoicePromptState()
{
    const VoicePromptBuilder::State state = m_voicePromptBuilder->state();
    const bool available = state == VoicePromptBuilder::State::idle &&
                           m_voicePromptBuilder->isVoicePromptAvailable(
                               preferredRewritePreset ? preferredRewritePreset() : std::nullopt);
    m_voicePromptButton->applyState(state, available);
    m_voicePromptStatus->setVisible(state == VoicePromptBuilder::State::transcribing);
    placeVoicePromptStatus();
    m_panel->setRecordingTint(state == VoicePromptBuilder::State::recording);
}

void ComposerSurface::voicePromptPressed()
{
    if (!m_voicePromptBuilder)
        return;
    switch (m_voicePromptBuilder->state()) {
    case VoicePromptBuilder::State::idle:
        if (!m_voicePromptButton->isEnabled()) {
            QApplication::beep();
            return;
        }
        m_voicePromptBuilder->startRecording().onFailed(
            this, [this] { presentVoicePromptFailure(std::current_exception()); });
        return;
    case VoicePromptBuilder::State::recording: {
        m_voicePromptBuilder
            ->stopRecordingAndBuildPrompt(rewriteWorkingDirectory(),
                                          preferredRewritePreset ? preferredRewritePreset() : std::nullopt)
            .then(this, [this](const QString &draft) { insertVoicePromptText(draft); })
            .onFailed(this, [this] { presentVoicePromptFailure(std::current_exception()); });
        return;
    }
    case VoicePromptBuilder::State::transcribing:
    case VoicePromptBuilder::State::processing:
        return;
    }
}

QString ComposerSurface::rewriteWorkingDirectory() const
{
    // The owner's folder, else the last quick task's, else home: never one that has gone, where
    // the backend would not even start.
    QList<std::optional<QString>> candidates;
    if (preferredWorkingDirectory)
        candidates.append(preferredWorkingDirectory());
    if (m_defaults)
        candidates.append(AppSettings(*m_defaults).quickTaskLastWorkingDirectory());
    for (const std::optional<QString> &candidate : std::as_const(candidates)) {
        if (candidate && !candidate->isEmpty() && QFileInfo(*candidate).isDir())
            return *candidate;
    }
    return QDir::homePath();
}

void ComposerSurface::cancelPressed()
{
    if (m_voicePromptBuilder)
        m_voicePromptBuilder->cancel();
    Q_EMIT cancelRequested();
}

void ComposerSurface::escapePressed()
{
    // Escape ends a recording the way the button does, so the words are not lost.
    if (m_voicePromptBuilder && m_voicePromptBuilder->state() == VoicePromptBuilder::State::recording) {
        voicePromptPressed();
        return;
    }
    // Escape while transcribing gives up on the dictation (the recogniser is stopped) and keeps
    // the composer and its text.
    if (m_voicePromptBuilder && m_voicePromptBuilder->state() == VoicePromptBuilder::State::transcribing) {
        m_voicePromptBuilder->cancel();
        return;
    }
    cancelPressed();
}

void ComposerSurface::placeVoicePromptStatus()
{
    if (!m_voicePromptStatus || m_voicePromptStatus->isHidden())
        return;
    m_voicePromptStatus->adjustSize();
    const QRect text = m_panel->textView()->geometry();
    m_voicePromptStatus->move(text.right() - m_voicePromptStatus->width() - 4,
                              text.bottom() - m_voicePromptStatus->height() - 4);
    m_voicePromptStatus->raise();
}

void ComposerSurface::insertVoicePromptText(const QString &text)
{
    // Through the text cursor, so that one undo takes the whole insertion back.
    ComposerTextView *textView = m_panel->textView();
    textView->insertTypedText(text);
    recalculateHeight();
    textView->ensureCursorVisible();
}

void ComposerSurface::presentVoicePromptFailure(std::exception_ptr error)
{
    QString message = QStringLiteral("Voice prompt capture failed.");
    QString informativeText;
    try {
        std::rethrow_exception(error);
    } catch (const VoicePromptDraftError &voiceError) {
        if (voiceError.kind() == VoicePromptDraftError::Kind::cancelled)
            return;
        informativeText = voiceError.description();
        if (voiceError.kind() == VoicePromptDraftError::Kind::promptRewriteFailed &&
            !voiceError.transcript().isEmpty()) {
            insertVoicePromptText(voiceError.transcript());
            message = QStringLiteral("Inserted the raw transcript.");
            informativeText += QStringLiteral(
                "\n\nThe dictated transcript was inserted so you can keep editing it manually.");
        }
    } catch (const TarvelError &otherError) {
        informativeText = otherError.description();
    }
    auto *alert = new QMessageBox(QMessageBox::Warning, QStringLiteral("Tarvel"), message, QMessageBox::Ok,
                                  m_panel.get());
    alert->setObjectName(QStringLiteral("VoicePromptFailureAlert"));
    alert->setInformativeText(informativeText);
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->open();
}

void ComposerSurface::presentAlert(const QString &message, const QString &informativeText)
{
    auto *alert = new QMessageBox(QMessageBox::Warning, QStringLiteral("Tarvel"), message, QMessageBox::Ok,
                                  m_panel.get());
    alert->setObjectName(QStringLiteral("ComposerAlert"));
    alert->setInformativeText(informativeText);
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    // It may come seconds after the submit, when the user is typing somewhere else.
    if (!m_panel->isActiveWindow())
        alert->setAttribute(Qt::WA_ShowWithoutActivating);
    UnrequestedWindowGuard::install(alert);
    alert->open();
}

// Height and frame --------------------------------------------------------------------------

double ComposerSurface::maximumVisibleTextHeight() const
{
    const ComposerTextView *textView = m_panel->textView();
    const QFontMetricsF metrics(textView->document()->defaultFont());
    return maxVisibleLines * metrics.lineSpacing() + 2 * textView->document()->documentMargin();
}

Input ComposerSurface::layoutInput() const
{
    ComposerTextView *textView = m_panel->textView();
    Input input;
    input.mode = m_mode;
    input.windowWidth = m_panel->width();
    input.scrollContentWidth = textView->viewport()->width();
    const double width = input.scrollContentWidth > 0 ? std::trunc(input.scrollContentWidth)
                                                      : fallbackTextWidth(input.mode, input.windowWidth);
    // Setting the width lays the whole document out again, even when it is the same: a second
    // of work for each keystroke once a long log is pasted.
    if (textView->document()->textWidth() != width)
        textView->document()->setTextWidth(width);
    input.measuredTextHeight = std::ceil(textView->document()->size().height());
    input.maximumVisibleTextHeight = std::ceil(maximumVisibleTextHeight());
    input.headerIntrinsicHeight = m_panel->headerLabel()->sizeHint().height();
    input.topBarHeight = m_editingAids ? m_editingAids->findBarHeight() : 0;
    if (completeLayoutInput)
        completeLayoutInput(input);
    return input;
}

void ComposerSurface::scheduleHeightRecalculation()
{
    if (m_heightRecalculationScheduled)
        return;
    m_heightRecalculationScheduled = true;
    QTimer::singleShot(0, this, [this] {
        m_heightRecalculationScheduled = false;
        recalculateHeight();
    });
}

void ComposerSurface::recalculateHeight()
{
    const Input input = layoutInput();
    const LayoutMetrics metrics = compute(input);
    if (m_lastAppliedLayoutMetrics == metrics)
        return;
    m_lastAppliedLayoutMetrics = metrics;

    m_isApplyingAutomaticFrame = true;
    m_panel->applyTextArea(int(metrics.visibleHeight), int(contentToFooterSectionHeight(input)),
                           metrics.showsVerticalScroller);
    const int height = int(std::ceil(metrics.totalHeight));
    m_panel->applyHeightLimits(int(minimumPanelHeight(input)), height);
    QRect frame = m_panel->geometry();
    if (m_automaticHeightAnchorBottom)
        frame.setTop(*m_automaticHeightAnchorBottom - height + 1);
    frame.setHeight(height);
    m_panel->setGeometry(frame);
    if (metrics.showsVerticalScroller)
        m_panel->textView()->ensureCursorVisible();
    QTimer::singleShot(0, this, [this] { m_isApplyingAutomaticFrame = false; });
}

void ComposerSurface::windowDidMove()
{
    // The window system reports our own frame changes late, sometimes one behind the
    // other; a frame of another height than the last one applied is one of those.
    if (m_isApplyingAutomaticFrame ||
        (m_lastAppliedLayoutMetrics &&
         m_panel->height() != int(std::ceil(m_lastAppliedLayoutMetrics->totalHeight))))
        return;
    m_automaticHeightAnchorBottom = m_panel->geometry().bottom();
    reportFrame();
}

void ComposerSurface::windowDidResize()
{
    reportFrame();
    placeVoicePromptStatus();
    if (!m_isApplyingAutomaticFrame)
        scheduleHeightRecalculation();
}
