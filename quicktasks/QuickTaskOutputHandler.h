#pragma once

#include "backends/BackendOutputParser.h"
#include "backends/QuickTaskCLIBackend.h"
#include "quicktasks/OutputLineBuffer.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <memory>
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
// output parser (BackendProfile::makeOutputParser).
class QuickTaskOutputHandler final {
public:
    // How many of the latest stderr lines are kept.
    static constexpr qsizetype recentStderrLineLimit = 6;

    explicit QuickTaskOutputHandler(QuickTaskCLIBackend backend);

    QuickTaskOutputUpdate consume(OutputStream stream, QByteArrayView bytes);
    // At exit: what is left of standard output, then of standard error, as last lines.
    QuickTaskOutputUpdate finish();

    QuickTaskCLIBackend backend() const noexcept { return m_backend; }
    std::optional<QString> threadID() const { return m_parser->threadID(); }
    // The backend's answer so far.
    std::optional<QString> finalResponse() const { return m_parser->finalResponse(); }
    // The latest non-empty stderr lines, oldest first.
    const QStringList &recentStderrLines() const noexcept { return m_recentStderrLines; }

private:
    void handleLine(OutputStream stream, QByteArrayView rawLine, QuickTaskOutputUpdate &update);

    QuickTaskCLIBackend m_backend;
    std::unique_ptr<BackendOutputParser> m_parser;
    OutputLineBuffer m_standardOutputBuffer;
    OutputLineBuffer m_standardErrorBuffer;
    QStringList m_recentStderrLines;
};
