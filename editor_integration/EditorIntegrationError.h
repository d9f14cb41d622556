#pragma once

#include "core/TarvelError.h"

// Why the editor integration could not be installed. The system's own description of the
// failure follows the fixed sentence.
class EditorIntegrationError final : public TarvelError {
public:
    enum class Kind {
        failedToCreateHelperDirectory,
        failedToWriteHelperScript,
        failedToWriteShellConfig,
        unavailableHomeDirectory,
    };

    explicit EditorIntegrationError(Kind kind, const QString &underlying = QString());

    Kind kind() const noexcept { return m_kind; }

private:
    Kind m_kind;
};
