// The completion notification's texts: the cuts of prompt and response at 64, 48 and 96
// characters (titles and actions are checked where tasks finish, in tst_quicktaskmanager and
// tst_quicktasknotifications).
#include "quicktasks/QuickTaskCompletionNotification.h"

#include <QtTest>

namespace {

QuickTaskSession sessionWith(const QString &prompt,
                             const std::optional<QString> &finalResponse = std::nullopt)
{
    QuickTaskSession session;
    session.id = QUuid::createUuid();
    session.prompt = prompt;
    session.finalResponse = finalResponse;
    session.status = QuickTaskSession::Status::succeeded;
    return session;
}

QString letters(int count, char16_t letter = u'a')
{
    return QString(count, QChar(letter));
}

} // namespace

class CompletionNotificationTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cutsAtTheirLimits_data()
    {
        QTest::addColumn<QString>("prompt");
        QTest::addColumn<std::optional<QString>>("response");
        QTest::addColumn<QString>("subtitle");
        QTest::addColumn<QString>("body");

        const std::optional<QString> none;
        QTest::newRow("48 whole") << letters(48) << none << letters(48) << letters(48);
        QTest::newRow("49 cut in the body only")
            << letters(49) << none << letters(49) << letters(48) + QStringLiteral("...");
        QTest::newRow("64 whole as subtitle")
            << letters(64) << none << letters(64) << letters(48) + QStringLiteral("...");
        QTest::newRow("65 cut as subtitle") << letters(65) << none << letters(64) + QStringLiteral("...")
                                            << letters(48) + QStringLiteral("...");
        QTest::newRow("response of 96 whole")
            << QStringLiteral("Hi") << std::optional<QString>(letters(96, u'r')) << QStringLiteral("Hi")
            << QStringLiteral("Hi\n") + letters(96, u'r');
        QTest::newRow("response of 97 cut")
            << QStringLiteral("Hi") << std::optional<QString>(letters(97, u'r')) << QStringLiteral("Hi")
            << QStringLiteral("Hi\n") + letters(96, u'r') + QStringLiteral("...");
        QTest::newRow("empty response leaves no line")
            << QStringLiteral("Hi") << std::optional<QString>(QString()) << QStringLiteral("Hi")
            << QStringLiteral("Hi");
        QTest::newRow("lines flattened, then trimmed")
            << QStringLiteral("\n  Fix\nthe\r\nbuild  \n")
            << std::optional<QString>(QStringLiteral("Done.\n\nAll green.\n"))
            << QStringLiteral("Fix the build") << QStringLiteral("Fix the build\nDone.  All green.");
        // Counted as the user sees characters: a family emoji is one, never split.
        const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467");
        QTest::newRow("48 with an emoji whole")
            << letters(47) + family << none << letters(47) + family << letters(47) + family;
        QTest::newRow("49 with an emoji cut before it")
            << letters(48) + family << none << letters(48) + family << letters(48) + QStringLiteral("...");
    }
    void cutsAtTheirLimits()
    {
        QFETCH(QString, prompt);
        QFETCH(std::optional<QString>, response);
        QFETCH(QString, subtitle);
        QFETCH(QString, body);
        const QuickTaskSession session = sessionWith(prompt, response);
        QCOMPARE(QuickTaskCompletionNotification::subtitle(session), subtitle);
        QCOMPARE(QuickTaskCompletionNotification::body(session), body);
    }
};

QTEST_GUILESS_MAIN(CompletionNotificationTest)
#include "tst_completionnotification.moc"
