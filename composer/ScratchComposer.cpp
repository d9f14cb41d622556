#include "composer/ScratchComposer.h"

#include "backends/BackendProfiles.h"
#include "composer/AttachmentStripView.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"
#include "composer/ComposerTextView.h"
#include "core/AttachmentStore.h"
#include "core/UserDefaults.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "settings/AppSettings.h"
#include "shortcuts/ComposerKeyMatcher.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QStandardItemModel>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

using namespace ComposerLayout;

ScratchComposer::ScratchComposer(const QString &initialText,
                                 const QList<PromptAttachment> &initialAttachments, ComposerServices services,
                                 QObject *parent)
    : QObject(parent)
    , m_services(std::move(services))
    , m_surface(new ComposerSurface(Mode::scratch, initialText, this))
    , m_workingDirectory(QDir::homePath())
{
    chooseFolder = [this](const QString &from) -> std::optional<QString> {
        const QString chosen =
            QFileDialog::getExistingDirectory(panel(), QStringLiteral("Choose the Working Folder"), from);
        return chosen.isEmpty() ? std::nullopt : std::optional<QString>(chosen);
    };
    if (!m_services.checkInstallations)
        m_services.checkInstallations = [](QuickTaskCLIBackend preferred) {
            return TaskCLIExecutableLocator::installationAvailabilities(preferred);
        };
    connect(m_surface, &ComposerSurface::submitRequested, this, &ScratchComposer::submitPressed);
    connect(m_surface, &ComposerSurface::cancelRequested, this, &ScratchComposer::cancelled);
    m_surface->acceptsPaste = [this] {
        return m_availability.isReady();
    };
    m_surface->onPastedFiles = [this](const QList<QUrl> &urls) {
        appendAttachments(urls);
    };
    m_surface->onPastedImage = [this](const PromptAttachment &image) {
        attachPastedImage(image);
    };
    m_surface->preferredWorkingDirectory = [this] {
        return std::optional<QString>(m_workingDirectory);
    };
    m_surface->onKey = [this](int key, Qt::KeyboardModifiers modifiers, const QString &text) {
        return handleComposerKey(key, modifiers, text);
    };
    m_surface->completeLayoutInput = [this](Input &input) {
        input.scratchReady = m_availability.isReady();
        AttachmentStripView *strip = m_strip;
        input.stripHeightForWidth = [strip](double available) {
            return double(strip->measuredHeight(int(available)));
        };
    };

    // A retried task's attachments are held from the start, so deleting its session cannot
    // take a pasted image from under this draft.
    m_attachments = PromptAttachment::normalized(initialAttachments);
    if (m_services.attachments)
        m_services.attachments->hold(m_holder, m_attachments);
    buildViews();
    if (m_services.speechRecognizer && m_services.defaults) {
        m_surface->preferredRewritePreset = [this] {
            return selectedPreset();
        };
        m_surface->enableVoicePrompt(*m_services.speechRecognizer, *m_services.defaults,
                                     m_services.shortcuts);
    }
    m_surface->enableEditingAids(m_services);
    m_surface->setWorkingFolder(m_workingDirectory);
    applyAvailability(ScratchComposerAvailability::checking(m_backend));
    m_surface->applyInitialSize();
    if (m_services.defaults)
        connect(m_services.defaults, &UserDefaults::didChange, this, &ScratchComposer::settingsChanged);
}

ScratchComposer::~ScratchComposer() = default;

