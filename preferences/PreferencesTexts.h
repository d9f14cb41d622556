#pragma once

#include "editor_integration/EditorIntegrationStatus.h"

#include <QSize>
#include <QString>

#include <optional>

// The preferences' words that depend on state, and the stored form of the window's size.
namespace PreferencesTexts {

// The line under "Show Editor Setup…": none is a status that could not be read.
QString editorSetupStatusLine(const std::optional<EditorIntegrationStatus> &status, bool promptSuppressed);

// "{width, height}", the form the Mac writes sizes in, so one settings file serves both.
QString contentSizeString(const QSize &size);
// None for anything but two positive numbers in that form (fractions are rounded).
std::optional<QSize> contentSizeFromString(const QString &text);

} // namespace PreferencesTexts
