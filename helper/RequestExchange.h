#pragma once

#include "helper/EditRequest.h"
#include "helper/EditResponse.h"

#include <string>

// The files of the request exchange as tarvel-edit sees them: Requests/<ID>.json written whole
// and private to the user, Responses/<ID>.json read and removed. The folder is the
// application's own (FileStore): $XDG_DATA_HOME/Tarvel, else ~/.local/share/Tarvel. Plain
// C++, so that anything carrying requests to the application (tarvel-edit, a relay for
// another machine) can share it. Failures throw HelperError.
class RequestExchange final {
public:
    RequestExchange();
    explicit RequestExchange(std::string baseDirectory);

    static std::string defaultBaseDirectory();

    const std::string &baseDirectory() const { return m_base; }
    std::string folder(const char *name) const;
    std::string requestPath(const std::string &id) const;
    std::string responsePath(const std::string &id) const;

    // Creates the base folder and its four subfolders, private to the user, and any missing
    // folder above them as usual. Throws UnsafeFolderError when one of them is a link, another
    // user's, or writable by others; they are never made private behind the user's back.
    void ensureFolders() const;
    // Written to a hidden temporary file (0600) beside it, synced, and renamed into place, in
    // the folders ensureFolders() made.
    void writeRequest(const EditRequest &request) const;
    void removeRequest(const std::string &id) const;

    bool responseExists(const std::string &id) const;
    EditResponse readResponse(const std::string &id) const;
    void removeResponse(const std::string &id) const;

private:
    std::string m_base;
};
