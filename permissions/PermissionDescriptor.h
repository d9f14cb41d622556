#pragma once

#include <QList>
#include <QString>

#include <optional>

// One row of the permissions window: a permission or access Tarvel relies on, its state and
// the one action offered for it.
struct PermissionDescriptor {
    enum class Section { permissions, onDemandAccess };
    enum class Kind { notifications, speechRecognition, microphone, screenRecording, filesAndFolders };
    // granted, needsAttention and notRequested are the ones the user can change.
    enum class Status { granted, needsAttention, notRequested, restricted, onDemand, managedBySystem };

    Section section = Section::permissions;
    Kind kind = Kind::notifications;
    QString title;
    QString detail;
    Status status = Status::notRequested;
    // The button's text; none means no button.
    std::optional<QString> actionTitle;
    bool includesInSummary = false;

    static bool isUserChangeable(Status status);

    friend bool operator==(const PermissionDescriptor &, const PermissionDescriptor &) = default;
};
