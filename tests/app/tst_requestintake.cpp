// The editor-request queue against real request files.
#include "app/RequestIntake.h"
#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "errorlog/ErrorLogManager.h"
#include "support/ManualClock.h"
#include "support/TestEnvironment.h"

#include <QSignalSpy>
#include <QtTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {
ComposerRequest writeRequest(const QString &text, const std::optional<QString> &cwd = {})
{
    const ComposerRequest request{
        QUuid::createUuid(), QDateTime::currentDateTimeUtc(), cwd, text, {}, {}, {}};
    RequestFileIO::writeRequest(request);
    QTest::qWait(12); // distinct birth times: the queue is ordered by age
    return request;
}

void writeRaw(const QString &name, const QByteArray &data)
{
    FileStore::ensureDirectoriesExist();
    DataFile::write(QDir(FileStore::requestsDirectory()).filePath(name), data);
    QTest::qWait(12);
}

struct Fixture {
    TestEnvironment env;
    ManualClock clock{QDateTime(QDate(2026, 11, 14), QTime(17, 36, 59), Qt::UTC)};
    ErrorLogManager log{clock};
    RequestIntake intake{log, clock};
    QSignalSpy alerts{&intake, &RequestIntake::alertRequested};
    QSignalSpy answerFailures{&intake, &RequestIntake::answerFailed};
};
} // namespace

class RequestIntakeTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Answered and completed requests are retired, never shown; the rest are taken oldest first,
    // answered once, and at termination every one still waiting is cancelled.
    void requestsAreTakenOldestFirstAndAnsweredOnce()
    {
        Fixture f;
        const ComposerRequest answered = writeRequest(u"old"_s);
        RequestFileIO::writeResponse(
            {answered.id, f.clock.now(), ComposerResponse::Disposition::submitted, u"done"_s});
        const ComposerRequest marked = writeRequest(u"marked"_s);
        RequestFileIO::markRequestCompleted(marked.id);
        const ComposerRequest first = writeRequest(u"one"_s, u"/home/u/alpha"_s);
        const ComposerRequest second = writeRequest(u"two"_s);
        QSignalSpy directories(&f.intake, &RequestIntake::workingDirectoryNoted);
        QCOMPARE(f.intake.takeNextRequest()->id, first.id);
        QCOMPARE(directories.count(), 1);
        QCOMPARE(f.intake.queuedRequests().size(), 1);
        QVERIFY(!DataFile::exists(FileStore::requestURL(answered.id)));
        QVERIFY(!DataFile::exists(FileStore::requestURL(marked.id)));
        QVERIFY(!RequestFileIO::completedRequestMarkerExists(marked.id));
        QVERIFY(RequestFileIO::responseExists(answered.id)); // still for the helper to collect

        // A third arrives while the first is on screen: queued behind, the first not again.
        const ComposerRequest third = writeRequest(u"three"_s);
        f.intake.loadQueuedRequests(first.id);
        QCOMPARE(f.intake.queuedRequests().size(), 2);
        QCOMPARE(f.intake.queuedRequests().at(0).id, second.id);
        QCOMPARE(f.intake.queuedRequests().at(1).id, third.id);
        QCOMPARE(f.intake.waitingRequestCount(first.id), 2);

        QVERIFY(f.intake.answer(first, ComposerResponse::Disposition::submitted, u"ONE"_s));
        const ComposerResponse response = RequestFileIO::readResponse(first.id);
        QCOMPARE(response.disposition, ComposerResponse::Disposition::submitted);
        QCOMPARE(response.updatedText, std::optional<QString>(u"ONE"_s));
        QVERIFY(!DataFile::exists(FileStore::requestURL(first.id)));
        QVERIFY(!RequestFileIO::completedRequestMarkerExists(first.id));

        QCOMPARE(f.intake.takeNextRequest()->id, second.id);
        QVERIFY(f.intake.answer(second, ComposerResponse::Disposition::cancelled, std::nullopt));
        QCOMPARE(RequestFileIO::readResponse(second.id).updatedText, std::nullopt);
        QCOMPARE(f.log.entries().size(), 0);

        // The third on screen, a fourth waiting and a file that is no request at termination.
        const ComposerRequest fourth = writeRequest(u"four"_s);
        writeRaw(u"notes.json"_s, "{}");
        QCOMPARE(f.intake.takeNextRequest()->id, third.id);
        QCOMPARE(f.intake.waitingRequestCount(third.id), 1);
        f.intake.cancelPendingEditorRequestsOnTermination();
        for (const QUuid &id : {third.id, fourth.id}) {
            QCOMPARE(RequestFileIO::readResponse(id).disposition, ComposerResponse::Disposition::cancelled);
            QVERIFY(!DataFile::exists(FileStore::requestURL(id)));
        }
        QVERIFY(RequestFileIO::pendingRequestURLs().isEmpty());
        QCOMPARE(QDir(FileStore::malformedRequestsDirectory()).entryList(QDir::Files).size(), 1);
    }

    void malformedFilesAreQuarantinedWithTheirStory()
    {
        Fixture f;
        writeRaw(u"garbage.json"_s, "{ this is not json");
        const QUuid id = QUuid::createUuid();
        writeRaw(JSONCoding::encodeUuid(id) + u".json"_s, R"({"id":"x"})");
        const ComposerRequest good = writeRequest(u"fine"_s);

        QCOMPARE(f.intake.takeNextRequest()->id, good.id);
        QCOMPARE(f.alerts.count(), 0);

        QCOMPARE(f.log.entries().size(), 2);
        const ErrorLogEntry uuidEntry = f.log.entries().at(0);
        const ErrorLogEntry garbageEntry = f.log.entries().at(1);
        const QStringList moved = QDir(FileStore::malformedRequestsDirectory()).entryList(QDir::Files);
        QCOMPARE(moved.size(), 2);
        const QString garbageName = moved.filter(u"garbage-invalid-"_s).value(0);
        QVERIFY(!garbageName.isEmpty());
        const QRegularExpression story(
            QStringLiteral("^garbage\\.json could not be decoded: .+\\. No cancellation response could be "
                           "written because the "
                           "filename was not a valid UUID\\. Moved the request to %1\\.$")
                .arg(QRegularExpression::escape(garbageName)));
        QVERIFY2(story.match(garbageEntry.detail).hasMatch(), qPrintable(garbageEntry.detail));

        // A UUID-named file releases its helper with a cancellation.
        QVERIFY2(uuidEntry.detail.contains(u"Wrote a cancellation response for the waiting CLI."_s),
                 qPrintable(uuidEntry.detail));
        QCOMPARE(RequestFileIO::readResponse(id).disposition, ComposerResponse::Disposition::cancelled);
    }

    // Only plain files of at most 16 MB are read, without following links: a link and a file a
    // byte over go aside with the reason, a FIFO is never opened, and a request of exactly
    // 16 MB behind them is served.
    void hostileRequestFilesDoNotHoldUpTheQueue()
    {
        Fixture f;
        const QString target = f.env.path(u"elsewhere.json"_s);
        const ComposerRequest good{
            QUuid::createUuid(), QDateTime::currentDateTimeUtc(), {}, u"x"_s, {}, {}, {}};
        const QByteArray json = JSONCoding::encodeRecord(good);
        DataFile::write(target, json);
        const QUuid linked = QUuid::createUuid();
        FileStore::ensureDirectoriesExist();
        QVERIFY(QFile::link(target, FileStore::requestURL(linked)));
        QFile huge(QDir(FileStore::requestsDirectory()).filePath(u"huge.json"_s));
        QVERIFY(huge.open(QIODevice::WriteOnly) && huge.resize(RequestFileIO::maximumRequestFileSize + 1));
        QCOMPARE(::mkfifo(QFile::encodeName(FileStore::requestURL(QUuid::createUuid())).constData(), 0600),
                 0);
        QTest::qWait(12);
        // Trailing white space keeps the JSON valid.
        writeRaw(QFileInfo(FileStore::requestURL(good.id)).fileName(),
                 json + QByteArray(RequestFileIO::maximumRequestFileSize - json.size(), ' '));

        QCOMPARE(f.intake.takeNextRequest()->id, good.id);
        QCOMPARE(f.log.entries().size(), 2);
        const QString details = f.log.entries().at(0).detail + f.log.entries().at(1).detail;
        QVERIFY2(details.contains(u"is larger than 16 MB, so Tarvel did not read it. No") &&
                     details.contains(u"is a symbolic link, and Tarvel reads only plain files as requests."),
                 qPrintable(details));
        QCOMPARE(QDir(FileStore::malformedRequestsDirectory()).entryList(QDir::Files).size(), 2);
        QCOMPARE(DataFile::read(target), json); // the link went, not what it pointed at
        QCOMPARE(RequestFileIO::readResponse(linked).disposition, ComposerResponse::Disposition::cancelled);
    }

    void unsafeRequestsFolderIsReportedOnceAndNotServed()
    {
        Fixture f;
        const ComposerRequest request = writeRequest(u"waiting"_s);
        QFile::setPermissions(FileStore::requestsDirectory(), QFileDevice::Permissions(0x7777));
        QVERIFY(!f.intake.takeNextRequest());
        QVERIFY(!f.intake.takeNextRequest());
        f.intake.cancelPendingEditorRequestsOnTermination();
        QCOMPARE(f.alerts.count(), 1);
        QCOMPARE(f.log.entries().size(), 1);
        QVERIFY2(f.log.entries().at(0).detail.contains(u"chmod 700"),
                 qPrintable(f.log.entries().at(0).detail));
        QVERIFY(!RequestFileIO::responseExists(request.id));

        QFile::setPermissions(FileStore::requestsDirectory(), QFileDevice::Permissions(0x7000));
        QCOMPARE(f.intake.takeNextRequest()->id, request.id);
    }

    void failedResponseIsReportedAndCanBeRetried()
    {
        Fixture f;
        const ComposerRequest request = writeRequest(u"keep me"_s);
        QVERIFY(f.intake.takeNextRequest());
        QVERIFY(QDir(FileStore::responsesDirectory()).removeRecursively());
        DataFile::write(FileStore::responsesDirectory(), "a file where the folder belongs");

        QVERIFY(!f.intake.answer(request, ComposerResponse::Disposition::submitted, u"text"_s));
        QCOMPARE(f.answerFailures.count(), 1);
        QCOMPARE(f.answerFailures.at(0).at(0).toString(), u"Failed to write the editor response."_s);
        QCOMPARE(f.log.entries().size(), 1);

        QVERIFY(!f.intake.answer(request, ComposerResponse::Disposition::cancelled, std::nullopt));
        QCOMPARE(f.answerFailures.at(1).at(0).toString(), u"Failed to write the cancel response."_s);
        QCOMPARE(f.alerts.count(), 0);

        // Fixing the folder lets the user try again.
        QFile::remove(FileStore::responsesDirectory());
        QVERIFY(f.intake.answer(request, ComposerResponse::Disposition::submitted, u"text"_s));
    }
};

QTEST_GUILESS_MAIN(RequestIntakeTest)
#include "tst_requestintake.moc"
