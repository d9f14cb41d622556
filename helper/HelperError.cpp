#include "helper/HelperError.h"

#include <cstdio>
#include <cstring>

HelperError HelperError::systemFailure(const std::string &operation, int errorNumber)
{
    return HelperError("Could not " + operation + ": " + std::strerror(errorNumber));
}

std::string inQuotes(const std::string &text)
{
    return "\u201c" + text + "\u201d";
}

void printError(const std::string &message)
{
    std::fputs(("tarvel-edit: " + message + '\n').c_str(), stderr);
}
