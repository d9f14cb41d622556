#pragma once

#include "permissions/PermissionDescriptor.h"
#include "permissions/PermissionWording.h"

#include <QList>
#include <QString>

// The counted rows in two sentences, for the permissions and preferences windows.
struct PermissionSummary {
    int grantedCount = 0;
    int userChangeableCount = 0;
    // The counted rows the user cannot change (in practice the restricted ones).
    int managedBySystemCount = 0;

    // Counts the descriptors that take part in the summary.
    static PermissionSummary fromDescriptors(const QList<PermissionDescriptor> &descriptors);

    QString title() const;
    QString detail() const;
    QString title(const PermissionWording &wording) const;
    QString detail(const PermissionWording &wording) const;

    friend bool operator==(const PermissionSummary &, const PermissionSummary &) = default;
};
