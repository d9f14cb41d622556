#include "helper/LocalRequestChannel.h"

#include "core/ExchangeNames.h"
#include "helper/HelperError.h"

#include <chrono>

namespace {
constexpr std::chrono::seconds kApplicationStartTimeout{5};
} // namespace

LocalRequestChannel::LocalRequestChannel(EventLoop &loop, RequestExchange exchange)
    : m_loop(loop)
    , m_exchange(std::move(exchange))
    , m_transport(ApplicationTransport::create({
          .applicationDidLaunch = [this] { applicationDidLaunch(); },
          .applicationDidTerminate = [this] { applicationDidTerminate(); },
      }))
    , m_applicationStart([this] { applicationStartTimedOut(); })
{
    m_loop.add(*m_transport);
    m_loop.add(m_applicationStart);
}

LocalRequestChannel::~LocalRequestChannel()
{
    m_loop.remove(*m_transport);
    m_loop.remove(m_applicationStart);
    if (m_responses)
        m_loop.remove(*m_responses);
}

void LocalRequestChannel::send(EditRequest request, Events events)
{
    m_events = std::move(events);
    m_id = request.id;
    const SourceApplication source = m_transport->sourceApplication();
    request.sourceApplicationBundleIdentifier = source.identifier;
    request.sourceApplicationPID = source.pid;

    try {
        m_exchange.ensureFolders();
    } catch (const UnsafeFolderError &error) {
        // Nothing is written into a folder someone else could read or answer from.
        printError(error.description());
        end();
        m_events.unavailable("the request folders are not private");
        return;
    }
    // Watch before the request exists: an answer cannot come earlier than that.
    m_responses = FolderWatch::create(m_exchange.folder(ExchangeNames::responsesFolder),
                                      [this] { checkForResponse(); });
    m_loop.add(*m_responses);
    m_exchange.writeRequest(request);
    m_state = State::waitingForResponse;

    m_transport->postRequestCreated();
    const bool running = m_transport->isRunning();
    // Asked after the first answer: only then is the connection known to work.
    if (!m_transport->canReachApplications()) {
        giveUp("no session bus");
        return;
    }
    if (running) {
        checkForResponse();
        return;
    }
    const ApplicationTransport::Outcome launch = m_transport->launchApplication();
    if (!launch.started) {
        giveUp(launch.reason);
        return;
    }
    waitForApplication("Tarvel did not start within " + std::to_string(kApplicationStartTimeout.count()) +
                       " seconds");
    checkForResponse();
}

void LocalRequestChannel::withdraw()
{
    if (m_state == State::idle || m_state == State::done)
        return;
    try {
        // An answer that has arrived is discarded; otherwise the request is withdrawn, and an
        // answer that slips in meanwhile is not left behind either.
        if (!m_exchange.responseExists(m_id))
            m_exchange.removeRequest(m_id);
        m_exchange.removeResponse(m_id);
    } catch (const HelperError &error) {
        printError(error.description());
    }
    end();
}

void LocalRequestChannel::applicationDidLaunch()
{
    if (m_state != State::waitingForApplication)
        return;
    m_applicationStart.stop();
    m_state = State::waitingForResponse;
    m_transport->postRequestCreated();
    checkForResponse();
}

void LocalRequestChannel::applicationDidTerminate()
{
    if (m_state != State::waitingForResponse)
        return;
    // A quitting application answers first, so a response is already on disk by now.
    if (m_exchange.responseExists(m_id)) {
        collectResponse();
        return;
    }
    // It crashed. The request is still queued on disk, so a copy started again soon (by the
    // user or the session) serves it.
    waitForApplication("Tarvel quit without answering");
}

void LocalRequestChannel::applicationStartTimedOut()
{
    if (m_state != State::waitingForApplication)
        return;
    if (m_transport->isRunning())
        applicationDidLaunch();
    else
        giveUp(m_reasonIfNoApplication);
}

void LocalRequestChannel::waitForApplication(const std::string &reasonIfNone)
{
    m_state = State::waitingForApplication;
    m_reasonIfNoApplication = reasonIfNone;
    m_applicationStart.start(kApplicationStartTimeout);
}

void LocalRequestChannel::checkForResponse()
{
    if ((m_state == State::waitingForApplication || m_state == State::waitingForResponse) &&
        m_exchange.responseExists(m_id))
        collectResponse();
}

void LocalRequestChannel::collectResponse()
{
    EditResponse response;
    try {
        response = m_exchange.readResponse(m_id);
    } catch (const HelperError &error) {
        try {
            m_exchange.removeResponse(m_id);
        } catch (const HelperError &) {
        }
        end();
        m_events.failed("The answer from Tarvel could not be read. " + error.description());
        return;
    }
    try {
        m_exchange.removeResponse(m_id);
    } catch (const HelperError &error) {
        printError(error.description());
    }
    end();
    m_events.answered(response);
}

void LocalRequestChannel::giveUp(const std::string &reason)
{
    // The application may have answered after all.
    if (m_exchange.responseExists(m_id)) {
        collectResponse();
        return;
    }
    try {
        m_exchange.removeRequest(m_id);
    } catch (const HelperError &error) {
        printError(error.description());
    }
    end();
    m_events.unavailable(reason);
}

void LocalRequestChannel::end()
{
    m_state = State::done;
    m_applicationStart.stop();
}
