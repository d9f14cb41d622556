#include "composer/ComposerPanelController.h"

#include "composer/AttachmentStripView.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerTextView.h"
#include "composer/ScratchAttachmentImportStore.h"
#include "core/TarvelError.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "settings/AppSettings.h"
#include "shortcuts/ComposerKeyMatcher.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QComboBox>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QStackedWidget>
#include <QStandardItemModel>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>

using namespace ComposerLayout;

ComposerPanelController::ComposerPanelController(std::optional<ComposerRequest> request,
                                                 const QString &initialText,
                                                 const QList<PromptAttachment> &initialAttachments,
                                                 ComposerServices services, QObject *parent)
    : QObject(parent)
    , m_request(std::move(request))
    , m_services(std::move(services))
    , m_panel(std::make_unique<ComposerPanel>(!m_request.has_value()))
{
    if (!m_services.checkInstallations)
        m_services.checkInstallations = [] {
            return TaskCLIExecutableLocator::installationAvailabilities();
        };

    ComposerTextView *textView = m_panel->textView();
    textView->setPlainText(initialText);
    textView->moveCursor(QTextCursor::End);
    textView->document()->clearUndoRedoStacks();
    textView->onAttachmentPaste = [this](const QMimeData *data) {
        return handlePaste(data);
    };
    textView->onFilesDropped = [this](const QList<QUrl> &urls) {
        insertPaths(urls);
    };
    textView->onKeyPress = [this](QKeyEvent *event) {
        return handleComposerKey(event->key(), event->modifiers(), event->text());
    };
    connect(textView, &QTextEdit::textChanged, this, [this] { scheduleHeightRecalculation(); });

    m_panel->onSubmit = [this] {
        submitPressed();
    };
    m_panel->onCancel = [this] {
        cancelPressed();
    };
    m_panel->onEscape = [this] {
        cancelPressed();
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

    if (isScratch()) {
        m_attachments = PromptAttachment::normalized(initialAttachments);
        buildScratchViews();
        applyAvailability(ScratchComposerAvailability::checking(m_backend));
    }

    m_panel->resize(initialPanelWidth, 120);
    // Lay the panel out now so the first measurement uses the real text width.
    m_panel->layout()->activate();
    recalculateHeight();
}

ComposerPanelController::~ComposerPanelController() = default;

void ComposerPanelController::buildScratchViews()
{
    if (m_services.defaults)
        m_backend = AppSettings(*m_services.defaults).quickTaskCLIBackend();

    m_panel->headerLabel()->setText(QStringLiteral("Quick Task"));

    // Between the text and the footer: the availability overlay or the attachment strip.
    m_section = new QStackedWidget(m_panel.get());
    auto *overlay = new QWidget(m_section);
    auto *overlayLayout = new QVBoxLayout(overlay);
    overlayLayout->setContentsMargins(0, 0, 0, 0);
    overlayLayout->setSpacing(0);
    m_overlayTitle = new QLabel(overlay);
    m_overlayTitle->setObjectName(QStringLiteral("AvailabilityTitle"));
    QFont titleFont = m_overlayTitle->font();
    titleFont.setBold(true);
    m_overlayTitle->setFont(titleFont);
    m_overlayDetail = new QLabel(overlay);
    m_overlayDetail->setObjectName(QStringLiteral("AvailabilityDetail"));
    m_overlayDetail->setForegroundRole(QPalette::PlaceholderText);
    m_overlayDetail->setTextInteractionFlags(Qt::TextSelectableByMouse);
    for (QLabel *label : {m_overlayTitle, m_overlayDetail}) {
        label->setTextFormat(Qt::PlainText);
        overlayLayout->addWidget(label);
    }
    m_strip = new AttachmentStripView(m_section);
    m_strip->setObjectName(QStringLiteral("AttachmentStrip"));
    m_strip->setBackend(m_backend);
    m_strip->setAttachments(m_attachments); // a retried task comes with its attachments
    connect(m_strip, &AttachmentStripView::fileUrlsDropped, this,
            &ComposerPanelController::appendAttachments);
    connect(m_strip, &AttachmentStripView::removeAttachmentRequested, this,
            &ComposerPanelController::removeAttachment);
    connect(m_strip, &AttachmentStripView::dropTargetHighlighted, this,
            [this](bool highlighted) { m_panel->setDropTargetEmphasis(highlighted); });
    m_section->addWidget(overlay);
    m_section->addWidget(m_strip);
    m_panel->setSectionWidget(m_section);

    m_panel->onFilesDropped = [this](const QList<QUrl> &urls) {
        appendAttachments(urls);
    };
    m_panel->onDropHighlight = [this](bool highlighted) {
        m_panel->setDropTargetEmphasis(highlighted && m_availability.isReady());
    };

    m_presetPopup = new QComboBox(m_panel.get());
    m_presetPopup->setObjectName(QStringLiteral("PresetPopup"));
    m_presetPopup->setFixedHeight(footerHeight);
    m_presetPopup->setMinimumWidth(220);
    m_presetPopup->setFocusPolicy(Qt::NoFocus);
    m_presetPopup->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_panel->footerLayout()->insertWidget(2, m_presetPopup);
    connect(m_presetPopup, &QComboBox::activated, this, [this](int index) {
        if (m_services.defaults && index >= 0 && index < m_presetSettings.presets.size()) {
            m_presetSettings.selectedPresetIndex = index;
            AppSettings(*m_services.defaults).setQuickTaskPresetSettings(m_presetSettings);
        }
    });
    reloadPresets();
}

ComposerPanel *ComposerPanelController::panel() const
{
    return m_panel.get();
}

QString ComposerPanelController::text() const
{
    return m_panel->textView()->toPlainText();
}

void ComposerPanelController::setCompositingAvailable(bool available)
{
    m_panel->setCompositingAvailable(available);
}

void ComposerPanelController::showWindow()
{
    m_panel->show();
    m_panel->raise();
    if (!isScratch() || m_availability.isReady())
        m_panel->textView()->setFocus(Qt::ActiveWindowFocusReason);
    scheduleHeightRecalculation();
    if (isScratch() && !m_hasPerformedInitialScratchAvailabilityRefresh) {
        m_hasPerformedInitialScratchAvailabilityRefresh = true;
        refreshScratchComposerAvailability(false);
    }
}

void ComposerPanelController::completeInitialPlacement()
{
    m_automaticHeightAnchorBottom = m_panel->geometry().bottom();
    m_isFramePersistenceEnabled = true;
    if (isScratch() && onScratchFrameChanged)
        onScratchFrameChanged(m_panel->geometry());
}

void ComposerPanelController::submitPressed()
{
    const QList<PromptAttachment> unsupported = unsupportedDirectoryAttachments();
    if (!unsupported.isEmpty()) {
        presentUnsupportedDirectoryAttachmentAlert(int(unsupported.size()));
        return;
    }
    if (isScratch() && !m_availability.isReady()) {
        QApplication::beep();
        return;
    }
    if (m_delegate)
        m_delegate->composerPanelControllerDidSubmit(
            this, text(), m_attachments, isScratch() ? selectedPreset() : std::nullopt, m_request);
}

void ComposerPanelController::cancelPressed()
{
    if (m_delegate)
        m_delegate->composerPanelControllerDidCancel(this, m_request);
}

void ComposerPanelController::closeProgrammatically()
{
    m_availabilityWatcher.reset(); // a check still under way no longer applies
    if (isScratch() && m_isFramePersistenceEnabled && onScratchFrameChanged)
        onScratchFrameChanged(m_panel->geometry());
    m_panel->isProgrammaticClose = true;
    m_panel->close();
    Q_EMIT closed();
}

// Availability ------------------------------------------------------------------------------

void ComposerPanelController::refreshScratchComposerAvailability(bool showCheckingState)
{
    if (!isScratch())
        return;
    if (showCheckingState)
        applyAvailability(ScratchComposerAvailability::checking(m_backend));
    // A watcher rather than a continuation: it goes with this controller, so a panel closed
    // while its check runs is never called back.
    m_availabilityWatcher = std::make_unique<QFutureWatcher<QuickTaskCLIInstallationAvailabilities>>();
    connect(m_availabilityWatcher.get(), &QFutureWatcherBase::finished, this, [this] {
        const QFuture<QuickTaskCLIInstallationAvailabilities> task = m_availabilityWatcher->future();
        if (task.isCanceled() || task.resultCount() < 1)
            return;
        const QuickTaskCLIInstallationAvailabilities availabilities = task.result();
        const QuickTaskCLIBackend resolved =
            ScratchComposerAvailability::resolvedBackend(m_backend, availabilities);
        if (m_services.defaults && AppSettings(*m_services.defaults).quickTaskCLIBackend() != resolved)
            AppSettings(*m_services.defaults).setQuickTaskCLIBackend(resolved);
        m_backend = resolved;
        reloadPresets();
        applyAvailability(ScratchComposerAvailability::resolved(m_backend, availabilities.value(m_backend),
                                                                m_presetSettings, models()));
    });
    m_availabilityWatcher->setFuture(m_services.checkInstallations());
}

void ComposerPanelController::applyAvailability(const ScratchComposerAvailability &availability)
{
    m_availability = availability;
    const bool ready = availability.isReady();
    ComposerTextView *textView = m_panel->textView();
    textView->setReadOnly(!ready);
    textView->setFocusPolicy(ready ? Qt::StrongFocus : Qt::NoFocus);
    if (!ready && textView->hasFocus())
        textView->clearFocus();
    if (ready && m_panel->isVisible())
        textView->setFocus(Qt::OtherFocusReason);
    m_overlayTitle->setText(availability.title);
    m_overlayDetail->setText(availability.detail);
    m_section->setCurrentIndex(ready ? 1 : 0);
    m_strip->setBackend(m_backend);
    m_strip->setShowsDropPlaceholder(ready);
    applySubmitButtonState();
    scheduleHeightRecalculation();
    Q_EMIT availabilityChanged();
}

void ComposerPanelController::applySubmitButtonState()
{
    const bool foldersUnsupported = !unsupportedDirectoryAttachments().isEmpty();
    QPushButton *submit = m_panel->submitButton();
    submit->setEnabled(!foldersUnsupported && (!isScratch() || m_availability.isReady()));
    submit->setToolTip(foldersUnsupported
                           ? QuickTaskCLIBackends::displayTitle(m_backend) +
                                 QStringLiteral(" can use attached files, but not folders. Remove folder "
                                                "attachments or choose Codex or Claude.")
                           : QStringLiteral("Submit"));
}

QList<QuickTaskModelCatalog::Model> ComposerPanelController::models() const
{
    return QuickTaskModelCatalog::availableModels(m_backend);
}

// Presets -----------------------------------------------------------------------------------

void ComposerPanelController::reloadPresets()
{
    if (!m_presetPopup)
        return;
    const QList<QuickTaskModelCatalog::Model> available = models();
    m_presetSettings = m_services.defaults
                           ? AppSettings(*m_services.defaults).quickTaskPresetSettings()
                           : QuickTaskPresetSettings::sanitized(std::nullopt, available, m_backend);
    m_presetPopup->clear();
    for (int index = 0; index < m_presetSettings.presets.size(); ++index) {
        const QuickTaskPreset &preset = m_presetSettings.presets.at(index);
        const QString title = m_services.shortcuts ? preset.menuTitle(index, m_backend, *m_services.shortcuts)
                                                   : preset.model + u' ' + preset.reasoningEffort;
        m_presetPopup->addItem(title, index);
        const bool usable = preset.isConfigured(m_backend) && preset.isAvailable(available, m_backend);
        if (auto *model = qobject_cast<QStandardItemModel *>(m_presetPopup->model()))
            model->item(index)->setEnabled(usable);
    }
    if (m_presetSettings.selectedPresetIndex >= 0 &&
        m_presetSettings.selectedPresetIndex < m_presetPopup->count())
        m_presetPopup->setCurrentIndex(m_presetSettings.selectedPresetIndex);
}

void ComposerPanelController::selectQuickTaskPreset(int index)
{
    if (!isScratch() || index < 0 || index >= m_presetPopup->count())
        return;
    if (auto *model = qobject_cast<QStandardItemModel *>(m_presetPopup->model());
        model && !model->item(index)->isEnabled())
        return;
    m_presetPopup->setCurrentIndex(index);
    Q_EMIT m_presetPopup->activated(index);
}

std::optional<QuickTaskPreset> ComposerPanelController::selectedPreset() const
{
    if (!m_presetPopup)
        return std::nullopt;
    const int index = m_presetPopup->currentIndex();
    if (index < 0 || index >= m_presetSettings.presets.size())
        return std::nullopt;
    const QuickTaskPreset &preset = m_presetSettings.presets.at(index);
    if (!preset.isConfigured(m_backend) || !preset.isAvailable(models(), m_backend))
        return std::nullopt;
    return preset;
}

bool ComposerPanelController::handleComposerKey(int key, Qt::KeyboardModifiers modifiers, const QString &text)
{
    if (!isScratch() || !m_services.shortcuts)
        return false;
    const ComposerKeyMatch match = ComposerKeyMatcher::match({key, modifiers, text}, *m_services.shortcuts);
    if (match.action != ComposerKeyAction::selectPreset)
        return false;
    selectQuickTaskPreset(match.presetIndex);
    return true;
}

// Attachments -------------------------------------------------------------------------------

void ComposerPanelController::appendAttachments(const QList<QUrl> &urls)
{
    if (!isScratch() || !m_availability.isReady())
        return;
    QList<PromptAttachment> added;
    for (const QUrl &url : urls) {
        if (url.isLocalFile())
            added.append(PromptAttachment::make(url.toLocalFile()));
    }
    if (added.isEmpty())
        return;
    m_panel->setDropTargetEmphasis(false);
    if (m_backend == QuickTaskCLIBackend::opencode) {
        const qsizetype before = added.size();
        added.removeIf([](const PromptAttachment &attachment) { return attachment.isDirectory(); });
        if (added.size() != before)
            presentUnsupportedDirectoryAttachmentAlert(int(before - added.size()));
        if (added.isEmpty())
            return;
    }
    m_attachments = PromptAttachment::normalized(m_attachments + added);
    updateAttachmentViews();
}

void ComposerPanelController::removeAttachment(const QUuid &id)
{
    const auto found =
        std::find_if(m_attachments.cbegin(), m_attachments.cend(),
                     [&id](const PromptAttachment &attachment) { return attachment.id == id; });
    if (found == m_attachments.cend())
        return;
    const PromptAttachment removed = *found;
    m_attachments.removeIf([&id](const PromptAttachment &attachment) { return attachment.id == id; });
    if (removed.isManagedCopy && m_ownedManagedAttachmentPaths.remove(removed.path))
        ScratchAttachmentImportStore::cleanup({removed});
    updateAttachmentViews();
}

QList<PromptAttachment> ComposerPanelController::unsupportedDirectoryAttachments() const
{
    if (!isScratch() || m_backend != QuickTaskCLIBackend::opencode)
        return {};
    QList<PromptAttachment> folders;
    for (const PromptAttachment &attachment : m_attachments) {
        if (attachment.isDirectory())
            folders.append(attachment);
    }
    return folders;
}

void ComposerPanelController::discardScratchDraftAttachments()
{
    if (isScratch())
        discardManagedImportedAttachments();
}

void ComposerPanelController::discardManagedImportedAttachments()
{
    if (m_ownedManagedAttachmentPaths.isEmpty())
        return;
    QList<PromptAttachment> owned;
    for (const PromptAttachment &attachment : std::as_const(m_attachments)) {
        if (m_ownedManagedAttachmentPaths.contains(attachment.path))
            owned.append(attachment);
    }
    ScratchAttachmentImportStore::cleanup(owned);
    m_attachments.removeIf([this](const PromptAttachment &attachment) {
        return m_ownedManagedAttachmentPaths.contains(attachment.path);
    });
    m_ownedManagedAttachmentPaths.clear();
    if (m_strip)
        updateAttachmentViews();
}

void ComposerPanelController::updateAttachmentViews()
{
    if (m_strip)
        m_strip->setAttachments(m_attachments);
    applySubmitButtonState();
    if (m_availability.isReady())
        m_panel->textView()->setFocus(Qt::OtherFocusReason);
    scheduleHeightRecalculation();
}

void ComposerPanelController::presentUnsupportedDirectoryAttachmentAlert(int count)
{
    if (m_isShowingFolderAlert)
        return;
    m_isShowingFolderAlert = true;
    auto *alert = new QMessageBox(
        QMessageBox::Information, QStringLiteral("Tarvel"),
        QuickTaskCLIBackends::displayTitle(m_backend) + QStringLiteral(" cannot use ") +
            (count == 1 ? QStringLiteral("folder attachment") : QStringLiteral("folder attachments")) + u'.',
        QMessageBox::Ok, m_panel.get());
    alert->setObjectName(QStringLiteral("FolderAttachmentAlert"));
    alert->setInformativeText(
        QStringLiteral("Remove folders or choose Codex or Claude. File attachments still work."));
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    connect(alert, &QMessageBox::finished, this, [this] { m_isShowingFolderAlert = false; });
    alert->open();
}

bool ComposerPanelController::handlePaste(const QMimeData *data)
{
    if (isScratch() && !m_availability.isReady())
        return false;
    const QList<QUrl> files = PromptAttachment::localFileUrls(data);
    if (!files.isEmpty()) {
        if (isScratch())
            appendAttachments(files);
        else
            insertPaths(files);
        return true;
    }
    std::optional<PromptAttachment> image;
    try {
        image = ScratchAttachmentImportStore::importImage(data);
    } catch (const TarvelError &error) {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Tarvel"),
                        QStringLiteral("Could not paste the image."), QMessageBox::Ok, m_panel.get());
        box.setInformativeText(error.description());
        box.exec();
        return true;
    }
    if (!image)
        return false;
    if (isScratch()) {
        m_ownedManagedAttachmentPaths.insert(image->path);
        m_attachments = PromptAttachment::normalized(m_attachments + QList<PromptAttachment>{*image});
        updateAttachmentViews();
    } else {
        m_panel->textView()->insertTypedText(image->path);
    }
    return true;
}

