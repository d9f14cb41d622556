// When a window nobody asked for may take the keyboard, and what waits for that moment (offscreen).
#include "app/AlertPresenter.h"
#include "app/KeyboardGate.h"
#include "support/ManualClock.h"

#include <QApplication>
#include <QMessageBox>

#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Origin = KeyboardGate::Origin;

namespace {
const QDateTime kMorning(QDate(2026, 11, 24), QTime(9, 0), Qt::UTC);
} // namespace

class KeyboardGateTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theKeyboardIsFreeOnlyWhenNobodyTypes()
    {
        ManualClock clock(kMorning);
        KeyboardGate gate(clock, std::chrono::milliseconds(1000));
        QSignalSpy claimed(&gate, &KeyboardGate::keyboardClaimed);
        QVERIFY(gate.mayTakeKeyboard(Origin::unrequested));

        gate.setComposersOnScreen(1);
        QCOMPARE(claimed.size(), 1);
        QVERIFY(!gate.mayTakeKeyboard(Origin::unrequested));
        QVERIFY(gate.mayTakeKeyboard(Origin::askedByUser)); // from the tray: the user's own choice

        gate.setComposersOnScreen(0); // just closed: the keys after a submit go where the focus went
        QVERIFY(!gate.mayTakeKeyboard(Origin::unrequested));
        clock.advance(999ms);
        QVERIFY(!gate.mayTakeKeyboard(Origin::unrequested));
        clock.advance(1ms);
        QVERIFY(gate.mayTakeKeyboard(Origin::unrequested));

        // Two recorders overlap as the focus moves from one to the next.
        gate.noteShortcutRecording(true);
        gate.noteShortcutRecording(true);
        gate.noteShortcutRecording(false);
        QCOMPARE(claimed.size(), 3);
        QVERIFY(!gate.mayTakeKeyboard(Origin::unrequested));
        QVERIFY(gate.mayTakeKeyboard(Origin::askedByUser));
        gate.noteShortcutRecording(false);
        QVERIFY(gate.mayTakeKeyboard(Origin::unrequested));
    }

    void waitingActionsRunOnceTheGraceHasPassed()
    {
        ManualClock clock(kMorning);
        KeyboardGate gate(clock, std::chrono::milliseconds(50));
        QStringList ran;
        gate.whenKeyboardFree(this, [&] { ran << u"at once"_s; });
        QCOMPARE(ran, QStringList{u"at once"_s});

        gate.setComposersOnScreen(2);
        auto context = std::make_unique<QObject>();
        gate.whenKeyboardFree(context.get(), [&] { ran << u"gone"_s; });
        gate.whenKeyboardFree(this, [&] { ran << u"prompt"_s; });
        gate.whenKeyboardFree(this, [&] { ran << u"alert"_s; });
        context.reset();
        gate.setComposersOnScreen(1);
        gate.setComposersOnScreen(0);
        QTest::qWait(100);
        QCOMPARE(ran.size(), 1); // the clock has not moved: still within the grace period
        clock.advance(50ms);
        QTRY_COMPARE(ran, (QStringList{u"at once"_s, u"prompt"_s, u"alert"_s}));
    }

    // A failing scan reports at every notification: one alert, shown once nobody types.
    void unrequestedAlertsWaitAndNeverStack()
    {
        KeyboardGate gate(Clock::system(), std::chrono::milliseconds(50));
        AlertPresenter alerts(gate);
        const auto shown = [] {
            qsizetype count = 0;
            for (QWidget *window : QApplication::topLevelWidgets())
                count += window->isVisible() && window->objectName() == u"UnrequestedAlert";
            return count;
        };
        gate.setComposersOnScreen(1);
        for (int scan = 0; scan < 3; ++scan)
            alerts.presentUnrequested(u"Failed to read pending requests."_s, u"Could not list it."_s);
        QTest::qWait(100);
        QCOMPARE(shown(), 0);
        gate.setComposersOnScreen(0);
        QTRY_COMPARE(shown(), 1);
        alerts.presentUnrequested(u"Failed to read pending requests."_s, u"Could not list it."_s);
        QTest::qWait(100);
        QCOMPARE(shown(), 1);
    }
};

QTEST_MAIN(KeyboardGateTest)
#include "tst_keyboardgate.moc"
