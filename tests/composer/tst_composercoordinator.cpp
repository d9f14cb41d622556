// The composer coordinator against real request files and a fake window system (offscreen).
#include "ComposerTestSupport.h"
#include "app/ComposerCoordinator.h"
#include "app/QuitPolicy.h"
#include "app/RequestIntake.h"
#include "app/WindowActivationCoordinator.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerTextView.h"
#include "composer/EditorComposer.h"
#include "composer/ScratchComposer.h"
#include "composer/ScratchWindowFrameStore.h"
#include "core/AttachmentStore.h"
#include "core/Clock.h"
#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/UserDefaults.h"
#include "editing/PromptHistory.h"
#include "errorlog/ErrorLogManager.h"
#include "fakebackends/FakeBackendSetup.h"
#include "quicktasks/QuickTaskManager.h"
#include "quicktasks/QuickTaskStore.h"
#include "remote/RemoteRequestServer.h"
#include "support/RemoteTestClient.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
ComposerRequest writeRequest(const QString &text, qint32 pid)
{
    const ComposerRequest request{
        QUuid::createUuid(), QDateTime::currentDateTimeUtc(), {}, text, {}, {}, pid};
    RequestFileIO::writeRequest(request);
    QTest::qWait(12); // distinct birth times: the queue is ordered by age
    return request;
}

// Moves the file's modification time back by that many seconds.
void ageFile(const QString &path, int seconds)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(
        file.setFileTime(QDateTime::currentDateTime().addSecs(-seconds), QFileDevice::FileModificationTime));
}

struct Fixture : FakeBackendSetup {
    TestEnvironment &env = environment;
    UserDefaults defaults{env.path(u"settings.conf"_s)};
    ErrorLogManager log{Clock::system()};
    FakeWindowSystem windows;
    WindowActivationCoordinator activation{windows};
    ScratchWindowFrameStore frames{defaults};
    RequestIntake intake{log, Clock::system()};
    QuickTaskManager tasks{QuickTaskStore(), log, defaults, Clock::system()};
    PromptHistory history{env.path(u"History/prompts.json"_s), Clock::system()};
    ComposerCoordinator composers{
        intake,
        tasks,
        windows,
        activation,
        frames,
        log,
        ComposerServices{&defaults, nullptr, {}, nullptr, nullptr, nullptr, &history}};
    QStringList historyTexts() const
    {
        QStringList texts;
        for (const PromptHistoryEntry &entry : PromptHistory(history.path(), Clock::system()).entries())
            texts.append(entry.text);
        return texts;
    }
};
} // namespace

class ComposerCoordinatorTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void oneRequestOnScreenAnsweredOnceFocusBackToItsTerminal()
    {
        Fixture f;
        const ComposerRequest first = writeRequest(u"one"_s, 4001);
        const ComposerRequest second = writeRequest(u"two"_s, 4002);
        f.composers.prepareComposers(); // made ahead, as at launch
        f.composers.processPendingRequests();
        f.composers.processPendingRequests(); // the second waits behind the first
        QCOMPARE(f.composers.currentRequest()->id, first.id);
        QCOMPARE(f.composers.editorComposer()->text(), u"one"_s);
        QVERIFY(!f.composers.editorComposer()->panel()->textView()->document()->isUndoAvailable());
        QCOMPARE(f.windows.dockChanges, QList<bool>{true}); // a Dock icon while a composer is up

        const QPointer<EditorComposer> firstComposer = f.composers.editorComposer();
        QTest::keyClicks(firstComposer->panel()->textView(), u"!"_s);
        firstComposer->panel()->submitButton()->click();
        QCOMPARE(RequestFileIO::readResponse(first.id).updatedText, std::optional<QString>(u"one!"_s));
        // The next request opens at once; the focus goes to it, not to the first terminal.
        QCOMPARE(f.composers.currentRequest()->id, second.id);
        QVERIFY(f.windows.activatedApplications.isEmpty());

        // The first composer, closed but not yet gone, cannot answer the second request.
        QVERIFY(firstComposer);
        firstComposer->panel()->cancelButton()->click();
        QVERIFY(!RequestFileIO::responseExists(second.id));

        f.composers.editorComposer()->panel()->cancelButton()->click();
        QCOMPARE(RequestFileIO::readResponse(second.id).disposition,
                 ComposerResponse::Disposition::cancelled);
        QVERIFY(!f.composers.currentRequest());
        QCOMPARE(f.windows.activatedApplications, QList<qint64>{4002});
        QTRY_VERIFY(!firstComposer);
        QTRY_COMPARE(f.windows.dockChanges, (QList<bool>{true, false})); // none once both are gone
        QCOMPARE(f.log.entries().size(), 0);
        QCOMPARE(f.historyTexts(), QStringList{u"one!"_s}); // a cancelled text is no history
    }

    // A request from another machine joins the queue behind an older local one, is marked with its
    // host, takes text but no files, and is answered over its connection; one whose connection
    // closes leaves its text to copy.
    void aRemoteRequestIsMarkedAndAnsweredOverItsConnection()
    {
        using namespace RemoteProtocol;
        Fixture f;
        RemoteRequestServer server(f.log);
        QVERIFY(server.listen(f.env.path(u"run/tarvel/remote.sock"_s)));
        f.intake.setRemoteRequests(&server);
        const ComposerRequest local = writeRequest(u"local"_s, 4001);
        RemoteTestClient client(server.socketPath());
        client.send(Request{"remote", "build-01", "/srv/project", "COMMIT_EDITMSG"});
        QVERIFY(client.receive() == ServerMessage(Accepted{}));
        f.composers.processPendingRequests();
        QCOMPARE(f.composers.currentRequest()->id, local.id);
        QVERIFY(!f.composers.editorComposer()->remoteMark());
        f.composers.editorComposer()->panel()->cancelButton()->click();

        EditorComposer *editor = f.composers.editorComposer();
        QCOMPARE(editor->remoteMark()->text(), u"on build-01"_s);
        QCOMPARE(editor->panel()->windowTitle(), u"Tarvel Composer \u2014 on build-01"_s);
        auto *pasted = new QMimeData;
        pasted->setUrls({QUrl::fromLocalFile(f.env.path(u"notes.txt"_s))});
        pasted->setText(f.env.path(u"notes.txt"_s));
        QGuiApplication::clipboard()->setMimeData(pasted);
        editor->panel()->textView()->paste();
        QGuiApplication::clipboard()->setText(u" and text"_s);
        editor->panel()->textView()->paste();
        QCOMPARE(editor->text(), u"remote and text"_s);
        QVERIFY(editor->panel()
                    ->findChild<QLabel *>(u"ComposerNotice"_s)
                    ->text()
                    .startsWith(u"Only text goes to build-01"_s));
        editor->panel()->submitButton()->click();
        QVERIFY(client.receive() == ServerMessage(Answer{Answer::Disposition::submitted, "remote and text"}));
        QVERIFY(!f.composers.currentRequest());

        RemoteTestClient gone(server.socketPath());
        gone.send(Request{"typed", "build-02", std::nullopt, std::nullopt});
        QVERIFY(gone.receive() == ServerMessage(Accepted{}));
        f.composers.processPendingRequests();
        gone.close();
        QTRY_COMPARE(server.waitingRequestCount(), 0);
        f.composers.processPendingRequests();
        QCOMPARE(f.composers.editorComposer()->panel()->submitButton()->text(), u"Copy and Close"_s);
        f.composers.editorComposer()->panel()->submitButton()->click();
        QVERIFY(!f.composers.currentRequest());
        QCOMPARE(f.log.entries().size(), 0);
        f.intake.setRemoteRequests(nullptr);
    }

    void unwrittenAnswerKeepsTheComposer()
    {
        Fixture f;
        const ComposerRequest request = writeRequest(u"keep me"_s, 4001);
        f.composers.processPendingRequests();
        QVERIFY(QDir(FileStore::responsesDirectory()).removeRecursively());
        DataFile::write(FileStore::responsesDirectory(), "a file where the folder belongs");
        f.composers.editorComposer()->panel()->submitButton()->click();
        QCOMPARE(f.composers.currentRequest()->id, request.id);
        QVERIFY(f.composers.editorComposer()->panel()->isVisible());
        // The prompt was kept before the answer was written, so a crash after an answer keeps it.
        QCOMPARE(f.historyTexts(), QStringList{u"keep me"_s});

        // Quitting (it says what it ends) answers it after all, and closes the composer without a
        // cancel of its own.
        QFile::remove(FileStore::responsesDirectory());
        QCOMPARE(QuitPolicy::confirmationDetail(0, 1, 0), u"1 waiting editor request will be cancelled."_s);
        QCOMPARE(QuitPolicy::confirmationDetail(2, 0, 1),
                 u"2 running tasks will be stopped.\n1 open quick-task composer will be closed."_s);
        QuitPolicy quit(f.tasks, f.intake, f.composers, f.activation);
        quit.terminate();
        QCOMPARE(RequestFileIO::readResponse(request.id).disposition,
                 ComposerResponse::Disposition::cancelled);
        QVERIFY(!f.composers.editorComposer()->panel()->isVisible());
        f.composers.processPendingRequests(); // serves nothing any more
        writeRequest(u"late"_s, 4001);
        f.composers.processPendingRequests();
        QCOMPARE(f.composers.currentRequest()->id, request.id);
    }

    // A quick task starts where and when the user meant it, from a composer made ahead or not:
    // never in a folder that has gone, never after a cancel that came while the backend was being
    // checked.
    void aQuickTaskStartsOnlyWhereAndWhenMeant()
    {
        Fixture f;
        copyCodexModelCache(f.env);
        f.env.set("FAKE_CODEX_VERSION_DELAY", u"1"_s);
        const QString gone = f.env.path(u"gone"_s);
        f.tasks.noteWorkingDirectory(gone);
        const auto readyComposer = [&] {
            f.composers.openScratchComposer();
            ScratchComposer *composer = f.composers.scratchComposers().constLast();
            [&] {
                QTRY_VERIFY_WITH_TIMEOUT(composer->availability().isReady(), 10000);
            }();
            composer->panel()->textView()->setPlainText(u"Fix the build"_s);
            return composer;
        };
        // The first is the one made ahead, hidden, after the editor's.
        f.composers.prepareComposers();
        QTRY_COMPARE(f.composers.findChildren<ScratchComposer *>().size(), qsizetype(1));
        const QPointer<ScratchComposer> madeAhead =
            f.composers.findChildren<ScratchComposer *>().constFirst();
        QVERIFY(!madeAhead->panel()->isVisible());
        ScratchComposer *composer = readyComposer();
        QCOMPARE(composer, madeAhead.data());
        QCOMPARE(composer->workingDirectory(), gone);
        composer->submitPressed();
        QMessageBox *alert = nullptr;
        QTRY_VERIFY((alert = composer->panel()->findChild<QMessageBox *>(u"ComposerAlert"_s)));
        QVERIFY2(alert->informativeText().contains(gone), qPrintable(alert->informativeText()));
        alert->close();

        const QString project = f.env.path(u"project"_s);
        QVERIFY(QDir().mkpath(project));
        composer->setWorkingDirectory(project);
        // A changed program is checked again, which leaves time for the cancel.
        ageFile(f.fakes.executable(u"codex"_s), 60);
        composer->submitPressed();
        composer->panel()->cancelButton()->click();
        QTest::qWait(1500);
        QVERIFY(f.tasks.sessions().isEmpty());
        QVERIFY(!QFile::exists(f.fakes.recordPath(u"codex.argv"_s)));

        ScratchComposer *another = readyComposer();
        another->setWorkingDirectory(project);
        another->submitPressed();
        QTRY_COMPARE_WITH_TIMEOUT(f.tasks.sessions().size(), qsizetype(1), 10000);
        QCOMPARE(f.tasks.sessions().constFirst().workingDirectory, project);
        QCOMPARE(f.history.prompts(project), QStringList{u"Fix the build"_s});
    }

    // A closing composer hands the focus to the composer in front, not to the one made last.
    void focusGoesToTheComposerInFront()
    {
        Fixture f;
        for (int count = 0; count < 3; ++count)
            f.composers.openScratchComposer();
        const QList<ScratchComposer *> open = f.composers.scratchComposers();
        QTest::qWait(WindowActivationCoordinator::finalAttemptDelayMs + 100);
        open.at(0)->panel()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(open.at(0)->panel()));
        open.at(2)->panel()->cancelButton()->click();
        QTest::qWait(WindowActivationCoordinator::settleDelayMs * 2);
        QVERIFY(open.at(0)->panel()->isActiveWindow());
    }

    // Retry hands a session's pasted image to a new draft: deleting the session leaves it to the
    // draft, and cancelling the draft, its last holder, deletes it. A scratch composer open at quit
    // comes back with its pasted image; pastes nothing names any more go once they are a day old.
    void draftsKeepTheirPastesAndUnusedOnesGo()
    {
        Fixture f;
        const PromptAttachment pasted = AttachmentStore::importPng("png");
        QuickTaskSession session;
        session.id = QUuid::createUuid();
        session.prompt = u"Describe it"_s;
        session.workingDirectory = f.env.root();
        session.attachments = {pasted};
        session.startedAt = QDateTime::currentDateTime();
        session.finishedAt = session.startedAt;
        session.status = QuickTaskSession::Status::succeeded;
        f.tasks.store().saveSessions({session});
        f.tasks.load();

        f.composers.openScratchComposer(session.prompt, session.attachments);
        f.tasks.dismiss(session.id);
        QVERIFY(QFile::exists(pasted.path));
        f.composers.scratchComposers().constFirst()->panel()->cancelButton()->click();
        QVERIFY(!QFile::exists(pasted.path));

        const auto old = [](const PromptAttachment &copy) {
            ageFile(copy.path, 2 * 24 * 3600);
            return copy;
        };
        const PromptAttachment kept = old(AttachmentStore::importPng("kept"));
        const PromptAttachment forgotten = old(AttachmentStore::importPng("forgotten"));
        const PromptAttachment fresh = AttachmentStore::importPng("fresh");
        const PromptAttachment named = old(AttachmentStore::importPng("named"));
        DraftStore().save(DraftStore::requestDraftName(QUuid::createUuid()), u"See "_s + named.path);

        f.composers.openScratchComposer(u"Describe it"_s, {kept});
        f.composers.closeAllForTermination();
        ComposerCoordinator next(f.intake, f.tasks, f.windows, f.activation, f.frames, f.log,
                                 ComposerServices{&f.defaults, nullptr, {}});
        next.sweepImportedAttachments(QDateTime::currentDateTime().addDays(-1));
        QTRY_VERIFY(!QFile::exists(forgotten.path));
        for (const PromptAttachment &stays : {kept, fresh, named})
            QVERIFY(QFile::exists(stays.path));

        next.openScratchComposer();
        QCOMPARE(next.scratchComposers().constFirst()->text(), u"Describe it"_s);
        QCOMPARE(next.scratchComposers().constFirst()->attachments(), QList<PromptAttachment>{kept});
    }
};

QTEST_MAIN(ComposerCoordinatorTest)
#include "tst_composercoordinator.moc"
