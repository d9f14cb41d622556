// What a quick task hands to its backend: the attachments it keeps, the prompt with its
// "Attached Paths" block, and the argument lists as a fake backend actually receives them.
#include "backends/BackendProfiles.h"
#include "backends/QuickTaskInvocation.h"
#include "core/PromptAttachment.h"
#include "fakebackends/FakeBackendSetup.h"
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
        QCOMPARE(
            QuickTaskInvocation::augmentedPrompt(QStringLiteral("Fix it."), attachments),
            QStringLiteral("Attached Paths\n"
                           "--------------\n"
                           "The following files and folders were attached from Tarvel and are available on "
                           "disk:\n"
                           "- /p/a.txt\n"
                           "- /p/dir\n"
                           "\n"
                           "Use these exact paths when reading, editing, or referencing the attached items.\n"
                           "\n"
                           "Fix it."));
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
};

QTEST_GUILESS_MAIN(InvocationTest)
#include "tst_invocation.moc"
