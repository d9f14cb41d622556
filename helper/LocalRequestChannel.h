#pragma once

#include "helper/EventLoop.h"
#include "helper/RequestChannel.h"
#include "helper/RequestExchange.h"
#include "platform/ApplicationTransport.h"
#include "platform/FolderWatch.h"

#include <memory>

// The application on this machine: the request file in the exchange folder, the transport's
// notification, and the Responses folder watched for the answer. With no application running it
// starts one and waits up to 5 seconds for it; when the application vanishes without answering
// it waits as long for a new copy, which serves the queue from the folder. It does not restart
// the application itself: a request that crashed it would crash it again.
class LocalRequestChannel final : public RequestChannel {
public:
    explicit LocalRequestChannel(EventLoop &loop, RequestExchange exchange = RequestExchange());
    ~LocalRequestChannel() override;

    void send(EditRequest request, Events events) override;
    void withdraw() override;

private:
    enum class State { idle, waitingForApplication, waitingForResponse, done };

    void applicationDidLaunch();
    void applicationDidTerminate();
    void applicationStartTimedOut();
    void waitForApplication(const std::string &reasonIfNone);
    void checkForResponse();
    void collectResponse();
    void giveUp(const std::string &reason);
    void end();

    EventLoop &m_loop;
    RequestExchange m_exchange;
    // Made first, so that an application starting while the request is written is seen.
    std::unique_ptr<ApplicationTransport> m_transport;
    std::unique_ptr<FolderWatch> m_responses;
    Timer m_applicationStart;
    Events m_events;
    std::string m_id;
    State m_state = State::idle;
    std::string m_reasonIfNoApplication;
};
