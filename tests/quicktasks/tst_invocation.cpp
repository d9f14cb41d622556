// What a quick task hands to its backend: the attachments it keeps, the prompt with its
// "Attached Paths" block, and the argument lists as a fake backend actually receives them; and
// what it reads back, without a process: line splitting, codex events and opencode cleaning. The
// common cases of the output (a thread, an agent message, colours, erased lines) and what it becomes
// in a task's files are checked through the fakes in tst_quicktaskmanager and tst_voiceprompt.
#include "backends/BackendProfiles.h"
#include "backends/CodexExecEvent.h"
#include "backends/OpenCodeOutput.h"
#include "backends/QuickTaskInvocation.h"
#include "core/PromptAttachment.h"
#include "fakebackends/FakeBackendSetup.h"
#include "quicktasks/OutputLineBuffer.h"
#include "quicktasks/ProcessGroupTask.h"
#include "quicktasks/TaskCLIExecutableLocator.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

const QByteArray kPng = QByteArray::fromBase64(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==");

QString writeFile(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(data);
    return path;
}

// A working directory with a file inside it, and outside it two files in one folder, an
// image and a folder.
struct AttachmentTree {
    AttachmentTree()
    {
        workingDirectory = root.filePath(QStringLiteral("project"));
        QDir().mkpath(workingDirectory);
        inside = writeFile(workingDirectory + QStringLiteral("/notes.md"), "# notes");
        first = writeFile(root.filePath(QStringLiteral("docs/a.txt")), "a");
        second = writeFile(root.filePath(QStringLiteral("docs/b.txt")), "b");
        image = writeFile(root.filePath(QStringLiteral("shots/screen.png")), kPng);
        folder = root.filePath(QStringLiteral("assets"));
        QDir().mkpath(folder);
    }
    // The working directory itself attached as a folder, too.
    QList<PromptAttachment> all() const
    {
        return {PromptAttachment::make(inside), PromptAttachment::make(first),
                PromptAttachment::make(second), PromptAttachment::make(image),
                PromptAttachment::make(folder), PromptAttachment::make(workingDirectory)};
    }
    QTemporaryDir temporary;
    QDir root{temporary.path()};
    QString workingDirectory, inside, first, second, image, folder;
};

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

class InvocationTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void normalizingKeepsTheFirstOfEachPath()
    {
        const QUuid first = QUuid::createUuid();
        const QList<PromptAttachment> attachments{
            {first, QStringLiteral("/projects/./docs/../docs/a.txt"), false},
            {QUuid::createUuid(), QStringLiteral("/projects/b/"), false},
            {QUuid::createUuid(), QStringLiteral("/projects/docs/a.txt"), true},
            {QUuid::createUuid(), QStringLiteral("/projects/b"), false},
        };
        const QList<PromptAttachment> normalized = PromptAttachment::normalized(attachments);
        QCOMPARE(normalized.size(), 2);
        QCOMPARE(normalized[0], (PromptAttachment{first, QStringLiteral("/projects/docs/a.txt"), false}));
        QCOMPARE(normalized[1].path, QStringLiteral("/projects/b"));
        QCOMPARE(PromptAttachment::make(QStringLiteral("/x/../y/")).path, QStringLiteral("/y"));
    }

    void folderAndImageTestsLookAtTheFileSystem()
    {
        QTemporaryDir directory;
        const QDir root(directory.path());
        const auto attachment = [&](const QString &name) {
            return PromptAttachment::make(root.filePath(name));
        };
        writeFile(root.filePath(QStringLiteral("photo.dat")), kPng);
        writeFile(root.filePath(QStringLiteral("notes")), "plain words\n");
        writeFile(root.filePath(QStringLiteral("diagram.txt")), "<svg/>");
        QDir().mkpath(root.filePath(QStringLiteral("album.png")));
        QFile::link(root.filePath(QStringLiteral("album.png")), root.filePath(QStringLiteral("link")));

        QVERIFY(attachment(QStringLiteral("photo.dat")).isImage());     // by content
        QVERIFY(!attachment(QStringLiteral("notes")).isImage());        // text, no extension
        QVERIFY(!attachment(QStringLiteral("diagram.txt")).isImage());  // the name says text
        QVERIFY(attachment(QStringLiteral("gone/Shot.PNG")).isImage()); // missing: by extension
        QVERIFY(!attachment(QStringLiteral("album.png")).isImage());    // a folder
        QVERIFY(attachment(QStringLiteral("album.png")).isDirectory());
        QVERIFY(attachment(QStringLiteral("link")).isDirectory());
        QVERIFY(!attachment(QStringLiteral("notes")).isDirectory());
        QVERIFY(!attachment(QStringLiteral("gone")).isDirectory());
    }

    void augmentedPromptListsThePaths()
    {
        const QList<PromptAttachment> attachments{PromptAttachment::make(QStringLiteral("/p/a.txt")),
                                                  PromptAttachment::make(QStringLiteral("/p/dir"))};
        const QString augmented =
            QuickTaskInvocation::augmentedPrompt(QStringLiteral("Fix it."), attachments);
        QVERIFY2(augmented.startsWith(u"Attached Paths\n") &&
                     augmented.contains(u":\n- /p/a.txt\n- /p/dir\n\n") &&
                     augmented.endsWith(u"items.\n\nFix it."),
                 qPrintable(augmented));
        // A working directory given with a trailing slash still holds its files.
        AttachmentTree tree;
        QVERIFY(QuickTaskInvocation::attachmentDirectoryPaths({PromptAttachment::make(tree.inside)},
                                                              tree.workingDirectory + QStringLiteral("/"))
                    .isEmpty());
    }

    // Each backend's argument list, as the fake records its argv: the model and effort, the
    // attachment folders (each once, never the working directory or a folder inside it), images
    // and files, the prompt unquoted.
    void backendReceivesTheArgumentList_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        QTest::addColumn<QString>("model");
        QTest::addColumn<bool>("attached"); // the tree's attachments, or none
        // One argument per line; {W} = working directory, {R} = attachment root, {P} = prompt.
        QTest::addColumn<QString>("expected");

        QTest::newRow("codex") << QuickTaskCLIBackend::codex << QStringLiteral("gpt-5.5") << true
                               << QStringLiteral(
                                      "exec\n--json\n--skip-git-repo-check\n--model\ngpt-5.5\n-c\n"
                                      "model_reasoning_effort=\"high\"\n-C\n{W}\n"
                                      "--add-dir\n{R}/docs\n--add-dir\n{R}/shots\n--add-dir\n{R}/assets\n"
                                      "--image\n{R}/shots/screen.png\n--\n{P}");
        QTest::newRow("claude") << QuickTaskCLIBackend::claude << QStringLiteral("sonnet") << true
                                << QStringLiteral(
                                       "-p\n--output-format\ntext\n--no-session-persistence\n"
                                       "--dangerously-skip-permissions\n--model\nsonnet\n--effort\nhigh\n"
                                       "--add-dir\n{R}/docs\n--add-dir\n{R}/shots\n--add-dir\n{R}/assets\n"
                                       "--\n{P}");
        QTest::newRow("opencode")
            << QuickTaskCLIBackend::opencode << QStringLiteral("anthropic//claude-x") << true
            << QStringLiteral("run\n--variant\nhigh\n--model\nanthropic/claude-x\n"
                              "--file\n{W}/notes.md\n--file\n{R}/docs/a.txt\n--file\n{R}/docs/b.txt\n"
                              "--file\n{R}/shots/screen.png\n--dir\n{W}\n--\n{P}");
        QTest::newRow("opencode default model")
            << QuickTaskCLIBackend::opencode << QString() << true
            << QStringLiteral("run\n--variant\nhigh\n"
                              "--file\n{W}/notes.md\n--file\n{R}/docs/a.txt\n--file\n{R}/docs/b.txt\n"
                              "--file\n{R}/shots/screen.png\n--dir\n{W}\n--\n{P}");
        // codex always passes --model, an empty one too; the prompt goes as it is.
        QTest::newRow("codex, no model, nothing attached")
            << QuickTaskCLIBackend::codex << QString() << false
            << QStringLiteral("exec\n--json\n--skip-git-repo-check\n--model\n\n-c\n"
                              "model_reasoning_effort=\"high\"\n-C\n{W}\n--\n{P}");
    }
    void backendReceivesTheArgumentList()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        QFETCH(QString, model);
        QFETCH(bool, attached);
        QFETCH(QString, expected);
        FakeBackendSetup setup;
        AttachmentTree tree;
        const QString prompt = QStringLiteral("-- Line one\n\n  line \"two\" -- with 'quotes' and $HOME\n");
        const QList<PromptAttachment> attachments = attached ? tree.all() : QList<PromptAttachment>();
        QStringList arguments = expected.split(u'\n');
        for (QString &argument : arguments) {
            argument.replace(QStringLiteral("{W}"), tree.workingDirectory)
                .replace(QStringLiteral("{R}"), tree.root.path())
                .replace(QStringLiteral("{P}"),
                         attached ? QuickTaskInvocation::augmentedPrompt(prompt, attachments) : prompt);
        }

        const BackendProfile &profile = BackendProfiles::of(backend);
        const QuickTaskLaunchTarget target = TaskCLIExecutableLocator::launchTarget(backend);
        ProcessGroupTask task(target.executablePath,
                              profile.quickTaskArguments(prompt, tree.workingDirectory, attachments,
                                                         {model, QStringLiteral("high")}),
                              tree.workingDirectory, target.environment);
        QSignalSpy finished(&task, &ProcessGroupTask::finished);
        task.run();
        QVERIFY(finished.wait(10000));
        QCOMPARE(finished.constFirst().constFirst().toInt(), 0);

        const QString name = profile.rawValue();
        QCOMPARE(setup.fakes.recordedArguments(name), arguments);
        QVERIFY(arguments.constLast().endsWith(prompt));
        QCOMPARE(QString::fromUtf8(setup.fakes.recorded(name + QStringLiteral(".cwd")).trimmed()),
                 QDir(tree.workingDirectory).canonicalPath());
        QCOMPARE(QString::fromUtf8(setup.fakes.recorded(name + QStringLiteral(".path"))),
                 target.environment.value(QStringLiteral("PATH")));
    }

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

        QTest::newRow("only line breaks") << QByteArray("\r\r") << QByteArray();
        QTest::newRow("unicode line separator") << QByteArray("a\xE2\x80\xA8") << QByteArray("a");
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

QTEST_GUILESS_MAIN(InvocationTest)
#include "tst_invocation.moc"
