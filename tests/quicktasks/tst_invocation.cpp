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
    // Attachments keep the first of each path, normalised; whether one is a folder or an image is
    // asked of the file system (content before name, the name when it is missing); the prompt
    // lists their paths.
    void attachmentsAndTheirPaths()
    {
        const QUuid first = QUuid::createUuid();
        const QList<PromptAttachment> normalized = PromptAttachment::normalized({
            {first, QStringLiteral("/projects/./docs/../docs/a.txt"), false},
            {QUuid::createUuid(), QStringLiteral("/projects/b/"), false},
            {QUuid::createUuid(), QStringLiteral("/projects/docs/a.txt"), true},
            {QUuid::createUuid(), QStringLiteral("/projects/b"), false},
        });
        QCOMPARE(normalized.size(), 2);
        QCOMPARE(normalized[0], (PromptAttachment{first, QStringLiteral("/projects/docs/a.txt"), false}));
        QCOMPARE(normalized[1].path, QStringLiteral("/projects/b"));
        QCOMPARE(PromptAttachment::make(QStringLiteral("/x/../y/")).path, QStringLiteral("/y"));

        AttachmentTree tree;
        const auto attachment = [&](const QString &name) {
            return PromptAttachment::make(tree.root.filePath(name));
        };
        writeFile(tree.root.filePath(QStringLiteral("photo.dat")), kPng);
        writeFile(tree.root.filePath(QStringLiteral("notes")), "plain words\n");
        writeFile(tree.root.filePath(QStringLiteral("diagram.txt")), "<svg/>");
        QDir().mkpath(tree.root.filePath(QStringLiteral("album.png")));
        QFile::link(tree.root.filePath(QStringLiteral("album.png")),
                    tree.root.filePath(QStringLiteral("link")));
        QVERIFY(attachment(QStringLiteral("photo.dat")).isImage());     // by content
        QVERIFY(!attachment(QStringLiteral("notes")).isImage());        // text, no extension
        QVERIFY(!attachment(QStringLiteral("diagram.txt")).isImage());  // the name says text
        QVERIFY(attachment(QStringLiteral("gone/Shot.PNG")).isImage()); // missing: by extension
        QVERIFY(!attachment(QStringLiteral("album.png")).isImage());    // a folder
        QVERIFY(attachment(QStringLiteral("album.png")).isDirectory());
        QVERIFY(attachment(QStringLiteral("link")).isDirectory());
        QVERIFY(!attachment(QStringLiteral("notes")).isDirectory());
        QVERIFY(!attachment(QStringLiteral("gone")).isDirectory());

        const QString augmented = QuickTaskInvocation::augmentedPrompt(
            QStringLiteral("Fix it."), {PromptAttachment::make(QStringLiteral("/p/a.txt")),
                                        PromptAttachment::make(QStringLiteral("/p/dir"))});
        QVERIFY2(augmented.startsWith(u"Attached Paths\n") &&
                     augmented.contains(u":\n- /p/a.txt\n- /p/dir\n\n") &&
                     augmented.endsWith(u"items.\n\nFix it."),
                 qPrintable(augmented));
        // A working directory given with a trailing slash still holds its files.
        QVERIFY(QuickTaskInvocation::attachmentDirectoryPaths({PromptAttachment::make(tree.inside)},
                                                              tree.workingDirectory + QStringLiteral("/"))
                    .isEmpty());
    }

    // Each backend's argument list, as the fake records its argv: the model and effort, the
    // attachment folders (each once, never the working directory or a folder inside it), images
    // and files, the prompt unquoted.
    void backendReceivesTheArgumentList()
    {
        // One argument per line; {W} = working directory, {R} = attachment root, {P} = prompt.
        for (const auto &[backend, model, expected] :
             {std::tuple{QuickTaskCLIBackend::codex, QStringLiteral("gpt-5.5"),
                         QStringLiteral("exec\n--json\n--skip-git-repo-check\n--model\ngpt-5.5\n-c\n"
                                        "model_reasoning_effort=\"high\"\n-C\n{W}\n"
                                        "--add-dir\n{R}/docs\n--add-dir\n{R}/shots\n--add-dir\n{R}/assets\n"
                                        "--image\n{R}/shots/screen.png\n--\n{P}")},
              std::tuple{QuickTaskCLIBackend::claude, QStringLiteral("sonnet"),
                         QStringLiteral("-p\n--output-format\ntext\n--no-session-persistence\n"
                                        "--dangerously-skip-permissions\n--model\nsonnet\n--effort\nhigh\n"
                                        "--add-dir\n{R}/docs\n--add-dir\n{R}/shots\n--add-dir\n{R}/assets\n"
                                        "--\n{P}")},
              std::tuple{
                  QuickTaskCLIBackend::opencode, QStringLiteral("anthropic//claude-x"),
                  QStringLiteral("run\n--variant\nhigh\n--model\nanthropic/claude-x\n"
                                 "--file\n{W}/notes.md\n--file\n{R}/docs/a.txt\n--file\n{R}/docs/b.txt\n"
                                 "--file\n{R}/shots/screen.png\n--dir\n{W}\n--\n{P}")}}) {
            FakeBackendSetup setup;
            AttachmentTree tree;
            const QString prompt =
                QStringLiteral("-- Line one\n\n  line \"two\" -- with 'quotes' and $HOME\n");
            QStringList arguments = expected.split(u'\n');
            for (QString &argument : arguments) {
                argument.replace(QStringLiteral("{W}"), tree.workingDirectory)
                    .replace(QStringLiteral("{R}"), tree.root.path())
                    .replace(QStringLiteral("{P}"), QuickTaskInvocation::augmentedPrompt(prompt, tree.all()));
            }

            const BackendProfile &profile = BackendProfiles::of(backend);
            const QuickTaskLaunchTarget target = TaskCLIExecutableLocator::launchTarget(backend);
            ProcessGroupTask task(target.executablePath,
                                  profile.quickTaskArguments(prompt, tree.workingDirectory, tree.all(),
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

        // Without a model opencode takes its default through no --model at all, while codex still
        // passes an empty one; without attachments the prompt goes as it is.
        const auto withoutModel = [](QuickTaskCLIBackend backend) {
            return BackendProfiles::of(backend).quickTaskArguments(QStringLiteral("Go"), QStringLiteral("/w"),
                                                                   {}, {QString(), QStringLiteral("high")});
        };
        QVERIFY(!withoutModel(QuickTaskCLIBackend::opencode).contains(QStringLiteral("--model")));
        const QStringList codex = withoutModel(QuickTaskCLIBackend::codex);
        QCOMPARE(codex.mid(3, 2), (QStringList{QStringLiteral("--model"), {}}));
        QCOMPARE(codex.mid(7), (QStringList{QStringLiteral("-C"), QStringLiteral("/w"), QStringLiteral("--"),
                                            QStringLiteral("Go")}));
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

        // Lines that trim to nothing, or are no valid UTF-8, are dropped.
        for (const auto &[line, expected] :
             {std::pair{QByteArray("\r\r"), QByteArray()},
              std::pair{QByteArray("a\xE2\x80\xA8"), QByteArray("a")},
              std::pair{QByteArray("\xC0\xAF"), QByteArray()},         // overlong slash
              std::pair{QByteArray("\xED\xA0\x80"), QByteArray()},     // surrogate
              std::pair{QByteArray("\xE2\x82"), QByteArray()},         // cut multi-byte
              std::pair{QByteArray("\xF4\x90\x80\x80"), QByteArray()}, // past U+10FFFF
              std::pair{QByteArray("\xF0\x9F\x98\x80 ok"), QByteArray("\xF0\x9F\x98\x80 ok")}}) {
            const auto trimmed = OutputLine::trimmed(line);
            QCOMPARE(trimmed ? trimmed->toByteArray() : QByteArray(), expected);
        }
    }

    // What is read of codex's events, and which lines may be passed over without decoding.
    void codexEvents()
    {
        struct Row {
            QByteArray line;
            QString threadID, agentMessage;
            bool skippable;
        };
        for (const Row &row : QList<Row>{
                 // type after item, spaced
                 {" { \"item\" : { \"text\" : \"A\\\"}\" , \"type\" : \"agent_message\" } , \"type\" "
                  ": \"item.completed\" } ",
                  {},
                  QStringLiteral("A\"}"),
                  false},
                 {"{\"type\":\"item.complet\\u0065d\",\"item\":{\"type\":\"agent_message\",\"text\":\"E\"}}",
                  {},
                  QStringLiteral("E"),
                  false},
                 // command output quoting an event
                 {R"({"type":"item.completed","item":{"type":"command_execution","aggregated_output":)"
                  "\"{\\\"type\\\":\\\"agent_message\\\",\\\"text\\\":\\\"no\\\"}\\n\",\"exit_code\":0,"
                  "\"x\":[1,{\"y\":[]}]}}",
                  {},
                  {},
                  true},
                 {R"({"type":"item.started","item":{"type":"agent_message","text":"x"}})", {}, {}, true},
                 {R"({"type":"turn.completed","usage":{"input_tokens":5,"ok":true}})", {}, {}, true},
                 {R"({"type":"thread.started"})", {}, {}, false},
                 {R"({"thread_id":"t-2"})", {}, {}, false},
                 {R"({"type":"item.completed","item":"agent_message"})", {}, {}, false},
                 {R"({"type":"turn.completed","usage":{)", {}, {}, false}}) {
            const std::optional<CodexExecEvent> event = CodexExecEvent::decode(row.line);
            QCOMPARE(event ? event->startedThreadID().value_or(QString()) : QString(), row.threadID);
            QCOMPARE(event ? event->agentMessageText().value_or(QString()) : QString(), row.agentMessage);
            QVERIFY2(CodexExecEvent::isSurelyIgnored(row.line) == row.skippable, row.line.constData());
        }
    }

    // Colours, private modes and think markers go; an escape that is no sequence stays.
    void opencodeLineCleaning()
    {
        for (const auto &[line, expected] :
             {std::pair{QStringLiteral("\x1B[1m\x1B[92m|\x1B[0m  Read  \x1B[2mfile.txt\x1B[0m"),
                        QStringLiteral("|  Read  file.txt")},
              std::pair{QStringLiteral("\x1B[?25lhidden cursor\x1B[?25h"), QStringLiteral("hidden cursor")},
              std::pair{QStringLiteral("<think>pondering</think> answer"),
                        QStringLiteral("pondering answer")},
              std::pair{QStringLiteral("\n  indented \n"), QStringLiteral("  indented ")},
              std::pair{QStringLiteral("\x1B(B"), QStringLiteral("\x1B(B")}})
            QCOMPARE(OpenCodeOutput::cleanOpencodeOutputLine(line), expected);
    }
};

QTEST_GUILESS_MAIN(InvocationTest)
#include "tst_invocation.moc"
