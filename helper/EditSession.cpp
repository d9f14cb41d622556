#include "helper/EditSession.h"

#include "core/ExchangeNames.h"
#include "helper/EditedFile.h"
#include "helper/EventLoop.h"
#include "helper/HelperError.h"

#include <climits>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

EditSession::EditSession(EditedFile &file, RequestChannel &channel, EventLoop &loop)
    : m_file(file)
    , m_channel(channel)
    , m_loop(loop)
{
}

void EditSession::start()
{
    char cwd[PATH_MAX];
    EditRequest request;
    request.id = EditRequest::newIdentifier();
    request.createdAt = std::time(nullptr);
    if (::getcwd(cwd, sizeof cwd))
        request.cwd = std::string(cwd);
    request.initialText = m_file.text();
    request.filePath = m_file.absolutePath();
    // What started the terminal (a launcher) may have left a token that its shells inherit.
    if (const char *token = std::getenv("XDG_ACTIVATION_TOKEN"); token && *token)
        request.activationToken = std::string(token);

    // The application refuses a request file this large unread: said here, and edited elsewhere.
    if (static_cast<long long>(request.toJson().size()) > ExchangeNames::maximumRequestFileSize) {
        useFallbackEditor("the text is larger than the 16 MB a composer takes");
        return;
    }
    m_channel.send(std::move(request),
                   {
                       .answered = [this](const EditResponse &response) { answered(response); },
                       .unavailable = [this](const std::string &reason) { useFallbackEditor(reason); },
                       .failed = [this](const std::string &message) { finish(1, message); },
                   });
}

void EditSession::interrupt(int signalNumber)
{
    if (m_finished)
        return;
    m_channel.withdraw();
    finish(128 + signalNumber);
}

void EditSession::answered(const EditResponse &response)
{
    if (response.disposition == EditResponse::Disposition::cancelled) {
        finish(1, "editing cancelled");
        return;
    }
    if (!response.updatedText) {
        finish(1, "Tarvel answered without a text, so the file was left unchanged.");
        return;
    }
    try {
        m_file.replaceText(*response.updatedText);
    } catch (const HelperError &error) {
        finish(1, error.description());
        return;
    }
    finish(0);
}

void EditSession::useFallbackEditor(const std::string &reason)
{
    m_ending = Ending::useFallbackEditor;
    m_fallbackReason = reason;
    finish(0);
}

void EditSession::finish(int exitCode, const std::string &message)
{
    if (!message.empty())
        printError(message);
    m_exitCode = exitCode;
    m_finished = true;
    m_loop.quit();
}
