// The preferences window offscreen: the shortcut recorder's rules as the user meets them, the preset
// table's buttons, the editing section, a window that follows the settings file when someone else
// writes it, and the recogniser command's Test.
#include "core/UserDefaults.h"
#include "editing/SpellCheckService.h"
#include "preferences/PreferencesWindow.h"
#include "preferences/QuickTaskPresetEditorView.h"
#include "preferences/ShortcutRecorder.h"
#include "settings/AppSettings.h"
#include "settings/CatalogFiles.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QToolButton>

using namespace Qt::StringLiterals;

class PreferencesWindowTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<TestEnvironment>();
        CatalogFiles::writeCodexCache(
            *m_env, CatalogFiles::codexCache(QJsonArray{
                        CatalogFiles::codexEntry(u"gpt-a"_s, {u"low"_s, u"medium"_s, u"high"_s}, u"high"_s),
                        CatalogFiles::codexEntry(u"gpt-b"_s, {u"low"_s}, u"low"_s),
                    }));
        m_defaults = std::make_unique<UserDefaults>(m_env->path(u"Tarvel.conf"_s));
        m_shortcuts = std::make_unique<KeyboardShortcuts>(*m_defaults, ShortcutDisplayStyle::standard);
        m_window = std::make_unique<PreferencesWindow>(*m_defaults, *m_shortcuts, nullptr);
        m_window->present();
    }

    void cleanup()
    {
        m_window.reset();
        m_shortcuts.reset();
        m_defaults.reset();
        m_env.reset();
    }

    // Refused combinations say why and store nothing; Escape leaves the old one; a refusal by the
    // system-wide registration keeps the old one too; an accepted one is stored at once.
    void recorderTakesOnlyUsableCombinations()
    {
        ShortcutRecorder *recorder = m_window->globalShortcutRecorder();
        const ShortcutName &name = recorder->name();
        QString refusal;
        recorder->registration = [&refusal](const std::optional<Shortcut> &) {
            return refusal;
        };
        const auto press = [recorder](Qt::Key key, Qt::KeyboardModifiers modifiers) {
            recorder->startRecording();
            QTest::keyClick(recorder, key, modifiers);
        };

        press(Qt::Key_K, Qt::NoModifier);
        QVERIFY(recorder->message().contains(u"Hold Ctrl, Alt or Super"_s));
        press(Qt::Key_K, Qt::ShiftModifier);
        QVERIFY(recorder->message().contains(u"Hold Ctrl, Alt or Super"_s));
        press(Qt::Key_R, Qt::ControlModifier);
        QCOMPARE(recorder->message(), u"Ctrl+R is already used to start or stop dictation."_s);
        QVERIFY(recorder->isRecording());
        QTest::keyClick(recorder, Qt::Key_Escape);
        QVERIFY(!recorder->isRecording());
        QCOMPARE(m_shortcuts->getShortcut(name), std::nullopt);

        refusal = u"Ctrl+Alt+K is already used by another application."_s;
        press(Qt::Key_K, Qt::ControlModifier | Qt::AltModifier);
        QCOMPARE(recorder->message(), refusal);
        QCOMPARE(m_shortcuts->getShortcut(name), std::nullopt);

        refusal.clear();
        press(Qt::Key_F5, Qt::NoModifier); // function keys need no modifier
        QCOMPARE(m_shortcuts->getShortcut(name), Shortcut::fromQtKey(Qt::Key_F5, Qt::NoModifier));
        QCOMPARE(recorder->message(), QString());
        press(Qt::Key_K, Qt::ControlModifier | Qt::AltModifier);
        QCOMPARE(m_shortcuts->displayText(*m_shortcuts->getShortcut(name)), u"Ctrl+Alt+K"_s);
        QCOMPARE(recorder->findChild<QPushButton *>()->text(), u"Ctrl+Alt+K"_s);
        // The window's own Close combinations are recorded rather than closing it.
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
        for (const QKeySequence &close : QKeySequence::keyBindings(QKeySequence::Close)) {
            press(close[0].key(), close[0].keyboardModifiers());
            QCOMPARE(m_shortcuts->getShortcut(name),
                     Shortcut::fromQtKey(close[0].key(), close[0].keyboardModifiers()));
            QVERIFY(m_window->isVisible());
        }

        // Backspace clears; the preset rows' recorders follow a change made elsewhere.
        press(Qt::Key_Backspace, Qt::NoModifier);
        QCOMPARE(m_shortcuts->getShortcut(name), std::nullopt);
        m_shortcuts->setShortcut(Shortcut::fromQtKey(Qt::Key_9, Qt::AltModifier),
                                 *ShortcutNames::quickTaskPreset(1));
        QCOMPARE(
            m_window->findChild<ShortcutRecorder *>(u"PresetShortcut1"_s)->findChild<QPushButton *>()->text(),
            u"Alt+9"_s);
    }

    // Add stops at nine rows and selects the new one; remove stops at one; each change is stored.
    void presetTableButtons()
    {
        QuickTaskPresetEditorView *editor = m_window->presetEditor();
        const auto stored = [this] {
            return AppSettings(*m_defaults).quickTaskPresetSettings().presets.size();
        };
        const qsizetype initial = stored();
        QVERIFY(initial >= 1);
        while (editor->addButton()->isEnabled())
            editor->addButton()->click();
        QCOMPARE(stored(), 9);
        QCOMPARE(editor->table()->rowCount(), 9);
        QCOMPARE(editor->editorSelectedPresetIndex(), 8);

        // The new row takes a model from the pop-up; its thinking menu then lists that model's levels.
        editor->modelPopUpButton()->setCurrentIndex(editor->modelPopUpButton()->findData(u"gpt-a"_s));
        Q_EMIT editor->modelPopUpButton()->activated(editor->modelPopUpButton()->currentIndex());
        QCOMPARE(AppSettings(*m_defaults).quickTaskPresetSettings().presets.at(8).model, u"gpt-a"_s);
        QCOMPARE(editor->thinkingPopUpButton()->itemText(1), u"medium default"_s);
        QCOMPARE(editor->thinkingPopUpButton()->currentData().toString(), u"high"_s);

        while (editor->removeButton()->isEnabled())
            editor->removeButton()->click();
        QCOMPARE(stored(), 1);
        QCOMPARE(editor->table()->rowCount(), 1);
        QVERIFY(editor->addButton()->isEnabled());

        // How attachments work is told in the quick-task section, a line each, below the table.
        const auto labelAt = [this](const QString &text) {
            for (const QLabel *label : m_window->findChildren<QLabel *>())
                if (label->text() == text)
                    return label->mapTo(m_window.get(), QPoint()).y();
            return -1;
        };
        const int voice = labelAt(u"Voice Drafting"_s);
        for (const char *help : {"Drop files below the editor to attach, or onto the editor to insert paths.",
                                 "Paste screenshots or copied files to attach them."}) {
            const int y = labelAt(QString::fromUtf8(help));
            QVERIFY2(y > editor->mapTo(m_window.get(), QPoint()).y() && y < voice, help);
        }
    }

    // The history search's shortcut is recorded like the others (their recorder's rules are seen
    // above) and is one that the others meet; the spelling choice is stored and followed; clearing
    // the history asks first.
    void editingSection()
    {
        ShortcutRecorder *history = m_window->historySearchShortcutRecorder();
        QCOMPARE(history->findChild<QPushButton *>()->text(), u"Ctrl+Shift+H"_s);
        ShortcutRecorder *global = m_window->globalShortcutRecorder();
        global->startRecording();
        QTest::keyClick(global, Qt::Key_H, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(global->message(), u"Ctrl+Shift+H is already used to search earlier prompts."_s);
        QTest::keyClick(global, Qt::Key_Escape);

        QComboBox *spelling = m_window->spellingPopup();
        QCOMPARE(spelling->itemData(spelling->count() - 1).toString(), SpellCheckService::offValue);
        spelling->setCurrentIndex(spelling->count() - 1);
        Q_EMIT spelling->activated(spelling->count() - 1);
        QCOMPARE(m_defaults->string(SpellCheckService::dictionaryKey), SpellCheckService::offValue);
        UserDefaults(m_defaults->location()).setString(SpellCheckService::dictionaryKey, QString());
        QTRY_COMPARE(spelling->currentIndex(), 0);

        QSignalSpy cleared(m_window.get(), &PreferencesWindow::clearPromptHistoryRequested);
        auto *clear = m_window->findChild<QPushButton *>(u"ClearPromptHistory"_s);
        for (const QString &answer : {u"Cancel"_s, u"Clear"_s}) {
            QTimer::singleShot(0, this, [answer] {
                auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
                for (QAbstractButton *button : box ? box->buttons() : QList<QAbstractButton *>()) {
                    if (button->text() == answer)
                        button->click();
                }
            });
            clear->click();
        }
        QCOMPARE(cleared.size(), 1);
    }

    // Another copy of the application writes the same settings file.
    void followsTheSettingsFile()
    {
        auto *backend = m_window->findChild<QComboBox *>(u"BackendPopup"_s);
        QCOMPARE(backend->currentText(), u"Codex"_s);
        UserDefaults other(m_defaults->location());
        AppSettings(other).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
        AppSettings(other).setCompletionNotificationsEnabled(false);
        QTRY_COMPARE(backend->currentText(), u"Claude"_s);
        QVERIFY(!m_window->findChild<QCheckBox *>(u"CompletionNotifications"_s)->isChecked());
    }

    // The recogniser command is stored as typed. Test runs it on the recording Tarvel ships, off the
    // window's thread (the command waits for a go-ahead that a blocked window could not give) and
    // once however often it is clicked, and shows what it heard or why it could not.
    void recognizerCommandAndItsTest()
    {
        auto *field = m_window->findChild<QLineEdit *>(u"SpeechRecognizerCommand"_s);
        auto *test = m_window->findChild<QPushButton *>(u"TestSpeechRecognizer"_s);
        auto *result = m_window->findChild<QLabel *>(u"SpeechRecognizerTestResult"_s);
        QFile script(m_env->path(u"recogniser"_s));
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\ncd \"${0%/*}\"; echo run >>runs; until [ -e go ]; do sleep 0.05; done\n"
                     "echo heard $(head -c 4 \"$1\")\n");
        script.close();
        script.setPermissions(script.permissions() | QFileDevice::ExeOwner);
        QTest::keyClicks(field, script.fileName());
        QTest::keyClick(field, Qt::Key_Return);
        QCOMPARE(AppSettings(*m_defaults).speechRecognizerCommand(), script.fileName());

        test->click();
        test->click();
        QCOMPARE(result->text(), u"Transcribing a short recording\u2026"_s);
        QVERIFY(QFile(m_env->path(u"go"_s)).open(QIODevice::WriteOnly));
        QTRY_VERIFY2(result->text().startsWith(u"Heard \u201cheard RIFF\u201d in "_s),
                     qPrintable(result->text()));
        QCOMPARE(QFileInfo(m_env->path(u"runs"_s)).size(), 4); // one run

        field->selectAll();
        QTest::keyClicks(field, u"/nonexistent/recogniser"_s);
        test->click();
        QTRY_VERIFY2(result->text().contains(u"was not found"_s), qPrintable(result->text()));
    }

private:
    std::unique_ptr<TestEnvironment> m_env;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<KeyboardShortcuts> m_shortcuts;
    std::unique_ptr<PreferencesWindow> m_window;
};

QTEST_MAIN(PreferencesWindowTest)
#include "tst_preferenceswindow.moc"
