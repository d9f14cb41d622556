// The request and response records and the shared JSON form.
#include "core/ComposerRequest.h"
#include "core/ComposerResponse.h"
#include "core/JSONCoding.h"

#include <QJsonDocument>
#include <QtTest>

namespace {
QList<QByteArray> keyLines(const QByteArray &json)
{
    QList<QByteArray> keys;
    for (const QByteArray &line : json.split('\n')) {
        const QByteArray trimmed = line.trimmed();
        if (trimmed.startsWith('"'))
            keys.append(trimmed.mid(1, trimmed.indexOf('"', 1) - 1));
    }
    return keys;
}

QDateTime utc(int y, int mo, int d, int h, int mi, int s, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::UTC);
}

const QUuid kId = QUuid::fromString(QStringLiteral("6F9619FF-8B86-D011-B42D-00C04FC964FF"));
} // namespace

class RecordsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void requestWritesOnlyPresentKeysInByteOrder()
    {
        const ComposerRequest bare{kId, utc(2026, 11, 14, 17, 36, 59), {}, QStringLiteral("hi"), {}, {}, {}};
        const QByteArray json = JSONCoding::encodeRecord(bare);
        QCOMPARE(keyLines(json), (QList<QByteArray>{"createdAt", "id", "initialText"}));
        QVERIFY(!json.contains("null"));

        const ComposerRequest full{kId,
                                   utc(2026, 11, 14, 17, 36, 59),
                                   QStringLiteral("/home/u/project"),
                                   QStringLiteral(""),
                                   QStringLiteral("/tmp/COMMIT_EDITMSG"),
                                   QStringLiteral("xterm"),
                                   4242};
        const QByteArray fullJson = JSONCoding::encodeRecord(full);
        QCOMPARE(keyLines(fullJson),
                 (QList<QByteArray>{"createdAt", "cwd", "filePath", "id", "initialText",
                                    "sourceApplicationBundleIdentifier", "sourceApplicationPID"}));
        // Slashes are escaped, and the escaping reads back unchanged.
        QVERIFY(fullJson.contains(R"("cwd": "\/home\/u\/project")"));
        QCOMPARE(JSONCoding::decodeRecord<ComposerRequest>(fullJson), full);
        QVERIFY(fullJson.contains("\n    \"")); // pretty-printed, one key per line
    }

    void responseKeysAndDispositions()
    {
        const ComposerResponse cancelled{
            kId, utc(2026, 1, 2, 3, 4, 5), ComposerResponse::Disposition::cancelled, {}};
        const QByteArray json = JSONCoding::encodeRecord(cancelled);
        QCOMPARE(keyLines(json), (QList<QByteArray>{"disposition", "id", "respondedAt"}));
        QVERIFY(json.contains("\"disposition\": \"cancelled\""));

        const ComposerResponse submitted{kId, utc(2026, 1, 2, 3, 4, 5),
                                         ComposerResponse::Disposition::submitted,
                                         QStringLiteral("fix the bug\n\nwith care")};
        QCOMPARE(JSONCoding::decodeRecord<ComposerResponse>(JSONCoding::encodeRecord(submitted)), submitted);

        const QByteArray oneL =
            R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","respondedAt":"2026-01-02T03:04:05Z","disposition":"canceled"})";
        QVERIFY_THROWS_EXCEPTION(DecodingError, JSONCoding::decodeRecord<ComposerResponse>(oneL));
    }

    void datesAreReadLeniently_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QDateTime>("expected");
        QTest::newRow("whole seconds")
            << QByteArray(R"("2026-11-14T17:36:59Z")") << utc(2026, 11, 14, 17, 36, 59);
        QTest::newRow("fraction") << QByteArray(R"("2026-11-14T17:36:59.5Z")")
                                  << utc(2026, 11, 14, 17, 36, 59, 500);
        QTest::newRow("long fraction")
            << QByteArray(R"("2026-11-14T17:36:59.123456Z")") << utc(2026, 11, 14, 17, 36, 59, 123);
        QTest::newRow("offset") << QByteArray(R"("2026-11-14T19:36:59+02:00")")
                                << utc(2026, 11, 14, 17, 36, 59);
        QTest::newRow("reference zero") << QByteArray("0") << utc(2001, 1, 1, 0, 0, 0);
        QTest::newRow("reference 1.5") << QByteArray("1.5") << utc(2001, 1, 1, 0, 0, 1, 500);
        QTest::newRow("before reference") << QByteArray("-86400") << utc(2000, 12, 31, 0, 0, 0);
    }
    void datesAreReadLeniently()
    {
        QFETCH(QByteArray, value);
        QFETCH(QDateTime, expected);
        const QByteArray json =
            R"({"id":"6f9619ff-8b86-d011-b42d-00c04fc964ff","initialText":"","createdAt":)" + value + "}";
        const ComposerRequest request = JSONCoding::decodeRecord<ComposerRequest>(json);
        QCOMPARE(request.createdAt, expected);
        // Written back: whole seconds, UTC, upper-case identifier.
        const QByteArray written = JSONCoding::encodeRecord(request);
        QVERIFY(written.contains("\"createdAt\": \"" +
                                 expected.toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'")).toUtf8() +
                                 "\""));
        QVERIFY(written.contains("6F9619FF-8B86-D011-B42D-00C04FC964FF"));
    }

    void malformedRecordsAreRejected_data()
    {
        QTest::addColumn<QByteArray>("json");
        const auto with = [](const QByteArray &extra) {
            return R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","initialText":"",)" + extra + "}";
        };
        const QByteArray date = R"("createdAt":"2026-11-14T17:36:59Z")";
        // Dates that are neither ISO 8601 with a zone nor a reference-date number.
        QTest::newRow("date word") << with(R"("createdAt":"yesterday")");
        QTest::newRow("date without zone") << with(R"("createdAt":"2026-11-14T17:36:59")");
        QTest::newRow("date only") << with(R"("createdAt":"2026-11-14")");
        QTest::newRow("bad month") << with(R"("createdAt":"2026-13-14T17:36:59Z")");
        QTest::newRow("numeric date string") << with(R"("createdAt":"12")");
        QTest::newRow("bool date") << with(R"("createdAt":true)");
        // Dates whose UTC year has no four-digit form, so that what was read could not be written.
        QTest::newRow("number past year 9999") << with(R"("createdAt":795173213425)");
        QTest::newRow("number before year 1") << with(R"("createdAt":-63200000000)");
        QTest::newRow("offset into year 10000") << with(R"("createdAt":"9999-12-31T23:30:00-01:00")");
        QTest::newRow("offset back before year 1") << with(R"("createdAt":"0001-01-01T00:30:00+01:00")");
        QTest::newRow("pid too large") << with(date + R"(,"sourceApplicationPID":4294967296)");
        QTest::newRow("pid below int32") << with(date + R"(,"sourceApplicationPID":-2147483649)");
        QTest::newRow("pid fraction") << with(date + R"(,"sourceApplicationPID":1.5)");
        QTest::newRow("pid string") << with(date + R"(,"sourceApplicationPID":"12")");
        QTest::newRow("cwd number") << with(date + R"(,"cwd":3)");
        QTest::newRow("null text") << QByteArray(
            R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","createdAt":0,"initialText":null})");
        QTest::newRow("not a uuid") << R"({"id":"6F9619FF-8B86-D011-B42D","initialText":"",)" + date + "}";
        QTest::newRow("braced uuid")
            << R"({"id":"{6F9619FF-8B86-D011-B42D-00C04FC964FF}","initialText":"",)" + date + "}";
        QTest::newRow("missing id") << R"({"initialText":"",)" + date + "}";
        QTest::newRow("missing text")
            << QByteArray(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","createdAt":0})");
        QTest::newRow("truncated") << QByteArray(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF",)");
        QTest::newRow("array") << QByteArray("[]");
    }
    void malformedRecordsAreRejected()
    {
        QFETCH(QByteArray, json);
        QVERIFY_THROWS_EXCEPTION(DecodingError, JSONCoding::decodeRecord<ComposerRequest>(json));
    }

    void lenientReadingKeepsWhatIsValid()
    {
        // Unknown keys are ignored, nulls of optional keys read as absent, the PID bounds hold.
        const QByteArray json =
            R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","createdAt":"2026-11-14T17:36:59Z",
            "initialText":"x","cwd":null,"future":{"a":[1,2]},"sourceApplicationPID":-2147483648})";
        const ComposerRequest request = JSONCoding::decodeRecord<ComposerRequest>(json);
        QVERIFY(!request.cwd);
        QCOMPARE(request.sourceApplicationPID, std::optional<qint32>(-2147483648));
        QCOMPARE(request.initialText, QStringLiteral("x"));
    }
};

QTEST_GUILESS_MAIN(RecordsTest)
#include "tst_records.moc"
