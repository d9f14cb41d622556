// tarvel-edit end to end: the built helper against the test responder on a real session
// bus, with real files and real child processes; and the bus contract they share.
#include "core/ExchangeNames.h"
#include "core/FileStore.h"
#include "platform/DistributedNotificationObserver.h"
#include "platform/DistributedNotificationPoster.h"
#include "platform/linux/DBusContract.h"
#include "support/TestEnvironment.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kFinishTimeout = 20000;
const QString kServiceName = u"zq.tarvel"_s;
constexpr QFileDevice::Permissions kExecutable =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

bool writeFile(const QString &path, const QByteArray &data, QFileDevice::Permissions permissions = {})
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
        return false;
    file.close();
    return permissions == QFileDevice::Permissions() || file.setPermissions(permissions);
}

ino_t inode(const QString &path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
}

QStringList filesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden);
}

QString canonical(const QString &path)
{
    return QFileInfo(path).canonicalFilePath();
}

QList<QJsonObject> readLog(const QString &path)
{
    QList<QJsonObject> lines;
    if (!QFileInfo::exists(path))
        return lines;
    for (const QByteArray &line : readAll(path).split('\n')) {
        if (!line.isEmpty())
            lines.append(QJsonDocument::fromJson(line).object());
    }
    return lines;
}

// The test responder, in the role of the running application.
class Responder final {
public:
    ~Responder()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            m_process.waitForFinished(5000);
        }
    }

    bool start(const QString &mode, const QString &logPath, const std::optional<QString> &text = {})
    {
        QStringList arguments{u"--mode"_s, mode, u"--log"_s, logPath};
        if (text)
            arguments << u"--text"_s << *text;
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(TARVEL_TEST_RESPONDER_PATH), arguments);
        while (m_process.waitForReadyRead(10000)) {
            if (m_process.readAll().contains("ready\n"))
                return true;
        }
        return false;
    }

    void kill()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }

private:
    QProcess m_process;
};

} // namespace

