#pragma once

#include <QString>

namespace OpenCodeOutput {

// opencode writes for a terminal: colour sequences, carriage returns and <think> markers
// are removed, then newlines at both ends. The result may be blank.
QString cleanOpencodeOutputLine(const QString &line);

} // namespace OpenCodeOutput
