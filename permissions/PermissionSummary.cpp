#include "permissions/PermissionSummary.h"

PermissionSummary PermissionSummary::fromDescriptors(const QList<PermissionDescriptor> &descriptors)
{
    PermissionSummary summary;
    int included = 0;
    for (const PermissionDescriptor &descriptor : descriptors) {
        if (!descriptor.includesInSummary)
            continue;
        ++included;
        if (PermissionDescriptor::isUserChangeable(descriptor.status)) {
            ++summary.userChangeableCount;
            if (descriptor.status == PermissionDescriptor::Status::granted)
                ++summary.grantedCount;
        }
    }
    summary.managedBySystemCount = included - summary.userChangeableCount;
    return summary;
}

QString PermissionSummary::title() const
{
    return title(PermissionWording::host());
}

QString PermissionSummary::detail() const
{
    return detail(PermissionWording::host());
}

QString PermissionSummary::title(const PermissionWording &wording) const
{
    if (userChangeableCount >= 1)
        return QStringLiteral("Permissions %1/%2").arg(grantedCount).arg(userChangeableCount);
    if (managedBySystemCount == 0)
        return QStringLiteral("Permissions");
    if (managedBySystemCount == 1)
        return QStringLiteral("Permission managed by %1").arg(wording.system);
    return QStringLiteral("%1 permissions managed by %2").arg(managedBySystemCount).arg(wording.system);
}

QString PermissionSummary::detail(const PermissionWording &wording) const
{
    const int u = userChangeableCount;
    const int m = managedBySystemCount;
    if (m == 0)
        return QStringLiteral(
                   "Notifications, Speech Recognition, and microphone access are counted here. File and "
                   "placement access are handled by %1 when needed.")
            .arg(wording.system);
    if (u == 0 && m == 1)
        return QStringLiteral(
                   "The voice-permission status shown here is managed by %1 and cannot be changed in "
                   "Tarvel.")
            .arg(wording.system);
    if (u == 0)
        return QStringLiteral(
                   "%1 voice-permission statuses are managed by %2 and cannot be changed in Tarvel.")
            .arg(m)
            .arg(wording.system);
    if (m == 1)
        return QStringLiteral(
                   "%1 user-changeable %2 counted here. 1 additional voice-permission status is managed "
                   "by %3 and shown for reference.")
            .arg(u)
            .arg(u == 1 ? QStringLiteral("permission is") : QStringLiteral("permissions are"))
            .arg(wording.system);
    // Stays plural even for one user-changeable permission; only the branch above adjusts it.
    return QStringLiteral("%1 user-changeable permissions are counted here. %2 additional voice-permission "
                          "statuses are managed by %3 and shown for reference.")
        .arg(u)
        .arg(m)
        .arg(wording.system);
}
