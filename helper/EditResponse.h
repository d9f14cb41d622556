#pragma once

#include <optional>
#include <string>
#include <string_view>

// The application's answer to one request, from Responses/<ID>.json.
struct EditResponse {
    enum class Disposition { submitted, cancelled };

    Disposition disposition = Disposition::cancelled;
    std::optional<std::string> updatedText;

    // Reads what the application's ComposerResponse writes; throws HelperError with the reason
    // for malformed JSON, a missing key or a bad value.
    static EditResponse fromJson(std::string_view json);
};
