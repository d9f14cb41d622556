// tarvel-edit: the $VISUAL command. Hands the file to the Tarvel application's composer and
// waits for the answer; without an application it runs a terminal editor instead. Plain C++
// without Qt, so that it is ready to send the request almost as soon as it starts.
#include "helper/EditSession.h"
#include "helper/EditedFile.h"
#include "helper/EventLoop.h"
#include "helper/FallbackEditor.h"
#include "helper/HelperError.h"
#include "helper/Interrupts.h"
#include "helper/LocalRequestChannel.h"
#include "helper/RemoteRequestChannel.h"
#include "platform/UnixSocket.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kUsageError = 2;

const char kUsage[] = "Usage: tarvel-edit [--help | --version] FILE\n"
                      "\n"
                      "Edits FILE in Tarvel's composer, for use as VISUAL or EDITOR by terminal tools.\n"
                      "Exits 0 when the text was submitted (FILE now holds it) and 1 when editing was\n"
                      "cancelled (FILE is unchanged).\n"
                      "\n"
                      "Tarvel is started when it is not running. When it cannot be reached, FILE opens\n"
                      "in a terminal editor instead: TARVEL_FALLBACK_EDITOR, else EDITOR, else vi.\n"
                      "\n"
                      "On a machine reached over ssh, the request goes to Tarvel on your desktop through\n"
                      "the socket ssh forwards to ~/.local/state/tarvel/remote.sock when that answers\n"
                      "(see tarvel remote setup HOST on the desktop).\n"
                      "\n"
                      "Environment:\n"
                      "  TARVEL_APP_PATH         the Tarvel application to start\n"
                      "  TARVEL_FALLBACK_EDITOR  the terminal editor to use when Tarvel is unavailable\n"
                      "  TARVEL_REMOTE_SOCKET    the forwarded socket to use instead of the default one\n";

int fail(const std::string &message, int exitCode = 1)
{
    printError(message);
    return exitCode;
}

bool isSocket(const std::string &path)
{
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

// The desktop's Tarvel through a forwarded socket when TARVEL_REMOTE_SOCKET names one or the
// default one answers; otherwise the application on this machine. A default socket that does not
// answer is left from an ssh connection that has ended, which the fallback's sentence mentions.
std::unique_ptr<RequestChannel> makeChannel(EventLoop &loop, std::string &staleSocket)
{
    const char *named = std::getenv("TARVEL_REMOTE_SOCKET");
    if (named && *named)
        return std::make_unique<RemoteRequestChannel>(loop, named);
    const char *home = std::getenv("HOME");
    if (home && *home) {
        const std::string path = std::string(home) + '/' + RemoteProtocol::remoteSocketInHome;
        if (isSocket(path)) {
            const UnixSocket::Result connection = UnixSocket::connectTo(path);
            if (connection.descriptor >= 0)
                return std::make_unique<RemoteRequestChannel>(loop, path, connection.descriptor);
            staleSocket = RemoteRequestChannel::connectionFailure(path, connection.error);
        }
    }
    return std::make_unique<LocalRequestChannel>(loop);
}

} // namespace

int main(int argc, char **argv)
{
    std::string path;
    bool onlyOperands = false;
    for (int index = 1; index < argc; ++index) {
        const char *argument = argv[index];
        if (!onlyOperands && std::strcmp(argument, "--") == 0) {
            onlyOperands = true;
        } else if (!onlyOperands &&
                   (std::strcmp(argument, "--help") == 0 || std::strcmp(argument, "-h") == 0)) {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (!onlyOperands && std::strcmp(argument, "--version") == 0) {
            std::fputs("tarvel-edit " TARVEL_VERSION "\n", stdout);
            return 0;
        } else if (!onlyOperands && argument[0] == '-' && argument[1] != '\0') {
            return fail("unknown option " + inQuotes(argument) + " (see tarvel-edit --help)", kUsageError);
        } else if (path.empty()) {
            path = argument;
        } else {
            return fail("expected one FILE, got more (see tarvel-edit --help)", kUsageError);
        }
    }
    if (path.empty())
        return fail("expected a FILE to edit (see tarvel-edit --help)", kUsageError);

    try {
        EventLoop loop;
        EditedFile file(path);
        std::string staleSocket;
        const std::unique_ptr<RequestChannel> channel = makeChannel(loop, staleSocket);
        EditSession session(file, *channel, loop);
        // Before the request exists, so that no interruption can leave it behind.
        Interrupts interrupts([&session](int signalNumber) { session.interrupt(signalNumber); });
        loop.add(interrupts);
        session.start();
        if (!session.isFinished())
            loop.run();

        if (session.ending() == EditSession::Ending::exit) {
            // Everything the caller needs is on disk; closing the bus connection and freeing
            // memory would only keep the caller waiting.
            std::fflush(stdout);
            std::fflush(stderr);
            ::_exit(session.exitCode());
        }
        file.close();
        const std::string editor = FallbackEditor::command();
        const std::string why = staleSocket.empty() ? session.fallbackReason()
                                                    : session.fallbackReason() + ", and " + staleSocket;
        printError(why + "; opening " + inQuotes(editor) + " instead");
        const std::string reason = FallbackEditor::exec(editor, file.absolutePath());
        return fail("Could not run " + inQuotes(editor) + ": " + reason, 127);
    } catch (const HelperError &error) {
        return fail(error.description());
    }
}