void ScratchComposer::buildViews()
{
    if (m_services.defaults)
        m_backend = AppSettings(*m_services.defaults).quickTaskCLIBackend();

    ComposerPanel *panel = m_surface->panel();
    panel->headerLabel()->setText(QStringLiteral("Quick Task"));

    // Between the text and the footer: the availability overlay or the attachment strip.
    m_section = new QStackedWidget(panel);
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
    connect(m_strip, &AttachmentStripView::fileUrlsDropped, this, &ScratchComposer::appendAttachments);
    connect(m_strip, &AttachmentStripView::removeAttachmentRequested, this,
            &ScratchComposer::removeAttachment);
    connect(m_strip, &AttachmentStripView::dropTargetHighlighted, this,
            [panel](bool highlighted) { panel->setDropTargetEmphasis(highlighted); });
    m_section->addWidget(overlay);
    m_section->addWidget(m_strip);
    panel->setSectionWidget(m_section);

    panel->onFilesDropped = [this](const QList<QUrl> &urls) {
        appendAttachments(urls);
    };
    panel->onDropHighlight = [this, panel](bool highlighted) {
        panel->setDropTargetEmphasis(highlighted && m_availability.isReady());
    };

    m_folderButton = new QToolButton(panel);
    m_folderButton->setObjectName(QStringLiteral("WorkingDirectoryButton"));
    m_folderButton->setFixedHeight(footerHeight);
    m_folderButton->setAutoRaise(true);
    m_folderButton->setFocusPolicy(Qt::NoFocus);
    m_folderButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    // Right after the close button, on the left of the footer.
    panel->footerLayout()->insertWidget(1, m_folderButton);
    connect(m_folderButton, &QToolButton::clicked, this, [this] {
        const QString from = QFileInfo(m_workingDirectory).isDir() ? m_workingDirectory : QDir::homePath();
        if (const std::optional<QString> chosen = chooseFolder(from))
            setWorkingDirectory(*chosen);
    });
    refreshWorkingDirectoryButton();

    m_presetPopup = new QComboBox(panel);
    m_presetPopup->setObjectName(QStringLiteral("PresetPopup"));
    m_presetPopup->setFixedHeight(footerHeight);
    m_presetPopup->setMinimumWidth(220);
    m_presetPopup->setFocusPolicy(Qt::NoFocus);
    m_presetPopup->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    panel->footerLayout()->insertWidget(panel->footerLayout()->indexOf(panel->cancelButton()), m_presetPopup);
    connect(m_presetPopup, &QComboBox::activated, this, [this](int index) {
        if (m_services.defaults && index >= 0 && index < m_presetSettings.presets.size()) {
            m_presetSettings.selectedPresetIndex = index;
            AppSettings(*m_services.defaults).setQuickTaskPresetSettings(m_presetSettings);
        }
    });
    reloadPresets();
}

ComposerPanel *ScratchComposer::panel() const
{
    return m_surface->panel();
}

QString ScratchComposer::text() const
{
    return m_surface->text();
}

void ScratchComposer::showWindow()
{
    m_surface->show(m_availability.isReady());
    if (!m_hasPerformedInitialAvailabilityRefresh) {
        m_hasPerformedInitialAvailabilityRefresh = true;
        refreshScratchComposerAvailability(false);
    }
}

void ScratchComposer::submitPressed()
{
    const QList<PromptAttachment> unsupported = unsupportedDirectoryAttachments();
    if (!unsupported.isEmpty()) {
        presentUnsupportedDirectoryAttachmentAlert(int(unsupported.size()));
        return;
    }
    if (!m_availability.isReady()) {
        QApplication::beep();
        return;
    }
    Q_EMIT submitted(text(), m_attachments, selectedPreset());
}

void ScratchComposer::setWorkingDirectory(const QString &path)
{
    m_workingDirectory = QDir::cleanPath(path);
    refreshWorkingDirectoryButton();
    m_surface->setWorkingFolder(m_workingDirectory);
}

void ScratchComposer::refreshWorkingDirectoryButton()
{
    const bool exists = QFileInfo(m_workingDirectory).isDir();
    const QString native = QDir::toNativeSeparators(m_workingDirectory);
    QString shown = native;
    const QString home = QDir::toNativeSeparators(QDir::homePath());
    if (shown == home || shown.startsWith(home + QDir::separator()))
        shown = u'~' + shown.mid(home.size());
    m_folderButton->setText(m_folderButton->fontMetrics().elidedText(shown, Qt::ElideMiddle, 180));
    m_folderButton->setIcon(
        m_folderButton->style()->standardIcon(exists ? QStyle::SP_DirIcon : QStyle::SP_MessageBoxWarning));
    m_folderButton->setToolTip(
        exists
            ? QStringLiteral("The task runs in \u201c%1\u201d. Click to choose another folder.").arg(native)
            : QStringLiteral("The working folder \u201c%1\u201d no longer exists. Click to choose "
                             "another folder.")
                  .arg(native));
}

void ScratchComposer::closeProgrammatically()
{
    m_availabilityWatcher.reset(); // a check still under way no longer applies
    m_surface->closeProgrammatically();
}

// Availability ------------------------------------------------------------------------------

