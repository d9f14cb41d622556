#pragma once

#include "helper/RequestChannel.h"

#include <string>

class EditedFile;
class EventLoop;

// One round of editing through the Tarvel application: send the file's text as a request, wait
// for the answer and apply it. When no application is there to answer, the caller runs a
// terminal editor instead.
class EditSession final {
public:
    enum class Ending { exit, useFallbackEditor };

    EditSession(EditedFile &file, RequestChannel &channel, EventLoop &loop);

    // Sends the request; may finish at once. Throws HelperError when it cannot be sent.
    void start();
    // SIGINT, SIGTERM or SIGHUP: withdraw and end with 128 + the signal number.
    void interrupt(int signalNumber);

    bool isFinished() const { return m_finished; }
    Ending ending() const { return m_ending; }
    int exitCode() const { return m_exitCode; }
    // Why the application could not be used, as a short phrase.
    const std::string &fallbackReason() const { return m_fallbackReason; }

private:
    void answered(const EditResponse &response);
    void useFallbackEditor(const std::string &reason);
    void finish(int exitCode, const std::string &message = {});

    EditedFile &m_file;
    RequestChannel &m_channel;
    EventLoop &m_loop;
    bool m_finished = false;
    Ending m_ending = Ending::exit;
    int m_exitCode = 0;
    std::string m_fallbackReason;
};
