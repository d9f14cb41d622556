// The error log: recording rules, the cap, persistence and change signals, and the errors
// window that follows it (offscreen).
#include "core/Clock.h"
#include "core/DataFile.h"
#include "core/JSONCoding.h"
#include "errorlog/ErrorLogManager.h"
#include "errorlog/ErrorsWindow.h"
#include "support/TestEnvironment.h"

#include <QLabel>
#include <QSignalSpy>
#include <QToolButton>
#include <QtTest>

namespace {
class ManualClock final : public Clock {
public:
    QDateTime now() const override { return m_now; }
    void advance(int seconds) { m_now = m_now.addSecs(seconds); }

private:
    QDateTime m_now = QDateTime(QDate(2026, 11, 14), QTime(17, 0), Qt::UTC);
};
QStringList titles(const QWidget &window)
{
    QStringList result;
    for (const QLabel *label : window.findChildren<QLabel *>(QStringLiteral("ErrorTitle")))
        result.append(label->text());
    return result;
}
} // namespace

class ErrorLogTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void recordTrimsAndFillsIn()
    {
        TestEnvironment env;
        ManualClock clock;
        ErrorLogManager log(clock);
        log.load();
        QSignalSpy changes(&log, &ErrorLogManager::errorLogDidChange);

        log.record(QStringLiteral("   \n"), QStringLiteral("detail"), QStringLiteral("Launch"));
        QVERIFY(log.entries().isEmpty());
        QCOMPARE(changes.count(), 0);
        QVERIFY(!DataFile::exists(ErrorLogManager::storageURL()));

        log.record(QStringLiteral("  Could not write the response.  "), QStringLiteral("\n\n"),
                   QStringLiteral(" External Editor "));
        QCOMPARE(changes.count(), 1);
        const ErrorLogEntry entry = log.entries().constFirst();
        QCOMPARE(entry.title, QStringLiteral("Could not write the response."));
        QCOMPARE(entry.detail, QStringLiteral("No additional details were captured."));
        QCOMPARE(entry.source, QStringLiteral(" External Editor ")); // as given
        QCOMPARE(entry.recordedAt, clock.now());
    }

    void keepsTheHundredNewestOnDiskToo()
    {
        TestEnvironment env;
        ManualClock clock;
        ErrorLogManager log(clock);
        log.load();
        for (int i = 0; i < 150; ++i) {
            log.record(QStringLiteral("Problem %1").arg(i), QString(), QStringLiteral("Quick Tasks"));
            clock.advance(1);
        }
        QCOMPARE(log.entries().size(), 100);
        QCOMPARE(log.entries().constFirst().title, QStringLiteral("Problem 149"));
        QCOMPARE(log.entries().constLast().title, QStringLiteral("Problem 50"));

        ErrorLogManager reloaded(clock);
        reloaded.load();
        QCOMPARE(reloaded.entries(), log.entries());
        const QByteArray file = DataFile::read(ErrorLogManager::storageURL());
        QVERIFY(file.contains("\"recordedAt\": \"2026-11-14T17:02:29Z\""));
    }

    void dismissRemovesOnlyWhatExists()
    {
        TestEnvironment env;
        ManualClock clock;
        ErrorLogManager log(clock);
        log.load();
        log.record(QStringLiteral("A"), QStringLiteral("a"), QStringLiteral("Launch"));
        log.record(QStringLiteral("B"), QStringLiteral("b"), QStringLiteral("Launch"));
        log.record(QStringLiteral("C"), QStringLiteral("c"), QStringLiteral("Launch"));
        QSignalSpy changes(&log, &ErrorLogManager::errorLogDidChange);
        const QByteArray before = DataFile::read(ErrorLogManager::storageURL());

        log.dismiss(QUuid::createUuid());
        QCOMPARE(changes.count(), 0);
        QCOMPARE(DataFile::read(ErrorLogManager::storageURL()), before);

        log.dismiss(log.entries().at(1).id);
        QCOMPARE(changes.count(), 1);
        QCOMPARE(log.entries().size(), 2);
        QCOMPARE(log.entries().at(0).title, QStringLiteral("C"));
        QCOMPARE(log.entries().at(1).title, QStringLiteral("A"));
        ErrorLogManager reloaded(clock);
        reloaded.load();
        QCOMPARE(reloaded.entries(), log.entries());
    }

    void damagedFileStartsEmptyAndIsReplaced_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("garbage") << QByteArray("\x01\x02 not json");
        QTest::newRow("object") << QByteArray("{}");
        QTest::newRow("bad entry") << QByteArray(
            R"([{"id":"nope","title":"t","detail":"d","source":"s","recordedAt":0}])");
    }
    void damagedFileStartsEmptyAndIsReplaced()
    {
        QFETCH(QByteArray, content);
        TestEnvironment env;
        ManualClock clock;
        {
            ErrorLogManager first(clock);
            first.load(); // makes the folder
        }
        DataFile::write(ErrorLogManager::storageURL(), content);
        ErrorLogManager log(clock);
        log.load();
        QVERIFY(log.entries().isEmpty());
        log.record(QStringLiteral("Fresh"), QString(), QStringLiteral("Launch"));
        const QJsonArray stored = JSONCoding::decodeArray(DataFile::read(ErrorLogManager::storageURL()));
        QCOMPARE(stored.size(), 1);
    }

    void entriesLoadAsStored()
    {
        // Entries written by an earlier run come back in file order, without re-sorting.
        TestEnvironment env;
        ManualClock clock;
        {
            ErrorLogManager first(clock);
            first.load();
        }
        DataFile::write(ErrorLogManager::storageURL(), R"([
            {"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","title":"Older","detail":"d","source":"s","recordedAt":0},
            {"id":"7F9619FF-8B86-D011-B42D-00C04FC964FF","title":"Newer","detail":"d","source":"s","recordedAt":"2030-01-01T00:00:00Z"}
        ])");
        ErrorLogManager log(clock);
        log.load();
        QCOMPARE(log.entries().size(), 2);
        QCOMPARE(log.entries().at(0).title, QStringLiteral("Older"));
    }

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

QTEST_MAIN(ErrorLogTest)
#include "tst_errorlog.moc"
