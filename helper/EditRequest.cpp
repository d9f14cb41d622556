#include "helper/EditRequest.h"

#include <nlohmann/json.hpp>

#include <random>

std::string EditRequest::newIdentifier()
{
    std::random_device random;
    unsigned char bytes[16];
    for (std::size_t index = 0; index < sizeof bytes; index += 4) {
        const std::uint32_t word = random();
        for (std::size_t byte = 0; byte < 4; ++byte)
            bytes[index + byte] = static_cast<unsigned char>(word >> (8 * byte));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40); // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80); // RFC 4122 variant

    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t index = 0; index < sizeof bytes; ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10)
            text += '-';
        text += kDigits[bytes[index] >> 4];
        text += kDigits[bytes[index] & 0x0f];
    }
    return text;
}

std::string EditRequest::toJson() const
{
    char date[32] = {};
    std::tm utc{};
    ::gmtime_r(&createdAt, &utc);
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%SZ", &utc);

    // nlohmann's object keeps its keys sorted by byte, as the application's own writer does.
    nlohmann::json object{{"id", id}, {"createdAt", date}, {"initialText", initialText}};
    if (cwd)
        object["cwd"] = *cwd;
    if (filePath)
        object["filePath"] = *filePath;
    if (sourceApplicationBundleIdentifier)
        object["sourceApplicationBundleIdentifier"] = *sourceApplicationBundleIdentifier;
    if (sourceApplicationPID)
        object["sourceApplicationPID"] = *sourceApplicationPID;
    if (activationToken)
        object["activationToken"] = *activationToken;

    std::string json = object.dump(4, ' ', false, nlohmann::json::error_handler_t::replace);
    // Outside strings JSON never contains '/', so every slash is inside a string.
    std::string escaped;
    escaped.reserve(json.size() + 16);
    for (const char character : json) {
        if (character == '/')
            escaped += '\\';
        escaped += character;
    }
    escaped += '\n';
    return escaped;
}
