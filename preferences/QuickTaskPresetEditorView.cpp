#include "preferences/QuickTaskPresetEditorView.h"

#include "backends/BackendProfiles.h"
#include "core/UserDefaults.h"
#include "preferences/ModelPopups.h"
#include "preferences/PresetEditorRules.h"
#include "preferences/ShortcutRecorder.h"
#include "settings/AppSettings.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "shortcuts/ShortcutName.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QShowEvent>
#include <QTableWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

enum Column { positionColumn, modelColumn, thinkingColumn, shortcutColumn, columnCount };

QString modelTitle(const QuickTaskPreset &preset, QuickTaskCLIBackend backend,
                   const QList<BackendModel> &models)
{
    for (const QuickTaskPresetModelOption &option :
         PresetEditorRules::effectiveModelOptions(preset.model, backend, models)) {
        if (BackendProfiles::of(backend).canonicalModelIdentifier(option.identifier) ==
            BackendProfiles::of(backend).canonicalModelIdentifier(preset.model))
            return option.title;
    }
    return preset.model.isEmpty() ? QStringLiteral("choose a model") : preset.model.toLower();
}

} // namespace

QuickTaskPresetEditorView::QuickTaskPresetEditorView(UserDefaults &defaults, KeyboardShortcuts &shortcuts,
                                                     QWidget *parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_shortcuts(shortcuts)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_table = new QTableWidget(0, columnCount, this);
    m_table->setObjectName(QStringLiteral("PresetTable"));
    m_table->setHorizontalHeaderLabels({QStringLiteral("#"), QStringLiteral("Model"),
                                        QStringLiteral("Thinking"), QStringLiteral("Shortcut")});
    m_table->verticalHeader()->hide();
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->horizontalHeader()->setSectionResizeMode(positionColumn, QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(modelColumn, QHeaderView::Stretch);
    m_table->horizontalHeader()->setSectionResizeMode(thinkingColumn, QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(shortcutColumn, QHeaderView::ResizeToContents);
    m_table->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_table->setSizeAdjustPolicy(QAbstractScrollArea::AdjustToContents);
    layout->addWidget(m_table);

    auto *footer = new QHBoxLayout;
    m_addButton = new QToolButton(this);
    m_addButton->setObjectName(QStringLiteral("AddPreset"));
    m_addButton->setText(QStringLiteral("+"));
    m_addButton->setToolTip(QStringLiteral("Add preset"));
    m_removeButton = new QToolButton(this);
    m_removeButton->setObjectName(QStringLiteral("RemovePreset"));
    m_removeButton->setText(QStringLiteral("\u2212"));
    m_removeButton->setToolTip(QStringLiteral("Remove selected preset"));
    auto *footnote = new QLabel(QStringLiteral("Row order controls the menu. Shortcuts are optional."), this);
    footnote->setForegroundRole(QPalette::PlaceholderText);
    footer->addWidget(m_addButton);
    footer->addWidget(m_removeButton);
    footer->addSpacing(8);
    footer->addWidget(footnote, 1);
    layout->addLayout(footer);

    auto *popups = new QFormLayout;
    m_modelPopUpButton = new QComboBox(this);
    m_modelPopUpButton->setObjectName(QStringLiteral("PresetModelPopup"));
    m_thinkingPopUpButton = new QComboBox(this);
    m_thinkingPopUpButton->setObjectName(QStringLiteral("PresetThinkingPopup"));
    popups->addRow(QStringLiteral("Model:"), m_modelPopUpButton);
    popups->addRow(QStringLiteral("Thinking:"), m_thinkingPopUpButton);
    layout->addLayout(popups);

    connect(m_addButton, &QToolButton::clicked, this, &QuickTaskPresetEditorView::addPresetPressed);
    connect(m_removeButton, &QToolButton::clicked, this, &QuickTaskPresetEditorView::removePresetPressed);
    connect(m_modelPopUpButton, &QComboBox::activated, this, &QuickTaskPresetEditorView::modelChosen);
    connect(m_thinkingPopUpButton, &QComboBox::activated, this, &QuickTaskPresetEditorView::thinkingChosen);
    connect(m_table, &QTableWidget::itemSelectionChanged, this, [this] {
        if (m_isSynchronizingTableSelection)
            return;
        const QList<QTableWidgetSelectionRange> ranges = m_table->selectedRanges();
        m_editorSelectedPresetIndex = ranges.isEmpty() ? -1 : ranges.constFirst().topRow();
        refresh();
    });
    refresh();
}

void QuickTaskPresetEditorView::selectRow(int row)
{
    m_editorSelectedPresetIndex = row;
    refresh();
}

void QuickTaskPresetEditorView::refresh()
{
    const AppSettings settings(m_defaults);
    m_backend = settings.quickTaskCLIBackend();
    m_availableModels = BackendProfiles::of(m_backend).availableModels();
    m_settings = settings.quickTaskPresetSettings();
    if (!m_hasAppliedInitialSelection) {
        m_hasAppliedInitialSelection = true;
        m_editorSelectedPresetIndex = m_settings.selectedPresetIndex;
    }
    if (m_editorSelectedPresetIndex >= m_settings.presets.size())
        m_editorSelectedPresetIndex = int(m_settings.presets.size()) - 1;
    reloadRows();
    const bool hasSelection = m_editorSelectedPresetIndex >= 0;
    const QuickTaskPreset selected =
        hasSelection ? m_settings.presets.at(m_editorSelectedPresetIndex) : QuickTaskPreset();
    reloadModelItems(selected.model);
    reloadThinkingItems(selected.model, selected.reasoningEffort);
    m_modelPopUpButton->setEnabled(hasSelection);
    m_thinkingPopUpButton->setEnabled(hasSelection && m_thinkingPopUpButton->count() > 0);
    updateButtons();
}

void QuickTaskPresetEditorView::reloadRows()
{
    m_isSynchronizingTableSelection = true;
    const int count = int(m_settings.presets.size());
    m_table->setRowCount(count);
    // Recorders stay across refreshes, so one that is recording is not torn down by a store change.
    while (m_recorders.size() > count)
        delete m_recorders.takeLast();
    for (int row = 0; row < count; ++row) {
        const QuickTaskPreset &preset = m_settings.presets.at(row);
        const QStringList texts{QString::number(row + 1), modelTitle(preset, m_backend, m_availableModels),
                                preset.reasoningEffort.toLower()};
        for (int column = positionColumn; column <= thinkingColumn; ++column) {
            QTableWidgetItem *item = m_table->item(row, column);
            if (!item) {
                item = new QTableWidgetItem;
                m_table->setItem(row, column, item);
            }
            item->setText(texts.at(column));
        }
        const ShortcutName name = *ShortcutNames::quickTaskPreset(row + 1);
        if (row < m_recorders.size()) {
            m_recorders.at(row)->setName(name);
        } else {
            auto *recorder = new ShortcutRecorder(m_shortcuts, name, m_table);
            recorder->setObjectName(QStringLiteral("PresetShortcut%1").arg(row + 1));
            connect(recorder, &ShortcutRecorder::recordingChanged, this,
                    &QuickTaskPresetEditorView::shortcutRecordingChanged);
            m_table->setCellWidget(row, shortcutColumn, recorder);
            m_recorders.append(recorder);
        }
    }
    m_table->clearSelection();
    if (m_editorSelectedPresetIndex >= 0)
        m_table->selectRow(m_editorSelectedPresetIndex);
    fitTableHeight();
    m_isSynchronizingTableSelection = false;
}

void QuickTaskPresetEditorView::fitTableHeight()
{
    m_table->resizeRowsToContents();
    int height = m_table->horizontalHeader()->sizeHint().height() + 2 * m_table->frameWidth();
    for (int row = 0; row < m_table->rowCount(); ++row)
        height += m_table->rowHeight(row);
    m_table->setFixedHeight(height);
}

void QuickTaskPresetEditorView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    fitTableHeight();
}

void QuickTaskPresetEditorView::reloadModelItems(const QString &selecting)
{
    ModelPopups::fillModels(*m_modelPopUpButton, m_backend, m_availableModels, selecting);
}

void QuickTaskPresetEditorView::reloadThinkingItems(const QString &model, const QString &selecting)
{
    ModelPopups::fillThinking(*m_thinkingPopUpButton, m_backend, m_availableModels, model, selecting);
}

void QuickTaskPresetEditorView::persistSettings()
{
    AppSettings(m_defaults).setQuickTaskPresetSettings(m_settings);
    refresh();
}

void QuickTaskPresetEditorView::addPresetPressed()
{
    if (!PresetEditorRules::canAddPreset(m_settings))
        return;
    m_settings = PresetEditorRules::withAddedPreset(m_settings, m_backend);
    m_editorSelectedPresetIndex = int(m_settings.presets.size()) - 1;
    persistSettings();
}

void QuickTaskPresetEditorView::removePresetPressed()
{
    if (!PresetEditorRules::canRemovePreset(m_settings, m_editorSelectedPresetIndex))
        return;
    m_settings = PresetEditorRules::withRemovedPreset(m_settings, m_editorSelectedPresetIndex);
    persistSettings();
}

void QuickTaskPresetEditorView::updateButtons()
{
    m_addButton->setEnabled(PresetEditorRules::canAddPreset(m_settings));
    m_removeButton->setEnabled(PresetEditorRules::canRemovePreset(m_settings, m_editorSelectedPresetIndex));
}

void QuickTaskPresetEditorView::modelChosen(int index)
{
    if (index < 0 || m_editorSelectedPresetIndex < 0 ||
        m_editorSelectedPresetIndex >= m_settings.presets.size())
        return;
    QuickTaskPreset &preset = m_settings.presets[m_editorSelectedPresetIndex];
    preset.model = m_modelPopUpButton->itemData(index).toString();
    // Keep the effort when the new model takes it; otherwise the sanitiser picks the model's default.
    if (!PresetEditorRules::supportedLevels(preset.model, m_backend, m_availableModels)
             .contains(preset.reasoningEffort))
        preset.reasoningEffort.clear();
    persistSettings();
}

void QuickTaskPresetEditorView::thinkingChosen(int index)
{
    if (index < 0 || m_editorSelectedPresetIndex < 0 ||
        m_editorSelectedPresetIndex >= m_settings.presets.size())
        return;
    m_settings.presets[m_editorSelectedPresetIndex].reasoningEffort =
        m_thinkingPopUpButton->itemData(index).toString();
    persistSettings();
}
