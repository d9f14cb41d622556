#pragma once

#include <QString>

// Tarvel's modal alerts: a message and the text that explains it, kept above other windows
// since Tarvel has none of its own in front.
namespace Alerts {

void showWarning(const QString &message, const QString &informativeText);
void showNotice(const QString &message, const QString &informativeText);

} // namespace Alerts
