#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

// How tarvel-edit on another machine and the Tarvel application on the user's desktop talk over
// the Unix socket that ssh forwards between them. Plain C++ (JSON through nlohmann's library), so
// that both ends use this one encoder and decoder.
//
// A frame is a 4-byte big-endian length and that many bytes of one UTF-8 JSON object. Every
// object names its "type" and the protocol "version" it was written in, so the first message of
// either side already says which version it speaks. The helper sends a request and later, if the
// user interrupts it, a withdrawal; the application answers "accepted" as soon as the request is
// queued, then "answer" with the outcome, or "refused" with the reason instead.
namespace RemoteProtocol {

inline constexpr int version = 1;
inline constexpr std::size_t headerSize = 4;
// The most a frame may carry, as for a request file.
inline constexpr std::size_t maximumFrameSize = 16 * 1024 * 1024;

// Where the socket is on the machine that runs tarvel-edit, below its home folder, unless
// TARVEL_REMOTE_SOCKET names another.
inline constexpr char remoteSocketInHome[] = ".local/state/tarvel/remote.sock";
// Where the application listens: its folder below the runtime folder, and the socket in it.
inline constexpr char localFolderName[] = "tarvel";
inline constexpr char localSocketName[] = "remote.sock";

// What the helper asks for: a composer on this text, marked with the machine it comes from.
struct Request {
    std::string initialText;
    std::string host;
    std::optional<std::string> workingDirectory;
    // The edited file's name, for display only: its path means nothing on the desktop.
    std::optional<std::string> fileName;

    friend bool operator==(const Request &, const Request &) = default;
};
// The user interrupted the helper; the connection closing means the same.
struct Withdrawal {
    friend bool operator==(const Withdrawal &, const Withdrawal &) = default;
};

// The request waits for the user now; until this comes, the helper may give up and fall back.
struct Accepted {
    friend bool operator==(const Accepted &, const Accepted &) = default;
};
struct Answer {
    enum class Disposition { submitted, cancelled };
    Disposition disposition = Disposition::cancelled;
    // The submitted text; none when cancelled.
    std::optional<std::string> text;

    friend bool operator==(const Answer &, const Answer &) = default;
};
// The request was not taken; the reason is a phrase that completes "Tarvel refused the request: ".
struct Refusal {
    std::string reason;

    friend bool operator==(const Refusal &, const Refusal &) = default;
};

using ClientMessage = std::variant<Request, Withdrawal>;
using ServerMessage = std::variant<Accepted, Answer, Refusal>;

// A frame or message that cannot be used; what() is a sentence, reason() the same as a phrase
// for a refusal.
class ProtocolError final : public std::runtime_error {
public:
    enum class Kind { tooLarge, malformed, unsupportedVersion };

    ProtocolError(Kind kind, const std::string &reason);

    Kind kind() const noexcept { return m_kind; }
    const std::string &reason() const noexcept { return m_reason; }

private:
    Kind m_kind;
    std::string m_reason;
};

// The whole frame, header included. Throws ProtocolError (tooLarge) when it would exceed the
// limit. Bytes that are not UTF-8 are replaced.
std::string encode(const ClientMessage &message);
std::string encode(const ServerMessage &message);

// Throw ProtocolError for anything but one known message of this version.
ClientMessage decodeClientMessage(std::string_view payload);
ServerMessage decodeServerMessage(std::string_view payload);

// Cuts a byte stream into frames, whatever pieces it arrives in.
class FrameReader final {
public:
    void append(const char *data, std::size_t size);
    // The payload of the next complete frame; nothing until one is complete. Throws
    // ProtocolError (tooLarge) as soon as a header announces more than the limit, before its
    // payload is read; the reader is of no further use then.
    std::optional<std::string> nextFrame();
    // Bytes of a frame that has not completed yet.
    bool holdsPartialFrame() const { return m_buffer.size() > m_offset; }
    std::size_t bufferedSize() const { return m_buffer.size() - m_offset; }

private:
    std::string m_buffer;
    std::size_t m_offset = 0;
};

} // namespace RemoteProtocol
