#include "helper/RequestExchange.h"

#include "core/ExchangeNames.h"
#include "helper/HelperError.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The base folder always has a folder above it: it is built as <data home>/Tarvel.
std::string parentOf(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

bool isFolderOrLink(const std::string &path)
{
    struct stat info {};
    return (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) ||
           (::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode));
}

// A link is never followed here: verifyPrivateFolder refuses it afterwards.
void makeFolder(const std::string &path, bool privateToUser)
{
    if (isFolderOrLink(path))
        return;
    int error = 0;
    if (privateToUser) {
        if (::mkdir(path.c_str(), 0700) != 0)
            error = errno;
    } else {
        // As mkdir -p: each missing folder from the top down.
        for (std::size_t slash = path.find('/', 1); error == 0; slash = path.find('/', slash + 1)) {
            const std::string prefix = path.substr(0, slash);
            if (!prefix.empty() && ::mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST)
                error = errno;
            if (slash == std::string::npos)
                break;
        }
    }
    struct stat info {};
    if (error != 0 && !(::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)))
        throw HelperError::systemFailure("create the folder " + inQuotes(path), error);
}

void verifyPrivateFolder(const std::string &path)
{
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0)
        throw HelperError::systemFailure("examine the folder " + inQuotes(path), errno);
    const std::string start = "Tarvel will not exchange requests through " + inQuotes(path) + " because ";
    if (S_ISLNK(info.st_mode))
        throw UnsafeFolderError(start + "it is a symbolic link; remove the link with rm '" + path +
                                "' and Tarvel will create a private folder in its place.");
    if (info.st_uid != ::geteuid())
        throw UnsafeFolderError(start + "it belongs to another user; move it aside with mv '" + path + "' '" +
                                path + ".old' and Tarvel will create a private folder in its place.");
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        throw UnsafeFolderError(start + "other users can change it; make it private with chmod 700 '" + path +
                                "'.");
}

bool writeWhole(int descriptor, const std::string &bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno != EINTR)
            return false;
        done += written > 0 ? std::size_t(written) : 0;
    }
    return true;
}

// Readers see the old file or the new one, never a part, and never a file wider than 0600. No
// fsync: a request lives as long as its terminal, which a crash of the system ends too, and the
// wait for the disk would stand between the command's start and the composer.
void writeAtomically(const std::string &path, const std::string &bytes)
{
    const std::string operation = "write " + inQuotes(path);
    const std::size_t slash = path.rfind('/');
    std::string temporary = path.substr(0, slash + 1) + '.' + path.substr(slash + 1) + ".XXXXXX";
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0)
        throw HelperError::systemFailure(operation, errno);
    int error = 0;
    if (::fchmod(descriptor, 0600) != 0 || !writeWhole(descriptor, bytes))
        error = errno;
    if (::close(descriptor) != 0 && error == 0)
        error = errno;
    if (error == 0 && ::rename(temporary.c_str(), path.c_str()) != 0)
        error = errno;
    if (error != 0) {
        ::unlink(temporary.c_str());
        throw HelperError::systemFailure(operation, error);
    }
}

void removeIfExists(const std::string &path)
{
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        throw HelperError::systemFailure("remove " + inQuotes(path), errno);
}

} // namespace

RequestExchange::RequestExchange()
    : m_base(defaultBaseDirectory())
{
}

RequestExchange::RequestExchange(std::string baseDirectory)
    : m_base(std::move(baseDirectory))
{
}

std::string RequestExchange::defaultBaseDirectory()
{
    // As Qt's GenericDataLocation reads the environment, so both sides agree on the folder
    // whatever it holds.
    std::string data;
    if (const char *dataHome = std::getenv("XDG_DATA_HOME"); dataHome && *dataHome) {
        data = dataHome;
    } else {
        const char *home = std::getenv("HOME");
        std::string clean = std::filesystem::path(home && *home ? home : "/").lexically_normal().string();
        if (clean.size() > 1 && clean.back() == '/')
            clean.pop_back();
        data = clean + "/.local/share";
    }
    if (data.back() != '/')
        data += '/';
    return data + ExchangeNames::appName;
}

std::string RequestExchange::folder(const char *name) const
{
    return m_base + '/' + name;
}

std::string RequestExchange::requestPath(const std::string &id) const
{
    return folder(ExchangeNames::requestsFolder) + '/' + id + ".json";
}

std::string RequestExchange::responsePath(const std::string &id) const
{
    return folder(ExchangeNames::responsesFolder) + '/' + id + ".json";
}

void RequestExchange::ensureFolders() const
{
    makeFolder(parentOf(m_base), false);
    makeFolder(m_base, true);
    verifyPrivateFolder(m_base);
    for (const char *name :
         {ExchangeNames::requestsFolder, ExchangeNames::responsesFolder,
          ExchangeNames::completedRequestsFolder, ExchangeNames::malformedRequestsFolder}) {
        makeFolder(folder(name), true);
        verifyPrivateFolder(folder(name));
    }
}

void RequestExchange::writeRequest(const EditRequest &request) const
{
    writeAtomically(requestPath(request.id), request.toJson());
}

void RequestExchange::removeRequest(const std::string &id) const
{
    removeIfExists(requestPath(id));
}

bool RequestExchange::responseExists(const std::string &id) const
{
    return ::access(responsePath(id).c_str(), F_OK) == 0;
}

EditResponse RequestExchange::readResponse(const std::string &id) const
{
    const std::string path = responsePath(id);
    const std::string operation = "read " + inQuotes(path);
    // Never stalls on a FIFO or a device someone put there.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor < 0)
        throw HelperError::systemFailure(operation, errno);
    std::string bytes;
    struct stat info {};
    int error = 0;
    if (::fstat(descriptor, &info) != 0) {
        error = errno;
    } else if (!S_ISREG(info.st_mode)) {
        ::close(descriptor);
        throw HelperError("The answer " + inQuotes(path) + " is not a plain file.");
    } else {
        char buffer[65536];
        ssize_t count = 0;
        while ((count = ::read(descriptor, buffer, sizeof buffer)) != 0) {
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0) {
                error = errno;
                break;
            }
            bytes.append(buffer, std::size_t(count));
        }
    }
    ::close(descriptor);
    if (error != 0)
        throw HelperError::systemFailure(operation, error);
    return EditResponse::fromJson(bytes);
}

void RequestExchange::removeResponse(const std::string &id) const
{
    removeIfExists(responsePath(id));
}
