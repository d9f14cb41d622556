#include "remote/RemoteProtocol.h"

#include <nlohmann/json.hpp>

#include <cctype>

namespace RemoteProtocol {
namespace {

using Json = nlohmann::json;
using Kind = ProtocolError::Kind;

constexpr std::size_t kMaximumHostSize = 255;
const std::string kLimitText = std::to_string(maximumFrameSize / (1024 * 1024)) + " MB";

std::string frame(const Json &object)
{
    const std::string payload = object.dump(-1, ' ', false, Json::error_handler_t::replace);
    if (payload.size() > maximumFrameSize)
        throw ProtocolError(Kind::tooLarge, "the message is larger than " + kLimitText);
    std::string bytes(headerSize, '\0');
    for (std::size_t index = 0; index < headerSize; ++index)
        bytes[index] = char((payload.size() >> (8 * (headerSize - 1 - index))) & 0xff);
    return bytes + payload;
}

Json message(const char *type)
{
    return Json{{"type", type}, {"version", version}};
}

std::string quoted(const std::string &text)
{
    return "\u201c" + text + "\u201d";
}

// The object, checked for its version before anything else: a later version may have changed
// everything but that.
Json parse(std::string_view payload)
{
    Json object;
    try {
        object = Json::parse(payload);
    } catch (const Json::exception &error) {
        // A syntax error, or a number beyond what a double holds (out_of_range).
        std::string reason = error.what();
        if (const std::size_t tag = reason.find("] "); tag != std::string::npos)
            reason.erase(0, tag + 2);
        throw ProtocolError(Kind::malformed, "the message is not valid JSON (" + reason + ")");
    }
    if (!object.is_object())
        throw ProtocolError(Kind::malformed, "the message is not a JSON object");
    const auto found = object.find("version");
    if (found == object.end())
        throw ProtocolError(Kind::malformed, "the message does not say which protocol version it speaks");
    if (!found->is_number_integer() || found->get<long long>() != version)
        throw ProtocolError(Kind::unsupportedVersion,
                            "the two machines speak different versions of the remote "
                            "editing protocol (" +
                                found->dump() + " and " + std::to_string(version) +
                                "); install the same Tarvel version on both");
    return object;
}

const std::string &requiredString(const Json &object, const char *key)
{
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string())
        throw ProtocolError(Kind::malformed, std::string("the message has no text for ") + quoted(key));
    return found->get_ref<const std::string &>();
}

std::optional<std::string> optionalString(const Json &object, const char *key)
{
    const auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return std::nullopt;
    if (!found->is_string())
        throw ProtocolError(Kind::malformed, std::string("the value of ") + quoted(key) + " is not text");
    return found->get<std::string>();
}

std::string capitalizedSentence(const std::string &phrase)
{
    std::string sentence = phrase;
    if (!sentence.empty())
        sentence[0] = char(std::toupper(static_cast<unsigned char>(sentence[0])));
    return sentence + '.';
}

} // namespace

ProtocolError::ProtocolError(Kind kind, const std::string &reason)
    : std::runtime_error(capitalizedSentence(reason))
    , m_kind(kind)
    , m_reason(reason)
{
}

std::string encode(const ClientMessage &message)
{
    if (const auto *request = std::get_if<Request>(&message)) {
        Json object = RemoteProtocol::message("request");
        object["text"] = request->initialText;
        object["host"] = request->host;
        if (request->workingDirectory)
            object["cwd"] = *request->workingDirectory;
        if (request->fileName)
            object["file"] = *request->fileName;
        return frame(object);
    }
    return frame(RemoteProtocol::message("withdraw"));
}

std::string encode(const ServerMessage &message)
{
    if (const auto *answer = std::get_if<Answer>(&message)) {
        Json object = RemoteProtocol::message("answer");
        object["disposition"] =
            answer->disposition == Answer::Disposition::submitted ? "submitted" : "cancelled";
        if (answer->text)
            object["text"] = *answer->text;
        return frame(object);
    }
    if (const auto *refusal = std::get_if<Refusal>(&message)) {
        Json object = RemoteProtocol::message("refused");
        object["reason"] = refusal->reason;
        return frame(object);
    }
    return frame(RemoteProtocol::message("accepted"));
}

ClientMessage decodeClientMessage(std::string_view payload)
{
    const Json object = parse(payload);
    const std::string &type = requiredString(object, "type");
    if (type == "withdraw")
        return Withdrawal{};
    if (type != "request")
        throw ProtocolError(Kind::malformed, quoted(type) + " is not a message tarvel-edit sends");
    Request request;
    request.initialText = requiredString(object, "text");
    request.host = requiredString(object, "host");
    if (request.host.size() > kMaximumHostSize)
        throw ProtocolError(Kind::malformed,
                            "the host name is longer than " + std::to_string(kMaximumHostSize) + " bytes");
    request.workingDirectory = optionalString(object, "cwd");
    request.fileName = optionalString(object, "file");
    return request;
}

ServerMessage decodeServerMessage(std::string_view payload)
{
    const Json object = parse(payload);
    const std::string &type = requiredString(object, "type");
    if (type == "accepted")
        return Accepted{};
    if (type == "refused")
        return Refusal{requiredString(object, "reason")};
    if (type != "answer")
        throw ProtocolError(Kind::malformed, quoted(type) + " is not a message Tarvel sends");
    Answer answer;
    const std::string &disposition = requiredString(object, "disposition");
    if (disposition == "submitted")
        answer.disposition = Answer::Disposition::submitted;
    else if (disposition != "cancelled")
        throw ProtocolError(Kind::malformed, quoted(disposition) + " is not a known outcome");
    answer.text = optionalString(object, "text");
    if (answer.disposition == Answer::Disposition::submitted && !answer.text)
        throw ProtocolError(Kind::malformed, "the submitted answer carries no text");
    return answer;
}

void FrameReader::append(const char *data, std::size_t size)
{
    // What was handed out already goes first, so the buffer never holds more than a frame and
    // what came with it.
    if (m_offset > 0 && (m_offset == m_buffer.size() || m_offset >= 64 * 1024)) {
        m_buffer.erase(0, m_offset);
        m_offset = 0;
    }
    m_buffer.append(data, size);
}

std::optional<std::string> FrameReader::nextFrame()
{
    const std::size_t available = m_buffer.size() - m_offset;
    if (available < headerSize)
        return std::nullopt;
    std::size_t length = 0;
    for (std::size_t index = 0; index < headerSize; ++index)
        length = (length << 8) | static_cast<unsigned char>(m_buffer[m_offset + index]);
    if (length > maximumFrameSize)
        throw ProtocolError(Kind::tooLarge, "the message is larger than " + kLimitText + " (" +
                                                std::to_string(length) + " bytes)");
    if (available - headerSize < length)
        return std::nullopt;
    std::string payload = m_buffer.substr(m_offset + headerSize, length);
    m_offset += headerSize + length;
    return payload;
}

} // namespace RemoteProtocol
