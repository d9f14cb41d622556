#pragma once

#include "backends/BackendModel.h"
#include "backends/QuickTaskCLIBackend.h"
#include "settings/QuickTaskPresetSettings.h"

#include <QList>
#include <QWidget>

class KeyboardShortcuts;
class QComboBox;
class QTableWidget;
class QToolButton;
class ShortcutRecorder;
class UserDefaults;

// The current backend's presets: one table row each in menu order, with the shortcut of its
// position, the selected row's model and thinking pop-ups, and add and remove buttons. Every
// change is stored at once; changes made elsewhere show up through refresh().
class QuickTaskPresetEditorView final : public QWidget {
    Q_OBJECT

public:
    QuickTaskPresetEditorView(UserDefaults &defaults, KeyboardShortcuts &shortcuts,
                              QWidget *parent = nullptr);

    // Reloads the rows and pop-ups from the settings and the backend's models.
    void refresh();

    QTableWidget *table() const { return m_table; }
    QComboBox *modelPopUpButton() const { return m_modelPopUpButton; }
    QComboBox *thinkingPopUpButton() const { return m_thinkingPopUpButton; }
    QToolButton *addButton() const { return m_addButton; }
    QToolButton *removeButton() const { return m_removeButton; }
    int editorSelectedPresetIndex() const { return m_editorSelectedPresetIndex; }
    void selectRow(int row);

Q_SIGNALS:
    // One of the rows' shortcut recorders began or ended recording.
    void shortcutRecordingChanged(bool recording);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void reloadRows();
    // The table shows every row without scrolling; row heights are only right once the style is applied.
    void fitTableHeight();
    void reloadModelItems(const QString &selecting);
    void reloadThinkingItems(const QString &model, const QString &selecting);
    void persistSettings();
    void addPresetPressed();
    void removePresetPressed();
    void updateButtons();
    void modelChosen(int index);
    void thinkingChosen(int index);

    UserDefaults &m_defaults;
    KeyboardShortcuts &m_shortcuts;
    QuickTaskCLIBackend m_backend = QuickTaskCLIBackend::codex;
    QuickTaskPresetSettings m_settings;
    QList<BackendModel> m_availableModels;
    int m_editorSelectedPresetIndex = 0;
    bool m_hasAppliedInitialSelection = false;
    bool m_isSynchronizingTableSelection = false;
    QTableWidget *m_table = nullptr;
    QList<ShortcutRecorder *> m_recorders;
    QComboBox *m_modelPopUpButton = nullptr;
    QComboBox *m_thinkingPopUpButton = nullptr;
    QToolButton *m_addButton = nullptr;
    QToolButton *m_removeButton = nullptr;
};
