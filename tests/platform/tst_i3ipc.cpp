// sway's i3 IPC as Tarvel reads it: the framing however the stream is cut, the layout tree, the
// workspaces and the command replies recorded from a headless sway (tests/data/i3ipc), and the
// client against a local server that speaks the framing.
#include "platform/linux/I3IpcClient.h"
#include "platform/linux/I3IpcMessage.h"
#include "platform/linux/I3IpcTree.h"
#include "platform/linux/I3IpcWindowSystem.h"

#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

namespace {

QByteArray data(const QString &name)
{
    QFile file(qEnvironmentVariable("TARVEL_TEST_DATA") + QStringLiteral("/i3ipc/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QList<I3Ipc::Message> decodeInChunks(const QByteArray &stream, qsizetype chunk, I3Ipc::Decoder &decoder)
{
    QList<I3Ipc::Message> messages;
    for (qsizetype offset = 0; offset < stream.size(); offset += chunk) {
        decoder.append(stream.mid(offset, chunk));
        while (std::optional<I3Ipc::Message> message = decoder.next())
            messages.append(*message);
    }
    return messages;
}

} // namespace

class I3IpcTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void framingSurvivesAnyCut();
    void refusesWhatIsNotTheProtocol();
    void readsTheTreeInFocusOrder();
    void readsWorkspacesRepliesAndEvents();
    void clientMatchesRepliesToRequests();
};

void I3IpcTest::framingSurvivesAnyCut()
{
    const QByteArray tree = data(QStringLiteral("tree.json"));
    QVERIFY(!tree.isEmpty());
    const QByteArray stream = I3Ipc::encode(I3Ipc::windowEvent, data(QStringLiteral("event-new.json"))) +
                              I3Ipc::encode(I3Ipc::getTree, tree) + I3Ipc::encode(I3Ipc::runCommand, {});
    for (const qsizetype chunk : {qsizetype(1), qsizetype(7), qsizetype(14), stream.size()}) {
        I3Ipc::Decoder decoder;
        const QList<I3Ipc::Message> messages = decodeInChunks(stream, chunk, decoder);
        QCOMPARE(messages.size(), 3);
        QVERIFY(messages[0].isEvent());
        QCOMPARE(messages[1].type, quint32(I3Ipc::getTree));
        QCOMPARE(messages[1].payload, tree);
        QCOMPARE(messages[2].payload, QByteArray());
        QVERIFY(!decoder.hasFailed());
    }
}

void I3IpcTest::refusesWhatIsNotTheProtocol()
{
    I3Ipc::Decoder wrongMagic;
    wrongMagic.append(QByteArrayLiteral("HTTP/1.1 200 OK\r\n") + I3Ipc::encode(I3Ipc::getTree, "{}"));
    QCOMPARE(wrongMagic.next(), std::nullopt);
    QVERIFY(wrongMagic.error().contains(u"not an i3 IPC message"));
    // Nothing after a broken frame is trusted, even a good one.
    wrongMagic.append(I3Ipc::encode(I3Ipc::getTree, "{}"));
    QCOMPARE(wrongMagic.next(), std::nullopt);

    I3Ipc::Decoder oversized;
    QByteArray huge = I3Ipc::encode(I3Ipc::getTree, {});
    const quint32 length = I3Ipc::maximumPayloadSize + 1;
    std::memcpy(huge.data() + I3Ipc::magicSize, &length, sizeof length);
    oversized.append(huge);
    QCOMPARE(oversized.next(), std::nullopt);
    QVERIFY(oversized.hasFailed());
}

void I3IpcTest::readsTheTreeInFocusOrder()
{
    const std::optional<QList<I3IpcTree::Window>> windows =
        I3IpcTree::windows(data(QStringLiteral("tree.json")));
    QVERIFY(windows);
    QCOMPARE(windows->size(), 2);
    // The tiled foot has the focus, so it comes first; the floating one moved to 100,120 first.
    const I3IpcTree::Window &tiled = windows->at(0);
    const I3IpcTree::Window &floating = windows->at(1);
    QCOMPARE(tiled.id, 6);
    QVERIFY(tiled.focused && !tiled.floating && tiled.visible);
    QCOMPARE(tiled.appId, QStringLiteral("foot"));
    QCOMPARE(tiled.pid, 30353);
    // The frame takes in the title bar above the container's rectangle.
    QCOMPARE(tiled.frame, QRect(0, 23, 1280, 777));
    QCOMPARE(floating.id, 5);
    QVERIFY(floating.floating && !floating.focused);
    QCOMPARE(floating.frame.topLeft(), QPoint(100, 120));

    const TopLevelWindow asTopLevel = I3IpcWindowSystem::topLevelWindow(tiled);
    QCOMPARE(asTopLevel.windowClass, QStringLiteral("foot"));
    QCOMPARE(asTopLevel.windowInstance, QStringLiteral("foot"));

    // An X11 client under Xwayland is named by its window class.
    const QByteArray xwayland =
        R"({"id":1,"type":"root","nodes":[{"id":9,"type":"con","pid":42,"app_id":null,"window":4194311,
            "name":"xterm","window_properties":{"class":"XTerm","instance":"xterm"},
            "rect":{"x":0,"y":0,"width":10,"height":10},"focused":true,"visible":true}]})";
    const I3IpcTree::Window x11 = I3IpcTree::windows(xwayland)->constFirst();
    QCOMPARE(I3IpcWindowSystem::topLevelWindow(x11).windowClass, QStringLiteral("XTerm"));
    QCOMPARE(I3IpcWindowSystem::topLevelWindow(x11).windowInstance, QStringLiteral("xterm"));

    QCOMPARE(I3IpcTree::windows("[]"), std::nullopt);
    QCOMPARE(I3IpcTree::windows("{\"nodes\": [1, \"x\", null]}"), QList<I3IpcTree::Window>());
}

