#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

// The application (terminal) on whose behalf this process runs.
struct SourceApplication {
    std::optional<QString> identifier;
    std::optional<qint32> pid;
    // A Wayland activation token (xdg-activation) in this process's environment, which lets the
    // compositor give the composer the keyboard.
    std::optional<QString> activationToken = std::nullopt;
};

namespace SourceApplicationLocator {
// Cheap: a few reads of process metadata. Absent fields when it cannot be told.
SourceApplication locate();
} // namespace SourceApplicationLocator
