#include "helper/RemoteRequestChannel.h"

#include "helper/HelperError.h"
#include "platform/UnixSocket.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <unistd.h>

namespace {

constexpr std::chrono::seconds kAcceptanceTimeout{5};

std::string hostName()
{
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0')
        return "another machine";
    return name;
}

std::string fileNameOf(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

} // namespace

RemoteRequestChannel::RemoteRequestChannel(EventLoop &loop, std::string path, int connected)
    : m_loop(loop)
    , m_path(std::move(path))
    , m_descriptor(connected)
    , m_acceptance([this] {
        if (m_state == State::waitingForAcceptance)
            giveUp("Tarvel did not answer through " + m_path + " within " +
                   std::to_string(kAcceptanceTimeout.count()) + " seconds");
    })
{
    m_loop.add(*this);
    m_loop.add(m_acceptance);
}

RemoteRequestChannel::~RemoteRequestChannel()
{
    m_loop.remove(*this);
    m_loop.remove(m_acceptance);
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

std::string RemoteRequestChannel::connectionFailure(const std::string &path, int error)
{
    switch (error) {
    case ENOENT:
        return "there is no socket at " + path;
    case ECONNREFUSED:
        return "nothing listens at " + path + " any more (the ssh connection that forwarded it has ended)";
    case ENAMETOOLONG:
        return "the socket path " + path + " is too long";
    default:
        return "could not connect to " + path + ": " + std::strerror(error);
    }
}

void RemoteRequestChannel::send(EditRequest request, Events events)
{
    m_events = std::move(events);
    m_state = State::waitingForAcceptance;
    // Nothing goes through a socket that someone else could have put there or listen on.
    if (const std::string problem = UnixSocket::looseAccess(m_path); !problem.empty()) {
        giveUp("Tarvel will not send prompts through " + m_path + " because " + problem);
        return;
    }
    RemoteProtocol::Request message;
    message.initialText = std::move(request.initialText);
    message.host = hostName();
    message.workingDirectory = std::move(request.cwd);
    if (request.filePath)
        message.fileName = fileNameOf(*request.filePath);
    try {
        m_outgoing = RemoteProtocol::encode(message);
    } catch (const RemoteProtocol::ProtocolError &) {
        giveUp("the text is larger than " + std::to_string(RemoteProtocol::maximumFrameSize / (1024 * 1024)) +
               " MB, more than Tarvel takes from another machine");
        return;
    }
    if (m_descriptor < 0) {
        const UnixSocket::Result connection = UnixSocket::connectTo(m_path);
        if (connection.descriptor < 0) {
            giveUp(connectionFailure(m_path, connection.error));
            return;
        }
        m_descriptor = connection.descriptor;
    }
    m_acceptance.start(kAcceptanceTimeout);
    writePending();
}

void RemoteRequestChannel::withdraw()
{
    if (m_state == State::idle || m_state == State::done)
        return;
    // Said if it fits into the socket now; the connection closing says the same anyway.
    if (m_written == m_outgoing.size()) {
        const std::string withdrawal = RemoteProtocol::encode(RemoteProtocol::Withdrawal{});
        static_cast<void>(UnixSocket::sendSome(m_descriptor, withdrawal.data(), withdrawal.size()));
    }
    end();
}

int RemoteRequestChannel::descriptor() const
{
    return m_state == State::waitingForAcceptance || m_state == State::waitingForAnswer ? m_descriptor : -1;
}

short RemoteRequestChannel::events() const
{
    return short(POLLIN | (m_written < m_outgoing.size() ? POLLOUT : 0));
}

void RemoteRequestChannel::dispatch()
{
    // Read first: a refusal may be waiting while the rest of a large request cannot go out.
    readAvailable();
    if (m_state == State::waitingForAcceptance || m_state == State::waitingForAnswer)
        writePending();
}

void RemoteRequestChannel::writePending()
{
    while (m_written < m_outgoing.size()) {
        const ssize_t sent =
            UnixSocket::sendSome(m_descriptor, m_outgoing.data() + m_written, m_outgoing.size() - m_written);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (sent < 0) {
            // The other side closed; what it said before that is still to be read.
            m_outgoing.clear();
            m_written = 0;
            readAvailable();
            if (m_state == State::waitingForAcceptance || m_state == State::waitingForAnswer)
                connectionEnded();
            return;
        }
        m_written += std::size_t(sent);
    }
}

void RemoteRequestChannel::readAvailable()
{
    char buffer[65536];
    for (;;) {
        const ssize_t received = ::read(m_descriptor, buffer, sizeof buffer);
        if (received < 0 && errno == EINTR)
            continue;
        if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (received <= 0) {
            connectionEnded();
            return;
        }
        m_reader.append(buffer, std::size_t(received));
        try {
            while (const std::optional<std::string> payload = m_reader.nextFrame()) {
                handle(RemoteProtocol::decodeServerMessage(*payload));
                if (m_state == State::done)
                    return;
            }
        } catch (const RemoteProtocol::ProtocolError &error) {
            end();
            m_events.failed(std::string("The answer from Tarvel could not be read. ") + error.what());
            return;
        }
    }
}

void RemoteRequestChannel::handle(const RemoteProtocol::ServerMessage &message)
{
    if (std::holds_alternative<RemoteProtocol::Accepted>(message)) {
        m_acceptance.stop();
        if (m_state == State::waitingForAcceptance)
            m_state = State::waitingForAnswer;
        return;
    }
    if (const auto *refusal = std::get_if<RemoteProtocol::Refusal>(&message)) {
        giveUp("Tarvel refused the request: " + refusal->reason);
        return;
    }
    const auto &answer = std::get<RemoteProtocol::Answer>(message);
    EditResponse response;
    response.disposition = answer.disposition == RemoteProtocol::Answer::Disposition::submitted
                               ? EditResponse::Disposition::submitted
                               : EditResponse::Disposition::cancelled;
    response.updatedText = answer.text;
    end();
    m_events.answered(response);
}

void RemoteRequestChannel::connectionEnded()
{
    if (m_state == State::waitingForAcceptance)
        giveUp("the connection through " + m_path +
               " closed before Tarvel took the request; Tarvel may not be running on your desktop");
    else if (m_state == State::waitingForAnswer)
        giveUp("the connection to Tarvel through " + m_path + " was lost before it answered");
}

void RemoteRequestChannel::giveUp(const std::string &reason)
{
    end();
    m_events.unavailable(reason);
}

void RemoteRequestChannel::end()
{
    m_state = State::done;
    m_acceptance.stop();
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
        m_descriptor = -1;
    }
}