void ScratchComposer::refreshScratchComposerAvailability(bool showCheckingState)
{
    if (showCheckingState)
        applyAvailability(ScratchComposerAvailability::checking(m_backend));
    // A watcher rather than a continuation: it goes with this composer, so a panel closed
    // while its check runs is never called back.
    m_availabilityWatcher = std::make_unique<QFutureWatcher<QuickTaskCLIInstallationAvailabilities>>();
    // The first result decides: the chosen backend passed, or every backend is known and the
    // first installed one stands in for it.
    connect(m_availabilityWatcher.get(), &QFutureWatcherBase::resultReadyAt, this, [this](int index) {
        QFutureWatcher<QuickTaskCLIInstallationAvailabilities> *watcher = m_availabilityWatcher.get();
        if (index != 0 || watcher->isCanceled())
            return;
        // The backend changed again while this check ran: the answer is stale, and storing its
        // backend would undo the newer choice. The reload (queued already when the change was
        // ours) checks the new one.
        if (m_services.defaults && AppSettings(*m_services.defaults).quickTaskCLIBackend() != m_backend) {
            settingsChanged(QString());
            return;
        }
        const QuickTaskCLIInstallationAvailabilities availabilities = watcher->resultAt(index);
        const QuickTaskCLIBackend resolved =
            ScratchComposerAvailability::resolvedBackend(m_backend, availabilities);
        if (m_services.defaults && AppSettings(*m_services.defaults).quickTaskCLIBackend() != resolved)
            AppSettings(*m_services.defaults).setQuickTaskCLIBackend(resolved);
        m_backend = resolved;
        m_installation = availabilities.value(m_backend);
        reloadPresets();
        applyAvailability(
            ScratchComposerAvailability::resolved(m_backend, *m_installation, m_presetSettings, models()));
    });
    m_availabilityWatcher->setFuture(m_services.checkInstallations(m_backend));
}

void ScratchComposer::applyAvailability(const ScratchComposerAvailability &availability)
{
    m_availability = availability;
    const bool ready = availability.isReady();
    ComposerTextView *textView = panel()->textView();
    textView->setReadOnly(!ready);
    textView->setFocusPolicy(ready ? Qt::StrongFocus : Qt::NoFocus);
    if (!ready && textView->hasFocus())
        textView->clearFocus();
    if (ready && panel()->isVisible())
        textView->setFocus(Qt::OtherFocusReason);
    m_overlayTitle->setText(availability.title);
    m_overlayDetail->setText(availability.detail);
    m_section->setCurrentIndex(ready ? 1 : 0);
    m_strip->setBackend(m_backend);
    m_strip->setShowsDropPlaceholder(ready);
    applySubmitButtonState();
    m_surface->scheduleHeightRecalculation();
    Q_EMIT availabilityChanged();
}

void ScratchComposer::applySubmitButtonState()
{
    const bool foldersUnsupported = !unsupportedDirectoryAttachments().isEmpty();
    QPushButton *submit = panel()->submitButton();
    submit->setEnabled(!foldersUnsupported && m_availability.isReady());
    submit->setToolTip(foldersUnsupported
                           ? BackendProfiles::of(m_backend).displayTitle() +
                                 QStringLiteral(" can use attached files, but not folders. Remove folder "
                                                "attachments or choose Codex or Claude.")
                           : QStringLiteral("Submit"));
}

QList<QuickTaskModelCatalog::Model> ScratchComposer::models() const
{
    return BackendProfiles::of(m_backend).availableModels();
}

// Presets -----------------------------------------------------------------------------------

void ScratchComposer::reloadPresets()
{
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

void ScratchComposer::settingsChanged(const QString &key)
{
    // The preferences, another composer or another copy of the settings: the backend and the presets
    // show at once. Queued and coalesced, as the popup's own choice is stored from inside its signal.
    if (!key.isEmpty() && key != AppSettings::quickTaskBackendKey &&
        key != AppSettings::quickTaskPresetSettingsByBackendKey &&
        !key.startsWith(KeyboardShortcuts::keyPrefix))
        return;
    if (m_settingsReloadPending)
        return;
    m_settingsReloadPending = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_settingsReloadPending = false;
            const QuickTaskCLIBackend backend = AppSettings(*m_services.defaults).quickTaskCLIBackend();
            if (backend != m_backend) {
                m_backend = backend;
                m_installation.reset();
                reloadPresets();
                // One made ahead and not yet shown checks the backend when it shows.
                if (m_hasPerformedInitialAvailabilityRefresh)
                    refreshScratchComposerAvailability(true);
                else
                    applyAvailability(ScratchComposerAvailability::checking(m_backend));
                return;
            }
            reloadPresets();
            if (m_installation)
                applyAvailability(ScratchComposerAvailability::resolved(m_backend, *m_installation,
                                                                        m_presetSettings, models()));
        },
        Qt::QueuedConnection);
}

