#pragma once

#include "core/DebugWindowFrame.h"
#include "quicktasks/QuickTaskCLIInstallationAvailability.h"

#include <QFuture>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

class KeyboardShortcuts;
class QCheckBox;
class QComboBox;
class QFutureWatcherBase;
class QLabel;
class QLineEdit;
class QPushButton;
class QScrollArea;
class QTimer;
class QuickTaskPresetEditorView;
class ShortcutRecorder;
class UserDefaults;

// Tarvel's preferences: shortcuts, the backend, its presets, voice drafting, editing (spelling,
// the prompt history), notifications, permissions and the editor set-up. Every control writes to the settings
// at once; the window follows changes made elsewhere. What it cannot know itself (the permission summary, the
// editor set-up status) it asks its owner for through signals whenever it is shown or becomes active.
class PreferencesWindow final : public QWidget {
    Q_OBJECT

public:
    using InstallationCheck = std::function<QFuture<QuickTaskCLIInstallationAvailabilities>()>;

    PreferencesWindow(UserDefaults &defaults, KeyboardShortcuts &shortcuts,
                      InstallationCheck checkInstallations, QWidget *parent = nullptr);
    ~PreferencesWindow() override;

    // The user-defaults key of the remembered content size.
    static const QString contentSizeKey;

    // Shows the window at its remembered size (or one that fits its content) the first time.
    void present();
    // Once the window is on screen, its frame as the window probe reports it; none when it never
    // appears.
    void measureFrame(std::function<void(const std::optional<DebugWindowFrameResponse> &)> done);

    ShortcutRecorder *globalShortcutRecorder() const { return m_globalShortcutRecorder; }
    ShortcutRecorder *historySearchShortcutRecorder() const { return m_historyShortcutRecorder; }
    QComboBox *spellingPopup() const { return m_spellingPopup; }
    QuickTaskPresetEditorView *presetEditor() const { return m_presetEditor; }
    void setPermissionSummary(const QString &title, const QString &detail);
    void setEditorSetupStatusLine(const QString &line);

Q_SIGNALS:
    // The window was shown or became active again: the owner answers with the setters above.
    void refreshRequested();
    void openPermissionsRequested();
    void showEditorIntegrationPromptRequested();
    // A shortcut recorder of the window began or ended recording.
    void shortcutRecordingChanged(bool recording);
    // The user confirmed "Clear Prompt History".
    void clearPromptHistoryRequested();

protected:
    void showEvent(QShowEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    QWidget *buildContent();
    void reloadSettings();
    void reloadBackendItems();
    void reloadVoiceItems();
    void reloadSpellingItems();
    void confirmClearPromptHistory();
    void checkInstallations();
    void storeRecognizerCommand();
    void testRecognizer();
    QSize initialContentSize() const;

    UserDefaults &m_defaults;
    KeyboardShortcuts &m_shortcuts;
    InstallationCheck m_checkInstallations;
    QuickTaskCLIInstallationAvailabilities m_availabilities;
    std::unique_ptr<QFutureWatcherBase> m_availabilityWatcher;
    QScrollArea *m_scroll = nullptr;
    ShortcutRecorder *m_globalShortcutRecorder = nullptr;
    ShortcutRecorder *m_voiceShortcutRecorder = nullptr;
    ShortcutRecorder *m_historyShortcutRecorder = nullptr;
    QComboBox *m_spellingPopup = nullptr;
    QLabel *m_spellingNote = nullptr;
    QComboBox *m_backendPopup = nullptr;
    QLabel *m_backendAvailability = nullptr;
    QuickTaskPresetEditorView *m_presetEditor = nullptr;
    QComboBox *m_voiceModelPopup = nullptr;
    QComboBox *m_voiceThinkingPopup = nullptr;
    QLineEdit *m_recognizerCommand = nullptr;
    QPushButton *m_recognizerTestButton = nullptr;
    QLabel *m_recognizerTestResult = nullptr;
    // The recogniser's test runs on a pool thread; closing the window stops it.
    std::unique_ptr<QFutureWatcherBase> m_recognizerTestWatcher;
    std::stop_source m_recognizerTestStop;
    QCheckBox *m_notifications = nullptr;
    QLabel *m_permissionTitle = nullptr;
    QLabel *m_permissionDetail = nullptr;
    QLabel *m_editorSetupStatus = nullptr;
    QTimer *m_sizeSaveTimer = nullptr;
    bool m_isApplyingRestoredContentSize = false;
    bool m_hasPresentedWindow = false;
};
