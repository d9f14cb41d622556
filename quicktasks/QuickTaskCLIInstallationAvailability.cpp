#include "quicktasks/QuickTaskCLIInstallationAvailability.h"

QuickTaskCLIInstallationAvailability::QuickTaskCLIInstallationAvailability(bool isAvailable, QString text)
    : m_isAvailable(isAvailable)
    , m_text(std::move(text))
{
}

QuickTaskCLIInstallationAvailability QuickTaskCLIInstallationAvailability::available(QString version)
{
    return QuickTaskCLIInstallationAvailability(true, std::move(version));
}

QuickTaskCLIInstallationAvailability QuickTaskCLIInstallationAvailability::unavailable(QString message)
{
    return QuickTaskCLIInstallationAvailability(false, std::move(message));
}
