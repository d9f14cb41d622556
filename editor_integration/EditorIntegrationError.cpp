#include "editor_integration/EditorIntegrationError.h"

namespace {
QString describe(EditorIntegrationError::Kind kind, const QString &underlying)
{
    using Kind = EditorIntegrationError::Kind;
    switch (kind) {
    case Kind::failedToCreateHelperDirectory:
        return QStringLiteral("Could not create the editor helper folder. ") + underlying;
    case Kind::failedToWriteHelperScript:
        return QStringLiteral("Could not install the editor helper. ") + underlying;
    case Kind::failedToWriteShellConfig:
        return QStringLiteral("Could not update the shell configuration file. ") + underlying;
    case Kind::unavailableHomeDirectory:
        break;
    }
    return QStringLiteral("Could not determine the current user's home directory.");
}
} // namespace

EditorIntegrationError::EditorIntegrationError(Kind kind, const QString &underlying)
    : TarvelError(describe(kind, underlying))
    , m_kind(kind)
{
}
