// The user-defaults store: typed values, no caching between instances, values of the wrong type,
// and where the application's own store lives.
#include "core/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QtTest>

namespace {

struct Sample {
    int number = 0;

    QJsonObject toJson() const { return QJsonObject{{QStringLiteral("number"), number}}; }
    static Sample fromJson(const QJsonObject &object)
    {
        const std::optional<qint32> number = JSONCoding::optionalInt32(object, QStringLiteral("number"));
        if (!number)
            throw DecodingError(QStringLiteral("No number."));
        return Sample{*number};
    }
};

} // namespace

class UserDefaultsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void typedValuesSurviveAReopen()
    {
        TestEnvironment env;
        const QString path = env.path(QStringLiteral("prefs/Tarvel.conf"));
        {
            UserDefaults defaults(path);
            defaults.setString(QStringLiteral("Text"), QStringLiteral("a, \"quoted\" = value\nnext line"));
            defaults.setBool(QStringLiteral("Flag"), false);
            defaults.setInteger(QStringLiteral("Count"), -42);
            defaults.setData(QStringLiteral("Blob"), QByteArray("{\n  \"k\": \"\xc3\xa9\"\n}\n"));
            defaults.setRecord(QStringLiteral("Record"), Sample{7});
        }
        UserDefaults reopened(path);
        QCOMPARE(reopened.string(QStringLiteral("Text")), QStringLiteral("a, \"quoted\" = value\nnext line"));
        QCOMPARE(reopened.boolean(QStringLiteral("Flag")), false);
        QCOMPARE(reopened.integer(QStringLiteral("Count")), -42);
        QCOMPARE(reopened.data(QStringLiteral("Blob")), QByteArray("{\n  \"k\": \"\xc3\xa9\"\n}\n"));
        QCOMPARE(reopened.record<Sample>(QStringLiteral("Record"))->number, 7);
        QVERIFY(reopened.data(QStringLiteral("Record"))->contains("\"number\": 7"));
        QVERIFY(!reopened.contains(QStringLiteral("Missing")));
        QCOMPARE(reopened.string(QStringLiteral("Missing")), std::nullopt);
    }

    // Nothing is cached: another store on the file, or another writer of it, is seen at once, and a
    // watching store announces the others' writes (once each) but not its own.
    void everyReadSeesTheFile()
    {
        TestEnvironment env;
        const QString path = env.path(QStringLiteral("Tarvel.conf"));
        UserDefaults first(path);
        UserDefaults second(path);
        first.watchForExternalChanges();
        QSignalSpy changes(&first, &UserDefaults::didChange);
        QCOMPARE(second.integer(QStringLiteral("Count")), std::nullopt);
        first.setInteger(QStringLiteral("Count"), 1);
        QCOMPARE(second.integer(QStringLiteral("Count")), 1);
        QCOMPARE(changes.takeFirst().constFirst().toString(), QStringLiteral("Count"));
        QTest::qWait(200);
        QVERIFY(changes.isEmpty());
        second.remove(QStringLiteral("Count"));
        QVERIFY(!first.contains(QStringLiteral("Count")));
        QTRY_COMPARE(changes.size(), 1);
        QCOMPARE(changes.takeFirst().constFirst().toString(), QString());

        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("[General]\nText=after and longer\nFlag=true\nCount=12\n");
        file.close();
        QCOMPARE(first.string(QStringLiteral("Text")), QStringLiteral("after and longer"));
        QCOMPARE(first.boolean(QStringLiteral("Flag")), true);
        QCOMPARE(first.integer(QStringLiteral("Count")), 12);
        QTRY_COMPARE(changes.size(), 1);

        // Storing what is stored already leaves the file alone: every request notes its folder.
        first.setString(QStringLiteral("Text"), QStringLiteral("after and longer"));
        QCOMPARE(changes.size(), 1);
        first.remove(QStringLiteral("Absent"));
        QCOMPARE(changes.size(), 1);
    }

    void wrongTypesAndUndecodableRecordsReadAsAbsent()
    {
        TestEnvironment env;
        UserDefaults defaults(env.path(QStringLiteral("Tarvel.conf")));
        defaults.setData(QStringLiteral("Blob"), "bytes");
        defaults.setString(QStringLiteral("Word"), QStringLiteral("maybe"));
        QCOMPARE(defaults.string(QStringLiteral("Blob")), std::nullopt);
        QCOMPARE(defaults.boolean(QStringLiteral("Word")), std::nullopt);
        QCOMPARE(defaults.integer(QStringLiteral("Word")), std::nullopt);
        QCOMPARE(defaults.data(QStringLiteral("Word")), std::nullopt);

        defaults.setData(QStringLiteral("Record"), "{\"number\": \"seven\"}");
        QVERIFY(!defaults.record<Sample>(QStringLiteral("Record")));
        defaults.setData(QStringLiteral("Record"), "not json");
        QVERIFY(!defaults.record<Sample>(QStringLiteral("Record")));
        defaults.setString(QStringLiteral("Record"), QStringLiteral("{\"number\": 7}")); // text, not data
        QVERIFY(!defaults.record<Sample>(QStringLiteral("Record")));
    }

    // Window frames as text: fractions survive, loose spacing reads, anything else is absent.
    void rectsAsTheMacWritesThem_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<QRectF>>("expected");

        QTest::newRow("spaced") << QStringLiteral(" {{ 1 ,-2 },{3.5, 4e2}} ")
                                << std::optional<QRectF>(QRectF(1, -2, 3.5, 400));
        QTest::newRow("trailing text")
            << QStringLiteral("{{1, 2}, {3, 4}} and more") << std::optional<QRectF>();
        QTest::newRow("empty") << QString() << std::optional<QRectF>();
    }
    void rectsAsTheMacWritesThem()
    {
        QFETCH(QString, text);
        QFETCH(std::optional<QRectF>, expected);
        TestEnvironment env;
        UserDefaults defaults(env.path(QStringLiteral("Tarvel.conf")));
        defaults.setString(QStringLiteral("Frame"), text);
        QCOMPARE(defaults.rect(QStringLiteral("Frame")), expected);

        const QRectF fractional(12.25, -350.1, 640.5, 1e-3);
        defaults.setRect(QStringLiteral("Frame"), fractional);
        QCOMPARE(defaults.rect(QStringLiteral("Frame")), std::optional<QRectF>(fractional));
    }

    void standardStoreFollowsTheConfigHome()
    {
        TestEnvironment env;
        const QString expected = env.path(QStringLiteral(".config/Tarvel/Tarvel.conf"));
        QCOMPARE(UserDefaults::standard().location(), expected);
        UserDefaults::standard().setBool(QStringLiteral("Probe"), true);
        QVERIFY(QFile::exists(expected));
    }
};

QTEST_GUILESS_MAIN(UserDefaultsTest)
#include "tst_userdefaults.moc"
