#pragma once

#include "helper/EditRequest.h"
#include "helper/EditResponse.h"

#include <functional>
#include <string>

// How a request travels to the Tarvel application and its answer comes back. The local channel
// writes the request file and wakes the application on this machine; one for another machine
// carries the same records over its own connection. Events come from the caller's event loop,
// at most one of them per request.
class RequestChannel {
public:
    struct Events {
        std::function<void(const EditResponse &)> answered;
        // No application will answer, for the reason given as a short phrase ("no session bus");
        // the request has been withdrawn.
        std::function<void(const std::string &reason)> unavailable;
        // An answer came but cannot be used; the message is a sentence.
        std::function<void(const std::string &message)> failed;
    };

    virtual ~RequestChannel() = default;

    // Sends the request; the channel fills in the source application from its side. An event
    // may come before this returns. Throws HelperError when the request cannot be sent at all.
    virtual void send(EditRequest request, Events events) = 0;
    // The user interrupted: the request is withdrawn and an answer that came meanwhile is
    // discarded, so nothing is left behind. No event follows.
    virtual void withdraw() = 0;
};
