#pragma once

#include <QByteArray>
#include <QList>
#include <QRect>
#include <QString>
#include <QtGlobal>

#include <optional>

// What the i3 IPC answers mean: the layout tree (GET_TREE), the workspaces, a command's reply and
// window events, read from their JSON. Anything malformed reads as nothing rather than as a guess.
namespace I3IpcTree {

// One window (a "view": a container that holds a client's surface).
struct Window {
    // The container's id, which commands address as [con_id=…].
    qint64 id = 0;
    // 0 when the compositor does not know the client's process.
    qint64 pid = 0;
    // A Wayland client's app_id; for an X11 client under Xwayland its WM_CLASS halves instead.
    QString appId;
    QString windowInstance;
    QString windowClass;
    QString title;
    // The container with its title bar, in the layout's coordinates (y downward).
    QRect frame;
    bool focused = false;
    bool floating = false;
    bool visible = false;

    friend bool operator==(const Window &, const Window &) = default;
};

// Every window in the tree, most recently focused first, following each container's own focus
// order down from the root: on a tiling desktop that is the nearest thing to front-most first.
std::optional<QList<Window>> windows(const QByteArray &treeJson);

struct Workspace {
    QString name;
    QString output;
    // The part of the output left to windows (without bars).
    QRect rect;
    bool visible = false;
    bool focused = false;

    friend bool operator==(const Workspace &, const Workspace &) = default;
};

std::optional<QList<Workspace>> workspaces(const QByteArray &json);

// Whether a RUN_COMMAND reply says that every command succeeded.
bool commandsSucceeded(const QByteArray &json);

// A window event: what happened ("new", "close", "focus", "title", ...) and to which window.
struct WindowEvent {
    QString change;
    Window container;
};

std::optional<WindowEvent> windowEvent(const QByteArray &json);

} // namespace I3IpcTree
