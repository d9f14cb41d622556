#include "platform/linux/I3IpcTree.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace I3IpcTree {
namespace {

std::optional<QJsonDocument> parse(const QByteArray &json)
{
    QJsonParseError error{};
    QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return std::nullopt;
    return document;
}

QRect rectangle(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    return QRect(object.value(u"x").toInt(), object.value(u"y").toInt(), object.value(u"width").toInt(),
                 object.value(u"height").toInt());
}

// A container holding a client's surface: sway gives views a pid, i3 an X window.
bool isView(const QJsonObject &node)
{
    const QString type = node.value(u"type").toString();
    if (type != u"con" && type != u"floating_con")
        return false;
    return node.value(u"pid").isDouble() || node.value(u"app_id").isString() ||
           node.value(u"window").isDouble();
}

Window window(const QJsonObject &node)
{
    Window window;
    window.id = node.value(u"id").toInteger();
    window.pid = node.value(u"pid").toInteger();
    window.appId = node.value(u"app_id").toString();
    const QJsonObject properties = node.value(u"window_properties").toObject();
    window.windowInstance = properties.value(u"instance").toString();
    window.windowClass = properties.value(u"class").toString();
    window.title = node.value(u"name").toString();
    // The title bar sits above the container's rectangle.
    const int titleBar = qMax(0, rectangle(node.value(u"deco_rect")).height());
    window.frame = rectangle(node.value(u"rect")).adjusted(0, -titleBar, 0, 0);
    window.focused = node.value(u"focused").toBool();
    window.floating = node.value(u"type").toString() == u"floating_con";
    // i3 has no "visible" on windows; its windows are listed only on shown workspaces' trees.
    window.visible = node.value(u"visible").toBool(!node.contains(u"pid"));
    return window;
}

// The children of a node in its focus order; those the order leaves out keep their place after.
QList<QJsonObject> childrenInFocusOrder(const QJsonObject &node)
{
    QList<QJsonObject> children;
    for (const QString &key : {QStringLiteral("floating_nodes"), QStringLiteral("nodes")}) {
        for (const QJsonValue &child : node.value(key).toArray())
            children.append(child.toObject());
    }
    QList<QJsonObject> ordered;
    for (const QJsonValue &id : node.value(u"focus").toArray()) {
        for (qsizetype index = 0; index < children.size(); ++index) {
            if (children.at(index).value(u"id") == id) {
                ordered.append(children.takeAt(index));
                break;
            }
        }
    }
    return ordered + children;
}

void collect(const QJsonObject &node, QList<Window> &windows)
{
    if (isView(node)) {
        windows.append(window(node));
        return;
    }
    for (const QJsonObject &child : childrenInFocusOrder(node))
        collect(child, windows);
}

} // namespace

std::optional<QList<Window>> windows(const QByteArray &treeJson)
{
    const std::optional<QJsonDocument> document = parse(treeJson);
    if (!document || !document->isObject())
        return std::nullopt;
    QList<Window> result;
    collect(document->object(), result);
    return result;
}

std::optional<QList<Workspace>> workspaces(const QByteArray &json)
{
    const std::optional<QJsonDocument> document = parse(json);
    if (!document || !document->isArray())
        return std::nullopt;
    QList<Workspace> result;
    for (const QJsonValue &value : document->array()) {
        const QJsonObject object = value.toObject();
        result.append({object.value(u"name").toString(), object.value(u"output").toString(),
                       rectangle(object.value(u"rect")), object.value(u"visible").toBool(),
                       object.value(u"focused").toBool()});
    }
    return result;
}

bool commandsSucceeded(const QByteArray &json)
{
    const std::optional<QJsonDocument> document = parse(json);
    if (!document || !document->isArray() || document->array().isEmpty())
        return false;
    for (const QJsonValue &reply : document->array()) {
        if (!reply.toObject().value(u"success").toBool())
            return false;
    }
    return true;
}

std::optional<WindowEvent> windowEvent(const QByteArray &json)
{
    const std::optional<QJsonDocument> document = parse(json);
    if (!document || !document->isObject())
        return std::nullopt;
    const QJsonObject object = document->object();
    const QJsonObject container = object.value(u"container").toObject();
    if (!object.value(u"change").isString() || !isView(container))
        return std::nullopt;
    return WindowEvent{object.value(u"change").toString(), window(container)};
}

} // namespace I3IpcTree
