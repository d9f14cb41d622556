// sway's i3 IPC as Tarvel reads it: the framing however the stream is cut, and the layout tree, the
// workspaces, the command replies and window events recorded from a headless sway
// (tests/data/i3ipc). The client runs against the real sway in tst_wayland_e2e.
#include "platform/linux/I3IpcMessage.h"
#include "platform/linux/I3IpcTree.h"
#include "platform/linux/I3IpcWindowSystem.h"

#include <QFile>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

QByteArray data(const QString &name)
{
    QFile file(qEnvironmentVariable("TARVEL_TEST_DATA") + u"/i3ipc/"_s + name);
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
    void framingSurvivesAnyCutAndRefusesWhatIsNotTheProtocol()
    {
        const QByteArray tree = data(u"tree.json"_s);
        QVERIFY(!tree.isEmpty());
        const QByteArray stream = I3Ipc::encode(I3Ipc::windowEvent, data(u"event-new.json"_s)) +
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

        // Nothing after a broken frame is trusted, even a good one.
        I3Ipc::Decoder wrongMagic;
        wrongMagic.append(QByteArrayLiteral("HTTP/1.1 200 OK\r\n") + I3Ipc::encode(I3Ipc::getTree, "{}"));
        QCOMPARE(wrongMagic.next(), std::nullopt);
        QVERIFY(wrongMagic.error().contains(u"not an i3 IPC message"));

        I3Ipc::Decoder oversized;
        QByteArray huge = I3Ipc::encode(I3Ipc::getTree, {});
        const quint32 length = I3Ipc::maximumPayloadSize + 1;
        std::memcpy(huge.data() + I3Ipc::magicSize, &length, sizeof length);
        oversized.append(huge + I3Ipc::encode(I3Ipc::getTree, "{}"));
        QCOMPARE(oversized.next(), std::nullopt);
        QVERIFY(oversized.hasFailed());
    }

    void readsTheTreeWorkspacesRepliesAndEvents()
    {
        // The tiled foot has the focus, so it comes first; the floating one was moved to 100,120.
        const QList<I3IpcTree::Window> windows = *I3IpcTree::windows(data(u"tree.json"_s));
        QCOMPARE(windows.size(), 2);
        QVERIFY(windows[0].focused && !windows[0].floating && windows[0].visible && windows[1].floating);
        QCOMPARE(windows[0].pid, 30353);
        // A frame takes in the title bar above the container's rectangle.
        QCOMPARE(windows[0].frame, QRect(0, 23, 1280, 777));
        QCOMPARE(windows[1].frame.topLeft(), QPoint(100, 120));
        QCOMPARE(I3IpcWindowSystem::topLevelWindow(windows[0]).windowClass, u"foot"_s);

        // An X11 client under Xwayland is named by its window class.
        const QByteArray xwayland = R"({"nodes":[{"type":"con","pid":42,"app_id":null,"window":4194311,
        "window_properties":{"class":"XTerm","instance":"xterm"}}]})";
        QCOMPARE(I3IpcWindowSystem::topLevelWindow(I3IpcTree::windows(xwayland)->constFirst()).windowClass,
                 u"XTerm"_s);
        QCOMPARE(I3IpcTree::windows("[]"), std::nullopt);
        QCOMPARE(I3IpcTree::windows("{\"nodes\": [1, \"x\", null]}"), QList<I3IpcTree::Window>());

        // What the bar leaves of the output.
        const QList<I3IpcTree::Workspace> workspaces = *I3IpcTree::workspaces(data(u"workspaces.json"_s));
        QCOMPARE(workspaces.size(), 1);
        QCOMPARE(workspaces[0].output, u"HEADLESS-1"_s);
        QCOMPARE(workspaces[0].rect, QRect(0, 23, 1280, 777));

        QVERIFY(I3IpcTree::commandsSucceeded(data(u"reply-succeeded.json"_s)));
        QVERIFY(!I3IpcTree::commandsSucceeded(data(u"reply-failed.json"_s)));
        QVERIFY(!I3IpcTree::commandsSucceeded("[]"));

        // A new container has no title yet; the next event brings it.
        QCOMPARE(I3IpcTree::windowEvent(data(u"event-new.json"_s))->container.title, QString());
        QCOMPARE(I3IpcTree::windowEvent(data(u"event-title.json"_s))->container.title, u"foot"_s);
        QCOMPARE(I3IpcTree::windowEvent(R"({"change":"new","container":{"type":"workspace"}})"),
                 std::nullopt);
    }
};

QTEST_GUILESS_MAIN(I3IpcTest)
#include "tst_i3ipc.moc"
