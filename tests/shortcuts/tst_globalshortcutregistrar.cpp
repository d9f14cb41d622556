// The registrar between the shortcut store and the platform's hot key service, against a
// recording service: what is registered when, in which order, and what a refused combination does.
#include "core/UserDefaults.h"
#include "platform/GlobalHotKeyService.h"
#include "shortcuts/GlobalShortcutRegistrar.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "support/TestEnvironment.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

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

struct Fixture {
    TestEnvironment env;
    UserDefaults defaults{env.path(QStringLiteral("Tarvel.conf"))};
    KeyboardShortcuts store{defaults, ShortcutDisplayStyle::standard};
    RecordingHotKeyService service;
    GlobalShortcutRegistrar registrar{store, service};
};

} // namespace

class GlobalShortcutRegistrarTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_f.emplace(); }
    void cleanup() { m_f.reset(); }

    void followsTheStoreOldUnregisteredFirst()
    {
        m_f->store.setShortcut(ctrlAltK, hotKey());
        m_f->registrar.onKeyUp(hotKey(), [] {});
        m_f->registrar.onKeyDown(hotKey(), [] {});
        QCOMPARE(m_f->service.calls, QStringList{QStringLiteral("register 1 Ctrl+Alt+K")});

        m_f->store.setShortcut(ctrlAltJ, hotKey());
        QTRY_COMPARE(m_f->service.calls.size(), 3);
        QCOMPARE(m_f->service.calls.mid(1),
                 (QStringList{QStringLiteral("unregister 1"), QStringLiteral("register 1 Ctrl+Alt+J")}));
        QCOMPARE(m_f->service.active, (Active{{1, QStringLiteral("Ctrl+Alt+J")}}));

        m_f->store.setShortcut(std::nullopt, hotKey());
        QTRY_COMPARE(m_f->service.calls.size(), 4);
        QCOMPARE(m_f->service.calls.last(), QStringLiteral("unregister 1"));
        QVERIFY(m_f->service.active.isEmpty());
        QCOMPARE(m_f->registrar.problem(hotKey()), QString());
    }

    void registersNothingWithoutShortcutOrHandler()
    {
        // A name nobody handles is not registered, even when it has a shortcut.
        m_f->store.setShortcut(ctrlAltK, hotKey());
        QCOMPARE(m_f->registrar.tryRegister(hotKey(), ctrlAltJ), QString());
        m_f->store.setShortcut(std::nullopt, hotKey());
        m_f->registrar.onKeyUp(hotKey(), [] {});
        QCoreApplication::processEvents();
        QVERIFY(m_f->service.calls.isEmpty());
    }

    void tryRegisterKeepsTheOldOnFailure()
    {
        m_f->store.setShortcut(ctrlAltK, hotKey());
        m_f->registrar.onKeyUp(hotKey(), [] {});
        m_f->service.taken = {QStringLiteral("Ctrl+Alt+L")};
        QSignalSpy failures(&m_f->registrar, &GlobalShortcutRegistrar::registrationFailed);

        QCOMPARE(m_f->registrar.tryRegister(hotKey(), ctrlAltL), QStringLiteral("Ctrl+Alt+L is taken."));
        QCOMPARE(m_f->service.active, (Active{{1, QStringLiteral("Ctrl+Alt+K")}}));
        QCOMPARE(m_f->registrar.problem(hotKey()), QString());

        // Success moves the registration, and storing the same shortcut afterwards changes nothing.
        QCOMPARE(m_f->registrar.tryRegister(hotKey(), ctrlAltJ), QString());
        QCOMPARE(m_f->service.active, (Active{{1, QStringLiteral("Ctrl+Alt+J")}}));
        const qsizetype callsBefore = m_f->service.calls.size();
        m_f->store.setShortcut(ctrlAltJ, hotKey());
        QCoreApplication::processEvents();
        QCOMPARE(m_f->service.calls.size(), callsBefore);
        QCOMPARE(failures.size(), 0);
    }

    void storedConflictLeavesNoneAndSaysWhy()
    {
        m_f->service.taken = {QStringLiteral("Ctrl+Alt+L")};
        m_f->store.setShortcut(ctrlAltK, hotKey());
        m_f->registrar.onKeyDown(hotKey(), [] {});
        QSignalSpy failures(&m_f->registrar, &GlobalShortcutRegistrar::registrationFailed);

        m_f->store.setShortcut(ctrlAltL, hotKey());
        QTRY_COMPARE(failures.size(), 1);
        QCOMPARE(failures[0], (QVariantList{hotKey().rawValue, QStringLiteral("Ctrl+Alt+L is taken.")}));
        QCOMPARE(m_f->registrar.problem(hotKey()), QStringLiteral("Ctrl+Alt+L is taken."));
        QVERIFY(m_f->service.active.isEmpty());

        // Once the other application lets go, recording the same combination again succeeds.
        m_f->service.taken.clear();
        QCOMPARE(m_f->registrar.tryRegister(hotKey(), ctrlAltL), QString());
        QCOMPARE(m_f->service.active, (Active{{1, QStringLiteral("Ctrl+Alt+L")}}));
        QCOMPARE(m_f->registrar.problem(hotKey()), QString());
    }

    void handlersFollowTheirEdge()
    {
        m_f->store.setShortcut(ctrlAltK, hotKey());
        QStringList events;
        m_f->registrar.onKeyUp(hotKey(), [&events] { events.append(QStringLiteral("up")); });
        m_f->registrar.onKeyDown(hotKey(), [&events] { events.append(QStringLiteral("down")); });
        Q_EMIT m_f->service.pressed(1);
        QCOMPARE(events, QStringList{QStringLiteral("down")});
        Q_EMIT m_f->service.released(1);
        Q_EMIT m_f->service.released(2);
        QCOMPARE(events, (QStringList{QStringLiteral("down"), QStringLiteral("up")}));
    }

private:
    std::optional<Fixture> m_f;
};

QTEST_GUILESS_MAIN(GlobalShortcutRegistrarTest)
#include "tst_globalshortcutregistrar.moc"
