#pragma once

#include <string>

// The file that the calling tool handed to its editor. It stays open from the first read to the
// last write, so the new text goes into the very file the caller holds.
class EditedFile final {
public:
    // Opens the file for reading and writing and reads it; it must be UTF-8. Throws HelperError.
    explicit EditedFile(const std::string &path);
    ~EditedFile();
    EditedFile(const EditedFile &) = delete;
    EditedFile &operator=(const EditedFile &) = delete;

    const std::string &absolutePath() const { return m_absolutePath; }
    const std::string &text() const { return m_text; }

    // Truncates and rewrites in place (same inode). When the write fails, the original bytes
    // are put back as far as possible. Throws HelperError.
    void replaceText(const std::string &text);
    void close();

    // path made absolute against the working folder, with "." and ".." taken out as written
    // (links are not followed).
    static std::string absolute(const std::string &path);

private:
    std::string m_absolutePath;
    int m_descriptor = -1;
    std::string m_text;
};
