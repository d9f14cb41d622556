#include "helper/EditResponse.h"

#include "helper/HelperError.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

const Json &required(const Json &object, const char *key)
{
    const auto found = object.find(key);
    if (found == object.end() || found->is_null())
        throw HelperError("The required key " + inQuotes(key) + " is missing.");
    return *found;
}

const std::string &requiredString(const Json &object, const char *key)
{
    const Json &value = required(object, key);
    if (!value.is_string())
        throw HelperError("The value of " + inQuotes(key) + " is not a string.");
    return value.get_ref<const std::string &>();
}

} // namespace

EditResponse EditResponse::fromJson(std::string_view json)
{
    Json object;
    try {
        object = Json::parse(json);
    } catch (const Json::parse_error &error) {
        // nlohmann's text starts with its own tag in brackets; the rest says what and where.
        std::string reason = error.what();
        if (const std::size_t tag = reason.find("] "); tag != std::string::npos)
            reason.erase(0, tag + 2);
        throw HelperError("The data isn't valid JSON (" + reason + ").");
    }
    if (!object.is_object())
        throw HelperError("The data is not a JSON object.");

    requiredString(object, "id");
    // The time of the answer is the application's record; here it only has to be there.
    const Json &respondedAt = required(object, "respondedAt");
    if (!respondedAt.is_string() && !respondedAt.is_number())
        throw HelperError("The value of " + inQuotes("respondedAt") + " is not a date.");

    EditResponse response;
    const std::string &disposition = requiredString(object, "disposition");
    if (disposition == "submitted")
        response.disposition = Disposition::submitted;
    else if (disposition == "cancelled")
        response.disposition = Disposition::cancelled;
    else
        throw HelperError(inQuotes(disposition) + " is not a known disposition.");

    if (const auto text = object.find("updatedText"); text != object.end() && !text->is_null()) {
        if (!text->is_string())
            throw HelperError("The value of " + inQuotes("updatedText") + " is not a string.");
        response.updatedText = text->get<std::string>();
    }
    return response;
}
