#pragma once

#include "backends/QuickTaskCLIBackend.h"

#include <QMap>
#include <QString>

// Whether a backend can be used: the version it printed, or a sentence saying why not.
class QuickTaskCLIInstallationAvailability final {
public:
    // Unavailable with no message; only a placeholder for containers.
    QuickTaskCLIInstallationAvailability() = default;

    static QuickTaskCLIInstallationAvailability available(QString version);
    static QuickTaskCLIInstallationAvailability unavailable(QString message);

    bool isAvailable() const noexcept { return m_isAvailable; }
    // Empty when unavailable.
    QString version() const { return m_isAvailable ? m_text : QString(); }
    // Empty when available.
    QString message() const { return m_isAvailable ? QString() : m_text; }

    friend bool operator==(const QuickTaskCLIInstallationAvailability &,
                           const QuickTaskCLIInstallationAvailability &) = default;

private:
    QuickTaskCLIInstallationAvailability(bool isAvailable, QString text);

    bool m_isAvailable = false;
    QString m_text;
};

using QuickTaskCLIInstallationAvailabilities =
    QMap<QuickTaskCLIBackend, QuickTaskCLIInstallationAvailability>;
