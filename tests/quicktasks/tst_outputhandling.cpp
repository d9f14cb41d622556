// Output handling without a process: line splitting, codex events and opencode cleaning. The
// common cases (a thread, an agent message, a line that is no event, colours, erased lines) and
// what each backend's output becomes in a task's files are checked through the fakes in
// tst_quicktaskmanager and tst_promptrewrite.
#include "backends/CodexExecEvent.h"
#include "backends/OpenCodeOutput.h"
#include "quicktasks/OutputLineBuffer.h"

#include <QtTest>

namespace {

QList<QByteArray> splitInChunks(const QByteArray &text, const QList<qsizetype> &cuts)
{
    QList<QByteArray> chunks;
    qsizetype start = 0;
    for (qsizetype cut : cuts) {
        chunks.append(text.mid(start, cut - start));
        start = cut;
    }
    chunks.append(text.mid(start));
    return chunks;
}

} // namespace

class OutputHandlingTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everySplitOfTheStreamGivesTheSameLines()
    {
        // CRLF, empty lines, a multi-byte character, invalid UTF-8 and an unterminated tail.
        const QByteArray stream =
            "first\r\n\nsecond caf\xC3\xA9\n\xFF\xFE broken\n\r\n  spaced  \nthird\ntail";
        const QList<QByteArray> expected{"first", "second caf\xC3\xA9", "  spaced  ", "third", "tail"};

        for (qsizetype first = 0; first <= stream.size(); ++first) {
            for (qsizetype second = first; second <= stream.size(); ++second) {
                OutputLineBuffer buffer;
                QList<QByteArray> lines;
                const auto collect = [&lines](QByteArrayView line) {
                    if (const auto trimmed = OutputLine::trimmed(line))
                        lines.append(trimmed->toByteArray());
                };
                for (const QByteArray &chunk : splitInChunks(stream, {first, second}))
                    buffer.append(chunk, collect);
                QCOMPARE(buffer.pending(), QByteArrayView("tail"));
                buffer.finish(collect);
                QVERIFY(buffer.pending().isEmpty());
                if (lines != expected)
                    QFAIL(qPrintable(QStringLiteral("cuts at %1 and %2 gave %3 lines")
                                         .arg(first)
                                         .arg(second)
                                         .arg(lines.size())));
            }
        }
    }

    void lineTrimmingAndDecoding_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QByteArray>("expected"); // empty: dropped

        QTest::newRow("carriage return") << QByteArray("done\r") << QByteArray("done");
        QTest::newRow("blanks stay") << QByteArray(" \tx \t") << QByteArray(" \tx \t");
        QTest::newRow("only line breaks") << QByteArray("\r\r") << QByteArray();
        QTest::newRow("unicode line separator") << QByteArray("a\xE2\x80\xA8") << QByteArray("a");
        QTest::newRow("lone continuation byte") << QByteArray("a\x80") << QByteArray();
        QTest::newRow("overlong slash") << QByteArray("\xC0\xAF") << QByteArray();
        QTest::newRow("surrogate") << QByteArray("\xED\xA0\x80") << QByteArray();
        QTest::newRow("cut multi-byte") << QByteArray("\xE2\x82") << QByteArray();
        QTest::newRow("four bytes") << QByteArray("\xF0\x9F\x98\x80 ok") << QByteArray("\xF0\x9F\x98\x80 ok");
        QTest::newRow("past U+10FFFF") << QByteArray("\xF4\x90\x80\x80") << QByteArray();
    }
    void lineTrimmingAndDecoding()
    {
        QFETCH(QByteArray, line);
        QFETCH(QByteArray, expected);
        const auto trimmed = OutputLine::trimmed(line);
        QCOMPARE(trimmed ? trimmed->toByteArray() : QByteArray(), expected);
    }

    void codexEvents_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("threadID");
        QTest::addColumn<QString>("agentMessage");
        QTest::addColumn<bool>("skippable"); // may be passed over without decoding

        QTest::newRow("type after item, spaced")
            << QByteArray(" { \"item\" : { \"text\" : \"A\\\"}\" , \"type\" : \"agent_message\" } , \"type\" "
                          ": \"item.completed\" } ")
            << QString() << QStringLiteral("A\"}") << false;
        QTest::newRow("escaped type")
            << QByteArray(
                   "{\"type\":\"item.complet\\u0065d\",\"item\":{\"type\":\"agent_message\",\"text\":\"E\"}}")
            << QString() << QStringLiteral("E") << false;
        QTest::newRow("escaped item type")
            << QByteArray(
                   "{\"type\":\"item.completed\",\"item\":{\"type\":\"agent\\u005fmessage\",\"text\":\"F\"}}")
            << QString() << QStringLiteral("F") << false;
        QTest::newRow("command output quoting an event")
            << QByteArray(
                   R"({"type":"item.completed","item":{"type":"command_execution","aggregated_output":)"
                   "\"{\\\"type\\\":\\\"agent_message\\\",\\\"text\\\":\\\"no\\\"}\\n\",\"exit_code\":0,"
                   "\"x\":[1,{\"y\":[]}]}}")
            << QString() << QString() << true;
        QTest::newRow("started, not completed")
            << QByteArray(R"({"type":"item.started","item":{"type":"agent_message","text":"x"}})")
            << QString() << QString() << true;
        QTest::newRow("usage") << QByteArray(
                                      R"({"type":"turn.completed","usage":{"input_tokens":5,"ok":true}})")
                               << QString() << QString() << true;
        QTest::newRow("thread without id")
            << QByteArray(R"({"type":"thread.started"})") << QString() << QString() << false;
        QTest::newRow("no type") << QByteArray(R"({"thread_id":"t-2"})") << QString() << QString() << false;
        QTest::newRow("item not an object")
            << QByteArray(R"({"type":"item.completed","item":"agent_message"})") << QString() << QString()
            << false;
        QTest::newRow("JSON array") << QByteArray("[1,2]") << QString() << QString() << false;
        QTest::newRow("cut off") << QByteArray(R"({"type":"turn.completed","usage":{)") << QString()
                                 << QString() << false;
    }
    void codexEvents()
    {
        QFETCH(QByteArray, line);
        QFETCH(QString, threadID);
        QFETCH(QString, agentMessage);
        QFETCH(bool, skippable);
        const std::optional<CodexExecEvent> event = CodexExecEvent::decode(line);
        QCOMPARE(event ? event->startedThreadID().value_or(QString()) : QString(), threadID);
        QCOMPARE(event ? event->agentMessageText().value_or(QString()) : QString(), agentMessage);
        QCOMPARE(CodexExecEvent::isSurelyIgnored(line), skippable);
    }

    void opencodeLineCleaning_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("expected");

        QTest::newRow("bold and reset")
            << QStringLiteral("\x1B[1m\x1B[92m|\x1B[0m  Read  \x1B[2mfile.txt\x1B[0m")
            << QStringLiteral("|  Read  file.txt");
        QTest::newRow("private mode")
            << QStringLiteral("\x1B[?25lhidden cursor\x1B[?25h") << QStringLiteral("hidden cursor");
        QTest::newRow("think markers")
            << QStringLiteral("<think>pondering</think> answer") << QStringLiteral("pondering answer");
        QTest::newRow("outer line breaks only")
            << QStringLiteral("\n  indented \n") << QStringLiteral("  indented ");
        QTest::newRow("escape without bracket stays") << QStringLiteral("\x1B(B") << QStringLiteral("\x1B(B");
    }
    void opencodeLineCleaning()
    {
        QFETCH(QString, line);
        QFETCH(QString, expected);
        QCOMPARE(OpenCodeOutput::cleanOpencodeOutputLine(line), expected);
    }
};

QTEST_GUILESS_MAIN(OutputHandlingTest)
#include "tst_outputhandling.moc"
