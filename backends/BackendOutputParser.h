#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

// What one line of a backend's standard output changed.
struct BackendOutputChange {
    bool threadIDChanged = false;
    bool finalResponseChanged = false;
};

// Reads a backend's standard output, one line at a time, for its answer. Made by the backend's
// profile, one per run; the line splitting and standard error stay with the caller.
class BackendOutputParser {
public:
    virtual ~BackendOutputParser() = default;

    // One line, trimmed and not empty. What the line shows a person is appended to transcript as
    // whole lines ending in "\n".
    virtual BackendOutputChange parseLine(QByteArrayView line, QByteArray &transcript) = 0;
    // The answer so far; nullopt while there is none.
    virtual std::optional<QString> finalResponse() const = 0;
    // The conversation the run started, for backends that report one.
    virtual std::optional<QString> threadID() const { return std::nullopt; }
};

namespace BackendOutput {

inline void appendLine(QByteArray &text, QByteArrayView prefix, QByteArrayView line)
{
    // No reserve() for the exact size here: it would defeat append's growth, and a run's transcript
    // of many lines would be copied whole for every line.
    text.append(prefix);
    text.append(line);
    text.append('\n');
}

} // namespace BackendOutput