class HelperEndToEndTest final : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<TestEnvironment> m_env;
    QString m_work;
    QString m_fakeEditor;
    QString m_editorLog;
    QString m_responderLog;

    // The helper as a terminal tool runs it: in the work folder, in a session of its own
    // whose leader's parent (the "terminal") is this test.
    std::unique_ptr<QProcess> startHelper(const QStringList &arguments, const QByteArray &input = {})
    {
        auto process = std::make_unique<QProcess>();
        process->setProgram(QStringLiteral(TARVEL_EDIT_PATH));
        process->setArguments(arguments);
        process->setWorkingDirectory(m_work);
        process->setChildProcessModifier([] { ::setsid(); });
        process->start();
        if (process->waitForStarted()) {
            process->write(input);
            process->closeWriteChannel();
        }
        return process;
    }

    // Runs the helper to its end; its exit code, or -1 when it did not end normally.
    int runHelper(QProcess &process)
    {
        const bool ended =
            process.waitForFinished(kFinishTimeout) && process.exitStatus() == QProcess::NormalExit;
        return ended ? process.exitCode() : -1;
    }

    QString workFile(const QString &name, const QByteArray &contents)
    {
        const QString path = QDir(m_work).filePath(name);
        return writeFile(path, contents) ? path : QString();
    }

    // Whoever owns the application's bus name, or 0.
    static pid_t applicationPid()
    {
        const QDBusReply<uint> owner = QDBusConnection::sessionBus().interface()->servicePid(kServiceName);
        return owner.isValid() ? pid_t(owner.value()) : 0;
    }

    // The helper may exit as soon as the response is there, before the responder has
    // retired the request, so both wait for the responder.
    void verifyNoExchangeFilesLeft()
    {
        QTRY_COMPARE(filesIn(FileStore::requestsDirectory()), QStringList());
        QTRY_COMPARE(filesIn(FileStore::completedRequestsDirectory()), QStringList());
        QCOMPARE(filesIn(FileStore::responsesDirectory()), QStringList());
    }

    void waitForAnswers(qsizetype count) { QTRY_COMPARE(readLog(m_responderLog).size(), count); }

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<TestEnvironment>();
        m_work = m_env->path(u"work"_s);
        QVERIFY(QDir().mkpath(m_work));
        m_editorLog = m_env->path(u"editor.log"_s);
        m_responderLog = m_env->path(u"responder.log"_s);

        // Records its arguments, appends one line of its standard input to the file and
        // says so on standard output: proof that it had the helper's streams.
        m_fakeEditor = m_env->path(u"fake-editor"_s);
        QVERIFY(writeFile(m_fakeEditor,
                          "#!/bin/sh\n"
                          "printf '%s %s\\n' \"${0##*/}\" \"$*\" >> \"$FAKE_EDITOR_LOG\"\n"
                          "for file; do :; done\n"
                          "IFS= read -r line || true\n"
                          "printf '%s' \"$line\" >> \"$file\"\n"
                          "echo 'fake editor ran'\n"
                          "exit \"${FAKE_EDITOR_STATUS:-42}\"\n",
                          kExecutable));
        m_env->set("FAKE_EDITOR_LOG", m_editorLog);
        m_env->set("TARVEL_FALLBACK_EDITOR", m_fakeEditor);
        // Nothing real is ever started from a test.
        m_env->set("TARVEL_APP_PATH", m_env->path(u"no-such-application"_s));
    }

    void cleanup()
    {
        // An application that a helper started is not this test's child.
        if (const pid_t pid = applicationPid(); pid > 0) {
            ::kill(pid, SIGTERM);
            QTRY_VERIFY(
                !QDBusConnection::sessionBus().interface()->isServiceRegistered(kServiceName).value());
        }
        m_env.reset();
    }

    // Only the observed names arrive, with their user info; signals off the contract (no user
    // info, or user info of the wrong type) from another client are dropped.
    void postedNotificationsReachObserversOfTheirName()
    {
        const QString created = u"zq.tarvel.request-created"_s;
        const QString debugWindow = u"zq.tarvel.debug-window-request"_s;
        const auto observer = DistributedNotificationObserver::create();
        QVERIFY(observer->observe(created));
        QVERIFY(observer->observe(debugWindow));
        QSignalSpy posted(observer.get(), &DistributedNotificationObserver::notificationPosted);
        // A call answered on the observer's connection means the bus has its match rules.
        const auto roundTrip = [](QDBusConnection connection) {
            connection.call(QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s,
                                                           u"/org/freedesktop/DBus"_s,
                                                           u"org.freedesktop.DBus"_s, u"GetId"_s));
        };
        roundTrip(QDBusConnection::sessionBus());

        // A second client of the bus, as another process would be.
        QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"other-client"_s);
        const auto signal = [] {
            return QDBusMessage::createSignal(DBusContract::objectPath, DBusContract::interfaceName,
                                              DBusContract::postedSignal);
        };
        QVERIFY(other.send(signal() << created));
        QVERIFY(other.send(signal() << created << u"not a dictionary"_s));
        // A call answered means the bus has passed those signals on, ahead of the ones below.
        roundTrip(other);
        const auto poster = DistributedNotificationPoster::create();
        QVERIFY(poster->isAvailable());
        QVERIFY(poster->post(u"zq.tarvel.unrelated"_s));
        QVERIFY(poster->post(created));
        const DistributedNotificationUserInfo userInfo{{u"pid"_s, u"4242"_s},
                                                       {u"note"_s, u"caf\u00e9 / \u2713"_s}};
        QVERIFY(poster->post(debugWindow, userInfo));

        // Each observed name once with its user info; the order two names arrive in is the bus's.
        const auto arrived = [&](const QString &name) {
            QList<DistributedNotificationUserInfo> infos;
            for (const QList<QVariant> &each : posted) {
                if (each.at(0).toString() == name)
                    infos.append(each.at(1).value<DistributedNotificationUserInfo>());
            }
            return infos;
        };
        QTRY_COMPARE(posted.size(), 2);
        QTest::qWait(100);
        QCOMPARE(posted.size(), 2);
        QCOMPARE(arrived(created), QList<DistributedNotificationUserInfo>{DistributedNotificationUserInfo()});
        QCOMPARE(arrived(debugWindow), QList<DistributedNotificationUserInfo>{userInfo});
    }

    // The answer replaces the file's content in place (the same inode, so that links and the
    // tool's open handle see it); a cancel leaves the file untouched. "started": no application
    // runs, and the one the helper starts answers.
    void answerReachesTheFileInPlace_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QByteArray>("original");
        QTest::addColumn<std::optional<QString>>("answer");
        QTest::addColumn<QByteArray>("expected");

        const std::optional<QString> edited;
        // Multi-byte characters and the ones JSON escapes.
        const QByteArray text(
            "Gr\xc3\xbc\xc3\x9f\x65 \xe2\x9c\x93 \"quoted\" back\\slash\ttab /path \x01\n\xf0\x9f\x9a\x80\n");
        QTest::newRow("characters") << u"submit"_s << text << edited << "Edited: " + text;
        QTest::newRow("empty file") << u"submit"_s << QByteArray() << edited << QByteArray("Edited: ");
        QTest::newRow("shorter answer") << u"submit"_s << QByteArray("a long prompt that will be replaced\n")
                                        << std::optional(u"short"_s) << QByteArray("short");
        QTest::newRow("emptied") << u"submit"_s << QByteArray("to be deleted\n") << std::optional(QString())
                                 << QByteArray();
        QTest::newRow("cancelled") << u"cancel"_s << QByteArray("keep me\n") << edited
                                   << QByteArray("keep me\n");
        QTest::newRow("started") << u"started"_s << QByteArray("start it\n") << edited
                                 << QByteArray("Edited: start it\n");
    }

    void answerReachesTheFileInPlace()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, original);
        QFETCH(std::optional<QString>, answer);
        QFETCH(QByteArray, expected);

        Responder responder;
        if (mode == u"started") {
            // The responder plays the application that the helper starts, configured by the
            // environment it inherits.
            m_env->set("TARVEL_APP_PATH", QStringLiteral(TARVEL_TEST_RESPONDER_PATH));
            m_env->set("TARVEL_RESPONDER_MODE", u"submit"_s);
            m_env->set("TARVEL_RESPONDER_LOG", m_responderLog);
        } else {
            QVERIFY(responder.start(mode, m_responderLog, answer));
        }
        const QString file = workFile(u"PROMPT.md"_s, original);
        const ino_t before = inode(file);
        const QDateTime modified = QFileInfo(file).lastModified();
        // A launcher's token in the terminal's environment goes on to the composer's activation.
        m_env->set("XDG_ACTIVATION_TOKEN", u"token-from-the-launcher"_s);

        const auto helper = startHelper({u"PROMPT.md"_s});
        const pid_t helperSession = pid_t(helper->processId());
        const bool cancelled = mode == u"cancel";
        QCOMPARE(runHelper(*helper), cancelled ? 1 : 0);
        QCOMPARE(helper->readAllStandardError(),
                 cancelled ? QByteArray("tarvel-edit: editing cancelled\n") : QByteArray());
        QCOMPARE(readAll(file), expected);
        QCOMPARE(inode(file), before);
        if (cancelled)
            QCOMPARE(QFileInfo(file).lastModified(), modified);
        verifyNoExchangeFilesLeft();

        // What the application was told.
        waitForAnswers(1);
        const QJsonObject request = readLog(m_responderLog).constFirst();
        QCOMPARE(request.value(u"initialText").toString().toUtf8(), original);
        QCOMPARE(request.value(u"cwd").toString(), canonical(m_work));
        QCOMPARE(request.value(u"filePath").toString(), canonical(file));
        QCOMPARE(request.value(u"sourceApplicationPID").toInteger(), qint64(::getpid()));
        QCOMPARE(request.value(u"sourceApplicationBundleIdentifier").toString(),
                 QFileInfo(QCoreApplication::applicationFilePath()).fileName());
        QCOMPARE(request.value(u"activationToken").toString(), u"token-from-the-launcher"_s);
        if (mode == u"started") {
            // Detached: in a session of its own, so closing the terminal does not end it.
            const pid_t started = applicationPid();
            QVERIFY(started > 0);
            QVERIFY(::getsid(started) != helperSession);
            QVERIFY(::getsid(started) != ::getsid(0));
        }
    }

    // Each way of finding nobody to answer, and on the way each way of choosing the terminal's
    // editor: TARVEL_FALLBACK_EDITOR, else EDITOR unless it names tarvel-edit, else vi. Only a
    // silent application was started by the helper.
    void fallbackEditorRunsWhenNothingAnswers_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QString>("fallbackEditor");
        QTest::addColumn<QString>("editor");
        QTest::addColumn<QString>("expectedCall");

        QTest::newRow("application never takes the name; TARVEL_FALLBACK_EDITOR with arguments")
            << u"silent application"_s << u"did not start within 5 seconds"_s << u"FAKE --wait -u NONE"_s
            << u"FAKE --not-this"_s << u"fake-editor --wait -u NONE"_s;
        QTest::newRow("application missing; EDITOR quoted as in a shell")
            << u"missing application"_s << u"TARVEL_APP_PATH is not an executable file"_s << QString()
            << u"FAKE '--one arg'"_s << u"fake-editor --one arg"_s;
        QTest::newRow("no session bus; EDITOR is tarvel-edit")
            << u"no bus"_s << u"no session bus"_s << QString() << u"tarvel-edit --wait"_s << u"vi"_s;
        QTest::newRow("no display; EDITOR is this helper by path")
            << u"no display"_s << u"no display"_s << QString() << QStringLiteral(TARVEL_EDIT_PATH) << u"vi"_s;
        // Not restarted by the helper: a request that crashes the application would
        // crash it again.
        QTest::newRow("application crashes without answering; nothing set")
            << u"application crashes"_s << u"quit without answering"_s << QString() << QString() << u"vi"_s;
    }

    void fallbackEditorRunsWhenNothingAnswers()
    {
        QFETCH(QString, situation);
        QFETCH(QString, reason);
        QFETCH(QString, fallbackEditor);
        QFETCH(QString, editor);
        QFETCH(QString, expectedCall);

        // The fake editor also plays vi, which it reports as its name.
        const QString bin = m_env->path(u"bin"_s);
        QVERIFY(QDir().mkpath(bin));
        QVERIFY(QFile::link(m_fakeEditor, QDir(bin).filePath(u"vi"_s)));
        m_env->set("PATH", bin + u':' + qEnvironmentVariable("PATH"));
        m_env->set("TARVEL_FALLBACK_EDITOR", QString(fallbackEditor).replace(u"FAKE"_s, m_fakeEditor));
        m_env->set("EDITOR", QString(editor).replace(u"FAKE"_s, m_fakeEditor));
        // An "application" that only leaves a trace that it was started.
        const QString marker = m_env->path(u"application-started"_s);
        const QString silentApplication = m_env->path(u"silent-application"_s);
        QVERIFY(writeFile(silentApplication, "#!/bin/sh\ntouch \"$APPLICATION_MARKER\"\n", kExecutable));
        m_env->set("APPLICATION_MARKER", marker);
        m_env->set("FAKE_EDITOR_STATUS", u"3"_s);
        if (situation != u"missing application")
            m_env->set("TARVEL_APP_PATH", silentApplication);
        if (situation == u"no bus")
            m_env->set("DBUS_SESSION_BUS_ADDRESS", u"unix:path="_s + m_env->path(u"no-bus"_s));
        if (situation == u"no display") {
            for (const char *variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
                m_env->unset(variable);
        }
        Responder responder;
        if (situation == u"application crashes")
            QVERIFY(responder.start(u"never"_s, m_responderLog));

        const QString file = workFile(u"PROMPT.md"_s, "draft\n");
        const auto helper = startHelper({u"PROMPT.md"_s}, " typed in the terminal\n");
        if (situation == u"application crashes") {
            waitForAnswers(1); // seen, not answered
            responder.kill();
        }
        QCOMPARE(runHelper(*helper), 3);
        QCOMPARE(helper->readAllStandardOutput(), QByteArray("fake editor ran\n"));
        const QByteArray errors = helper->readAllStandardError();
        QVERIFY2(errors.startsWith("tarvel-edit: ") && errors.count('\n') == 1, errors.constData());
        QVERIFY2(errors.contains(reason.toUtf8()), errors.constData());
        QCOMPARE(readAll(file), QByteArray("draft\n typed in the terminal"));
        QCOMPARE(QString::fromUtf8(readAll(m_editorLog)), expectedCall + u' ' + canonical(file) + u'\n');
        QCOMPARE(QFileInfo::exists(marker), situation == u"silent application");
        // The request was withdrawn; nobody will answer it.
        verifyNoExchangeFilesLeft();
    }

    // Nothing goes through a folder others can change: the reason is printed and the
    // terminal editor gets the file.
    void unsafeFolderSendsTheFileToTheTerminalEditor()
    {
        FileStore::ensureDirectoriesExist();
        QVERIFY(QFile::setPermissions(FileStore::requestsDirectory(), QFileDevice::Permissions(0x7777)));
        m_env->set("FAKE_EDITOR_STATUS", u"0"_s);
        const QString file = workFile(u"PROMPT.md"_s, "draft\n");

        const auto helper = startHelper({u"PROMPT.md"_s}, " typed in the terminal\n");
        QCOMPARE(runHelper(*helper), 0);
        const QByteArray errors = helper->readAllStandardError();
        QVERIFY2(errors.startsWith("tarvel-edit: Tarvel will not exchange requests through") &&
                     errors.contains("chmod 700") &&
                     errors.contains("\ntarvel-edit: the request folders are not private"),
                 errors.constData());
        QCOMPARE(readAll(file), QByteArray("draft\n typed in the terminal"));
        QCOMPARE(filesIn(FileStore::requestsDirectory()), QStringList());

        // A text the application would refuse unread goes there too, with the reason.
        QVERIFY(QFile::setPermissions(FileStore::requestsDirectory(), QFileDevice::Permissions(0x7000)));
        workFile(u"LARGE.md"_s, QByteArray(int(ExchangeNames::maximumRequestFileSize), 'a'));
        const auto tooLarge = startHelper({u"LARGE.md"_s}, "");
        QCOMPARE(runHelper(*tooLarge), 0);
        QVERIFY(tooLarge->readAllStandardError().startsWith(
            "tarvel-edit: the text is larger than the 16 MB a composer takes"));
        QCOMPARE(filesIn(FileStore::requestsDirectory()), QStringList());
    }

    // Requests the application has seen and not answered. An interruption withdraws the request
    // (whole, private and alone there until then) with the signal's exit code; an answer that
    // cannot be read is said so and removed; when the application vanishes, a new copy within
    // the 5 seconds answers it. The file keeps its text until an answer comes, and no fallback
    // editor runs.
    void seenRequestsEndByTheirOwnRules()
    {
        auto crashing = std::make_unique<Responder>();
        QVERIFY(crashing->start(u"never"_s, m_responderLog));
        const QString file = workFile(u"PROMPT.md"_s, "half-written thought\n");
        qsizetype seen = 0;
        const auto startSeen = [&] {
            auto helper = startHelper({file});
            waitForAnswers(++seen);
            return helper;
        };
        const auto lastId = [this] {
            return readLog(m_responderLog).constLast().value(u"id").toString();
        };

        for (const auto &[signalNumber, exitCode] : {std::pair{SIGINT, 130}, {SIGTERM, 143}, {SIGHUP, 129}}) {
            const auto helper = startSeen();
            const QString request = lastId() + u".json"_s;
            QCOMPARE(filesIn(FileStore::requestsDirectory()), QStringList{request});
            QCOMPARE(QFileInfo(QDir(FileStore::requestsDirectory()).filePath(request)).permissions(),
                     QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser |
                         QFileDevice::WriteUser);
            ::kill(pid_t(helper->processId()), signalNumber);
            QCOMPARE(runHelper(*helper), exitCode);
            QCOMPARE(readAll(file), QByteArray("half-written thought\n"));
            verifyNoExchangeFilesLeft();
        }

        const auto unreadable = startSeen();
        const QString id = lastId();
        QVERIFY(writeFile(QDir(FileStore::responsesDirectory()).filePath(id + u".json"_s),
                          R"({"id": ")" + id.toUtf8() + R"(", "disposition": "submitted")"));
        QCOMPARE(runHelper(*unreadable), 1);
        const QByteArray errors = unreadable->readAllStandardError();
        QVERIFY2(errors.startsWith(
                     "tarvel-edit: The answer from Tarvel could not be read. The data isn't valid JSON"),
                 errors.constData());
        QCOMPARE(readAll(file), QByteArray("half-written thought\n"));
        QCOMPARE(filesIn(FileStore::responsesDirectory()), QStringList());

        const auto outliving = startSeen();
        crashing->kill();
        Responder next;
        QVERIFY(next.start(u"submit"_s, m_responderLog));
        QCOMPARE(runHelper(*outliving), 0);
        QCOMPARE(readAll(file), QByteArray("Edited: half-written thought\n"));
        QVERIFY(!QFileInfo::exists(m_editorLog));
    }

    // They all find an old ~/Tarvel too, beside the data folder the application has made, and leave
    // it alone: moving it is the application's (tst_requestfileio oldHomeFolderMovesOnce).
    void manyHelpersAtOnceAreEachAnsweredOnce()
    {
        constexpr int kHelpers = 50;
        Responder responder;
        QVERIFY(responder.start(u"submit"_s, m_responderLog));
        const QDir old(m_env->path(u"Tarvel"_s));
        for (const char *name : {"Errors", "Requests", "Responses", "CompletedRequests", "MalformedRequests"})
            QVERIFY(old.mkpath(QString::fromLatin1(name)));
        QVERIFY(writeFile(old.filePath(u"Errors/errors.json"_s), "[]"));

        std::vector<std::unique_ptr<QProcess>> helpers;
        QStringList files;
        for (int index = 0; index < kHelpers; ++index) {
            files << workFile(u"prompt-%1.md"_s.arg(index), "prompt " + QByteArray::number(index));
            helpers.push_back(startHelper({files.last()}));
        }
        for (int index = 0; index < kHelpers; ++index) {
            QCOMPARE(runHelper(*helpers[index]), 0);
            QCOMPARE(readAll(files[index]), "Edited: prompt " + QByteArray::number(index));
        }

        QSet<QString> answered;
        waitForAnswers(kHelpers);
        for (const QJsonObject &answer : readLog(m_responderLog))
            answered.insert(answer.value(u"id").toString());
        QCOMPARE(answered.size(), kHelpers);
        verifyNoExchangeFilesLeft();
        QCOMPARE(old.entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 5);
        QCOMPARE(readAll(old.filePath(u"Errors/errors.json"_s)), "[]");
    }

    void helpAndVersion()
    {
        const auto help = startHelper({u"--help"_s});
        QCOMPARE(runHelper(*help), 0);
        QVERIFY(help->readAllStandardOutput().startsWith("Usage: tarvel-edit "));
        QCOMPARE(help->readAllStandardError(), QByteArray());
        const auto version = startHelper({u"--version"_s, u"ignored.md"_s});
        QCOMPARE(runHelper(*version), 0);
        QCOMPARE(version->readAllStandardOutput(), QByteArray("tarvel-edit " TARVEL_VERSION "\n"));
    }

    // Every way to call it wrongly is one line on stderr, nothing on stdout, the file untouched and
    // nothing sent.
    void badInputIsAOneLineError_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("message");

        const QStringList prompt{u"PROMPT.md"_s};
        QTest::newRow("no file") << QStringList() << QByteArray() << u"expected a FILE to edit"_s;
        QTest::newRow("two files") << QStringList{u"PROMPT.md"_s, u"other.md"_s} << QByteArray("x")
                                   << u"expected one FILE"_s;
        QTest::newRow("unknown option")
            << QStringList{u"--wait"_s, u"PROMPT.md"_s} << QByteArray("x") << u"unknown option"_s;
        QTest::newRow("missing file")
            << QStringList{u"missing.md"_s} << QByteArray() << u"No such file or directory"_s;
        QTest::newRow("folder") << QStringList{u"."_s} << QByteArray() << u"is not a regular file"_s;
        QTest::newRow("not UTF-8") << prompt << QByteArray("caf\xe9\n") << u"is not UTF-8 text"_s;
        QTest::newRow("unreadable") << prompt << QByteArray("secret\n") << u"Permission denied"_s;
        QTest::newRow("unwritable data folder")
            << prompt << QByteArray("x") << u"Could not create the folder"_s;
    }

    void badInputIsAOneLineError()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, contents);
        QFETCH(QString, message);

        const QByteArray row = QTest::currentDataTag();
        if (row == "unreadable" && ::geteuid() == 0)
            QSKIP("root reads every file");
        const QString file = workFile(u"PROMPT.md"_s, contents);
        if (row == "unreadable")
            QVERIFY(QFile::setPermissions(file, QFileDevice::WriteOwner));
        if (row ==
            "unwritable data folder") // a data home below a plain file cannot be made, not even by root
            m_env->set("XDG_DATA_HOME", QDir(m_work).filePath(u"PROMPT.md/data"_s));

        Responder responder;
        QVERIFY(responder.start(u"submit"_s, m_responderLog));
        const auto helper = startHelper(arguments);
        QVERIFY(runHelper(*helper) > 0);
        const QString errors = QString::fromUtf8(helper->readAllStandardError());
        QVERIFY2(errors.startsWith(u"tarvel-edit: ") && errors.count(u'\n') == 1 && errors.endsWith(u'\n'),
                 qPrintable(errors));
        QVERIFY2(errors.contains(message), qPrintable(errors));
        QCOMPARE(helper->readAllStandardOutput(), QByteArray());
        QVERIFY(QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        QCOMPARE(readAll(file), contents);
        QCOMPARE(filesIn(FileStore::requestsDirectory()), QStringList());
        QCOMPARE(readLog(m_responderLog).size(), 0);
    }
};

QTEST_GUILESS_MAIN(HelperEndToEndTest)
#include "tst_helper_e2e.moc"
