#include "platform/InterruptWatcher.h"

#include "core/TarvelError.h"
#include "platform/SignalPipe.h"

#include <QSocketNotifier>

#include <system_error>

InterruptWatcher::InterruptWatcher(QObject *parent)
    : QObject(parent)
{
    try {
        m_pipe = std::make_unique<SignalPipe>();
    } catch (const std::system_error &error) {
        throw SystemError(QStringLiteral("create a pipe"), error.code().value());
    }
    m_notifier = std::make_unique<QSocketNotifier>(m_pipe->descriptor(), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this,
            [this] { m_pipe->drain([this](int signalNumber) { Q_EMIT interrupted(signalNumber); }); });
}

// The notifier goes before the pipe it watches.
InterruptWatcher::~InterruptWatcher()
{
    m_notifier.reset();
}
