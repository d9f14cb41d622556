// The registrar between the shortcut store and the platform's hot key service, against a
// recording service: what is registered when, in which order, and what a refused combination does.
#include "core/UserDefaults.h"
#include "platform/GlobalHotKeyService.h"
#include "shortcuts/GlobalShortcutRegistrar.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/TestEnvironment.h"

#include <QSignalSpy>
#include <QtTest>

#include <map>

namespace {

constexpr int ctrlAlt = CarbonModifiers::command | CarbonModifiers::option;
const Shortcut ctrlAltK{0x28, ctrlAlt};
const Shortcut ctrlAltJ{0x26, ctrlAlt};
const Shortcut ctrlAltL{0x25, ctrlAlt};

// Records every call and holds what is registered; combinations in taken are refused.
class RecordingHotKeyService final : public GlobalHotKeyService {
public:
    QString unavailableReason() const override { return {}; }
    QString registerHotKey(int id, const Shortcut &shortcut) override
    {
        const QString text = shortcut.displayText(ShortcutDisplayStyle::standard);
        calls.append(QStringLiteral("register %1 %2").arg(id).arg(text));
        if (taken.contains(text))
            return text + QStringLiteral(" is taken.");
        active.erase(id);
        active.emplace(id, shortcut);
        return {};
    }
    void unregisterHotKey(int id) override
    {
        calls.append(QStringLiteral("unregister %1").arg(id));
        active.erase(id);
    }
    QString activeText() const
    {
        QStringList texts;
        for (const auto &[id, shortcut] : active)
            texts.append(
                QStringLiteral("%1 %2").arg(id).arg(shortcut.displayText(ShortcutDisplayStyle::standard)));
        return texts.join(u", ");
    }
    void press(int id) { Q_EMIT pressed(id); }
    void release(int id) { Q_EMIT released(id); }

    QStringList calls;
    QStringList taken;
    std::map<int, Shortcut> active;
};

const ShortcutName &hotKey()
{
    return ShortcutNames::openScratchComposer();
}

} // namespace

class GlobalShortcutRegistrarTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<TestEnvironment>();
        m_defaults = std::make_unique<UserDefaults>(m_env->path(QStringLiteral("Tarvel.conf")));
        m_store = std::make_unique<KeyboardShortcuts>(*m_defaults, ShortcutDisplayStyle::standard);
        m_service = std::make_unique<RecordingHotKeyService>();
        m_registrar = std::make_unique<GlobalShortcutRegistrar>(*m_store, *m_service);
    }
    void cleanup()
    {
        m_registrar.reset();
        m_service.reset();
        m_store.reset();
        m_defaults.reset();
        m_env.reset();
    }

    void followsTheStoreOldUnregisteredFirst()
    {
        m_store->setShortcut(ctrlAltK, hotKey());
        m_registrar->onKeyUp(hotKey(), [] {});
        m_registrar->onKeyDown(hotKey(), [] {});
        QCOMPARE(m_service->calls, QStringList{QStringLiteral("register 1 Ctrl+Alt+K")});

        m_store->setShortcut(ctrlAltJ, hotKey());
        QTRY_COMPARE(m_service->calls.size(), 3);
        QCOMPARE(m_service->calls.mid(1),
                 (QStringList{QStringLiteral("unregister 1"), QStringLiteral("register 1 Ctrl+Alt+J")}));
        QCOMPARE(m_service->activeText(), QStringLiteral("1 Ctrl+Alt+J"));

        m_store->setShortcut(std::nullopt, hotKey());
        QTRY_COMPARE(m_service->calls.size(), 4);
        QCOMPARE(m_service->calls.last(), QStringLiteral("unregister 1"));
        QVERIFY(m_service->active.empty());
        QCOMPARE(m_registrar->problem(hotKey()), QString());
    }

    void registersNothingWithoutShortcutOrHandler()
    {
        // A name nobody handles is not registered, even when it has a shortcut.
        m_store->setShortcut(ctrlAltK, hotKey());
        QCoreApplication::processEvents();
        QVERIFY(m_service->calls.isEmpty());
        QCOMPARE(m_registrar->tryRegister(hotKey(), ctrlAltJ), QString());
        QVERIFY(m_service->calls.isEmpty());

        m_store->setShortcut(std::nullopt, hotKey());
        m_registrar->onKeyUp(hotKey(), [] {});
        QCoreApplication::processEvents();
        QVERIFY(m_service->calls.isEmpty());
    }

    void tryRegisterKeepsTheOldOnFailure()
    {
        m_store->setShortcut(ctrlAltK, hotKey());
        m_registrar->onKeyUp(hotKey(), [] {});
        m_service->taken = {QStringLiteral("Ctrl+Alt+L")};
        QSignalSpy failures(m_registrar.get(), &GlobalShortcutRegistrar::registrationFailed);

        QCOMPARE(m_registrar->tryRegister(hotKey(), ctrlAltL), QStringLiteral("Ctrl+Alt+L is taken."));
        QCOMPARE(m_service->activeText(), QStringLiteral("1 Ctrl+Alt+K"));
        QCOMPARE(m_registrar->problem(hotKey()), QString());

        // Success moves the registration, and storing the same shortcut afterwards changes nothing.
        QCOMPARE(m_registrar->tryRegister(hotKey(), ctrlAltJ), QString());
        QCOMPARE(m_service->activeText(), QStringLiteral("1 Ctrl+Alt+J"));
        const qsizetype callsBefore = m_service->calls.size();
        m_store->setShortcut(ctrlAltJ, hotKey());
        QCoreApplication::processEvents();
        QCOMPARE(m_service->calls.size(), callsBefore);
        QCOMPARE(failures.size(), 0);
    }

    void storedConflictLeavesNoneAndSaysWhy()
    {
        m_service->taken = {QStringLiteral("Ctrl+Alt+L")};
        m_store->setShortcut(ctrlAltK, hotKey());
        m_registrar->onKeyDown(hotKey(), [] {});
        QSignalSpy failures(m_registrar.get(), &GlobalShortcutRegistrar::registrationFailed);

        m_store->setShortcut(ctrlAltL, hotKey());
        QTRY_COMPARE(failures.size(), 1);
        QCOMPARE(failures[0][0].toString(), hotKey().rawValue);
        QCOMPARE(failures[0][1].toString(), QStringLiteral("Ctrl+Alt+L is taken."));
        QCOMPARE(m_registrar->problem(hotKey()), QStringLiteral("Ctrl+Alt+L is taken."));
        QVERIFY(m_service->active.empty());

        // Once the other application lets go, recording the same combination again succeeds.
        m_service->taken.clear();
        QCOMPARE(m_registrar->tryRegister(hotKey(), ctrlAltL), QString());
        QCOMPARE(m_service->activeText(), QStringLiteral("1 Ctrl+Alt+L"));
        QCOMPARE(m_registrar->problem(hotKey()), QString());
    }

    void handlersFollowTheirEdge()
    {
        m_store->setShortcut(ctrlAltK, hotKey());
        QStringList events;
        m_registrar->onKeyUp(hotKey(), [&events] { events.append(QStringLiteral("up")); });
        m_registrar->onKeyDown(hotKey(), [&events] { events.append(QStringLiteral("down")); });
        m_service->press(1);
        QCOMPARE(events, QStringList{QStringLiteral("down")});
        m_service->release(1);
        m_service->release(2);
        QCOMPARE(events, (QStringList{QStringLiteral("down"), QStringLiteral("up")}));
    }

private:
    std::unique_ptr<TestEnvironment> m_env;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<KeyboardShortcuts> m_store;
    std::unique_ptr<RecordingHotKeyService> m_service;
    std::unique_ptr<GlobalShortcutRegistrar> m_registrar;
};

QTEST_GUILESS_MAIN(GlobalShortcutRegistrarTest)
#include "tst_globalshortcutregistrar.moc"
