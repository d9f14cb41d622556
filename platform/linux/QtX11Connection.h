#pragma once

#include <QCoreApplication>
#include <QGuiApplication>

#include <xcb/xcb.h>

// The X connection of the running Qt GUI application, or none (no GUI application, another
// platform plug-in, or a connection that has failed).
inline xcb_connection_t *qtX11Connection()
{
    auto *application = qobject_cast<QGuiApplication *>(QCoreApplication::instance());
    if (application == nullptr)
        return nullptr;
    auto *x11 = application->nativeInterface<QNativeInterface::QX11Application>();
    if (x11 == nullptr || x11->connection() == nullptr || xcb_connection_has_error(x11->connection()))
        return nullptr;
    return x11->connection();
}
