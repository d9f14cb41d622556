#pragma once

#include "composer/ComposerLayout.h"
#include "core/PromptAttachment.h"
#include "composer/ScratchComposerAvailability.h"
#include "core/ComposerRequest.h"
#include "quicktasks/QuickTaskCLIInstallationAvailability.h"
#include "settings/QuickTaskModelCatalog.h"
#include "settings/QuickTaskPreset.h"
#include "settings/QuickTaskPresetSettings.h"

#include <QFuture>
#include <QFutureWatcher>
#include <QObject>
#include <QSet>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class AttachmentStripView;
class ComposerPanel;
class ComposerPanelController;
class KeyboardShortcuts;
class QComboBox;
class QLabel;
class QMimeData;
class QStackedWidget;
class UserDefaults;

// How a composer hands its outcome back: the application delegate implements it.
class ComposerPanelControllerDelegate {
public:
    virtual ~ComposerPanelControllerDelegate() = default;
    virtual void composerPanelControllerDidSubmit(ComposerPanelController *controller, const QString &text,
                                                  const QList<PromptAttachment> &attachments,
                                                  const std::optional<QuickTaskPreset> &preset,
                                                  const std::optional<ComposerRequest> &request) = 0;
    virtual void composerPanelControllerDidCancel(ComposerPanelController *controller,
                                                  const std::optional<ComposerRequest> &request) = 0;
};

// What a scratch composer consults: settings, shortcuts, and the backends' state (tests
// answer the installation check themselves).
struct ComposerServices {
    UserDefaults *defaults = nullptr;
    KeyboardShortcuts *shortcuts = nullptr;
    std::function<QFuture<QuickTaskCLIInstallationAvailabilities>()> checkInstallations;
};

// Owns one composer panel. With a request it edits that request's text for the waiting
// helper; without one it is a free-standing scratch composer for a quick task, with
// attachments, a preset and a check that the backend can run.
class ComposerPanelController final : public QObject {
    Q_OBJECT

public:
    ComposerPanelController(std::optional<ComposerRequest> request, const QString &initialText,
                            const QList<PromptAttachment> &initialAttachments = {},
                            ComposerServices services = {}, QObject *parent = nullptr);
    ~ComposerPanelController() override;

    bool isScratch() const { return !m_request.has_value(); }
    const std::optional<ComposerRequest> &request() const { return m_request; }
    ComposerPanel *panel() const;
    QString text() const;

    void setDelegate(ComposerPanelControllerDelegate *delegate) { m_delegate = delegate; }
    void setCompositingAvailable(bool available);

    // Shows the window and gives the text the keyboard focus (a scratch composer only once
    // its backend is ready).
    void showWindow();
    // Called once the window has its first position: from now on the bottom edge
    // stays put while the height follows the text, and a scratch frame is remembered.
    void completeInitialPlacement();
    void submitPressed();
    void cancelPressed();
    // Closes the window without treating it as a cancel.
    void closeProgrammatically();

    // Scratch mode.
    QuickTaskCLIBackend backend() const { return m_backend; }
    const ScratchComposerAvailability &availability() const { return m_availability; }
    void refreshScratchComposerAvailability(bool showCheckingState);
    const QList<PromptAttachment> &scratchAttachments() const { return m_attachments; }
    void appendAttachments(const QList<QUrl> &urls);
    void removeAttachment(const QUuid &id);
    QList<PromptAttachment> unsupportedDirectoryAttachments() const;
    // Throws away the pasted-image copies this panel made (a discarded draft).
    void discardScratchDraftAttachments();
    void discardManagedImportedAttachments();
    void selectQuickTaskPreset(int index);
    std::optional<QuickTaskPreset> selectedPreset() const;
    QComboBox *presetPopup() const { return m_presetPopup; }
    QLabel *availabilityTitle() const { return m_overlayTitle; }
    QLabel *availabilityDetail() const { return m_overlayDetail; }
    AttachmentStripView *attachmentStrip() const { return m_strip; }
    // Whether the alert about folders OpenCode cannot use is up.
    bool isShowingUnsupportedDirectoryAttachmentAlert() const { return m_isShowingFolderAlert; }

    const std::optional<ComposerLayout::LayoutMetrics> &lastAppliedLayoutMetrics() const
    {
        return m_lastAppliedLayoutMetrics;
    }
    // The height rule, applied at once (normally deferred to the event loop).
    void recalculateHeight();
    double maximumVisibleTextHeight() const;

    std::function<void(const QRect &)> onScratchFrameChanged;

Q_SIGNALS:
    void closed();
    void availabilityChanged();

private:
    void buildScratchViews();
    void scheduleHeightRecalculation();
    bool handlePaste(const QMimeData *data);
    void insertPaths(const QList<QUrl> &urls);
    void windowDidMove();
    void windowDidResize();
    void applyAvailability(const ScratchComposerAvailability &availability);
    void applySubmitButtonState();
    void reloadPresets();
    void updateAttachmentViews();
    void presentUnsupportedDirectoryAttachmentAlert(int count);
    bool handleComposerKey(int key, Qt::KeyboardModifiers modifiers, const QString &text);
    QList<QuickTaskModelCatalog::Model> models() const;
    ComposerLayout::Input layoutInput() const;

    std::optional<ComposerRequest> m_request;
    ComposerServices m_services;
    ComposerPanelControllerDelegate *m_delegate = nullptr;
    std::unique_ptr<ComposerPanel> m_panel;
    QStackedWidget *m_section = nullptr;
    AttachmentStripView *m_strip = nullptr;
    QLabel *m_overlayTitle = nullptr;
    QLabel *m_overlayDetail = nullptr;
    QComboBox *m_presetPopup = nullptr;
    QuickTaskCLIBackend m_backend = QuickTaskCLIBackend::codex;
    QuickTaskPresetSettings m_presetSettings;
    ScratchComposerAvailability m_availability;
    QList<PromptAttachment> m_attachments;
    QSet<QString> m_ownedManagedAttachmentPaths;
    std::unique_ptr<QFutureWatcher<QuickTaskCLIInstallationAvailabilities>> m_availabilityWatcher;
    std::optional<ComposerLayout::LayoutMetrics> m_lastAppliedLayoutMetrics;
    std::optional<int> m_automaticHeightAnchorBottom;
    bool m_hasPerformedInitialScratchAvailabilityRefresh = false;
    bool m_isShowingFolderAlert = false;
    bool m_heightRecalculationScheduled = false;
    bool m_isApplyingAutomaticFrame = false;
    bool m_isFramePersistenceEnabled = false;
};
