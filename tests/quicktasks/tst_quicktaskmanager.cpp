// The quick-task manager against the fake backends: a task's life from start to its end,
// stopping process groups, the files it keeps, what survives a restart, and the texts of the
// notification that says a task finished.
#include "QuickTaskManagerFixture.h"
#include "backends/BackendProfiles.h"

#include "core/DataFile.h"
#include "core/JSONCoding.h"
#include "quicktasks/QuickTaskCompletionNotification.h"
#include "quicktasks/QuickTaskStore.h"
#include "settings/AppSettings.h"
#include "support/fakebackends/ProcessAlive.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QtTest>

namespace {

const QString kCodexThread = QStringLiteral(R"(out {"type":"thread.started","thread_id":"th-1"}\n)");

QString writeFile(const QString &path, const QByteArray &data = "x")
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(data);
    return path;
}

QuickTaskSession storedSession(QuickTaskSession::Status status, const QDateTime &startedAt,
                               const QList<PromptAttachment> &attachments = {})
{
    QuickTaskSession session;
    session.id = QUuid::createUuid();
    session.backend = QuickTaskCLIBackend::claude;
    session.prompt = QStringLiteral("Stored %1").arg(startedAt.toString(Qt::ISODate));
    session.workingDirectory = QStringLiteral("/projects/app");
    session.attachments = attachments;
    session.startedAt = startedAt;
    session.status = status;
    if (status != QuickTaskSession::Status::running)
        session.finishedAt = startedAt.addSecs(30);
    return session;
}

} // namespace

class QuickTaskManagerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Lines arrive split across writes; each must be handled once, whole. The transcript has the
    // parsed lines (no codex line that is no event, no blank or escape-only line), the raw log
    // every line as it came.
    void taskRunsToItsFinalResponse()
    {
        struct Row {
            QuickTaskCLIBackend backend;
            QStringList steps;
            QString finalResponse;
            QByteArray transcriptOutput, rawLine; // rawLine: one line of the raw log, as it came
            int rawStandardOutputLines;
        };
        for (const Row &row : QList<Row>{
                 {QuickTaskCLIBackend::codex,
                  {kCodexThread, QStringLiteral("out not an event\\n"), QStringLiteral("ready"),
                   QStringLiteral("sleep 0.4"), FakeBackends::codexAnswerStep(QStringLiteral("First.")),
                   QStringLiteral(R"(out {"type":"item.completed","item":{"type":"age)"),
                   QStringLiteral("sleep 0.1"), QStringLiteral(R"(out nt_message","text":"Done."}}\n)"),
                   QStringLiteral("sleep 0.1"), QStringLiteral("err warning: slow\\n")},
                  QStringLiteral("Done."),
                  "Thread: th-1\nFirst.\nDone.\nstderr: warning: slow\n",
                  "[stdout] not an event\n",
                  4},
                 {QuickTaskCLIBackend::claude,
                  {QStringLiteral("ready"), QStringLiteral("sleep 0.4"),
                   QStringLiteral("out Line one\\nLine "), QStringLiteral("sleep 0.1"),
                   QStringLiteral("out two\\n\\n  Last without newline")},
                  QStringLiteral("Line one\nLine two\n  Last without newline"),
                  "Line one\nLine two\n  Last without newline\n",
                  "[stdout]   Last without newline\n",
                  3},
                 {QuickTaskCLIBackend::opencode,
                  {QStringLiteral("ready"), QStringLiteral("sleep 0.4"),
                   QStringLiteral("out \\0033[1m<think>\\0033[0m\\n"),
                   QStringLiteral("out \\0033[94m|\\0033[0m Todo\\n\\0033[2K\\r   \\n"),
                   QStringLiteral("out \\0033[32mAnswer\\0033[0m\\r\\n")},
                  QStringLiteral("| Todo\nAnswer"),
                  "| Todo\nAnswer\n",
                  "[stdout] \x1B[94m|\x1B[0m Todo\n",
                  4}}) {
            RecordingNotificationCenter notifications;
            QuickTaskManagerFixture fixture({&notifications, nullptr, nullptr});
            QSignalSpy running(fixture.manager.get(), &QuickTaskManager::runningSessionCountChanged);
            fixture.useSteps(row.steps);

            const std::optional<QUuid> id = fixture.start(row.backend, QStringLiteral("  Fix the build\n"));
            QVERIFY(id);
            QuickTaskSession session = fixture.session(*id);
            QCOMPARE(session.status, QuickTaskSession::Status::running);
            QCOMPARE(session.prompt, QStringLiteral("Fix the build"));
            QCOMPARE(session.workingDirectory, fixture.workingDirectory);
            QCOMPARE(session.startedAt, fixture.clock.now());
            QVERIFY(fixture.manager->hasRunningSessions());
            QCOMPARE(running.count(), 1);
            QCOMPARE(running.at(0).at(0).toInt(), 1);
            // The running session is on disk at once, so a crash leaves a trace to recover.
            QCOMPARE(fixture.manager->store().loadSessions().constFirst().status,
                     QuickTaskSession::Status::running);

            fixture.clock.advance(90);
            QVERIFY(fixture.waitUntilFinished(*id));
            session = fixture.session(*id);
            QCOMPARE(session.status, QuickTaskSession::Status::succeeded);
            QCOMPARE(session.exitStatus, 0);
            QCOMPARE(session.finishedAt, fixture.clock.now());
            QCOMPARE(session.finalResponse, row.finalResponse);
            if (row.backend == QuickTaskCLIBackend::codex)
                QCOMPARE(session.threadID, QStringLiteral("th-1"));
            QCOMPARE(running.count(), 2);
            QCOMPARE(running.at(1).at(0).toInt(), 0);
            QCOMPARE(fixture.manager->store().loadSessions(), QList<QuickTaskSession>{session});
            QCOMPARE(
                fixture.fakes.recorded(BackendProfiles::of(row.backend).rawValue() + QStringLiteral(".cwd"))
                    .trimmed(),
                fixture.workingDirectory.toUtf8());

            // Both files are private to the user.
            for (const QString &file :
                 {fixture.manager->store().transcriptURL(*id), fixture.manager->store().rawLogURL(*id)})
                QCOMPARE(QFile::permissions(file) & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteOther),
                         QFile::Permissions());
            const QByteArray transcript = fixture.read(fixture.manager->store().transcriptURL(*id));
            const QByteArray header = "Prompt\n------\nFix the build\n\nBackend\n-------\n" +
                                      BackendProfiles::of(row.backend).displayTitle().toUtf8() +
                                      "\n\nWorking Directory\n-----------------\n" +
                                      fixture.workingDirectory.toUtf8() +
                                      "\n\nPreset\n------\ngpt-5.5\n\nReasoning\n---------\nhigh\n\n"
                                      "Started\n-------\n2026-03-01T09:15:42Z\n\nTranscript\n----------\n";
            QCOMPARE(transcript, header + row.transcriptOutput + "\nStatus: Succeeded\nExit: 0\n");
            const QByteArray rawLog = fixture.read(fixture.manager->store().rawLogURL(*id));
            QCOMPARE(rawLog.count("[stdout] "), row.rawStandardOutputLines);
            QVERIFY2(rawLog.contains(row.rawLine), rawLog.constData());
            QCOMPARE(rawLog.count("[stderr] "), row.transcriptOutput.count("stderr: "));

            QCOMPARE(notifications.posted.size(), 1);
            QCOMPARE(notifications.posted.constFirst().title,
                     BackendProfiles::of(row.backend).displayTitle() + QStringLiteral(" task Succeeded"));
            QCOMPARE(notifications.posted.constFirst().userInfo.value(
                         QStringLiteral("QuickTaskSessionIdentifier")),
                     JSONCoding::encodeUuid(*id));
            QVERIFY(fixture.errorLog->entries().isEmpty());
        }
    }

    void failedTaskIsLoggedWithItsLastStderrLines()
    {
        RecordingNotificationCenter notifications;
        QuickTaskManagerFixture fixture({&notifications, nullptr, nullptr});
        fixture.useSteps({QStringLiteral("err one\\ntwo\\n\\nthree\\n"),
                          QStringLiteral("out partial answer\\n"), QStringLiteral("err four\\nfi"),
                          QStringLiteral("sleep 0.1"), QStringLiteral("err ve\\nsix: denied"),
                          QStringLiteral("exit 3")});
        const std::optional<QUuid> id =
            fixture.start(QuickTaskCLIBackend::claude, QStringLiteral("Deploy it"));
        QVERIFY(id);
        QVERIFY(fixture.waitUntilFinished(*id));

        const QuickTaskSession session = fixture.session(*id);
        QCOMPARE(session.status, QuickTaskSession::Status::failed);
        QCOMPARE(session.exitStatus, 3);
        QCOMPARE(session.finalResponse, QStringLiteral("partial answer"));
        QCOMPARE(fixture.errorLog->entries().size(), 1);
        const ErrorLogEntry entry = fixture.errorLog->entries().constFirst();
        QCOMPARE(entry.title, QStringLiteral("Claude task failed"));
        QCOMPARE(entry.source, QStringLiteral("Quick Tasks"));
        QCOMPARE(entry.detail, QStringLiteral("Prompt: Deploy it\nWorking Directory: %1\nExit: 3\n"
                                              "Last stderr: four | five | six: denied")
                                   .arg(fixture.workingDirectory));
        QVERIFY(fixture.read(fixture.manager->store().transcriptURL(*id))
                    .endsWith("\nStatus: Failed\nExit: 3\n"));
        QCOMPARE(notifications.posted.constFirst().title, QStringLiteral("Claude task Failed"));

        // Killed by a signal, with nothing on stderr; with the notifications switched off.
        AppSettings(*fixture.defaults).setCompletionNotificationsEnabled(false);
        fixture.useSteps({QStringLiteral("kill TERM")});
        const std::optional<QUuid> killed = fixture.start(QuickTaskCLIBackend::opencode);
        QVERIFY(killed);
        QVERIFY(fixture.waitUntilFinished(*killed));
        QCOMPARE(fixture.session(*killed).exitStatus, 143);
        QCOMPARE(notifications.posted.size(), 1);
        QCOMPARE(fixture.errorLog->entries().size(), 2);
        QVERIFY(std::any_of(fixture.errorLog->entries().cbegin(), fixture.errorLog->entries().cend(),
                            [](const ErrorLogEntry &logged) {
                                return logged.detail.endsWith(QStringLiteral("Exit: 143\nLast stderr: none"));
                            }));
    }

    // A stop ends the task cancelled with every process of its group, each signal sent once.
    void stoppedTaskEndsCancelledWithItsWholeGroup()
    {
        for (const auto &[steps, exitStatus, signalsSeen] :
             {// Deaf to SIGINT and SIGTERM, and so is its grandchild: each is sent once, then only
              // the SIGKILL at 2.0 s ends it.
              std::tuple{QStringList{QStringLiteral("ignore-stop-signals"), QStringLiteral("grandchild"),
                                     QStringLiteral("report-stop-signals"), QStringLiteral("ready"),
                                     QStringLiteral("hang")},
                         137, QByteArray("[stdout] got INT\n[stdout] got TERM\n")},
              // Answers SIGINT by finishing normally: still the user's stop, not a success; its
              // grandchild, which ignores SIGINT as background jobs do, is killed all the same.
              std::tuple{QStringList{QStringLiteral("report-stop-signals"), QStringLiteral("grandchild"),
                                     QStringLiteral("ready"), QStringLiteral("sleep 30"),
                                     QStringLiteral("exit 0")},
                         0, QByteArray("[stdout] got INT\n")}}) {
            RecordingNotificationCenter notifications;
            QuickTaskManagerFixture fixture({&notifications, nullptr, nullptr});
            fixture.useSteps(steps);
            const std::optional<QUuid> id = fixture.start(QuickTaskCLIBackend::codex);
            QVERIFY(id);
            QVERIFY(QTest::qWaitFor([&] { return fixture.fakes.isReady(); }, 10000));
            const std::optional<pid_t> grandchild = fixture.fakes.grandchildProcessIdentifier();
            QVERIFY(grandchild);
            QVERIFY(isProcessAlive(*grandchild));

            fixture.manager->stop(*id);
            fixture.manager->stop(*id); // a second press changes nothing
            QVERIFY(fixture.waitUntilFinished(*id));

            const QuickTaskSession session = fixture.session(*id);
            QCOMPARE(session.status, QuickTaskSession::Status::cancelled);
            QCOMPARE(session.exitStatus, exitStatus);
            QVERIFY(QTest::qWaitFor([&] { return !isProcessAlive(*grandchild); }, 2000));
            QVERIFY(fixture.errorLog->entries().isEmpty());
            QCOMPARE(notifications.posted.constFirst().title, QStringLiteral("Codex task Stopped"));
            QVERIFY(fixture.read(fixture.manager->store().transcriptURL(*id))
                        .endsWith("\nStatus: Stopped\nExit: " + QByteArray::number(exitStatus) + '\n'));
            const QByteArray rawLog = fixture.read(fixture.manager->store().rawLogURL(*id));
            QVERIFY2(rawLog.contains(signalsSeen), rawLog.constData());
            QCOMPARE(rawLog.count("got INT"), 1); // each signal is sent once
            QVERIFY(rawLog.count("got TERM") <= 1);
        }
    }

    void stopAllAtTerminationLeavesNothingRunning()
    {
        QuickTaskManagerFixture fixture;
        fixture.useSteps({QStringLiteral("ignore-stop-signals"), QStringLiteral("grandchild"),
                          QStringLiteral("ready"), QStringLiteral("hang")});
        const std::optional<QUuid> deaf = fixture.start(QuickTaskCLIBackend::claude);
        QVERIFY(deaf);
        QVERIFY(QTest::qWaitFor([&] { return fixture.fakes.isReady(); }, 10000));
        const std::optional<pid_t> grandchild = fixture.fakes.grandchildProcessIdentifier();
        QVERIFY(grandchild);
        fixture.useSteps({QStringLiteral("out working\\n"), QStringLiteral("become-sleep")});
        const std::optional<QUuid> polite = fixture.start(QuickTaskCLIBackend::opencode);
        QVERIFY(polite);
        QVERIFY(QTest::qWaitFor(
            [&] { return fixture.read(fixture.manager->store().rawLogURL(*polite)).contains("working"); },
            10000));

        // No event loop from here on: the application is about to exit.
        fixture.manager->stopAllTasksForTermination();
        QVERIFY(!isProcessAlive(*grandchild));
        QVERIFY(!fixture.manager->hasRunningSessions());
        const QList<QuickTaskSession> saved = fixture.manager->store().loadSessions();
        QCOMPARE(saved.size(), 2);
        for (const QuickTaskSession &session : saved)
            QCOMPARE(session.status, QuickTaskSession::Status::cancelled);
        QCOMPARE(fixture.session(*deaf).exitStatus, 137);
        QCOMPARE(fixture.session(*polite).exitStatus, 130);
        QVERIFY(fixture.read(fixture.manager->store().rawLogURL(*polite)).contains("[stdout] working\n"));
    }

    // Refused before a launch, or a launch that fails: no session, no files, at most a row that
    // is taken away again.
    void startFailuresLeaveNothingBehind()
    {
        QuickTaskManagerFixture fixture;
        QSignalSpy changes(fixture.manager.get(), &QuickTaskManager::sessionsChanged);
        const auto nothingLeft = [&] {
            return fixture.manager->sessions().isEmpty() &&
                   fixture.manager->store().loadSessions().isEmpty() &&
                   QDir(fixture.manager->store().transcriptsDirectory()).isEmpty() &&
                   QDir(fixture.manager->store().rawLogsDirectory()).isEmpty();
        };

        const QString folder = fixture.environment.path(QStringLiteral("assets"));
        QDir().mkpath(folder);
        QString error;
        QVERIFY(!fixture.start(QuickTaskCLIBackend::opencode, QStringLiteral("Look"),
                               {PromptAttachment::make(folder),
                                PromptAttachment::make(writeFile(folder + QStringLiteral("/a.txt")))},
                               &error));
        QCOMPARE(error,
                 QStringLiteral("OpenCode can use attached files, but 1 folder attachment is not supported "
                                "yet. Remove folders or choose Codex or Claude."));

        // Answers its version query, then makes itself impossible to start.
        writeFile(fixture.fakes.executable(QStringLiteral("codex")),
                  "#!/bin/sh\nif [ \"$1\" = -V ]; then echo 'codex-cli 1.0'; chmod -x \"$0\"; fi\n");
        QVERIFY(!fixture.start(QuickTaskCLIBackend::codex, QStringLiteral("Go"), {}, &error));
        QCOMPARE(error, QStringLiteral("Could not start codex: Permission denied"));
        QVERIFY(nothingLeft());
        QCOMPARE(changes.count(), 2); // shown, then taken away again

        fixture.environment.set("PATH", QStringLiteral("/nonexistent"));
        QVERIFY(!fixture.start(QuickTaskCLIBackend::codex, QStringLiteral("Look"), {}, &error));
        QCOMPARE(error, QStringLiteral("Could not find the Codex CLI executable."));
        QVERIFY(nothingLeft());
        QCOMPARE(changes.count(), 2);
    }

    // At load a session left running by a crash is cancelled (an end time it already had is
    // kept); a damaged entry (a bad status, an attachment short of a key) is skipped, and the
    // rest, attachments with their managed flag, read back as saved, newest first.
    void storedSessionsAtLoad()
    {
        QuickTaskManagerFixture fixture;
        const QuickTaskStore &store = fixture.manager->store();
        const QDateTime earlier = fixture.clock.now().addSecs(-600);
        const QuickTaskSession crashed = storedSession(QuickTaskSession::Status::running, earlier);
        QuickTaskSession older = storedSession(QuickTaskSession::Status::running, earlier.addSecs(-60));
        older.finishedAt = earlier.addSecs(5);
        const QuickTaskSession done =
            storedSession(QuickTaskSession::Status::failed, earlier.addSecs(60),
                          {PromptAttachment::make(QStringLiteral("/tmp/a b/\u00fc.png"), true),
                           PromptAttachment::make(QStringLiteral("/p/notes.md"))});
        QJsonArray entries{older.toJson(), done.toJson(), 17, crashed.toJson()};
        for (const QString &key :
             {QStringLiteral("id"), QStringLiteral("path"), QStringLiteral("isManagedCopy")}) {
            QJsonObject attachment = done.attachments.constFirst().toJson();
            attachment.remove(key);
            QJsonObject bad = done.toJson();
            bad.insert(QStringLiteral("attachments"), QJsonArray{attachment});
            entries.append(bad);
        }
        QJsonObject bad = done.toJson();
        bad.insert(QStringLiteral("status"), QStringLiteral("exploded"));
        entries.append(bad);
        QDir().mkpath(store.directory());
        DataFile::write(store.sessionsURL(), JSONCoding::encode(entries));

        QSignalSpy changes(fixture.manager.get(), &QuickTaskManager::sessionsChanged);
        fixture.manager->load();
        QCOMPARE(changes.count(), 1);
        QVERIFY(!fixture.manager->hasRunningSessions());
        QCOMPARE(fixture.manager->sessions().size(), 3);
        QCOMPARE(fixture.session(crashed.id).status, QuickTaskSession::Status::cancelled);
        QCOMPARE(fixture.session(crashed.id).finishedAt, fixture.clock.now());
        QCOMPARE(fixture.session(older.id).finishedAt, earlier.addSecs(5));
        QCOMPARE(fixture.session(done.id), done);
        QCOMPARE(store.loadSessions(), fixture.manager->sessions());
        QCOMPARE(fixture.manager->sessions().constFirst().id, done.id); // newest first
        DataFile::write(store.sessionsURL(), "{ not json");
        QVERIFY(store.loadSessions().isEmpty());
    }

    // The menu lists a running session first; dismiss and clear remove finished sessions with
    // their files and only the managed copies no other session holds, and leave a running one.
    void menuDismissAndClear()
    {
        QuickTaskManagerFixture fixture;
        const QString imports =
            QDir(FileStore::baseDirectory()).filePath(QStringLiteral("ImportedAttachments"));
        const QString pasted = writeFile(imports + QStringLiteral("/Pasted Image 1.png"));
        const QString shared = writeFile(imports + QStringLiteral("/Pasted Image 2.png"));
        const QString userFile = writeFile(fixture.environment.path(QStringLiteral("docs/notes.md")));

        const QDateTime base = fixture.clock.now().addSecs(-600);
        const QuickTaskSession first =
            storedSession(QuickTaskSession::Status::succeeded, base,
                          {PromptAttachment::make(pasted, true), PromptAttachment::make(userFile),
                           PromptAttachment::make(shared, true)});
        // A retry of the same prompt, reusing one pasted image.
        const QuickTaskSession retried = storedSession(QuickTaskSession::Status::failed, base.addSecs(60),
                                                       {PromptAttachment::make(shared, true)});
        fixture.manager->store().saveSessions({first, retried});
        fixture.manager->load();
        for (const QuickTaskSession &session : {first, retried}) {
            fixture.manager->store().createSessionFiles(session.id, "header\n");
            fixture.manager->store().appendRawLog(session.id, "[stdout] x\n");
        }

        fixture.useSteps({QStringLiteral("ready"), QStringLiteral("hang")});
        fixture.clock.advance(-7200); // started before both, still listed first while it runs
        const std::optional<QUuid> running = fixture.start(QuickTaskCLIBackend::claude);
        QVERIFY(running);
        const QList<QuickTaskSession> menu = fixture.manager->menuSessions(2);
        QCOMPARE(menu.size(), 2);
        QCOMPARE(menu.at(0).id, *running);
        QCOMPARE(menu.at(1).id, retried.id);
        QCOMPARE(fixture.manager->menuSessions().size(), 3);
        QCOMPARE(fixture.manager->runningSessionCount(), 1);

        QSignalSpy changes(fixture.manager.get(), &QuickTaskManager::sessionsChanged);
        fixture.manager->dismiss(first.id);
        QCOMPARE(changes.count(), 1);
        QCOMPARE(fixture.manager->sessions().size(), 2);
        QCOMPARE(fixture.manager->store().loadSessions(), fixture.manager->sessions());
        QVERIFY(!QFile::exists(fixture.manager->store().transcriptURL(first.id)));
        QVERIFY(!QFile::exists(fixture.manager->store().rawLogURL(first.id)));
        QVERIFY(!QFile::exists(pasted));
        QVERIFY(QFile::exists(userFile));
        QVERIFY(QFile::exists(shared)); // still used by the retry
        QVERIFY(QFile::exists(fixture.manager->store().transcriptURL(retried.id)));

        fixture.manager->dismiss(QUuid::createUuid());
        fixture.manager->dismiss(*running);
        QCOMPARE(changes.count(), 1);

        QVERIFY(fixture.manager->hasFinishedSessions());
        fixture.manager->clearFinishedTasks();
        QCOMPARE(fixture.manager->sessions().size(), 1);
        QCOMPARE(fixture.manager->store().loadSessions(), fixture.manager->sessions());
        QVERIFY(!fixture.manager->hasFinishedSessions());
        QVERIFY(!QFile::exists(shared)); // its last session is gone
        QVERIFY(!QFile::exists(fixture.manager->store().rawLogURL(retried.id)));
        QCOMPARE(changes.count(), 2);
        fixture.manager->stop(*running);
        QVERIFY(fixture.waitUntilFinished(*running));
    }

    // The next task runs where the last editor request was; a folder that is gone is refused,
    // never swapped for another. (Copy and open go through the notification's actions in
    // tst_quicktasknotifications, Retry through the tray menu in tst_quicktask_e2e.)
    void workingDirectoryOfTheNextTask()
    {
        QuickTaskManagerFixture fixture;
        const QString other = fixture.environment.path(QStringLiteral("other"));
        QDir().mkpath(other);
        fixture.manager->noteWorkingDirectory(QString());
        fixture.manager->noteWorkingDirectory(other);
        const std::optional<QUuid> second = fixture.start(QuickTaskCLIBackend::claude);
        QVERIFY(second);
        QCOMPARE(fixture.session(*second).workingDirectory, other);
        QVERIFY(fixture.waitUntilFinished(*second));
        QDir(other).removeRecursively();
        QString error;
        QVERIFY(!fixture.start(QuickTaskCLIBackend::claude, QStringLiteral("Say hi"), {}, &error));
        QCOMPARE(error, QStringLiteral("The working folder \u201c%1\u201d no longer exists. Choose another "
                                       "folder for the task.")
                            .arg(other));
        QCOMPARE(fixture.manager->workingDirectoryForNewTask(), other);
    }

    // The notification's texts: one line each, cut at 64 (subtitle), 48 (the prompt in the body)
    // and 96 (the response) characters as the user counts them; titles and actions are checked
    // where tasks finish, above and in tst_quicktasknotifications.
    void completionNotificationCutsAtItsLimits()
    {
        const auto letters = [](int count, char16_t letter = u'a') {
            return QString(count, QChar(letter));
        };
        const QString cut = QStringLiteral("...");
        // A family emoji is one character, never split.
        const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467");
        struct Row {
            QString prompt;
            std::optional<QString> response;
            QString subtitle, body;
        };
        for (const Row &row :
             QList<Row>{{letters(48), {}, letters(48), letters(48)},
                        {letters(49), {}, letters(49), letters(48) + cut},
                        {letters(65), {}, letters(64) + cut, letters(48) + cut},
                        {QStringLiteral("Hi"), letters(97, u'r'), QStringLiteral("Hi"),
                         QStringLiteral("Hi\n") + letters(96, u'r') + cut},
                        {QStringLiteral("Hi"), QString(), QStringLiteral("Hi"),
                         QStringLiteral("Hi")}, // no empty line
                        {QStringLiteral("\n  Fix\nthe\r\nbuild  \n"), QStringLiteral("Done.\n\nAll green.\n"),
                         QStringLiteral("Fix the build"), QStringLiteral("Fix the build\nDone.  All green.")},
                        {letters(47) + family, {}, letters(47) + family, letters(47) + family},
                        {letters(48) + family, {}, letters(48) + family, letters(48) + cut}}) {
            QuickTaskSession session = storedSession(QuickTaskSession::Status::succeeded, QDateTime());
            session.prompt = row.prompt;
            session.finalResponse = row.response;
            QCOMPARE(QuickTaskCompletionNotification::subtitle(session), row.subtitle);
            QCOMPARE(QuickTaskCompletionNotification::body(session), row.body);
        }
    }
};

QTEST_GUILESS_MAIN(QuickTaskManagerTest)
#include "tst_quicktaskmanager.moc"
