#pragma once

#include "backends/BackendProfile.h"

#include <QList>

#include <optional>

// The registry of backend profiles. A new backend is its enumerator, its profile file and one
// line in BackendProfiles.cpp.
namespace BackendProfiles {

const BackendProfile &of(QuickTaskCLIBackend backend);
// Every profile, in the order menus and settings list them.
const QList<const BackendProfile *> &all();
// The backend whose raw value this is, exactly.
std::optional<QuickTaskCLIBackend> fromRawValue(const QString &rawValue);

} // namespace BackendProfiles
