#include "preferences/PreferencesWindow.h"

#include "backends/BackendProfiles.h"
#include "core/UserDefaults.h"
#include "editing/PromptHistory.h"
#include "editing/SpellCheckService.h"
#include "editing/SpellDictionaries.h"
#include "platform/HostPlatform.h"
#include "preferences/ModelPopups.h"
#include "preferences/PreferencesTexts.h"
#include "preferences/PresetEditorRules.h"
#include "preferences/QuickTaskPresetEditorView.h"
#include "preferences/ShortcutRecorder.h"
#include "settings/AppSettings.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "shortcuts/ShortcutName.h"
#include "voice/RecognizerTrial.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QFrame>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QResizeEvent>
#include <QScreen>
#include <QScrollArea>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

namespace {

// Long enough that a drag of the window's edge is over before its size is stored.
constexpr int kSizeSaveDelayMs = 400;
constexpr int kMeasureTimeLimitMs = 3000;

QString platformWords(const QString &mac, const QString &elsewhere)
{
    return HostPlatform::usesMacConventions() ? mac : elsewhere;
}

QLabel *heading(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

QLabel *note(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QFrame *separator(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

DebugWindowRect debugRect(const QRect &rect)
{
    return {double(rect.x()), double(rect.y()), double(rect.width()), double(rect.height())};
}

} // namespace

const QString PreferencesWindow::contentSizeKey = QStringLiteral("PreferencesWindowContentSize");

PreferencesWindow::PreferencesWindow(UserDefaults &defaults, KeyboardShortcuts &shortcuts,
                                     InstallationCheck checkInstallations, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_defaults(defaults)
    , m_shortcuts(shortcuts)
    , m_checkInstallations(std::move(checkInstallations))
{
    setObjectName(QStringLiteral("PreferencesWindow"));
    setWindowTitle(QStringLiteral("Preferences"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_scroll = new QScrollArea(this);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setWidgetResizable(true);
    m_scroll->setWidget(buildContent());
    layout->addWidget(m_scroll);

    auto *close = new QShortcut(QKeySequence::Close, this);
    connect(close, &QShortcut::activated, this, &QWidget::close);

    m_sizeSaveTimer = new QTimer(this);
    m_sizeSaveTimer->setSingleShot(true);
    m_sizeSaveTimer->setInterval(kSizeSaveDelayMs);
    connect(m_sizeSaveTimer, &QTimer::timeout, this,
            [this] { m_defaults.setString(contentSizeKey, PreferencesTexts::contentSizeString(size())); });

    // Another copy of the application, a composer or a command may change what is shown here.
    m_defaults.watchForExternalChanges();
    connect(&m_defaults, &UserDefaults::didChange, this, [this](const QString &key) {
        if (key != contentSizeKey)
            reloadSettings();
    });
    reloadSettings();
}

PreferencesWindow::~PreferencesWindow()
{
    // A recogniser command under test is ended rather than left running.
    m_recognizerTestStop.request_stop();
}

QWidget *PreferencesWindow::buildContent()
{
    auto *content = new QWidget;
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(20, 16, 20, 16);
    column->setSpacing(6);

    // Shortcuts.
    column->addWidget(heading(QStringLiteral("Shortcuts"), content));
    column->addWidget(note(
        QStringLiteral(
            "Configure the global quick-task shortcut and the local shortcuts used inside the composer."),
        content));
    auto *shortcutsForm = new QFormLayout;
    m_globalShortcutRecorder =
        new ShortcutRecorder(m_shortcuts, ShortcutNames::openScratchComposer(), content);
    m_globalShortcutRecorder->setObjectName(QStringLiteral("GlobalShortcutRecorder"));
    auto *globalColumn = new QVBoxLayout;
    globalColumn->addWidget(m_globalShortcutRecorder);
    globalColumn->addWidget(
        note(QStringLiteral("Shows the floating quick-task panel and focuses the editor."), content));
    shortcutsForm->addRow(QStringLiteral("Quick task:"), globalColumn);
    m_voiceShortcutRecorder = new ShortcutRecorder(m_shortcuts, ShortcutNames::toggleVoicePrompt(), content);
    m_voiceShortcutRecorder->setObjectName(QStringLiteral("VoiceShortcutRecorder"));
    auto *voiceColumn = new QVBoxLayout;
    voiceColumn->addWidget(m_voiceShortcutRecorder);
    voiceColumn->addWidget(
        note(QStringLiteral("Start or stop microphone capture while a composer is visible."), content));
    shortcutsForm->addRow(QStringLiteral("Dictation:"), voiceColumn);
    m_historyShortcutRecorder =
        new ShortcutRecorder(m_shortcuts, ShortcutNames::searchPromptHistory(), content);
    m_historyShortcutRecorder->setObjectName(QStringLiteral("HistorySearchShortcutRecorder"));
    auto *historyColumn = new QVBoxLayout;
    historyColumn->addWidget(m_historyShortcutRecorder);
    historyColumn->addWidget(
        note(QStringLiteral("Search earlier prompts while a composer is visible. Up in an empty composer "
                            "recalls this folder's last prompt."),
             content));
    shortcutsForm->addRow(QStringLiteral("Earlier prompts:"), historyColumn);
    column->addLayout(shortcutsForm);
    column->addWidget(separator(content));

    // Backend.
    column->addWidget(heading(QStringLiteral("Backend"), content));
    m_backendPopup = new QComboBox(content);
    m_backendPopup->setObjectName(QStringLiteral("BackendPopup"));
    for (const BackendProfile *profile : BackendProfiles::all())
        m_backendPopup->addItem(profile->displayTitle(), int(profile->backend()));
    column->addWidget(m_backendPopup);
    column->addWidget(note(QStringLiteral("Backend for quick tasks and voice drafting."), content));
    m_backendAvailability = note(QString(), content);
    m_backendAvailability->setObjectName(QStringLiteral("BackendAvailability"));
    m_backendAvailability->setTextInteractionFlags(Qt::TextSelectableByMouse);
    column->addWidget(m_backendAvailability);
    connect(m_backendPopup, &QComboBox::activated, this, [this](int index) {
        AppSettings(m_defaults)
            .setQuickTaskCLIBackend(QuickTaskCLIBackend(m_backendPopup->itemData(index).toInt()));
    });
    column->addWidget(separator(content));

    // Presets.
    column->addWidget(heading(QStringLiteral("Quick-Task Presets"), content));
    column->addWidget(
        note(QStringLiteral("Quick tasks only. Row order drives the popup menu, and each row can "
                            "record its own shortcut."),
             content));
    m_presetEditor = new QuickTaskPresetEditorView(m_defaults, m_shortcuts, content);
    connect(m_presetEditor, &QuickTaskPresetEditorView::shortcutRecordingChanged, this,
            &PreferencesWindow::shortcutRecordingChanged);
    for (ShortcutRecorder *recorder :
         {m_globalShortcutRecorder, m_voiceShortcutRecorder, m_historyShortcutRecorder})
        connect(recorder, &ShortcutRecorder::recordingChanged, this,
                &PreferencesWindow::shortcutRecordingChanged);
    column->addWidget(m_presetEditor);
    // How attachments reach a quick task, where its settings are.
    column->addWidget(
        note(QStringLiteral("Drop files below the editor to attach, or onto the editor to insert paths."),
             content));
    column->addWidget(note(QStringLiteral("Paste screenshots or copied files to attach them."), content));
    column->addWidget(separator(content));

    // Voice drafting.
    column->addWidget(heading(QStringLiteral("Voice Drafting"), content));
    column->addWidget(
        note(platformWords(QStringLiteral("Audio stays on this Mac. Only the transcript goes to "
                                          "the drafting model."),
                           QStringLiteral("Audio stays on this computer. Only the transcript goes "
                                          "to the drafting model.")),
             content));
    auto *voiceForm = new QFormLayout;
    m_voiceModelPopup = new QComboBox(content);
    m_voiceModelPopup->setObjectName(QStringLiteral("VoiceModelPopup"));
    m_voiceThinkingPopup = new QComboBox(content);
    m_voiceThinkingPopup->setObjectName(QStringLiteral("VoiceThinkingPopup"));
    voiceForm->addRow(QStringLiteral("Model:"), m_voiceModelPopup);
    voiceForm->addRow(QStringLiteral("Thinking:"), m_voiceThinkingPopup);
    column->addLayout(voiceForm);
    column->addWidget(
        note(QStringLiteral("Model and reasoning for drafting. It does not run the prompt."), content));
    auto *recognizerForm = new QFormLayout;
    auto *recognizerRow = new QHBoxLayout;
    m_recognizerCommand = new QLineEdit(content);
    m_recognizerCommand->setObjectName(QStringLiteral("SpeechRecognizerCommand"));
    m_recognizerCommand->setPlaceholderText(QStringLiteral("Built-in recogniser"));
    m_recognizerTestButton = new QPushButton(QStringLiteral("Test"), content);
    m_recognizerTestButton->setObjectName(QStringLiteral("TestSpeechRecognizer"));
    recognizerRow->addWidget(m_recognizerCommand, 1);
    recognizerRow->addWidget(m_recognizerTestButton);
    recognizerForm->addRow(QStringLiteral("Recogniser:"), recognizerRow);
    column->addLayout(recognizerForm);
    column->addWidget(
        note(platformWords(
                 QStringLiteral("A command of your own for \u201ctarvel transcribe\u201d (dictation uses the "
                                "system's recogniser): it gets a 16 kHz mono WAV as its last argument "
                                "and prints the words, within 30 seconds."),
                 QStringLiteral("A command of your own, for example a whisper.cpp build: it gets a "
                                "16 kHz mono WAV of what you said as its last argument and prints the "
                                "words, within 30 seconds. Empty uses the built-in recogniser.")),
             content));
    m_recognizerTestResult = note(QString(), content);
    m_recognizerTestResult->setObjectName(QStringLiteral("SpeechRecognizerTestResult"));
    m_recognizerTestResult->setTextInteractionFlags(Qt::TextSelectableByMouse);
    column->addWidget(m_recognizerTestResult);
    connect(m_recognizerCommand, &QLineEdit::editingFinished, this,
            &PreferencesWindow::storeRecognizerCommand);
    connect(m_recognizerTestButton, &QPushButton::clicked, this, &PreferencesWindow::testRecognizer);
    connect(m_voiceModelPopup, &QComboBox::activated, this, [this](int index) {
        AppSettings settings(m_defaults);
        const QString model = m_voiceModelPopup->itemData(index).toString();
        settings.setVoicePromptRewriteModelIdentifier(model);
        const QuickTaskCLIBackend backend = settings.quickTaskCLIBackend();
        const std::optional<QString> effort = settings.voicePromptRewriteReasoningEffort();
        if (effort && !PresetEditorRules::supportedLevels(model, backend,
                                                          BackendProfiles::of(backend).availableModels())
                           .contains(*effort))
            settings.setVoicePromptRewriteReasoningEffort(std::nullopt);
    });
    connect(m_voiceThinkingPopup, &QComboBox::activated, this, [this](int index) {
        AppSettings(m_defaults)
            .setVoicePromptRewriteReasoningEffort(m_voiceThinkingPopup->itemData(index).toString());
    });
    column->addWidget(separator(content));

    // Editing.
    column->addWidget(heading(QStringLiteral("Editing"), content));
    auto *editingForm = new QFormLayout;
    m_spellingPopup = new QComboBox(content);
    m_spellingPopup->setObjectName(QStringLiteral("SpellingPopup"));
    editingForm->addRow(QStringLiteral("Spelling:"), m_spellingPopup);
    auto *clearHistory = new QPushButton(QStringLiteral("Clear Prompt History\u2026"), content);
    clearHistory->setObjectName(QStringLiteral("ClearPromptHistory"));
    editingForm->addRow(QStringLiteral("Prompt history:"), clearHistory);
    column->addLayout(editingForm);
    m_spellingNote = note(QString(), content);
    m_spellingNote->setObjectName(QStringLiteral("SpellingNote"));
    column->addWidget(m_spellingNote);
    column->addWidget(
        note(QStringLiteral("Tarvel keeps the last %L1 prompts you submitted, in your data folder "
                            "and readable only by you.")
                 .arg(PromptHistory::maximumEntries),
             content));
    connect(m_spellingPopup, &QComboBox::activated, this, [this](int index) {
        m_defaults.setString(SpellCheckService::dictionaryKey, m_spellingPopup->itemData(index).toString());
    });
    connect(clearHistory, &QPushButton::clicked, this, &PreferencesWindow::confirmClearPromptHistory);
    column->addWidget(separator(content));

    // Notifications.
    column->addWidget(heading(QStringLiteral("Notifications"), content));
    m_notifications = new QCheckBox(QStringLiteral("Show completion notifications"), content);
    m_notifications->setObjectName(QStringLiteral("CompletionNotifications"));
    column->addWidget(m_notifications);
    column->addWidget(
        note(QStringLiteral("For finished quick tasks, with a short response preview."), content));
    connect(m_notifications, &QCheckBox::toggled, this,
            [this](bool on) { AppSettings(m_defaults).setCompletionNotificationsEnabled(on); });
    column->addWidget(separator(content));

    // Permissions.
    column->addWidget(heading(QStringLiteral("Permissions"), content));
    column->addWidget(
        note(platformWords(QStringLiteral("Review user-changeable permissions and macOS-managed "
                                          "access states."),
                           QStringLiteral("Review user-changeable permissions and system-managed "
                                          "access states.")),
             content));
    m_permissionTitle = new QLabel(content);
    m_permissionTitle->setObjectName(QStringLiteral("PermissionSummaryTitle"));
    m_permissionDetail = note(QString(), content);
    m_permissionDetail->setObjectName(QStringLiteral("PermissionSummaryDetail"));
    auto *permissionsButton = new QPushButton(QStringLiteral("Open Permissions\u2026"), content);
    permissionsButton->setObjectName(QStringLiteral("OpenPermissions"));
    column->addWidget(m_permissionTitle);
    column->addWidget(m_permissionDetail);
    column->addWidget(permissionsButton, 0, Qt::AlignLeft);
    connect(permissionsButton, &QPushButton::clicked, this, &PreferencesWindow::openPermissionsRequested);
    column->addWidget(separator(content));

    // Editor set-up.
    column->addWidget(heading(QStringLiteral("Editor Setup"), content));
    auto *editorButton = new QPushButton(QStringLiteral("Show Editor Setup\u2026"), content);
    editorButton->setObjectName(QStringLiteral("ShowEditorSetup"));
    m_editorSetupStatus = note(QString(), content);
    m_editorSetupStatus->setObjectName(QStringLiteral("EditorSetupStatus"));
    column->addWidget(editorButton, 0, Qt::AlignLeft);
    column->addWidget(m_editorSetupStatus);
    connect(editorButton, &QPushButton::clicked, this,
            &PreferencesWindow::showEditorIntegrationPromptRequested);
    column->addStretch(1);
    return content;
}

void PreferencesWindow::reloadSettings()
{
    const AppSettings settings(m_defaults);
    reloadBackendItems();
    m_presetEditor->refresh();
    reloadVoiceItems();
    reloadSpellingItems();
    // Not under the user's unfinished edit.
    if (!m_recognizerCommand->isModified())
        m_recognizerCommand->setText(settings.speechRecognizerCommand());
    const QSignalBlocker blocker(m_notifications);
    m_notifications->setChecked(settings.areCompletionNotificationsEnabled());
}

void PreferencesWindow::reloadBackendItems()
{
    const QuickTaskCLIBackend backend = AppSettings(m_defaults).quickTaskCLIBackend();
    for (int index = 0; index < m_backendPopup->count(); ++index) {
        const QuickTaskCLIBackend item = QuickTaskCLIBackend(m_backendPopup->itemData(index).toInt());
        const BackendProfile &profile = BackendProfiles::of(item);
        const auto availability = m_availabilities.constFind(item);
        QString title = profile.displayTitle();
        if (availability != m_availabilities.cend() && !availability->isAvailable())
            title += QStringLiteral(" (not available)");
        m_backendPopup->setItemText(index, title);
        if (item == backend)
            m_backendPopup->setCurrentIndex(index);
    }
    const auto availability = m_availabilities.constFind(backend);
    if (availability == m_availabilities.cend())
        m_backendAvailability->setText(QStringLiteral("Checking ") +
                                       BackendProfiles::of(backend).longTitle() + QStringLiteral("\u2026"));
    else if (availability->isAvailable())
        m_backendAvailability->setText(QStringLiteral("Installed: ") + availability->version());
    else
        m_backendAvailability->setText(availability->message());
}

void PreferencesWindow::reloadVoiceItems()
{
    const AppSettings settings(m_defaults);
    const QuickTaskCLIBackend backend = settings.quickTaskCLIBackend();
    const QList<BackendModel> models = BackendProfiles::of(backend).availableModels();
    const QuickTaskPreset draft = settings.voicePromptRewritePreset();
    ModelPopups::fillModels(*m_voiceModelPopup, backend, models, draft.model);
    ModelPopups::fillThinking(*m_voiceThinkingPopup, backend, models, draft.model, draft.reasoningEffort);
}

void PreferencesWindow::reloadSpellingItems()
{
    const QList<SpellDictionary> installed = SpellDictionaries::installed();
    const std::optional<SpellDictionary> automatic =
        SpellDictionaries::forLocale(installed, QLocale::system());
    const QString stored = m_defaults.string(SpellCheckService::dictionaryKey).value_or(QString());
    m_spellingPopup->clear();
    m_spellingPopup->addItem(
        automatic ? QStringLiteral("Automatic (%1)").arg(SpellDictionaries::displayName(automatic->name))
                  : QStringLiteral("Automatic"),
        QString());
    for (const SpellDictionary &dictionary : installed)
        m_spellingPopup->addItem(SpellDictionaries::displayName(dictionary.name), dictionary.name);
    m_spellingPopup->addItem(QStringLiteral("Off"), SpellCheckService::offValue);
    const int current = m_spellingPopup->findData(stored);
    m_spellingPopup->setCurrentIndex(current >= 0 ? current : 0);
    if (installed.isEmpty())
        m_spellingNote->setText(
            QStringLiteral("No Hunspell dictionary is installed, so spelling is not checked. "
                           "Install one for your language (on Debian, hunspell-en-us for "
                           "American English) and open a new composer."));
    else if (!automatic && (stored.isEmpty() || current < 0))
        m_spellingNote->setText(
            QStringLiteral("No installed dictionary matches the language %1; choose one above.")
                .arg(SpellDictionaries::localeName(QLocale::system())));
    else
        m_spellingNote->setText(
            QStringLiteral("Misspelled words are underlined, except in code, paths, links "
                           "and mentions. Right-click one for suggestions."));
}

void PreferencesWindow::confirmClearPromptHistory()
{
    QMessageBox box(QMessageBox::Question, QStringLiteral("Tarvel"),
                    QStringLiteral("Clear the prompt history?"), QMessageBox::Cancel, this);
    box.setInformativeText(
        QStringLiteral("Up and the prompt search will no longer bring back the prompts you submitted so far. "
                       "This cannot be undone."));
    QPushButton *clear = box.addButton(QStringLiteral("Clear"), QMessageBox::DestructiveRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    if (box.clickedButton() == clear)
        Q_EMIT clearPromptHistoryRequested();
}

void PreferencesWindow::checkInstallations()
{
    if (!m_checkInstallations || m_availabilityWatcher)
        return;
    auto watcher = std::make_unique<QFutureWatcher<QuickTaskCLIInstallationAvailabilities>>();
    auto *raw = watcher.get();
    connect(raw, &QFutureWatcherBase::finished, this, [this, raw] {
        if (raw->future().resultCount() > 0)
            m_availabilities = raw->future().result();
        m_availabilityWatcher.release()->deleteLater();
        reloadBackendItems();
    });
    raw->setFuture(m_checkInstallations());
    m_availabilityWatcher = std::move(watcher);
}

void PreferencesWindow::storeRecognizerCommand()
{
    m_recognizerCommand->setModified(false);
    AppSettings settings(m_defaults);
    if (settings.speechRecognizerCommand() == m_recognizerCommand->text().trimmed())
        return;
    m_recognizerTestResult->clear();
    settings.setSpeechRecognizerCommand(m_recognizerCommand->text());
}

void PreferencesWindow::testRecognizer()
{
    if (m_recognizerTestWatcher)
        return;
    storeRecognizerCommand();
    m_recognizerTestButton->setEnabled(false);
    m_recognizerTestResult->setText(QStringLiteral("Transcribing a short recording\u2026"));
    auto watcher = std::make_unique<QFutureWatcher<RecognizerTrial::Outcome>>();
    auto *raw = watcher.get();
    connect(raw, &QFutureWatcherBase::finished, this, [this, raw] {
        m_recognizerTestResult->setText(RecognizerTrial::describe(raw->result()));
        m_recognizerTestButton->setEnabled(true);
        m_recognizerTestWatcher.release()->deleteLater();
    });
    raw->setFuture(RecognizerTrial::run(AppSettings(m_defaults).speechRecognizerCommand(),
                                        m_recognizerTestStop.get_token()));
    m_recognizerTestWatcher = std::move(watcher);
}

void PreferencesWindow::setPermissionSummary(const QString &title, const QString &detail)
{
    m_permissionTitle->setText(title);
    m_permissionDetail->setText(detail);
}

void PreferencesWindow::setEditorSetupStatusLine(const QString &line)
{
    m_editorSetupStatus->setText(line);
}

void PreferencesWindow::present()
{
    if (!m_hasPresentedWindow) {
        m_hasPresentedWindow = true;
        m_isApplyingRestoredContentSize = true;
        resize(initialContentSize());
        m_isApplyingRestoredContentSize = false;
    }
    show();
    raise();
    activateWindow();
}

QSize PreferencesWindow::initialContentSize() const
{
    const QRect available = (screen() ? screen() : QGuiApplication::primaryScreen())->availableGeometry();
    if (const std::optional<QSize> stored =
            PreferencesTexts::contentSizeFromString(m_defaults.string(contentSizeKey).value_or(QString())))
        return stored->boundedTo(available.size());
    // The content's own size, grown so that nothing scrolls while the screen has room.
    QSize fitting = m_scroll->widget()->sizeHint();
    fitting.rwidth() = std::max(fitting.width(), 560);
    return fitting.boundedTo(available.size() - QSize(40, 60));
}

void PreferencesWindow::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    checkInstallations();
    Q_EMIT refreshRequested();
}

void PreferencesWindow::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow()) {
        // The shell start-up file, the backends and the system may have changed meanwhile.
        checkInstallations();
        reloadSettings();
        Q_EMIT refreshRequested();
    }
}

void PreferencesWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    // Only the user's own resizing is remembered: a drag reaches us from the window manager.
    if (m_hasPresentedWindow && isVisible() && !m_isApplyingRestoredContentSize && event->spontaneous() &&
        event->oldSize().isValid() && event->oldSize() != event->size())
        m_sizeSaveTimer->start();
}

void PreferencesWindow::measureFrame(
    std::function<void(const std::optional<DebugWindowFrameResponse> &)> done)
{
    present();
    auto *poll = new QTimer(this);
    poll->setInterval(25);
    auto waited = std::make_shared<int>(0);
    auto lastFrame = std::make_shared<QRect>();
    connect(poll, &QTimer::timeout, this, [this, poll, waited, lastFrame, done = std::move(done)] {
        *waited += poll->interval();
        const bool exposed = windowHandle() && windowHandle()->isExposed();
        // The frame is known once the window manager has told its decoration's size; it stays put then.
        const bool settled = exposed && frameGeometry() == *lastFrame;
        *lastFrame = frameGeometry();
        if (!settled && *waited < kMeasureTimeLimitMs)
            return;
        poll->deleteLater();
        poll->stop();
        if (!exposed) {
            done(std::nullopt);
            return;
        }
        DebugWindowFrameResponse response;
        response.target = DebugWindowTarget::preferences;
        response.windowNumber = qint64(winId());
        response.frame = debugRect(frameGeometry());
        response.contentFrame = debugRect(geometry());
        if (QScreen *where = screen())
            response.screenVisibleFrame = debugRect(where->availableGeometry());
        done(response);
    });
    poll->start();
}
