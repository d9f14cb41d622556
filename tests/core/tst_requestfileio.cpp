// The request and response records and the shared JSON form; the folder tree and the life of
// request, response and marker files; and drafts on disk: a keeper writes at most a second after a
// change and never while nothing changes, and the store hands the newest scratch draft to the next
// composer and forgets drafts of answered requests.
#include "core/DataFile.h"
#include "core/DataFolderMove.h"
#include "core/DraftKeeper.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "core/RequestFileIO.h"
#include "core/TarvelError.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {
ComposerRequest makeRequest(const QString &text)
{
    return ComposerRequest{QUuid::createUuid(), QDateTime::currentDateTimeUtc(), {}, text, {}, {}, {}};
}

int permissions(const QString &path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 0777) : -1;
}

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

class RequestFileIOTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // One form is written: only the keys present, in byte order, one per line, slashes escaped,
    // whole UTC seconds and upper-case identifiers. Reading takes fractions, offsets and
    // reference-date numbers, ignores unknown keys and reads nulls of optional keys as absent.
    void recordsAreWrittenInOneFormAndReadLeniently()
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
        QVERIFY(fullJson.contains(R"("cwd": "\/home\/u\/project")"));
        QCOMPARE(JSONCoding::decodeRecord<ComposerRequest>(fullJson), full);
        QVERIFY(fullJson.contains("\n    \""));

        const ComposerResponse cancelled{
            kId, utc(2026, 1, 2, 3, 4, 5), ComposerResponse::Disposition::cancelled, {}};
        const QByteArray responseJson = JSONCoding::encodeRecord(cancelled);
        QCOMPARE(keyLines(responseJson), (QList<QByteArray>{"disposition", "id", "respondedAt"}));
        QVERIFY(responseJson.contains("\"disposition\": \"cancelled\""));
        const ComposerResponse submitted{kId, utc(2026, 1, 2, 3, 4, 5),
                                         ComposerResponse::Disposition::submitted,
                                         QStringLiteral("fix the bug\n\nwith care")};
        QCOMPARE(JSONCoding::decodeRecord<ComposerResponse>(JSONCoding::encodeRecord(submitted)), submitted);
        QVERIFY_THROWS_EXCEPTION(
            DecodingError,
            JSONCoding::decodeRecord<ComposerResponse>(
                R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","respondedAt":"2026-01-02T03:04:05Z","disposition":"canceled"})"));

        for (const auto &[value, expected] :
             {std::pair{QByteArray(R"("2026-11-14T17:36:59.5Z")"), utc(2026, 11, 14, 17, 36, 59, 500)},
              std::pair{QByteArray(R"("2026-11-14T17:36:59.123456Z")"), utc(2026, 11, 14, 17, 36, 59, 123)},
              std::pair{QByteArray(R"("2026-11-14T19:36:59+02:00")"), utc(2026, 11, 14, 17, 36, 59)},
              std::pair{QByteArray("1.5"), utc(2001, 1, 1, 0, 0, 1, 500)},
              std::pair{QByteArray("-86400"), utc(2000, 12, 31, 0, 0, 0)}}) {
            const ComposerRequest request = JSONCoding::decodeRecord<ComposerRequest>(
                R"({"id":"6f9619ff-8b86-d011-b42d-00c04fc964ff","initialText":"","createdAt":)" + value +
                "}");
            QCOMPARE(request.createdAt, expected);
            const QByteArray written = JSONCoding::encodeRecord(request);
            QVERIFY(written.contains("\"createdAt\": \"" +
                                     expected.toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'")).toUtf8() +
                                     "\""));
            QVERIFY(written.contains("6F9619FF-8B86-D011-B42D-00C04FC964FF"));
        }

        const ComposerRequest lenient = JSONCoding::decodeRecord<ComposerRequest>(
            R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","createdAt":"2026-11-14T17:36:59Z",
            "initialText":"x","cwd":null,"future":{"a":[1,2]},"sourceApplicationPID":-2147483648})");
        QVERIFY(!lenient.cwd);
        QCOMPARE(lenient.sourceApplicationPID, std::optional<qint32>(-2147483648));
        QCOMPARE(lenient.initialText, QStringLiteral("x"));
    }

    void malformedRecordsAreRejected()
    {
        const QByteArray start = R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","initialText":"",)";
        const QByteArray date = R"("createdAt":"2026-11-14T17:36:59Z")";
        const auto rejected = [](const QByteArray &json) {
            try {
                JSONCoding::decodeRecord<ComposerRequest>(json);
                return false;
            } catch (const DecodingError &) {
                return true;
            }
        };
        const QList<QByteArray> malformed{
            // Dates that are neither ISO 8601 with a zone nor a reference-date number.
            start + R"("createdAt":"2026-11-14T17:36:59"})", start + R"("createdAt":"2026-13-14T17:36:59Z"})",
            start + R"("createdAt":true})",
            // Dates whose UTC year has no four-digit form, so that what was read could not be written.
            start + R"("createdAt":795173213425})", start + R"("createdAt":-63200000000})",
            start + R"("createdAt":"9999-12-31T23:30:00-01:00"})",
            // PIDs outside int32 or not integers, keys of the wrong type.
            start + date + R"(,"sourceApplicationPID":4294967296})",
            start + date + R"(,"sourceApplicationPID":-2147483649})",
            start + date + R"(,"sourceApplicationPID":1.5})",
            start + date + R"(,"sourceApplicationPID":"12"})", start + date + R"(,"cwd":3})",
            QByteArray(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","createdAt":0,"initialText":null})"),
            // Identifiers that are not a bare UUID, or none; not a whole object.
            R"({"id":"6F9619FF-8B86-D011-B42D","initialText":"",)" + date + "}",
            R"({"id":"{6F9619FF-8B86-D011-B42D-00C04FC964FF}","initialText":"",)" + date + "}",
            R"({"initialText":"",)" + date + "}",
            QByteArray(R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF",)"), QByteArray("[]")};
        for (const QByteArray &json : malformed)
            QVERIFY2(rejected(json), json.constData());
    }

    // The data folder follows the data home; its folders and files are private.
    void foldersFollowTheDataHomeAndArePrivate()
    {
        TestEnvironment env;
        QCOMPARE(FileStore::baseDirectory(), env.path(QStringLiteral(".local/share/Tarvel")));
        env.set("XDG_DATA_HOME", env.path(QStringLiteral("elsewhere")));
        QCOMPARE(FileStore::baseDirectory(), env.path(QStringLiteral("elsewhere/Tarvel")));
        // No data home set and none on disk: still the default one, made as mkdir -p would.
        env.unset("XDG_DATA_HOME");
        QVERIFY(QDir(env.path(QStringLiteral(".local"))).removeRecursively());
        QCOMPARE(FileStore::baseDirectory(), env.path(QStringLiteral(".local/share/Tarvel")));
        FileStore::ensureDirectoriesExist();
        const mode_t mask = ::umask(0);
        ::umask(mask);
        QCOMPARE(permissions(env.path(QStringLiteral(".local/share"))), int(0777 & ~mask));
        FileStore::ensureDirectoriesExist(); // existing folders are fine
        for (const QString &folder :
             {FileStore::baseDirectory(), FileStore::requestsDirectory(), FileStore::responsesDirectory(),
              FileStore::completedRequestsDirectory(), FileStore::malformedRequestsDirectory()})
            QCOMPARE(permissions(folder), 0700);

        const ComposerRequest request = makeRequest(QStringLiteral("hello"));
        RequestFileIO::writeRequest(request);
        QCOMPARE(permissions(FileStore::requestURL(request.id)), 0600);
        RequestFileIO::writeResponse({request.id, QDateTime::currentDateTimeUtc(),
                                      ComposerResponse::Disposition::submitted, QStringLiteral("bye")});
        QCOMPARE(permissions(FileStore::responseURL(request.id)), 0600);
        // Rewriting leaves no temporary files behind.
        RequestFileIO::writeRequest(request);
        QCOMPARE(QDir(FileStore::requestsDirectory()).entryList(QDir::Files | QDir::Hidden).size(), 1);
    }

    // An old ~/Tarvel moves into the data folder once: whole when there is none yet (across file
    // systems too), else only what the data folder lacks. Nothing is replaced, and a link or a
    // folder that only has the name stays where it is.
    void oldHomeFolderMovesOnce()
    {
        const QStringList all{QStringLiteral("*")}; // what stays in ~/Tarvel afterwards
        for (const auto &[setup, stays] :
             {std::pair{QString(), QStringList()},
              // into the request folders tarvel-edit made
              std::pair{QStringLiteral("made"),
                        QStringList{QStringLiteral("CompletedRequests"), QStringLiteral("MalformedRequests"),
                                    QStringLiteral("Requests"), QStringLiteral("Responses")}},
              std::pair{QStringLiteral("foreign"), all}, std::pair{QStringLiteral("link"), all},
              std::pair{QStringLiteral("shm"), QStringList()}}) {
            TestEnvironment env;
            QTemporaryDir otherFileSystem(QStringLiteral("/dev/shm/tarvel-XXXXXX"));
            if (setup == u"shm") {
                struct stat here {
                }, there{};
                if (!otherFileSystem.isValid() ||
                    ::stat(QFile::encodeName(env.root()).constData(), &here) != 0 ||
                    ::stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev)
                    QSKIP("no second file system at /dev/shm"); // the last row
                env.set("XDG_DATA_HOME", otherFileSystem.path());
            }
            const QString old = env.path(QStringLiteral("Tarvel"));
            const QDir folder(setup == u"link" ? env.path(QStringLiteral("elsewhere")) : old);
            for (const char *name :
                 {"Errors", "Requests", "Responses", "CompletedRequests", "MalformedRequests"}) {
                if (setup != u"foreign" || qstrcmp(name, "Errors") == 0)
                    QVERIFY(QDir().mkpath(folder.filePath(QString::fromLatin1(name))));
            }
            DataFile::write(folder.filePath(QStringLiteral("Errors/errors.json")), "[]");
            if (setup == u"link")
                QVERIFY(QFile::link(folder.path(), old));
            if (setup == u"made") {
                DataFile::write(folder.filePath(QStringLiteral("Requests/old.json")), "old");
                RequestFileIO::writeRequest(makeRequest(QStringLiteral("new")));
            }

            const std::optional<DataFolderMove> move = DataFolderMove::fromHomeFolder();
            const QString base = FileStore::baseDirectory();
            if (stays == QStringList{QStringLiteral("*")}) {
                QVERIFY(!move);
                QCOMPARE(DataFile::read(folder.filePath(QStringLiteral("Errors/errors.json"))), "[]");
                QVERIFY(!QFileInfo::exists(base));
                continue;
            }
            QVERIFY(move && move->title.contains(base));
            QCOMPARE(DataFile::read(QDir(base).filePath(QStringLiteral("Errors/errors.json"))), "[]");
            QCOMPARE(permissions(QDir(base).filePath(QStringLiteral("Errors/errors.json"))), 0600);
            QCOMPARE(QDir(old).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), stays);
            QCOMPARE(QFileInfo::exists(old), !stays.isEmpty());
            if (setup == u"made") {
                QCOMPARE(DataFile::read(folder.filePath(QStringLiteral("Requests/old.json"))), "old");
                QCOMPARE(RequestFileIO::pendingRequestURLs().size(), 1);
                QVERIFY2(move->detail.contains(
                             u"already had CompletedRequests, MalformedRequests, Requests, Responses"),
                         qPrintable(move->detail));
            }
            QVERIFY(!DataFolderMove::fromHomeFolder());
            QCOMPARE(DataFolderMove::takeUnrecorded(), QList<DataFolderMove>{*move});
            QVERIFY(DataFolderMove::takeUnrecorded().isEmpty());
        }
    }

    // Each refusal names the folder and the command that fixes it; the folder is left as it was.
    // Every exchange folder goes through the same check, so each kind is tried on one of them.
    void unsafeFoldersAreRefusedAndLeftAsTheyAre()
    {
        const QString link =
            QStringLiteral("it is a symbolic link; remove the link with rm '%1' and Tarvel will "
                           "create a private folder in its place.");
        const QString writable =
            QStringLiteral("other users can change it; make it private with chmod 700 '%1'.");
        for (const auto &[folder, kind, reason] :
             {std::tuple{QString(), QStringLiteral("link"), link},
              std::tuple{QStringLiteral("Requests"), QStringLiteral("770"), writable},
              std::tuple{QStringLiteral("Responses"), QStringLiteral("703"), writable},
              std::tuple{QStringLiteral("Responses"), QStringLiteral("foreign"),
                         QStringLiteral("it belongs to another user; move it aside with mv '%1' '%1.old' and "
                                        "Tarvel will create a private folder in its place.")}}) {
            if (kind == u"foreign" && ::geteuid() != 0)
                QSKIP("only the superuser can give a folder to another user");
            TestEnvironment env;
            FileStore::ensureDirectoriesExist();
            const QString base = FileStore::baseDirectory();
            const QString path = folder.isEmpty() ? base : QDir(base).filePath(folder);
            const QByteArray name = QFile::encodeName(path);
            if (kind == u"link") {
                QVERIFY(QDir().rename(path, path + QStringLiteral(".real")));
                QVERIFY(QFile::link(path + QStringLiteral(".real"), path));
            } else if (kind == u"foreign") {
                QCOMPARE(::chown(name.constData(), 65534, 65534), 0);
            } else {
                QCOMPARE(::chmod(name.constData(), mode_t(kind.toInt(nullptr, 8))), 0);
            }
            struct stat before {
            }, after{};
            QCOMPARE(::lstat(name.constData(), &before), 0);

            const ComposerRequest request = makeRequest(QStringLiteral("secret"));
            try {
                RequestFileIO::writeRequest(request);
                QFAIL("an unsafe folder was used");
            } catch (const UnsafeFolderError &error) {
                const QString start =
                    QStringLiteral("Tarvel will not exchange requests through \u201c%1\u201d because ");
                QCOMPARE(error.description(), start.arg(path) + reason.arg(path));
            }
            QVERIFY_THROWS_EXCEPTION(UnsafeFolderError, RequestFileIO::pendingRequestURLs());
            QVERIFY(!QFileInfo::exists(FileStore::requestURL(request.id)));
            QCOMPARE(::lstat(name.constData(), &after), 0);
            QCOMPARE(after.st_mode, before.st_mode);
            QCOMPARE(after.st_uid, before.st_uid);
        }
    }

    // The order (oldest first) and retiring answered requests are driven through the queue in
    // tst_requestintake; these are the cases it does not reach: the names, which files are
    // pending requests, moving a malformed one aside without replacing an earlier one, and the
    // completion markers' edge cases.
    void requestFileNamesQuarantineAndMarkers()
    {
        TestEnvironment env;
        const QUuid id = QUuid::fromString(QStringLiteral("6f9619ff-8b86-d011-b42d-00c04fc964ff"));
        QCOMPARE(QFileInfo(FileStore::requestURL(id)).fileName(),
                 QStringLiteral("6F9619FF-8B86-D011-B42D-00C04FC964FF.json"));
        QCOMPARE(QFileInfo(FileStore::completedRequestMarkerURL(id)).fileName(),
                 QStringLiteral("6F9619FF-8B86-D011-B42D-00C04FC964FF.done"));
        FileStore::ensureDirectoriesExist();
        const QDir requests(FileStore::requestsDirectory());
        for (const char *name :
             {"6f9619ff-8b86-d011-b42d-00c04fc964ff.json", "notes.JSON", ".hidden.json", "draft.json.tmp"})
            DataFile::write(requests.filePath(QString::fromLatin1(name)), "{}");
        QVERIFY(requests.mkdir(QStringLiteral("folder.json")));
        const QList<QString> pending = RequestFileIO::pendingRequestURLs();
        QCOMPARE(pending.size(), 1);
        QCOMPARE(RequestFileIO::requestIdentifier(pending.first()), id);
        QVERIFY(!RequestFileIO::requestIdentifier(requests.filePath(QStringLiteral("notes.txt"))));

        const QString bad = requests.filePath(QStringLiteral("abc.json"));
        QVERIFY(!RequestFileIO::requestIdentifier(bad));
        DataFile::write(bad, "first");
        const QString firstDestination = RequestFileIO::quarantineMalformedRequest(bad);
        DataFile::write(bad, "second");
        const QString secondDestination = RequestFileIO::quarantineMalformedRequest(bad);
        QVERIFY(firstDestination != secondDestination);
        QVERIFY(!DataFile::exists(bad));
        const QRegularExpression pattern(QStringLiteral(
            "^abc-invalid-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\.json$"));
        for (const auto &[destination, content] : {std::pair{firstDestination, QByteArray("first")},
                                                   std::pair{secondDestination, QByteArray("second")}}) {
            QVERIFY2(pattern.match(QFileInfo(destination).fileName()).hasMatch(), qPrintable(destination));
            QCOMPARE(QFileInfo(destination).absolutePath(), FileStore::malformedRequestsDirectory());
            QCOMPARE(DataFile::read(destination), content);
        }
        // A source that vanished stays an error and nothing is created.
        QVERIFY_THROWS_EXCEPTION(SystemError, RequestFileIO::quarantineMalformedRequest(bad));
        QCOMPARE(QDir(FileStore::malformedRequestsDirectory()).entryList(QDir::Files).size(), 2);

        const ComposerRequest request = makeRequest(QStringLiteral("x"));
        // A missing CompletedRequests folder is made first; the marker is empty.
        RequestFileIO::writeRequest(request);
        QVERIFY(QDir(FileStore::completedRequestsDirectory()).removeRecursively());
        RequestFileIO::markRequestCompleted(request.id);
        QCOMPARE(QFileInfo(FileStore::completedRequestMarkerURL(request.id)).size(), 0);

        // A leftover marker whose request is already gone is removed on its own.
        RequestFileIO::removeRequest(request.id);
        RequestFileIO::retireCompletedRequestArtifacts(request.id);
        QVERIFY(!RequestFileIO::completedRequestMarkerExists(request.id));

        // Removing what is not there succeeds quietly.
        const QUuid nobody = QUuid::createUuid();
        RequestFileIO::removeRequest(nobody);
        RequestFileIO::removeResponse(nobody);
        RequestFileIO::retireCompletedRequestArtifacts(nobody);

        // The marker stays while its request could not be removed.
        if (::geteuid() == 0)
            QSKIP("root may remove files from a read-only folder");
        RequestFileIO::writeRequest(request);
        RequestFileIO::markRequestCompleted(request.id);
        QFile::setPermissions(FileStore::requestsDirectory(), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        QVERIFY_THROWS_EXCEPTION(SystemError, RequestFileIO::retireCompletedRequestArtifacts(request.id));
        QFile::setPermissions(FileStore::requestsDirectory(),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QVERIFY(RequestFileIO::completedRequestMarkerExists(request.id));
    }

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

QTEST_GUILESS_MAIN(RequestFileIOTest)
#include "tst_requestfileio.moc"