void ComposerPanelController::insertPaths(const QList<QUrl> &urls)
{
    QStringList paths;
    for (const QUrl &url : urls) {
        if (url.isLocalFile())
            paths.append(PromptAttachment::standardizedPath(url.toLocalFile()));
    }
    if (!paths.isEmpty())
        m_panel->textView()->insertTypedText(paths.join(u'\n'));
}

// Height and frame --------------------------------------------------------------------------

double ComposerPanelController::maximumVisibleTextHeight() const
{
    const ComposerTextView *textView = m_panel->textView();
    const QFontMetricsF metrics(textView->document()->defaultFont());
    return maxVisibleLines * metrics.lineSpacing() + 2 * textView->document()->documentMargin();
}

ComposerLayout::Input ComposerPanelController::layoutInput() const
{
    ComposerTextView *textView = m_panel->textView();
    Input input;
    input.mode = isScratch() ? Mode::scratch : Mode::editorRequest;
    input.windowWidth = m_panel->width();
    input.scrollContentWidth = textView->viewport()->width();
    const double width = input.scrollContentWidth > 0 ? std::trunc(input.scrollContentWidth)
                                                      : fallbackTextWidth(input.mode, input.windowWidth);
    textView->document()->setTextWidth(width);
    input.measuredTextHeight = std::ceil(textView->document()->size().height());
    input.maximumVisibleTextHeight = std::ceil(maximumVisibleTextHeight());
    input.headerIntrinsicHeight = m_panel->headerLabel()->sizeHint().height();
    input.scratchReady = m_availability.isReady();
    if (m_strip) {
        AttachmentStripView *strip = m_strip;
        input.stripHeightForWidth = [strip](double available) {
            return double(strip->measuredHeight(int(available)));
        };
    }
    return input;
}

