#include "core/TarvelError.h"

#include <cstring>

TarvelError::TarvelError(QString description)
    : m_description(std::move(description))
    , m_utf8(m_description.toUtf8())
{
}

SystemError::SystemError(const QString &operation, int errorNumber)
    : TarvelError(QStringLiteral("Could not %1: %2").arg(operation, QString::fromLocal8Bit(std::strerror(errorNumber))))
    , m_errorNumber(errorNumber)
{
}

SystemError::SystemError(const QString &operation, const QString &systemText)
    : TarvelError(QStringLiteral("Could not %1: %2").arg(operation, systemText))
{
}
