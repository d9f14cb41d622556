#pragma once

#include "helper/EventLoop.h"
#include "helper/RequestChannel.h"
#include "remote/RemoteProtocol.h"

#include <string>

// The application on the user's desktop, reached from another machine through the Unix socket
// that ssh forwards there (RemoteProtocol). The request goes out as soon as the socket is
// connected; when Tarvel has not taken it within 5 seconds, or the socket is missing, stale,
// not private or refuses, the request is given up and the terminal editor takes over. Once
// taken, the helper waits for the answer as long as the user types. Withdrawing says so to
// the application and closes the connection.
class RemoteRequestChannel final : public RequestChannel, public EventSource {
public:
    // connected: a connection to path made already, or -1 to connect in send().
    RemoteRequestChannel(EventLoop &loop, std::string path, int connected = -1);
    ~RemoteRequestChannel() override;
    RemoteRequestChannel(const RemoteRequestChannel &) = delete;
    RemoteRequestChannel &operator=(const RemoteRequestChannel &) = delete;

    void send(EditRequest request, Events events) override;
    void withdraw() override;

    int descriptor() const override;
    short events() const override;
    void dispatch() override;

    // Why a connection to path failed, as a phrase, from connect()'s errno.
    static std::string connectionFailure(const std::string &path, int error);

private:
    enum class State { idle, waitingForAcceptance, waitingForAnswer, done };

    void readAvailable();
    void writePending();
    void handle(const RemoteProtocol::ServerMessage &message);
    void connectionEnded();
    void giveUp(const std::string &reason);
    void end();

    EventLoop &m_loop;
    std::string m_path;
    int m_descriptor = -1;
    std::string m_outgoing;
    std::size_t m_written = 0;
    RemoteProtocol::FrameReader m_reader;
    Timer m_acceptance;
    Events m_events;
    State m_state = State::idle;
};
