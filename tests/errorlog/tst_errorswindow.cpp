// The errors window follows the log (offscreen).
#include "core/Clock.h"
#include "errorlog/ErrorLogManager.h"
#include "errorlog/ErrorsWindow.h"
#include "support/TestEnvironment.h"

#include <QLabel>
#include <QToolButton>
#include <QtTest>

namespace {
QStringList titles(const QWidget &window)
{
    QStringList result;
    for (const QLabel *label : window.findChildren<QLabel *>(QStringLiteral("ErrorTitle")))
        result.append(label->text());
    return result;
}
} // namespace

class ErrorsWindowTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listFollowsTheLog()
    {
        TestEnvironment env;
        ErrorLogManager log(Clock::system());
        log.load();
        ErrorsWindow window(log, QStringLiteral("Tarvel"));
        QCOMPARE(window.windowTitle(), QStringLiteral("Tarvel Errors"));
        window.show();
        QVERIFY(window.findChild<QLabel *>(QStringLiteral("NoStoredErrors")));

        log.record(QStringLiteral("First"), QStringLiteral("one"), QStringLiteral("Launch"));
        log.record(QStringLiteral("Second"), QStringLiteral("two"), QStringLiteral("Launch"));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(titles(window), (QStringList{QStringLiteral("Second"), QStringLiteral("First")}));
        QVERIFY(!window.findChild<QLabel *>(QStringLiteral("NoStoredErrors")));

        // Removing rows one by one ends with the empty text again.
        for (int remaining = 2; remaining > 0; --remaining) {
            auto buttons = window.findChildren<QToolButton *>(QStringLiteral("ErrorRemove"));
            QCOMPARE(buttons.size(), remaining);
            buttons.first()->click();
            QTRY_COMPARE(log.entries().size(), remaining - 1);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        QCOMPARE(titles(window), QStringList());
        QVERIFY(window.findChild<QLabel *>(QStringLiteral("NoStoredErrors")));
    }
};

QTEST_MAIN(ErrorsWindowTest)
#include "tst_errorswindow.moc"
