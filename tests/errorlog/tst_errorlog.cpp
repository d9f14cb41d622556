// The error log: recording rules, the cap, persistence and change signals, and the errors
// window that follows it (offscreen).
#include "core/DataFile.h"
#include "core/JSONCoding.h"
#include "core/UserDefaults.h"
#include "errorlog/ErrorLogManager.h"
#include "errorlog/ErrorsWindow.h"
#include "support/ManualClock.h"
#include "support/TestEnvironment.h"

#include <QLabel>
#include <QSignalSpy>
#include <QToolButton>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
struct Fixture {
    Fixture() { log.load(); }
    TestEnvironment env;
    ManualClock clock{QDateTime(QDate(2026, 11, 14), QTime(17, 0), Qt::UTC)};
    ErrorLogManager log{clock};
};

QStringList titles(const QWidget &window)
{
    QStringList result;
    for (const QLabel *label : window.findChildren<QLabel *>(u"ErrorTitle"_s))
        result.append(label->text());
    return result;
}
} // namespace

class ErrorLogTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void recordTrimsFillsInKeepsTheNewestAndDismisses()
    {
        Fixture f;
        QSignalSpy changes(&f.log, &ErrorLogManager::errorLogDidChange);

        f.log.record(u"   \n"_s, u"detail"_s, u"Launch"_s);
        QVERIFY(f.log.entries().isEmpty());
        QCOMPARE(changes.count(), 0);
        QVERIFY(!DataFile::exists(ErrorLogManager::storageURL()));

        f.log.record(u"  Could not write the response.  "_s, u"\n\n"_s, u" External Editor "_s);
        QCOMPARE(changes.count(), 1);
        const ErrorLogEntry entry = f.log.entries().constFirst();
        QCOMPARE(entry.title, u"Could not write the response."_s);
        QCOMPARE(entry.detail, u"No additional details were captured."_s);
        QCOMPARE(entry.source, u" External Editor "_s); // as given
        QCOMPARE(entry.recordedAt, f.clock.now());

        // The same failure again (one at every launch) adds nothing while it is the newest.
        const auto again = [&f](const QString &source) {
            f.log.record(u"Could not write the response."_s, QString(), source);
        };
        again(u" External Editor "_s);
        QCOMPARE(f.log.entries().size(), 1);
        QCOMPARE(changes.count(), 1);
        again(u"Launch"_s);
        again(u" External Editor "_s);
        QCOMPARE(f.log.entries().size(), 3);

        // The hundred newest survive, newest first, on disk too; dismissing an unknown entry
        // changes nothing, a known one is gone after a restart.
        for (int i = 0; i < 150; ++i) {
            f.log.record(u"Problem %1"_s.arg(i), QString(), u"Quick Tasks"_s);
            f.clock.advance(1);
        }
        QCOMPARE(f.log.entries().size(), 100);
        QCOMPARE(f.log.entries().constFirst().title, u"Problem 149"_s);
        QCOMPARE(f.log.entries().constLast().title, u"Problem 50"_s);
        QVERIFY(DataFile::read(ErrorLogManager::storageURL())
                    .contains("\"recordedAt\": \"2026-11-14T17:02:29Z\""));

        changes.clear();
        const QByteArray before = DataFile::read(ErrorLogManager::storageURL());
        f.log.dismiss(QUuid::createUuid());
        QCOMPARE(changes.count(), 0);
        QCOMPARE(DataFile::read(ErrorLogManager::storageURL()), before);
        f.log.dismiss(f.log.entries().at(1).id);
        QCOMPARE(changes.count(), 1);
        QCOMPARE(f.log.entries().size(), 99);
        QCOMPARE(f.log.entries().at(1).title, u"Problem 147"_s);
        ErrorLogManager reloaded(f.clock);
        reloaded.load();
        QCOMPARE(reloaded.entries(), f.log.entries());
    }

    // What an earlier run left: a damaged file starts an empty log that the next record
    // replaces; valid entries come back in file order, without re-sorting.
    void storedFileIsReadOrReplaced()
    {
        for (const auto &[content, titles] :
             {std::pair{QByteArray("\x01\x02 not json"), QStringList()},
              std::pair{QByteArray(R"([{"id":"nope","title":"t","detail":"d","source":"s","recordedAt":0}])"),
                        QStringList()},
              std::pair{QByteArray(R"([
            {"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","title":"Older","detail":"d","source":"s","recordedAt":0},
            {"id":"7F9619FF-8B86-D011-B42D-00C04FC964FF","title":"Newer","detail":"d","source":"s","recordedAt":"2030-01-01T00:00:00Z"}
        ])"),
                        QStringList{u"Older"_s, u"Newer"_s}}}) {
            Fixture first; // makes the folder
            DataFile::write(ErrorLogManager::storageURL(), content);
            ErrorLogManager log(first.clock);
            log.load();
            QStringList loaded;
            for (const ErrorLogEntry &entry : log.entries())
                loaded.append(entry.title);
            QCOMPARE(loaded, titles);
            log.record(u"Fresh"_s, QString(), u"Launch"_s);
            const QJsonArray stored = JSONCoding::decodeArray(DataFile::read(ErrorLogManager::storageURL()));
            QCOMPARE(stored.size(), titles.size() + 1);
        }
    }

    void listFollowsTheLog()
    {
        Fixture f;
        UserDefaults defaults(f.env.path(u"Tarvel.conf"_s));
        ErrorsWindow window(f.log, defaults, u"Tarvel"_s);
        window.show();
        QVERIFY(window.findChild<QLabel *>(u"NoStoredErrors"_s));

        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        f.clock.set(QDateTime(QDate(2026, 11, 24), QTime(15, 5)));
        f.log.record(u"First"_s, u"<div>one</div>\n<b>two</b>"_s, u"Launch"_s);
        f.log.record(u"Second"_s, u"two"_s, u"Launch"_s);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(titles(window), (QStringList{u"Second"_s, u"First"_s}));
        QVERIFY(!window.findChild<QLabel *>(u"NoStoredErrors"_s));
        // Details are shown as written, never as markup; dates in the medium style.
        for (const QLabel *label : window.findChildren<QLabel *>())
            QCOMPARE(label->textFormat(), Qt::PlainText);
        const auto meta = window.findChildren<QLabel *>(u"ErrorMeta"_s);
        QCOMPARE(meta.isEmpty() ? QString() : meta.constLast()->text(),
                 u"Nov 24, 2026, 3:05 PM \u00b7 Launch"_s);

        // Removing rows one by one ends with the empty text again.
        for (int remaining = 2; remaining > 0; --remaining) {
            auto buttons = window.findChildren<QToolButton *>(u"ErrorRemove"_s);
            QCOMPARE(buttons.size(), remaining);
            buttons.first()->click();
            QTRY_COMPARE(f.log.entries().size(), remaining - 1);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        QCOMPARE(titles(window), QStringList());
        QVERIFY(window.findChild<QLabel *>(u"NoStoredErrors"_s));

        // The frame is kept for the next window, across restarts too.
        const QRect frame(100, 80, 600, 400);
        window.setGeometry(frame);
        window.close();
        QVERIFY(defaults.rect(u"TarvelErrors"_s));
        QCOMPARE(ErrorsWindow(f.log, defaults, u"Tarvel"_s).geometry(), frame);
    }
};

QTEST_MAIN(ErrorLogTest)
#include "tst_errorlog.moc"
