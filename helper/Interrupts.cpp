#include "helper/Interrupts.h"

#include "helper/HelperError.h"

#include <system_error>

Interrupts::Interrupts(std::function<void(int)> interrupted)
    : m_interrupted(std::move(interrupted))
{
    try {
        m_pipe.emplace();
    } catch (const std::system_error &error) {
        throw HelperError::systemFailure("create a pipe", error.code().value());
    }
}

int Interrupts::descriptor() const
{
    return m_pipe->descriptor();
}

void Interrupts::dispatch()
{
    m_pipe->drain(m_interrupted);
}
