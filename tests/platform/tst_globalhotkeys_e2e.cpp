// The system-wide hot key on the headless desktop (run through desktop-session.sh): real key grabs
// on Xvfb, keys typed with xdotool, and another X client holding a combination. First, what stands
// behind the grabs: a stored shortcut's X key symbol, the portal's trigger and sway's binding line,
// against X's own key symbol definitions, the lock keys' modifier arithmetic, and what a user is
// told to bind by hand.
#include "platform/GlobalHotKeyService.h"
#include "platform/linux/ManualShortcutBinding.h"
#include "platform/linux/X11HotKeyMapping.h"
#include "support/keygrabber/KeyGrabberProcess.h"

#include <QGuiApplication>
#include <QProcess>
#include <QSet>
#include <QSignalSpy>
#include <QTest>

#include <X11/keysym.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr int ctrlAlt = CarbonModifiers::command | CarbonModifiers::option;
const Shortcut ctrlAltK{0x28, ctrlAlt};
const Shortcut ctrlAltJ{0x26, ctrlAlt};
const Shortcut ctrlAltL{0x25, ctrlAlt};

void xdotool(const QStringList &arguments)
{
    QProcess process;
    process.start(u"xdotool"_s, arguments);
    QVERIFY2(process.waitForFinished(10000) && process.exitCode() == 0,
             qPrintable(QString::fromLocal8Bit(process.readAllStandardError())));
}

} // namespace

class GlobalHotKeysTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void mappingRules()
    {
        using namespace X11HotKeyMapping;
        QSet<quint32> seen;
        for (int code = 0; code < 0x80; ++code) {
            const Shortcut shortcut{code, CarbonModifiers::command};
            if (!shortcut.toQtKeyCombination())
                continue;
            const std::optional<quint32> symbol = keySymbol(shortcut);
            QVERIFY2(symbol && !seen.contains(*symbol), qPrintable(QString::number(code, 16)));
            seen.insert(*symbol);
            QVERIFY(!portalTrigger(shortcut).isEmpty());
        }
        QVERIFY(seen.size() >= 100);
        QCOMPARE(keySymbol(Shortcut{0x7F, 0}), std::nullopt);
        QCOMPARE(portalTrigger(Shortcut{0x7F, 0}), QString());
        // One key of each way to a symbol: a letter, a digit, a keypad digit, the keypad's and the
        // main minus, a function key past F12.
        const std::tuple<int, quint32, const char *> keys[] = {
            {0x28, XK_k, "k"},         {0x1D, XK_0, "0"},
            {0x5C, XK_KP_9, "KP_9"},   {0x4E, XK_KP_Subtract, "KP_Subtract"},
            {0x1B, XK_minus, "minus"}, {0x69, XK_F13, "F13"}};
        for (const auto &[code, symbol, trigger] : keys) {
            QCOMPARE(keySymbol(Shortcut{code, 0}), std::optional(symbol));
            QCOMPARE(portalTrigger(Shortcut{code, CarbonModifiers::all}),
                     u"CTRL+ALT+SHIFT+LOGO+"_s + QLatin1String(trigger));
        }

        // Two keycodes per modifier: Shift, Lock, Control, Mod1, Mod2 (Num Lock on 77), Mod3, Mod4,
        // Mod5 (Scroll Lock on 78 in the second slot). A short mapping is not read past its end.
        constexpr quint16 lock = 1 << 1, mod2 = 1 << 4, mod5 = 1 << 7;
        const QList<quint8> mapping{50, 62, 66, 0, 37, 105, 64, 108, 77, 0, 0, 0, 133, 134, 92, 78};
        QCOMPARE(modifierMaskOf(mapping, 2, {77}), mod2);
        QCOMPARE(modifierMaskOf(mapping, 2, {200, 78}), mod5);
        QCOMPARE(modifierMaskOf(mapping, 2, {0}), quint16(0));
        QCOMPARE(modifierMaskOf(mapping, 2, {99}), quint16(0));
        QCOMPARE(modifierMaskOf(mapping.mid(0, 5), 2, {78}), quint16(0));
        const auto sorted = [](QList<quint16> masks) {
            std::sort(masks.begin(), masks.end());
            return masks;
        };
        QCOMPARE(sorted(lockMaskVariants(0, 0)), (QList<quint16>{0, lock}));
        QCOMPARE(sorted(lockMaskVariants(mod2, mod2)), sorted({0, mod2, lock, lock | mod2}));
        QCOMPARE(sorted(lockMaskVariants(mod2, mod5)),
                 sorted({0, mod5, mod2, mod2 | mod5, lock, lock | mod5, lock | mod2, lock | mod2 | mod5}));

        using namespace ManualShortcutBinding;
        const QString tarvel = u"tarvel"_s;
        QCOMPARE(swayBinding(Shortcut{0x79, CarbonModifiers::all}, tarvel),
                 u"bindsym Ctrl+Alt+Shift+Mod4+Page_Down exec tarvel"_s);
        QCOMPARE(swayBinding(Shortcut{0x7F, CarbonModifiers::command}, tarvel), QString());
        // The stored combination's line; without one, Ctrl+Alt+K's.
        QVERIFY(
            instructions(Desktop::sway, std::nullopt, tarvel).contains(u"bindsym Ctrl+Alt+k exec tarvel"));
        QVERIFY(instructions(Desktop::sway, Shortcut{0x7F, 0}, tarvel).startsWith(u"sway cannot bind"));
        const QString gnome = instructions(Desktop::gnome, std::nullopt, u"/usr/bin/tarvel"_s);
        QVERIFY(gnome.contains(u"Custom Shortcuts") && gnome.contains(u"\u201c/usr/bin/tarvel\u201d"));
        QCOMPARE(instructions(Desktop::other, std::nullopt, tarvel), QString());
    }

    void initTestCase()
    {
        m_service = GlobalHotKeyService::create();
        QCOMPARE(m_service->unavailableReason(), QString());
        connect(m_service.get(), &GlobalHotKeyService::pressed, this,
                [this](int id) { m_events.append(u"pressed %1"_s.arg(id)); });
        connect(m_service.get(), &GlobalHotKeyService::released, this,
                [this](int id) { m_events.append(u"released %1"_s.arg(id)); });
    }
    void cleanup()
    {
        m_service->unregisterHotKey(1);
        m_service->unregisterHotKey(2);
        m_events.clear();
    }

    void firesWhateverTheLocks_data()
    {
        QTest::addColumn<QString>("lockKey");
        QTest::newRow("no lock") << QString();
        QTest::newRow("Num Lock") << u"Num_Lock"_s;
        QTest::newRow("Caps Lock") << u"Caps_Lock"_s;
    }
    void firesWhateverTheLocks()
    {
        QFETCH(QString, lockKey);
        QCOMPARE(m_service->registerHotKey(1, ctrlAltK), QString());
        if (!lockKey.isEmpty())
            xdotool({u"key"_s, lockKey});
        xdotool({u"key"_s, u"ctrl+alt+k"_s});
        if (!lockKey.isEmpty())
            xdotool({u"key"_s, lockKey});
        QTRY_COMPARE(m_events, (QStringList{u"pressed 1"_s, u"released 1"_s}));
    }

    void heldKeyPressesOnce()
    {
        QCOMPARE(m_service->registerHotKey(1, ctrlAltK), QString());
        // Held past the auto-repeat delay, then a second hot key marks the end of what came.
        xdotool({u"keydown"_s, u"ctrl+alt+k"_s, u"sleep"_s, u"1.5"_s, u"keyup"_s, u"k"_s});
        QCOMPARE(m_service->registerHotKey(2, ctrlAltJ), QString());
        xdotool({u"key"_s, u"j"_s, u"keyup"_s, u"ctrl+alt"_s});
        QTRY_COMPARE(m_events.size(), 4);
        QCOMPARE(m_events, (QStringList{u"pressed 1"_s, u"released 1"_s, u"pressed 2"_s, u"released 2"_s}));
    }

    void reRegisteringMovesTheGrab()
    {
        QCOMPARE(m_service->registerHotKey(1, ctrlAltK), QString());
        QCOMPARE(m_service->registerHotKey(1, ctrlAltJ), QString());
        // K first: had its grab stayed, its press would arrive before J's.
        xdotool({u"key"_s, u"ctrl+alt+k"_s, u"ctrl+alt+j"_s});
        QTRY_COMPARE(m_events, (QStringList{u"pressed 1"_s, u"released 1"_s}));

        // The old combination is free again for other clients.
        KeyGrabberProcess other(u"k"_s, u"ctrl,alt"_s);
        QVERIFY(other.grabbed());
    }

    void reportsACombinationHeldElsewhere()
    {
        {
            KeyGrabberProcess other(u"l"_s, u"ctrl,alt"_s);
            QVERIFY(other.grabbed());
            QCOMPARE(m_service->registerHotKey(2, ctrlAltL),
                     u"Ctrl+Alt+L is already used by another application."_s);
            // The lock variants taken before the refusal were let go.
            KeyGrabberProcess withNumLock(u"l"_s, u"ctrl,alt,mod2"_s);
            QVERIFY(withNumLock.grabbed());
            KeyGrabberProcess withCapsLock(u"l"_s, u"ctrl,alt,lock"_s);
            QVERIFY(withCapsLock.grabbed());
        }
        // Once the other client has gone the combination can be had.
        QTRY_COMPARE(m_service->registerHotKey(2, ctrlAltL), QString());
        xdotool({u"key"_s, u"ctrl+alt+l"_s});
        QTRY_COMPARE(m_events, (QStringList{u"pressed 2"_s, u"released 2"_s}));
    }

private:
    std::unique_ptr<GlobalHotKeyService> m_service;
    QStringList m_events;
};

QTEST_MAIN(GlobalHotKeysTest)
#include "tst_globalhotkeys_e2e.moc"
