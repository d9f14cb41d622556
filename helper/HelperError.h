#pragma once

#include <exception>
#include <string>

// tarvel-edit's one error type, without Qt. description() is a complete sentence that can be
// shown to the user as it stands.
class HelperError : public std::exception {
public:
    explicit HelperError(std::string description)
        : m_description(std::move(description))
    {
    }

    const std::string &description() const noexcept { return m_description; }
    const char *what() const noexcept override { return m_description.c_str(); }

    // "Could not <operation>: <system error text>".
    static HelperError systemFailure(const std::string &operation, int errorNumber);

private:
    std::string m_description;
};

// A folder of the request exchange that others could read from or write into. Nothing goes
// through it; the sentence says what to run.
class UnsafeFolderError final : public HelperError {
public:
    using HelperError::HelperError;
};

// Text quoted for a sentence: “text”.
std::string inQuotes(const std::string &text);
// One line on standard error: "tarvel-edit: <message>".
void printError(const std::string &message);
