// Remote editing without ssh: the protocol both ends share, the application's socket intake with
// real sockets, the built tarvel-edit against it, and the ~/.ssh/config block.
#include "core/Clock.h"
#include "errorlog/ErrorLogManager.h"
#include "remote/RemoteProtocol.h"
#include "remote/RemoteRequestServer.h"
#include "remote/RemoteSetupCommand.h"
#include "support/RemoteTestClient.h"
#include "support/TestEnvironment.h"

#include <QProcess>
#include <QtTest>

#include <csignal>
#include <sys/stat.h>

using namespace RemoteProtocol;

namespace {

constexpr int kHelperTimeout = 15000;

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes, QFileDevice::Permissions permissions = {})
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    file.close();
    if (permissions != QFileDevice::Permissions())
        QVERIFY(file.setPermissions(permissions));
}

std::string header(std::size_t length)
{
    return {char(length >> 24), char((length >> 16) & 0xff), char((length >> 8) & 0xff), char(length & 0xff)};
}

std::string framed(const std::string &payload)
{
    return header(payload.size()) + payload;
}

Request request(const std::string &text)
{
    return {text, "build-01", "/srv/project", "COMMIT_EDITMSG"};
}

QStringList titles(const ErrorLogManager &log)
{
    QStringList result;
    for (const ErrorLogEntry &entry : log.entries())
        result.append(entry.title);
    return result;
}

// tarvel-edit run as a remote terminal tool would run it, with a fake terminal editor that
// appends "from the editor" and exits 42.
struct Helper {
    QProcess process;
    QString file;

    Helper(TestEnvironment &env, const QByteArray &text, const std::optional<QString> &socket)
        : file(env.path(QStringLiteral("prompt.md")))
    {
        writeFile(file, text);
        const QString editor = env.path(QStringLiteral("fake-editor"));
        writeFile(editor, "#!/bin/sh\nfor f; do :; done\nprintf 'from the editor' >> \"$f\"\nexit 42\n",
                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("TARVEL_FALLBACK_EDITOR"), editor);
        environment.insert(QStringLiteral("TARVEL_APP_PATH"), env.path(QStringLiteral("no-application")));
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "TARVEL_REMOTE_SOCKET"})
            environment.remove(QString::fromLatin1(name));
        if (socket)
            environment.insert(QStringLiteral("TARVEL_REMOTE_SOCKET"), *socket);
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(TARVEL_EDIT_PATH), {file});
    }
    // Lets the server on this thread work while the helper runs.
    int exitCode()
    {
        [&] {
            QTRY_VERIFY_WITH_TIMEOUT(process.state() == QProcess::NotRunning, kHelperTimeout);
        }();
        return process.exitCode();
    }
    QString errors() { return QString::fromUtf8(process.readAllStandardError()); }
};

} // namespace

class RemoteTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Frames come out whole however the bytes arrive, every message reads back as written, and
    // what cannot be read is refused: an oversized frame from its header, before its bytes.
    void framesAndMessagesRoundTripOrAreRefused()
    {
        const std::vector<ClientMessage> client{request("line one\nline two \u00e9"), Withdrawal{},
                                                Request{"", "h", std::nullopt, std::nullopt}};
        const std::vector<ServerMessage> server{
            Accepted{}, Answer{Answer::Disposition::submitted, "new text"}, Answer{}, Refusal{"a reason"}};
        std::string stream;
        for (const ClientMessage &message : client)
            stream += encode(message);
        FrameReader reader;
        std::vector<ClientMessage> read;
        for (const char byte : stream) {
            reader.append(&byte, 1);
            while (const std::optional<std::string> payload = reader.nextFrame())
                read.push_back(decodeClientMessage(*payload));
        }
        QVERIFY(read == client);
        QVERIFY(!reader.holdsPartialFrame());
        reader.append(stream.data(), 3);
        QVERIFY(!reader.nextFrame() && reader.holdsPartialFrame());
        for (const ServerMessage &message : server)
            QVERIFY(decodeServerMessage(encode(message).substr(headerSize)) == message);

        // A number beyond a double once ended the program instead of being refused.
        for (const std::string &payload :
             {std::string("{\"type\":"), std::string("[1]"),
              std::string("{\"type\":\"request\",\"text\":\"\",\"host\":\"h\"}"),
              std::string("{\"type\":\"answer\",\"version\":1}"),
              std::string("{\"type\":\"request\",\"version\":1,\"host\":\"h\"}"),
              "{\"type\":\"request\",\"version\":1,\"text\":\"\",\"host\":\"" + std::string(300, 'h') + "\"}",
              std::string("{\"type\":\"request\",\"version\":1,\"text\":\"\",\"host\":\"h\",\"n\":3e9999}"),
              std::string("{\"type\":\"request\",\"version\":1,\"text\":\"\xff\",\"host\":\"h\"}")})
            QVERIFY_THROWS_EXCEPTION(ProtocolError, decodeClientMessage(payload));
        try {
            decodeClientMessage("{\"type\":\"request\",\"version\":2}");
            QFAIL("decoded");
        } catch (const ProtocolError &error) {
            QCOMPARE(error.kind(), ProtocolError::Kind::unsupportedVersion);
        }

        FrameReader oversized, exact;
        const std::string announced = header(maximumFrameSize + 1), limit = header(maximumFrameSize);
        oversized.append(announced.data(), announced.size());
        QVERIFY_THROWS_EXCEPTION(ProtocolError, oversized.nextFrame());
        QVERIFY_THROWS_EXCEPTION(ProtocolError, encode(request(std::string(maximumFrameSize, 'x'))));
        exact.append(limit.data(), limit.size());
        QVERIFY(!exact.nextFrame());
    }

    // A request waits with its connection and is answered over it; the connection closing, or
    // a withdrawal, takes it away. Only a private folder is listened in, and a socket left by a
    // copy that stopped is replaced, one that still answers is not.
    void requestsWaitWithTheirConnections()
    {
        TestEnvironment env;
        ErrorLogManager log(Clock::system());
        const QString folder = env.path(QStringLiteral("run/tarvel"));
        const QString socket = folder + QStringLiteral("/remote.sock");
        {
            RemoteRequestServer first(log), second(log);
            QVERIFY(first.listen(socket));
            struct stat info {};
            QCOMPARE(::stat(QFile::encodeName(socket).constData(), &info), 0);
            QCOMPARE(info.st_mode & 0777, 0600u);
            QCOMPARE(QFileInfo(folder).permissions() & 0x0077, 0);
            QVERIFY(!second.listen(socket));
            QVERIFY(log.entries().constFirst().detail.contains(QStringLiteral("Another copy")));
        }
        ::close(UnixSocket::listenAt(QFile::encodeName(socket).toStdString()).descriptor);
        RemoteRequestServer server(log);
        QVERIFY(QFile::setPermissions(folder, QFileDevice::Permissions(0x7777)));
        QVERIFY(!server.listen(socket));
        QCOMPARE(log.entries().constFirst().title, QStringLiteral("Remote editing is off."));
        QVERIFY(log.entries().constFirst().detail.contains(QStringLiteral("chmod 700")));
        QVERIFY(QFile::setPermissions(folder, QFileDevice::Permissions(0x7700)));
        QVERIFY(server.listen(socket));
        QSignalSpy changes(&server, &RemoteRequestServer::requestsChanged);

        RemoteTestClient answered(server.socketPath());
        answered.send(request("first"));
        QVERIFY(answered.receive() == ServerMessage(Accepted{}));
        const ComposerRequest waiting = server.waitingRequests().value(0);
        QCOMPARE(waiting.initialText, QStringLiteral("first"));
        QCOMPARE(waiting.remote, (std::optional<RemoteOrigin>(RemoteOrigin{QStringLiteral("build-01"),
                                                                           QStringLiteral("COMMIT_EDITMSG"),
                                                                           QStringLiteral("/srv/project")})));
        QVERIFY(!waiting.cwd); // the other machine's folder is no folder here
        QVERIFY(!server.answer(waiting.id, ComposerResponse::Disposition::submitted, QStringLiteral("done")));
        QVERIFY(answered.receive() == ServerMessage(Answer{Answer::Disposition::submitted, "done"}));
        QVERIFY(answered.ended());
        QVERIFY(server.answer(waiting.id, ComposerResponse::Disposition::cancelled, {})); // once only

        for (const bool explicitly : {false, true}) {
            RemoteTestClient gone(server.socketPath());
            gone.send(request("second"));
            QVERIFY(gone.receive() == ServerMessage(Accepted{}));
            const QUuid id = server.waitingRequests().value(0).id;
            const qsizetype before = changes.size();
            if (explicitly)
                gone.send(Withdrawal{});
            else
                gone.close();
            QTRY_VERIFY(!server.isWaiting(id));
            QCOMPARE(changes.size(), before + 1);
        }
        QCOMPARE(log.entries().size(), 2);
    }

    // Every limit refuses with a reason the helper can print, and says so in the error log.
    void limitsRefuseAndAreLogged()
    {
        TestEnvironment env;
        ErrorLogManager log(Clock::system());
        RemoteRequestServer server(log, {2, std::chrono::milliseconds(200)});
        QVERIFY(server.listen(env.path(QStringLiteral("run/tarvel/remote.sock"))));
        const auto refusal = [](RemoteTestClient &client) {
            const std::optional<ServerMessage> message = client.receive();
            const auto *refused = message ? std::get_if<Refusal>(&*message) : nullptr;
            return refused && client.ended() ? QString::fromStdString(refused->reason) : QString();
        };

        server.peerUserId = [](int) {
            return std::optional<uid_t>(::geteuid() + 1);
        };
        RemoteTestClient stranger(server.socketPath());
        stranger.send(request("not yours"));
        QVERIFY(!stranger.receive() && stranger.ended());
        server.peerUserId = UnixSocket::peerUserId;

        RemoteTestClient first(server.socketPath()), second(server.socketPath()), third(server.socketPath());
        for (RemoteTestClient *client : {&first, &second}) {
            client->send(request("waits"));
            QVERIFY(client->receive() == ServerMessage(Accepted{}));
        }
        third.send(request("one too many"));
        QVERIFY(refusal(third).startsWith(QStringLiteral("too many requests")));

        server.answer(server.waitingRequests().value(0).id, ComposerResponse::Disposition::cancelled, {});
        RemoteTestClient large(server.socketPath()), newer(server.socketPath()), stalled(server.socketPath());
        large.sendBytes(header(maximumFrameSize + 1));
        QCOMPARE(refusal(large), QStringLiteral("the request is larger than 16 MB"));
        newer.sendBytes(framed("{\"type\":\"request\",\"version\":2,\"text\":\"\",\"host\":\"h\"}"));
        QVERIFY(refusal(newer).contains(QStringLiteral("different versions")));
        stalled.sendBytes(framed("{\"type\":\"request\",\"version\":1,\"text\":\"\"").substr(0, 20));
        QVERIFY(refusal(stalled).contains(QStringLiteral("stopped arriving")));
        // Silence on a new connection ends it too, and the one request left still waits.
        RemoteTestClient silent(server.socketPath());
        QVERIFY(!refusal(silent).isEmpty());
        QCOMPARE(server.waitingRequestCount(), 1);

        QCOMPARE(titles(log),
                 (QStringList{
                     QStringLiteral("Dropped a remote editor request that stopped arriving."),
                     QStringLiteral("Dropped a remote editor request that stopped arriving."),
                     QStringLiteral("Refused a remote editor request that Tarvel could not read."),
                     QStringLiteral("Refused a remote editor request larger than 16 MB."),
                     QStringLiteral("Refused a remote editor request: too many are waiting."),
                     QStringLiteral("Refused a connection to the remote editing socket from "
                                    "another user."),
                 }));
    }

    // The built helper against the intake: the answer reaches the file, a cancel leaves it,
    // Ctrl-C withdraws; the default socket is used when it answers. Missing, stale, not private
    // or refusing: the terminal editor takes over with one sentence.
    void helperRoundTripsOrFallsBackWithItsReason()
    {
        TestEnvironment env;
        ErrorLogManager log(Clock::system());
        const QString stale = env.path(QStringLiteral(".local/state/tarvel/remote.sock"));
        {
            RemoteRequestServer server(log);
            QVERIFY(server.listen(stale));
            const auto answerWhenWaiting = [&](ComposerResponse::Disposition disposition,
                                               const QString &text) {
                QTRY_COMPARE_WITH_TIMEOUT(server.waitingRequestCount(), 1, kHelperTimeout);
                const ComposerRequest request = server.waitingRequests().constFirst();
                QCOMPARE(request.initialText, QStringLiteral("old text"));
                QCOMPARE(request.remote->fileName, std::optional<QString>(QStringLiteral("prompt.md")));
                server.answer(request.id, disposition, text);
            };

            Helper submitted(env, "old text", std::nullopt);
            answerWhenWaiting(ComposerResponse::Disposition::submitted, QStringLiteral("new text"));
            QCOMPARE(submitted.exitCode(), 0);
            QCOMPARE(readAll(submitted.file), QByteArray("new text"));

            Helper cancelled(env, "old text", server.socketPath());
            answerWhenWaiting(ComposerResponse::Disposition::cancelled, {});
            QCOMPARE(cancelled.exitCode(), 1);
            QCOMPARE(readAll(cancelled.file), QByteArray("old text"));

            Helper interrupted(env, "old text", std::nullopt);
            QTRY_COMPARE_WITH_TIMEOUT(server.waitingRequestCount(), 1, kHelperTimeout);
            ::kill(pid_t(interrupted.process.processId()), SIGINT);
            QCOMPARE(interrupted.exitCode(), 128 + SIGINT);
            QTRY_COMPARE(server.waitingRequestCount(), 0);
            QCOMPARE(readAll(interrupted.file), QByteArray("old text"));
        }

        const QString folder = env.path(QStringLiteral("sockets"));
        const QString socket = folder + QStringLiteral("/remote.sock");
        const auto fallsBack = [&](const std::optional<QString> &named, const QString &reason) {
            Helper helper(env, "old text", named);
            QCOMPARE(helper.exitCode(), 42);
            const QString errors = helper.errors();
            QVERIFY2(errors.contains(reason) && errors.contains(QStringLiteral("instead")),
                     qPrintable(errors));
            QCOMPARE(errors.count(u'\n'), 1);
            QCOMPARE(readAll(helper.file), QByteArray("old textfrom the editor"));
        };
        fallsBack(socket, QStringLiteral("there is no socket at"));
        RemoteRequestServer refusing(log, {0, std::chrono::seconds(10)});
        QVERIFY(refusing.listen(socket));
        fallsBack(socket, QStringLiteral("Tarvel refused the request: too many"));
        QVERIFY(QFile::setPermissions(socket, QFileDevice::Permissions(0x6666)));
        fallsBack(socket, QStringLiteral("other users may use it"));
        QVERIFY(QFile::setPermissions(socket, QFileDevice::Permissions(0x6600)));
        QVERIFY(QFile::setPermissions(folder, QFileDevice::Permissions(0x7777)));
        fallsBack(socket, QStringLiteral("other users can change its folder"));
        QVERIFY(QFile::setPermissions(folder, QFileDevice::Permissions(0x7700)));

        // The default socket left by an ssh connection that ended: this machine's own
        // application is tried, and the sentence names both.
        QFile::remove(stale);
        ::close(UnixSocket::listenAt(QFile::encodeName(stale).toStdString()).descriptor);
        fallsBack(std::nullopt, QStringLiteral("and nothing listens at ") + stale);
    }

    // The block goes in once and again changes nothing; the user's own entry for the host stays
    // as it is, with the lines to add to it.
    void sshConfigBlockIsWrittenOnce()
    {
        TestEnvironment env;
        const QString config = env.path(QStringLiteral(".ssh/config"));
        const QByteArray before =
            "# mine \xe9\r\nHost *\n    ServerAliveInterval 30\nHost build-0? \"other\"\n";
        writeFile(config, before);
        const auto setUp = [](const QString &host, QString *printed = nullptr) {
            QString out, err;
            QTextStream outStream(&out), errStream(&err);
            const int status =
                RemoteSetupCommand::run({QStringLiteral("setup"), host, QStringLiteral("--write"),
                                         QStringLiteral("--remote-home"), QStringLiteral("/home/me")},
                                        outStream, errStream);
            outStream.flush();
            if (printed)
                *printed = out + err;
            return status;
        };
        QCOMPARE(setUp(QStringLiteral("build-01")), 0);
        const QByteArray once = readAll(config);
        QVERIFY(once.startsWith(before + '\n'));
        QCOMPARE(once.count("Host build-01\n"), 1);
        QVERIFY(once.contains("    RemoteForward /home/me/.local/state/tarvel/remote.sock "));
        QVERIFY(once.contains("    StreamLocalBindUnlink yes\n"));
        QString printed;
        QCOMPARE(setUp(QStringLiteral("build-01"), &printed), 0);
        QCOMPARE(readAll(config), once);
        QVERIFY2(printed.contains(QStringLiteral("nothing changed")), qPrintable(printed));

        writeFile(config, once + "Host other\n    User me\n");
        const QByteArray users = readAll(config);
        QCOMPARE(setUp(QStringLiteral("other"), &printed), 1);
        QCOMPARE(readAll(config), users);
        QVERIFY2(printed.contains(QStringLiteral("your own entry for other (line 4)")) &&
                     printed.contains(QStringLiteral("    StreamLocalBindUnlink yes")),
                 qPrintable(printed));
    }
};

QTEST_GUILESS_MAIN(RemoteTest)
#include "tst_remote.moc"
