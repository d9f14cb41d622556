// Drafts on disk: a keeper writes at most a second after a change and never while nothing changes;
// the store hands the newest scratch draft to the next composer and forgets drafts of answered
// requests.
#include "core/DraftKeeper.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

class DraftsTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void keeperWritesShortlyAfterChangesAndOnlyThen()
    {
        QTemporaryDir root;
        const DraftStore store(root.filePath(QStringLiteral("Drafts")));
        QString text = QStringLiteral("first");
        DraftKeeper keeper(store, QStringLiteral("one"), [&text] { return text; });
        const QString file = root.filePath(QStringLiteral("Drafts/one.txt"));

        keeper.noteChange();
        QVERIFY(!QFile::exists(file));
        QTest::qWait(DraftKeeper::saveDelayMs / 2);
        text = QStringLiteral("first, then more"); // typing on: the first countdown still ends it
        keeper.noteChange();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(file), DraftKeeper::saveDelayMs);
        QCOMPARE(store.load(QStringLiteral("one")), QStringLiteral("first, then more"));
        QCOMPARE(QFileInfo(file).permissions() & 0x0777, QFile::ReadUser | QFile::WriteUser);
        QCOMPARE(QFileInfo(file.section(u'/', 0, -2)).permissions() & 0x0777,
                 QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);

        const QDateTime written = QFileInfo(file).lastModified();
        QTest::qWait(DraftKeeper::saveDelayMs + 300);
        QCOMPARE(QFileInfo(file).lastModified(), written); // nothing changed, nothing written

        text = QStringLiteral("  \n"); // emptied: nothing worth offering
        keeper.saveNow();
        QVERIFY(!QFile::exists(file));
        text = QStringLiteral("again");
        keeper.saveNow();
        keeper.noteChange();
        keeper.discard();
        QVERIFY(!QFile::exists(file));
        QTest::qWait(DraftKeeper::saveDelayMs + 200);
        QVERIFY(!QFile::exists(file)); // a countdown under way ends with the discard
    }

    void storeOffersScratchDraftsAndForgetsAnsweredRequests()
    {
        QTemporaryDir root;
        const DraftStore store(root.filePath(QStringLiteral("Drafts")));
        const QUuid open = QUuid::createUuid();
        const QUuid older = QUuid::createUuid();
        const QUuid newer = QUuid::createUuid();
        const QUuid waiting = QUuid::createUuid();
        const QUuid answered = QUuid::createUuid();
        store.save(DraftStore::scratchDraftName(older), QStringLiteral("older"));
        QTest::qWait(20); // file times tell the newest
        const PromptAttachment pasted =
            PromptAttachment::make(root.filePath(QStringLiteral("image.png")), true);
        store.save(DraftStore::scratchDraftName(newer), QStringLiteral("newer"), {pasted});
        QTest::qWait(20);
        store.save(DraftStore::scratchDraftName(open), QStringLiteral("still open"));
        store.save(DraftStore::requestDraftName(waiting), QStringLiteral("waiting"));
        store.save(DraftStore::requestDraftName(answered), QStringLiteral("answered"));

        QCOMPARE(store.attachmentPaths(), QSet<QString>{pasted.path});
        const std::optional<DraftStore::Draft> newest = store.takeNewestScratchDraft({open});
        QCOMPARE(newest->text, QStringLiteral("newer"));
        QCOMPARE(newest->attachments, QList<PromptAttachment>{pasted}); // kept with the text
        QVERIFY(store.attachmentPaths().isEmpty());
        QCOMPARE(store.takeNewestScratchDraft({open})->text, QStringLiteral("older"));
        QVERIFY(!store.takeNewestScratchDraft({open}));
        QCOMPARE(store.load(DraftStore::scratchDraftName(open)), QStringLiteral("still open"));

        store.removeRequestDraftsExcept({waiting});
        QCOMPARE(store.load(DraftStore::requestDraftName(waiting)), QStringLiteral("waiting"));
        QCOMPARE(store.load(DraftStore::requestDraftName(answered)), std::nullopt);
        QCOMPARE(store.load(DraftStore::scratchDraftName(open)), QStringLiteral("still open"));
    }
};

QTEST_GUILESS_MAIN(DraftsTest)
#include "tst_drafts.moc"
