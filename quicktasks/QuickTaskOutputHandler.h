#pragma once

#include "quicktasks/OutputLineBuffer.h"
#include "settings/QuickTaskCLIBackend.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <optional>

enum class OutputStream { standardOutput, standardError };

// What one chunk of output changed. The two texts are whole lines, each ending in "\n",
// ready to be appended to the task's raw log and transcript in one write each.
struct QuickTaskOutputUpdate {
    QByteArray rawLogText;
    QByteArray transcriptText;
    bool threadIDChanged = false;
    bool finalResponseChanged = false;

    bool isEmpty() const noexcept
    {
        return rawLogText.isEmpty() && transcriptText.isEmpty() && !threadIDChanged && !finalResponseChanged;
    }
};

// Turns a quick task's output into raw-log lines, transcript lines, the codex thread id
// and the final response. Fed with bytes as they arrive; needs no process.
//
// Every line goes to the raw log as "[stdout] <line>" or "[stderr] <line>". A stderr line
// also goes to the transcript as "stderr: <line>"; a stdout line goes to the backend's
// handler: codex events ("Thread: <id>", agent messages), claude lines as they are,
// opencode lines cleaned of terminal codes.
class QuickTaskOutputHandler final {
public:
    // How many of the latest stderr lines are kept.
    static constexpr qsizetype recentStderrLineLimit = 6;

    explicit QuickTaskOutputHandler(QuickTaskCLIBackend backend);

    QuickTaskOutputUpdate consume(OutputStream stream, QByteArrayView bytes);
    // At exit: what is left of standard output, then of standard error, as last lines.
    QuickTaskOutputUpdate finish();

    QuickTaskCLIBackend backend() const noexcept { return m_backend; }
    const std::optional<QString> &threadID() const noexcept { return m_threadID; }
    // codex: the last agent message so far.
    const std::optional<QString> &lastAgentMessage() const noexcept { return m_lastAgentMessage; }
    // claude and opencode: the answer lines so far.
    const QStringList &finalResponseLines() const noexcept { return m_finalResponseLines; }
    // codex: the last agent message; claude and opencode: the lines joined with "\n".
    std::optional<QString> finalResponse() const;
    // The latest non-empty stderr lines, oldest first.
    const QStringList &recentStderrLines() const noexcept { return m_recentStderrLines; }

private:
    void handleLine(OutputStream stream, QByteArrayView rawLine, QuickTaskOutputUpdate &update);
    void handleStandardOutputLine(QByteArrayView line, QuickTaskOutputUpdate &update);
    void handleCodexEventLine(QByteArrayView line, QuickTaskOutputUpdate &update);
    void handleOpenCodeOutputLine(QByteArrayView line, QuickTaskOutputUpdate &update);

    QuickTaskCLIBackend m_backend;
    OutputLineBuffer m_standardOutputBuffer;
    OutputLineBuffer m_standardErrorBuffer;
    std::optional<QString> m_threadID;
    std::optional<QString> m_lastAgentMessage;
    QStringList m_finalResponseLines;
    QStringList m_recentStderrLines;
};
