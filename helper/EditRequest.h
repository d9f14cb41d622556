#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

// What tarvel-edit asks for: open a composer on this text. Lives in Requests/<ID>.json, where
// the application reads it as its ComposerRequest. Strings are UTF-8.
struct EditRequest {
    std::string id;
    std::time_t createdAt = 0;
    std::optional<std::string> cwd;
    std::string initialText;
    std::optional<std::string> filePath;
    std::optional<std::string> sourceApplicationBundleIdentifier;
    std::optional<std::int32_t> sourceApplicationPID;
    // A Wayland activation token (xdg-activation) from the helper's environment, which lets the
    // compositor give the composer the keyboard.
    std::optional<std::string> activationToken;

    // A random (version 4) UUID in upper case, the form of the exchange's file names.
    static std::string newIdentifier();

    // The exchange's JSON form: keys in byte order, indented by four spaces, slashes escaped,
    // the date as whole-second UTC. Bytes that are not UTF-8 in the paths are replaced.
    std::string toJson() const;
};
