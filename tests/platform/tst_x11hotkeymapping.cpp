// From a stored shortcut to an X key grab, to the portal's trigger and to sway's binding line,
// checked against X's own key symbol definitions; the modifier arithmetic of the lock keys; and what
// a user is told to bind by hand.
#include "platform/linux/ManualShortcutBinding.h"
#include "platform/linux/X11HotKeyMapping.h"

#include <QSet>
#include <QtTest>

#include <X11/keysym.h>

using namespace X11HotKeyMapping;

namespace {

constexpr quint16 lock = 1 << 1;
constexpr quint16 mod2 = 1 << 4;
constexpr quint16 mod5 = 1 << 7;

QList<quint16> sortedMasks(std::initializer_list<int> masks)
{
    QList<quint16> list;
    for (const int mask : masks)
        list.append(quint16(mask));
    std::sort(list.begin(), list.end());
    return list;
}

} // namespace

class X11HotKeyMappingTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyKnownKeyHasItsOwnSymbol()
    {
        QSet<quint32> seen;
        for (int code = 0; code < 0x80; ++code) {
            const Shortcut shortcut{code, CarbonModifiers::command};
            if (!shortcut.toQtKeyCombination())
                continue;
            const std::optional<quint32> symbol = keySymbol(shortcut);
            QVERIFY2(symbol, qPrintable(QStringLiteral("key code 0x%1").arg(code, 0, 16)));
            QVERIFY2(!seen.contains(*symbol), qPrintable(QStringLiteral("key code 0x%1").arg(code, 0, 16)));
            seen.insert(*symbol);
            QVERIFY(!portalTrigger(shortcut).isEmpty());
        }
        QVERIFY(seen.size() >= 100);
        QCOMPARE(keySymbol(Shortcut{0x7F, 0}), std::nullopt);
        QCOMPARE(portalTrigger(Shortcut{0x7F, 0}), QString());
    }

    void symbols_data()
    {
        QTest::addColumn<int>("carbonKeyCode");
        QTest::addColumn<quint32>("symbol");
        QTest::addColumn<QString>("trigger");
        // One key of each way to a symbol: a letter, a digit, a named key on either side of the
        // keyboard, a keypad digit and a function key past F12.
        QTest::newRow("letter: the small one") << 0x28 << quint32(XK_k) << QStringLiteral("k");
        QTest::newRow("digit") << 0x1D << quint32(XK_0) << QStringLiteral("0");
        QTest::newRow("keypad digit") << 0x5C << quint32(XK_KP_9) << QStringLiteral("KP_9");
        QTest::newRow("keypad minus") << 0x4E << quint32(XK_KP_Subtract) << QStringLiteral("KP_Subtract");
        QTest::newRow("main minus") << 0x1B << quint32(XK_minus) << QStringLiteral("minus");
        QTest::newRow("F13") << 0x69 << quint32(XK_F13) << QStringLiteral("F13");
    }
    void symbols()
    {
        QFETCH(int, carbonKeyCode);
        QFETCH(quint32, symbol);
        QFETCH(QString, trigger);
        QCOMPARE(keySymbol(Shortcut{carbonKeyCode, 0}), std::optional(symbol));
        QCOMPARE(portalTrigger(Shortcut{carbonKeyCode, CarbonModifiers::all}),
                 QStringLiteral("CTRL+ALT+SHIFT+LOGO+") + trigger);
    }

    void bindingByHand()
    {
        using namespace ManualShortcutBinding;
        const QString tarvel = QStringLiteral("tarvel");
        QCOMPARE(swayBinding(Shortcut{0x79, CarbonModifiers::all}, tarvel),
                 QStringLiteral("bindsym Ctrl+Alt+Shift+Mod4+Page_Down exec tarvel"));
        QCOMPARE(swayBinding(Shortcut{0x7F, CarbonModifiers::command}, tarvel), QString());
        // The stored combination's line; without one, Ctrl+Alt+K's.
        QVERIFY(
            instructions(Desktop::sway, std::nullopt, tarvel).contains(u"bindsym Ctrl+Alt+k exec tarvel"));
        QVERIFY(instructions(Desktop::sway, Shortcut{0x7F, 0}, tarvel).startsWith(u"sway cannot bind"));
        const QString gnome = instructions(Desktop::gnome, std::nullopt, QStringLiteral("/usr/bin/tarvel"));
        QVERIFY(gnome.contains(u"Custom Shortcuts") && gnome.contains(u"\u201c/usr/bin/tarvel\u201d"));
        QCOMPARE(instructions(Desktop::other, std::nullopt, tarvel), QString());
    }

    void findsTheModifierAKeyIsMappedTo()
    {
        // Two keycodes per modifier: Shift, Lock, Control, Mod1, Mod2 (Num Lock on 77), Mod3, Mod4,
        // Mod5 (Scroll Lock on 78 in the second slot).
        const QList<quint8> mapping{50, 62, 66, 0, 37, 105, 64, 108, 77, 0, 0, 0, 133, 134, 92, 78};
        QCOMPARE(modifierMaskOf(mapping, 2, {77}), mod2);
        QCOMPARE(modifierMaskOf(mapping, 2, {200, 78}), mod5);
        QCOMPARE(modifierMaskOf(mapping, 2, {0}), quint16(0));
        QCOMPARE(modifierMaskOf(mapping, 2, {99}), quint16(0));
        QCOMPARE(modifierMaskOf(mapping.mid(0, 5), 2, {78}), quint16(0));
    }

    void lockVariants_data()
    {
        QTest::addColumn<quint16>("numLock");
        QTest::addColumn<quint16>("scrollLock");
        QTest::addColumn<QList<quint16>>("expected");
        QTest::newRow("only Caps Lock mapped") << quint16(0) << quint16(0) << sortedMasks({0, lock});
        QTest::newRow("Num Lock on Mod2") << mod2 << quint16(0) << sortedMasks({0, mod2, lock, lock | mod2});
        QTest::newRow("and Scroll Lock on Mod5")
            << mod2 << mod5
            << sortedMasks({0, mod5, mod2, mod2 | mod5, lock, lock | mod5, lock | mod2, lock | mod2 | mod5});
        QTest::newRow("both on one modifier") << mod2 << mod2 << sortedMasks({0, mod2, lock, lock | mod2});
    }
    void lockVariants()
    {
        QFETCH(quint16, numLock);
        QFETCH(quint16, scrollLock);
        QFETCH(QList<quint16>, expected);
        QList<quint16> variants = lockMaskVariants(numLock, scrollLock);
        std::sort(variants.begin(), variants.end());
        QCOMPARE(variants, expected);
    }
};

QTEST_GUILESS_MAIN(X11HotKeyMappingTest)
#include "tst_x11hotkeymapping.moc"