void I3IpcTest::readsWorkspacesRepliesAndEvents()
{
    const QList<I3IpcTree::Workspace> workspaces =
        *I3IpcTree::workspaces(data(QStringLiteral("workspaces.json")));
    QCOMPARE(workspaces.size(), 1);
    QCOMPARE(workspaces[0].output, QStringLiteral("HEADLESS-1"));
    // What the bar leaves of the output.
    QCOMPARE(workspaces[0].rect, QRect(0, 23, 1280, 777));
    QVERIFY(workspaces[0].visible && workspaces[0].focused);

    QVERIFY(I3IpcTree::commandsSucceeded(data(QStringLiteral("reply-succeeded.json"))));
    QVERIFY(!I3IpcTree::commandsSucceeded(data(QStringLiteral("reply-failed.json"))));
    QVERIFY(!I3IpcTree::commandsSucceeded("[]"));
    QVERIFY(!I3IpcTree::commandsSucceeded("not json"));

    // A new container has no title yet; the next event brings it.
    const std::optional<I3IpcTree::WindowEvent> created =
        I3IpcTree::windowEvent(data(QStringLiteral("event-new.json")));
    QCOMPARE(created->change, QStringLiteral("new"));
    QCOMPARE(created->container.id, 5);
    QCOMPARE(created->container.title, QString());
    QCOMPARE(I3IpcTree::windowEvent(data(QStringLiteral("event-title.json")))->container.title,
             QStringLiteral("foot"));
    QCOMPARE(I3IpcTree::windowEvent(R"({"change":"new","container":{"type":"workspace"}})"), std::nullopt);
}

void I3IpcTest::clientMatchesRepliesToRequests()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("ipc.sock"));
    // The client blocks while it waits, so the server runs on a thread of its own.
    QThread serverThread;
    serverThread.start();
    auto *server = new QLocalServer;
    server->moveToThread(&serverThread);
    bool listening = false;
    QMetaObject::invokeMethod(
        server,
        [server, path, &listening] {
            listening = server->listen(path);
            // A tree request is answered with an event first and its reply cut in two; others never.
            QObject::connect(server, &QLocalServer::newConnection, server, [server] {
                QLocalSocket *socket = server->nextPendingConnection();
                QObject::connect(socket, &QLocalSocket::readyRead, socket, [socket] {
                    I3Ipc::Decoder requests;
                    requests.append(socket->readAll());
                    while (const std::optional<I3Ipc::Message> request = requests.next()) {
                        if (request->type != I3Ipc::getTree)
                            continue;
                        const QByteArray reply = I3Ipc::encode(I3Ipc::getTree, "{\"id\":1}");
                        socket->write(I3Ipc::encode(I3Ipc::windowEvent, "{}") + reply.left(5));
                        socket->flush();
                        socket->write(reply.mid(5));
                    }
                });
            });
        },
        Qt::BlockingQueuedConnection);
    QVERIFY(listening);

    I3IpcClient client(path);
    QCOMPARE(client.request(I3Ipc::getTree), std::optional<QByteArray>("{\"id\":1}"));
    QCOMPARE(client.request(I3Ipc::getWorkspaces), std::nullopt);
    // An unanswered request gives up and drops its connection; the next one connects again.
    QCOMPARE(client.request(I3Ipc::getTree), std::optional<QByteArray>("{\"id\":1}"));
    QCOMPARE(I3IpcClient(folder.filePath(QStringLiteral("none.sock"))).request(I3Ipc::getTree), std::nullopt);

    QMetaObject::invokeMethod(
        server, [server] { delete server; }, Qt::BlockingQueuedConnection);
    serverThread.quit();
    serverThread.wait();
}

QTEST_GUILESS_MAIN(I3IpcTest)
#include "tst_i3ipc.moc"
