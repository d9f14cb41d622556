// The system-wide hot key on the headless desktop (run through desktop-session.sh): real key grabs
// on Xvfb, keys typed with xdotool, and another X client holding a combination.
#include "platform/GlobalHotKeyService.h"
#include "support/keygrabber/KeyGrabberProcess.h"

#include <QGuiApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

constexpr int ctrlAlt = CarbonModifiers::command | CarbonModifiers::option;
const Shortcut ctrlAltK{0x28, ctrlAlt};
const Shortcut ctrlAltJ{0x26, ctrlAlt};
const Shortcut ctrlAltL{0x25, ctrlAlt};

void xdotool(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    QVERIFY2(process.waitForFinished(10000) && process.exitCode() == 0,
             qPrintable(QString::fromLocal8Bit(process.readAllStandardError())));
}

} // namespace

class GlobalHotKeysTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_service = GlobalHotKeyService::create();
        QCOMPARE(m_service->unavailableReason(), QString());
        connect(m_service.get(), &GlobalHotKeyService::pressed, this,
                [this](int id) { m_events.append(QStringLiteral("pressed %1").arg(id)); });
        connect(m_service.get(), &GlobalHotKeyService::released, this,
                [this](int id) { m_events.append(QStringLiteral("released %1").arg(id)); });
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
        QTest::newRow("Num Lock") << QStringLiteral("Num_Lock");
        QTest::newRow("Caps Lock") << QStringLiteral("Caps_Lock");
    }
    void firesWhateverTheLocks()
    {
        QFETCH(QString, lockKey);
        QCOMPARE(m_service->registerHotKey(1, ctrlAltK), QString());
        if (!lockKey.isEmpty())
            xdotool({QStringLiteral("key"), lockKey});
        xdotool({QStringLiteral("key"), QStringLiteral("ctrl+alt+k")});
        if (!lockKey.isEmpty())
            xdotool({QStringLiteral("key"), lockKey});
        QTRY_COMPARE(m_events, (QStringList{QStringLiteral("pressed 1"), QStringLiteral("released 1")}));
    }

    void heldKeyPressesOnce()
    {
        QCOMPARE(m_service->registerHotKey(1, ctrlAltK), QString());
        // Held past the auto-repeat delay, then a second hot key marks the end of what came.
        xdotool({QStringLiteral("keydown"), QStringLiteral("ctrl+alt+k"), QStringLiteral("sleep"),
                 QStringLiteral("1.5"), QStringLiteral("keyup"), QStringLiteral("k")});
        QCOMPARE(m_service->registerHotKey(2, ctrlAltJ), QString());
        xdotool({QStringLiteral("key"), QStringLiteral("j"), QStringLiteral("keyup"),
                 QStringLiteral("ctrl+alt")});
        QTRY_COMPARE(m_events.size(), 4);
        QCOMPARE(m_events, (QStringList{QStringLiteral("pressed 1"), QStringLiteral("released 1"),
                                        QStringLiteral("pressed 2"), QStringLiteral("released 2")}));
    }

    void reRegisteringMovesTheGrab()
    {
        QCOMPARE(m_service->registerHotKey(1, ctrlAltK), QString());
        QCOMPARE(m_service->registerHotKey(1, ctrlAltJ), QString());
        // K first: had its grab stayed, its press would arrive before J's.
        xdotool({QStringLiteral("key"), QStringLiteral("ctrl+alt+k"), QStringLiteral("ctrl+alt+j")});
        QTRY_COMPARE(m_events, (QStringList{QStringLiteral("pressed 1"), QStringLiteral("released 1")}));

        // The old combination is free again for other clients.
        KeyGrabberProcess other(QStringLiteral("k"), QStringLiteral("ctrl,alt"));
        QVERIFY(other.grabbed());
    }

    void reportsACombinationHeldElsewhere()
    {
        {
            KeyGrabberProcess other(QStringLiteral("l"), QStringLiteral("ctrl,alt"));
            QVERIFY(other.grabbed());
            QCOMPARE(m_service->registerHotKey(2, ctrlAltL),
                     QStringLiteral("Ctrl+Alt+L is already used by another application."));
            // The lock variants taken before the refusal were let go.
            KeyGrabberProcess withNumLock(QStringLiteral("l"), QStringLiteral("ctrl,alt,mod2"));
            QVERIFY(withNumLock.grabbed());
            KeyGrabberProcess withCapsLock(QStringLiteral("l"), QStringLiteral("ctrl,alt,lock"));
            QVERIFY(withCapsLock.grabbed());
        }
        // Once the other client has gone the combination can be had.
        QTRY_COMPARE(m_service->registerHotKey(2, ctrlAltL), QString());
        xdotool({QStringLiteral("key"), QStringLiteral("ctrl+alt+l")});
        QTRY_COMPARE(m_events, (QStringList{QStringLiteral("pressed 2"), QStringLiteral("released 2")}));
    }

private:
    std::unique_ptr<GlobalHotKeyService> m_service;
    QStringList m_events;
};

QTEST_MAIN(GlobalHotKeysTest)
#include "tst_globalhotkeys_e2e.moc"