void ComposerPanelController::scheduleHeightRecalculation()
{
    if (m_heightRecalculationScheduled)
        return;
    m_heightRecalculationScheduled = true;
    QTimer::singleShot(0, this, [this] {
        m_heightRecalculationScheduled = false;
        recalculateHeight();
    });
}

void ComposerPanelController::recalculateHeight()
{
    const Input input = layoutInput();
    const LayoutMetrics metrics = compute(input);
    if (m_lastAppliedLayoutMetrics == metrics)
        return;
    m_lastAppliedLayoutMetrics = metrics;

    m_isApplyingAutomaticFrame = true;
    m_panel->applyTextArea(int(metrics.visibleHeight), int(contentToFooterSectionHeight(input)),
                           metrics.showsVerticalScroller);
    m_panel->setMinimumHeight(int(minimumPanelHeight(input)));
    QRect frame = m_panel->geometry();
    const int height = int(std::ceil(metrics.totalHeight));
    if (m_automaticHeightAnchorBottom)
        frame.setTop(*m_automaticHeightAnchorBottom - height + 1);
    frame.setHeight(height);
    m_panel->setGeometry(frame);
    if (metrics.showsVerticalScroller)
        m_panel->textView()->ensureCursorVisible();
    QTimer::singleShot(0, this, [this] { m_isApplyingAutomaticFrame = false; });
}

void ComposerPanelController::windowDidMove()
{
    // The window system reports our own frame changes late, sometimes one behind the
    // other; a frame of another height than the last one applied is one of those.
    if (m_isApplyingAutomaticFrame ||
        (m_lastAppliedLayoutMetrics &&
         m_panel->height() != int(std::ceil(m_lastAppliedLayoutMetrics->totalHeight))))
        return;
    m_automaticHeightAnchorBottom = m_panel->geometry().bottom();
    if (isScratch() && m_isFramePersistenceEnabled && onScratchFrameChanged)
        onScratchFrameChanged(m_panel->geometry());
}

void ComposerPanelController::windowDidResize()
{
    if (isScratch() && m_isFramePersistenceEnabled && onScratchFrameChanged)
        onScratchFrameChanged(m_panel->geometry());
    if (!m_isApplyingAutomaticFrame)
        scheduleHeightRecalculation();
}
