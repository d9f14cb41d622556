// Named shortcuts: defaults, the storage and reading rules, the change signal, the mapping to and
// from Qt keys, the display text and the composer's matching order; and the registrar between the
// store and the platform's hot key service, against a recording service: what is registered when,
// in which order, and what a refused combination does.
#include "core/UserDefaults.h"
#include "platform/GlobalHotKeyService.h"
#include "shortcuts/ComposerKeyMatcher.h"
#include "shortcuts/GlobalShortcutRegistrar.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QSignalSpy>
#include <QtTest>

namespace {

constexpr int command = CarbonModifiers::command;

ShortcutName presetName(int position)
{
    return *ShortcutNames::quickTaskPreset(position);
}

ShortcutKeyEvent keyEvent(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    return ShortcutKeyEvent{key, modifiers, QString()};
}

const Qt::KeyboardModifiers ctrl = Qt::ControlModifier;

// A value as an INI file quotes it.
QByteArray iniQuoted(const char *value)
{
    QByteArray quoted(value);
    quoted.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return '"' + quoted + '"';
}

constexpr int ctrlAlt = CarbonModifiers::command | CarbonModifiers::option;
const Shortcut ctrlAltK{0x28, ctrlAlt};
const Shortcut ctrlAltJ{0x26, ctrlAlt};
const Shortcut ctrlAltL{0x25, ctrlAlt};
using Active = QMap<int, QString>;

// Records every call and holds what is registered, by display text; combinations in taken are refused.
class RecordingHotKeyService final : public GlobalHotKeyService {
public:
    QString unavailableReason() const override { return {}; }
    QString registerHotKey(int id, const Shortcut &shortcut) override
    {
        const QString text = shortcut.displayText(ShortcutDisplayStyle::standard);
        calls.append(QStringLiteral("register %1 %2").arg(id).arg(text));
        if (taken.contains(text))
            return text + QStringLiteral(" is taken.");
        active.insert(id, text);
        return {};
    }
    void unregisterHotKey(int id) override
    {
        calls.append(QStringLiteral("unregister %1").arg(id));
        active.remove(id);
    }

    QStringList calls;
    QStringList taken;
    Active active;
};

const ShortcutName &hotKey()
{
    return ShortcutNames::openScratchComposer();
}

struct RegistrarFixture {
    RegistrarFixture() { store.setShortcut(ctrlAltK, hotKey()); }

    TestEnvironment env;
    UserDefaults defaults{env.path(QStringLiteral("Tarvel.conf"))};
    KeyboardShortcuts store{defaults, ShortcutDisplayStyle::standard};
    RecordingHotKeyService service;
    GlobalShortcutRegistrar registrar{store, service};
};

} // namespace

class ShortcutsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // The line as it stands in the settings file: what the store itself writes, and what a
    // person or another version might leave there. Text that is no whole shortcut (half a
    // record, say) reads as nothing stored.
    void readingRules()
    {
        const Shortcut commandR{CarbonKeyCodes::r, command};
        for (const auto &[line, expected] :
             {std::pair{QByteArray(), std::optional<Shortcut>(commandR)},
              std::pair{QByteArray("false"), std::optional<Shortcut>()},
              std::pair{iniQuoted("{\n    \"carbonKeyCode\": 122,\n    \"carbonModifiers\": 2048\n}"),
                        std::optional<Shortcut>(Shortcut{CarbonKeyCodes::f1, CarbonModifiers::option})},
              std::pair{iniQuoted("{\"carbonKeyCode\":122}"), std::optional<Shortcut>(commandR)},
              std::pair{iniQuoted("@ByteArray({\"carbonKeyCode\":122,\"carbonModifiers\":2048})"),
                        std::optional<Shortcut>(commandR)}}) {
            TestEnvironment env;
            const QString path = env.path(QStringLiteral("Tarvel.conf"));
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("[General]\nScratchWindowFrame=\"{10, 10, 400, 300}\"\n");
            if (!line.isNull())
                file.write("KeyboardShortcuts_toggleVoicePrompt=" + line + "\n");
            file.close();
            UserDefaults defaults(path);
            QCOMPARE(KeyboardShortcuts(defaults).getShortcut(ShortcutNames::toggleVoicePrompt()), expected);
        }
    }

    void storageRules()
    {
        TestEnvironment env;
        const QString path = env.path(QStringLiteral("Tarvel.conf"));
        {
            UserDefaults defaults(path);
            KeyboardShortcuts shortcuts(defaults);
            KeyboardShortcuts composer(defaults); // another instance hears every change, once
            QSignalSpy ownChanges(&shortcuts, &KeyboardShortcuts::shortcutByNameDidChange);
            QSignalSpy composerChanges(&composer, &KeyboardShortcuts::shortcutByNameDidChange);
            // Only the scratch composer starts without a shortcut; the preset labels and keys are
            // checked in tst_settings and tst_scratchcomposer.
            QCOMPARE(shortcuts.getShortcut(ShortcutNames::openScratchComposer()), std::nullopt);
            QCOMPARE(ShortcutNames::named(QStringLiteral("quickTaskPreset4")), presetName(4));
            shortcuts.setShortcut(std::nullopt, presetName(3));
            shortcuts.setShortcut(Shortcut{CarbonKeyCodes::space, command | CarbonModifiers::shift},
                                  ShortcutNames::openScratchComposer());
            shortcuts.setShortcut(Shortcut{CarbonKeyCodes::digit3, command}, presetName(4));
            defaults.setString(QStringLiteral("ScratchWindowFrame"), QStringLiteral("{0, 0, 10, 10}"));
            QCOMPARE(ownChanges.count(), 3);
            QCOMPARE(composerChanges.count(), 3);
            QCOMPARE(composerChanges.at(0).at(0).toString(), QStringLiteral("quickTaskPreset3"));
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QVERIFY(file.readAll().contains("\nKeyboardShortcuts_quickTaskPreset3=false\n"));
            const QString stored = *defaults.string(QStringLiteral("KeyboardShortcuts_openScratchComposer"));
            QCOMPARE(JSONCoding::decodeObject(stored.toUtf8()),
                     (QJsonObject{{QStringLiteral("carbonKeyCode"), 49},
                                  {QStringLiteral("carbonModifiers"), 768}}));
        }
        {
            // After a restart the cleared default stays cleared and the recorded ones stay recorded.
            UserDefaults defaults(path);
            KeyboardShortcuts shortcuts(defaults);
            QCOMPARE(shortcuts.getShortcut(presetName(3)), std::nullopt);
            QCOMPARE(shortcuts.getShortcut(presetName(4)), (Shortcut{CarbonKeyCodes::digit3, command}));
            QCOMPARE(shortcuts.getShortcut(ShortcutNames::openScratchComposer()),
                     (Shortcut{CarbonKeyCodes::space, command | CarbonModifiers::shift}));

            // A name without a default is cleared by removing the key; one with a default gets it back
            // only by recording it again.
            shortcuts.setShortcut(std::nullopt, ShortcutNames::openScratchComposer());
            QVERIFY(!defaults.contains(QStringLiteral("KeyboardShortcuts_openScratchComposer")));
            shortcuts.setShortcut(Shortcut{CarbonKeyCodes::digit3, command}, presetName(3));
            QCOMPARE(shortcuts.getShortcut(presetName(3)), (Shortcut{CarbonKeyCodes::digit3, command}));
        }
    }

    // Qt keys to the stored ones and back. Plain letters and digits are covered by
    // composerMatchingOrder, every key's own entry by tst_globalhotkeys_e2e (mappingRules).
    void qtKeyMappingAndDisplayText()
    {
        struct Row {
            int key;
            Qt::KeyboardModifiers modifiers;
            Shortcut stored;
            int canonicalKey;
        };
        for (const Row &row :
             QList<Row>{{Qt::Key_K,
                         ctrl | Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier,
                         {0x28, CarbonModifiers::all},
                         Qt::Key_K},
                        // Qt reports the shifted symbol; the stored key is the physical one.
                        {Qt::Key_Exclam,
                         ctrl | Qt::ShiftModifier,
                         {0x12, command | CarbonModifiers::shift},
                         Qt::Key_1},
                        {Qt::Key_Backtab, Qt::ShiftModifier, {0x30, CarbonModifiers::shift}, Qt::Key_Tab},
                        {Qt::Key_1, ctrl | Qt::KeypadModifier, {0x53, command}, Qt::Key_1},
                        {Qt::Key_Enter,
                         Qt::NoModifier,
                         {0x4C, 0},
                         Qt::Key_Enter}}) { // keypad Enter without the flag
            const std::optional<Shortcut> shortcut = Shortcut::fromQtKey(row.key, row.modifiers);
            QCOMPARE(shortcut, std::optional<Shortcut>(row.stored));
            const QKeyCombination back = *shortcut->toQtKeyCombination();
            QCOMPARE(int(back.key()), row.canonicalKey);
            QCOMPARE(back.keyboardModifiers() & ~Qt::KeyboardModifiers(Qt::KeypadModifier),
                     row.modifiers & ~Qt::KeyboardModifiers(Qt::KeypadModifier));
            // The way back lands on the same stored shortcut.
            QCOMPARE(Shortcut::fromQtKey(int(back.key()), back.keyboardModifiers()), shortcut);
        }
        // Keys without a Mac counterpart.
        QVERIFY(!Shortcut::fromQtKey(Qt::Key_Control, Qt::ControlModifier));
        QVERIFY(!Shortcut::fromQtKey(Qt::Key_MediaPlay, Qt::NoModifier));
        QVERIFY(!(Shortcut{0x7F, command}.toQtKeyCombination()));

        for (const auto &[shortcut, standard, mac] :
             {std::tuple{Shortcut{0x28, CarbonModifiers::all}, QStringLiteral("Super+Ctrl+Alt+Shift+K"),
                         QStringLiteral("\u2303\u2325\u21E7\u2318K")},
              std::tuple{Shortcut{0x53, command}, QStringLiteral("Ctrl+Num+1"), QStringLiteral("\u23181")},
              std::tuple{Shortcut{0x2B, command}, QStringLiteral("Ctrl+,"), QStringLiteral("\u2318,")},
              std::tuple{Shortcut{0x7F, 0}, QStringLiteral("Key 127"), QStringLiteral("Key 127")}}) {
            QCOMPARE(shortcut.displayText(ShortcutDisplayStyle::standard), standard);
            QCOMPARE(shortcut.displayText(ShortcutDisplayStyle::mac), mac);
        }
    }

    void composerMatchingOrder()
    {
        TestEnvironment env;
        UserDefaults defaults(env.path(QStringLiteral("Tarvel.conf")));
        KeyboardShortcuts shortcuts(defaults);
        const auto match = [&](int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
            return ComposerKeyMatcher::match(keyEvent(key, modifiers), shortcuts);
        };
        using Action = ComposerKeyAction;

        QCOMPARE(match(Qt::Key_Escape), (ComposerKeyMatch{Action::escape}));
        QCOMPARE(match(Qt::Key_Escape, Qt::ShiftModifier), ComposerKeyMatch{});
        QCOMPARE(match(Qt::Key_V, ctrl), (ComposerKeyMatch{Action::paste}));
        QCOMPARE(match(Qt::Key_V, ctrl | Qt::ShiftModifier), ComposerKeyMatch{});
        QCOMPARE(match(Qt::Key_R, ctrl), (ComposerKeyMatch{Action::toggleVoicePrompt}));
        QCOMPARE(match(Qt::Key_3, ctrl), (ComposerKeyMatch{Action::selectPreset, 2}));
        QCOMPARE(match(Qt::Key_3, ctrl | Qt::KeypadModifier), ComposerKeyMatch{}); // another key
        QCOMPARE(match(Qt::Key_3), ComposerKeyMatch{});
        QCOMPARE(match(Qt::Key_R, Qt::MetaModifier), ComposerKeyMatch{});

        // Shared shortcuts: the voice toggle comes before the presets, lower positions before higher.
        shortcuts.setShortcut(Shortcut{CarbonKeyCodes::digit1, command}, ShortcutNames::toggleVoicePrompt());
        shortcuts.setShortcut(Shortcut{CarbonKeyCodes::digit2, command}, presetName(7));
        QCOMPARE(match(Qt::Key_1, ctrl), (ComposerKeyMatch{Action::toggleVoicePrompt}));
        QCOMPARE(match(Qt::Key_2, ctrl), (ComposerKeyMatch{Action::selectPreset, 1}));
        QCOMPARE(match(Qt::Key_R, ctrl), ComposerKeyMatch{});
        shortcuts.setShortcut(std::nullopt, presetName(2));
        QCOMPARE(match(Qt::Key_2, ctrl), (ComposerKeyMatch{Action::selectPreset, 6}));

        // Escape and paste are fixed: a shortcut bound to them never fires.
        shortcuts.setShortcut(Shortcut{CarbonKeyCodes::v, command}, ShortcutNames::toggleVoicePrompt());
        shortcuts.setShortcut(Shortcut{CarbonKeyCodes::escape, 0}, presetName(1));
        QCOMPARE(match(Qt::Key_V, ctrl), (ComposerKeyMatch{Action::paste}));
        QCOMPARE(match(Qt::Key_Escape), (ComposerKeyMatch{Action::escape}));
        // A shifted digit matches only a shortcut recorded with Shift.
        shortcuts.setShortcut(Shortcut{CarbonKeyCodes::digit4, command | CarbonModifiers::shift},
                              presetName(9));
        QCOMPARE(match(Qt::Key_Dollar, ctrl | Qt::ShiftModifier),
                 (ComposerKeyMatch{Action::selectPreset, 8}));
    }

    // Each handler hears its own edge of the registered key, and only of that one. A name nobody
    // handles, or without a shortcut, is not registered.
    void followsTheStoreOldUnregisteredFirst()
    {
        RegistrarFixture f;
        QCOMPARE(f.registrar.tryRegister(hotKey(), ctrlAltJ), QString());
        QVERIFY(f.service.calls.isEmpty());
        QStringList events;
        f.registrar.onKeyUp(hotKey(), [&events] { events.append(QStringLiteral("up")); });
        f.registrar.onKeyDown(hotKey(), [&events] { events.append(QStringLiteral("down")); });
        QCOMPARE(f.service.calls, QStringList{QStringLiteral("register 1 Ctrl+Alt+K")});
        Q_EMIT f.service.pressed(1);
        QCOMPARE(events, QStringList{QStringLiteral("down")});
        Q_EMIT f.service.released(1);
        Q_EMIT f.service.released(2);
        QCOMPARE(events, (QStringList{QStringLiteral("down"), QStringLiteral("up")}));

        f.store.setShortcut(ctrlAltJ, hotKey());
        QTRY_COMPARE(f.service.calls.size(), 3);
        QCOMPARE(f.service.calls.mid(1),
                 (QStringList{QStringLiteral("unregister 1"), QStringLiteral("register 1 Ctrl+Alt+J")}));
        QCOMPARE(f.service.active, (Active{{1, QStringLiteral("Ctrl+Alt+J")}}));

        f.store.setShortcut(std::nullopt, hotKey());
        QTRY_COMPARE(f.service.calls.size(), 4);
        QCOMPARE(f.service.calls.last(), QStringLiteral("unregister 1"));
        QVERIFY(f.service.active.isEmpty());
        QCOMPARE(f.registrar.problem(hotKey()), QString());
        f.registrar.onKeyUp(hotKey(), [] {});
        QCoreApplication::processEvents();
        QCOMPARE(f.service.calls.size(), 4);
    }

    // Refused when tried, the old registration stays and nothing is reported; refused when stored,
    // none is left and the registrar says why, until the combination is free again.
    void refusedCombinations()
    {
        RegistrarFixture f;
        f.registrar.onKeyUp(hotKey(), [] {});
        f.service.taken = {QStringLiteral("Ctrl+Alt+L")};
        QSignalSpy failures(&f.registrar, &GlobalShortcutRegistrar::registrationFailed);

        QCOMPARE(f.registrar.tryRegister(hotKey(), ctrlAltL), QStringLiteral("Ctrl+Alt+L is taken."));
        QCOMPARE(f.service.active, (Active{{1, QStringLiteral("Ctrl+Alt+K")}}));
        QCOMPARE(f.registrar.problem(hotKey()), QString());

        // Success moves the registration, and storing the same shortcut afterwards changes nothing.
        QCOMPARE(f.registrar.tryRegister(hotKey(), ctrlAltJ), QString());
        QCOMPARE(f.service.active, (Active{{1, QStringLiteral("Ctrl+Alt+J")}}));
        const qsizetype callsBefore = f.service.calls.size();
        f.store.setShortcut(ctrlAltJ, hotKey());
        QCoreApplication::processEvents();
        QCOMPARE(f.service.calls.size(), callsBefore);
        QCOMPARE(failures.size(), 0);

        f.store.setShortcut(ctrlAltL, hotKey());
        QTRY_COMPARE(failures.size(), 1);
        QCOMPARE(failures[0], (QVariantList{hotKey().rawValue, QStringLiteral("Ctrl+Alt+L is taken.")}));
        QCOMPARE(f.registrar.problem(hotKey()), QStringLiteral("Ctrl+Alt+L is taken."));
        QVERIFY(f.service.active.isEmpty());

        // Once the other application lets go, recording the same combination again succeeds.
        f.service.taken.clear();
        QCOMPARE(f.registrar.tryRegister(hotKey(), ctrlAltL), QString());
        QCOMPARE(f.service.active, (Active{{1, QStringLiteral("Ctrl+Alt+L")}}));
        QCOMPARE(f.registrar.problem(hotKey()), QString());
    }
};

QTEST_GUILESS_MAIN(ShortcutsTest)
#include "tst_shortcuts.moc"
