#pragma once

#include "composer/ComposerServices.h"
#include "composer/ScratchComposerAvailability.h"
#include "core/PromptAttachment.h"
#include "quicktasks/QuickTaskCLIInstallationAvailability.h"
#include "settings/QuickTaskModelCatalog.h"
#include "settings/QuickTaskPreset.h"
#include "settings/QuickTaskPresetSettings.h"

#include <QFuture>
#include <QFutureWatcher>
#include <QObject>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>

class AttachmentStore;
class AttachmentStripView;
class ComposerPanel;
class ComposerSurface;
class KeyboardShortcuts;
class QComboBox;
class QLabel;
class QStackedWidget;
class QToolButton;
class UserDefaults;

// A free-standing composer for a quick task: text, attachments, a preset, and a check
// that the backend can run before anything can be typed.
class ScratchComposer final : public QObject {
    Q_OBJECT

public:
    explicit ScratchComposer(const QString &initialText,
                             const QList<PromptAttachment> &initialAttachments = {},
                             ComposerServices services = {}, QObject *parent = nullptr);
    ~ScratchComposer() override;

    ComposerSurface &surface() const { return *m_surface; }
    ComposerPanel *panel() const;
    QString text() const;

    // Shows the window; the text takes the focus once the backend is ready.
    void showWindow();
    void submitPressed();
    // Closes without treating it as a cancel; a check under way no longer applies.
    void closeProgrammatically();

    QuickTaskCLIBackend backend() const { return m_backend; }
    const ScratchComposerAvailability &availability() const { return m_availability; }
    void refreshScratchComposerAvailability(bool showCheckingState);
    const QList<PromptAttachment> &attachments() const { return m_attachments; }
    void appendAttachments(const QList<QUrl> &urls);
    void removeAttachment(const QUuid &id);
    QList<PromptAttachment> unsupportedDirectoryAttachments() const;
    // Lets go of the attachments when the composer closes: pasted images that no session
    // holds (a cancelled draft, not a submitted one) are deleted.
    void releaseAttachments();
    // Its name as a holder of attachments and of its draft.
    QUuid id() const { return m_holder; }
    // The text is what an earlier composer held when Tarvel stopped; the header says so.
    void showRestoredDraftNotice();
    void selectQuickTaskPreset(int index);
    std::optional<QuickTaskPreset> selectedPreset() const;
    QComboBox *presetPopup() const { return m_presetPopup; }
    // The folder the task runs in, shown in the footer, where a click chooses another.
    const QString &workingDirectory() const { return m_workingDirectory; }
    void setWorkingDirectory(const QString &path);
    QToolButton *workingDirectoryButton() const { return m_folderButton; }
    // Asks for another folder, starting at the given one; nothing when the user cancels. A folder
    // dialog over the panel unless replaced.
    std::function<std::optional<QString>(const QString &from)> chooseFolder;
    QLabel *availabilityTitle() const { return m_overlayTitle; }
    QLabel *availabilityDetail() const { return m_overlayDetail; }
    AttachmentStripView *attachmentStrip() const { return m_strip; }
    // Whether the alert about folders OpenCode cannot use is up.
    bool isShowingUnsupportedDirectoryAttachmentAlert() const { return m_isShowingFolderAlert; }

Q_SIGNALS:
    void submitted(const QString &text, const QList<PromptAttachment> &attachments,
                   const std::optional<QuickTaskPreset> &preset);
    void cancelled();
    void availabilityChanged();
    void attachmentsChanged();

private:
    void buildViews();
    void applyAvailability(const ScratchComposerAvailability &availability);
    void applySubmitButtonState();
    void reloadPresets();
    void settingsChanged(const QString &key);
    void setAttachments(const QList<PromptAttachment> &attachments);
    void attachPastedImage(const PromptAttachment &image);
    void presentUnsupportedDirectoryAttachmentAlert(int count);
    void refreshWorkingDirectoryButton();
    bool handleComposerKey(int key, Qt::KeyboardModifiers modifiers, const QString &text);
    QList<QuickTaskModelCatalog::Model> models() const;

    ComposerServices m_services;
    ComposerSurface *m_surface = nullptr;
    QStackedWidget *m_section = nullptr;
    AttachmentStripView *m_strip = nullptr;
    QLabel *m_overlayTitle = nullptr;
    QLabel *m_overlayDetail = nullptr;
    QComboBox *m_presetPopup = nullptr;
    QToolButton *m_folderButton = nullptr;
    QString m_workingDirectory;
    QuickTaskCLIBackend m_backend = QuickTaskCLIBackend::codex;
    QuickTaskPresetSettings m_presetSettings;
    ScratchComposerAvailability m_availability;
    // The last installation check's answer, so a change of presets is judged without a new one.
    std::optional<QuickTaskCLIInstallationAvailability> m_installation;
    bool m_settingsReloadPending = false;
    QList<PromptAttachment> m_attachments;
    // This composer's name as a holder in the attachment store.
    QUuid m_holder = QUuid::createUuid();
    std::unique_ptr<QFutureWatcher<QuickTaskCLIInstallationAvailabilities>> m_availabilityWatcher;
    bool m_hasPerformedInitialAvailabilityRefresh = false;
    bool m_isShowingFolderAlert = false;
};
