#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

// The application (terminal) on whose behalf this process runs.
struct SourceApplication {
    std::optional<QString> identifier;
    std::optional<qint32> pid;
};

namespace SourceApplicationLocator {
// Cheap: a few reads of process metadata. Absent fields when it cannot be told.
SourceApplication locate();
} // namespace SourceApplicationLocator
