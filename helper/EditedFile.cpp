#include "helper/EditedFile.h"

#include "helper/HelperError.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The bytes over the old ones from the start, then the file cut to their length. Cutting first
// would free the old blocks at once, and on ext4 that waits for the journal commit that the
// application's own synced writes of its answer have just started (a few milliseconds).
bool writeAll(int descriptor, const std::string &bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::pwrite(descriptor, bytes.data() + done, bytes.size() - done, off_t(done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += std::size_t(written);
    }
    struct stat info {};
    if (::fstat(descriptor, &info) != 0)
        return false;
    return info.st_size == off_t(bytes.size()) || ::ftruncate(descriptor, off_t(bytes.size())) == 0;
}

// UTF-8 as JSON understands it: no overlong forms, no surrogates, nothing past U+10FFFF.
bool isUtf8(const std::string &text)
{
    try {
        static_cast<void>(nlohmann::json(text).dump());
        return true;
    } catch (const nlohmann::json::type_error &) {
        return false;
    }
}

} // namespace

EditedFile::EditedFile(const std::string &path)
    : m_absolutePath(absolute(path))
{
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
        throw HelperError(inQuotes(path) + " is not a regular file.");
    m_descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (m_descriptor < 0)
        throw HelperError::systemFailure("open " + inQuotes(path) + " for editing", errno);

    char buffer[65536];
    for (;;) {
        const ssize_t count = ::read(m_descriptor, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw HelperError::systemFailure("read " + inQuotes(path), errno);
        if (count == 0)
            break;
        m_text.append(buffer, std::size_t(count));
    }
    // A byte-order mark stays part of the text, so an unchanged text is written back byte for byte.
    if (!isUtf8(m_text))
        throw HelperError(inQuotes(path) + " is not UTF-8 text.");
}

EditedFile::~EditedFile()
{
    close();
}

void EditedFile::close()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = -1;
}

void EditedFile::replaceText(const std::string &text)
{
    if (writeAll(m_descriptor, text))
        return;
    const int error = errno;
    writeAll(m_descriptor, m_text);
    throw HelperError::systemFailure("write " + inQuotes(m_absolutePath), error);
}

std::string EditedFile::absolute(const std::string &path)
{
    std::filesystem::path full(path);
    if (full.is_relative()) {
        char folder[PATH_MAX];
        full = std::filesystem::path(::getcwd(folder, sizeof folder) ? folder : "/") / full;
    }
    std::string result = full.lexically_normal().string();
    if (result.size() > 1 && result.back() == '/')
        result.pop_back();
    return result;
}