void ScratchComposer::showRestoredDraftNotice()
{
    panel()->headerLabel()->setText(QStringLiteral("Quick Task \u2014 restored from last time"));
}

void ScratchComposer::selectQuickTaskPreset(int index)
{
    if (index < 0 || index >= m_presetPopup->count())
        return;
    if (auto *model = qobject_cast<QStandardItemModel *>(m_presetPopup->model());
        model && !model->item(index)->isEnabled())
        return;
    m_presetPopup->setCurrentIndex(index);
    Q_EMIT m_presetPopup->activated(index);
}

std::optional<QuickTaskPreset> ScratchComposer::selectedPreset() const
{
    const int index = m_presetPopup->currentIndex();
    if (index < 0 || index >= m_presetSettings.presets.size())
        return std::nullopt;
    const QuickTaskPreset &preset = m_presetSettings.presets.at(index);
    if (!preset.isConfigured(m_backend) || !preset.isAvailable(models(), m_backend))
        return std::nullopt;
    return preset;
}

bool ScratchComposer::handleComposerKey(int key, Qt::KeyboardModifiers modifiers, const QString &text)
{
    if (!m_services.shortcuts)
        return false;
    const ComposerKeyMatch match = ComposerKeyMatcher::match({key, modifiers, text}, *m_services.shortcuts);
    if (match.action != ComposerKeyAction::selectPreset)
        return false;
    selectQuickTaskPreset(match.presetIndex);
    return true;
}

// Attachments -------------------------------------------------------------------------------

void ScratchComposer::appendAttachments(const QList<QUrl> &urls)
{
    if (!m_availability.isReady())
        return;
    QList<PromptAttachment> added;
    for (const QUrl &url : urls) {
        if (url.isLocalFile())
            added.append(PromptAttachment::make(url.toLocalFile()));
    }
    if (added.isEmpty())
        return;
    panel()->setDropTargetEmphasis(false);
    if (const QList<PromptAttachment> refused = BackendProfiles::of(m_backend).unsupportedAttachments(added);
        !refused.isEmpty()) {
        added.removeIf(
            [&refused](const PromptAttachment &attachment) { return refused.contains(attachment); });
        presentUnsupportedDirectoryAttachmentAlert(int(refused.size()));
        if (added.isEmpty())
            return;
    }
    setAttachments(PromptAttachment::normalized(m_attachments + added));
}

void ScratchComposer::attachPastedImage(const PromptAttachment &image)
{
    setAttachments(PromptAttachment::normalized(m_attachments + QList<PromptAttachment>{image}));
}

void ScratchComposer::removeAttachment(const QUuid &id)
{
    QList<PromptAttachment> kept = m_attachments;
    if (kept.removeIf([&id](const PromptAttachment &attachment) { return attachment.id == id; }) > 0)
        setAttachments(kept);
}

QList<PromptAttachment> ScratchComposer::unsupportedDirectoryAttachments() const
{
    return BackendProfiles::of(m_backend).unsupportedAttachments(m_attachments);
}

void ScratchComposer::releaseAttachments()
{
    if (m_services.attachments)
        m_services.attachments->release(m_holder);
}

void ScratchComposer::setAttachments(const QList<PromptAttachment> &attachments)
{
    // A pasted image taken out again goes at once unless a session holds it.
    m_attachments = attachments;
    if (m_services.attachments)
        m_services.attachments->hold(m_holder, m_attachments);
    m_strip->setAttachments(m_attachments);
    applySubmitButtonState();
    if (m_availability.isReady())
        panel()->textView()->setFocus(Qt::OtherFocusReason);
    m_surface->scheduleHeightRecalculation();
    Q_EMIT attachmentsChanged();
}

void ScratchComposer::presentUnsupportedDirectoryAttachmentAlert(int count)
{
    if (m_isShowingFolderAlert)
        return;
    m_isShowingFolderAlert = true;
    auto *alert = new QMessageBox(
        QMessageBox::Information, QStringLiteral("Tarvel"),
        BackendProfiles::of(m_backend).displayTitle() + QStringLiteral(" cannot use ") +
            (count == 1 ? QStringLiteral("folder attachment") : QStringLiteral("folder attachments")) + u'.',
        QMessageBox::Ok, panel());
    alert->setObjectName(QStringLiteral("FolderAttachmentAlert"));
    alert->setInformativeText(
        QStringLiteral("Remove folders or choose Codex or Claude. File attachments still work."));
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    connect(alert, &QMessageBox::finished, this, [this] { m_isShowingFolderAlert = false; });
    alert->open();
}
