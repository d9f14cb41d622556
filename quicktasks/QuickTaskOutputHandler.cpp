#include "quicktasks/QuickTaskOutputHandler.h"

#include "quicktasks/CodexExecEvent.h"
#include "quicktasks/OpenCodeOutput.h"

namespace {

void appendLine(QByteArray &text, QByteArrayView prefix, QByteArrayView line)
{
    text.reserve(text.size() + prefix.size() + line.size() + 1);
    text.append(prefix);
    text.append(line);
    text.append('\n');
}

} // namespace

QuickTaskOutputHandler::QuickTaskOutputHandler(QuickTaskCLIBackend backend)
    : m_backend(backend)
{
}

QuickTaskOutputUpdate QuickTaskOutputHandler::consume(OutputStream stream, QByteArrayView bytes)
{
    QuickTaskOutputUpdate update;
    OutputLineBuffer &buffer =
        stream == OutputStream::standardOutput ? m_standardOutputBuffer : m_standardErrorBuffer;
    buffer.append(bytes, [&](QByteArrayView line) { handleLine(stream, line, update); });
    return update;
}

QuickTaskOutputUpdate QuickTaskOutputHandler::finish()
{
    QuickTaskOutputUpdate update;
    m_standardOutputBuffer.finish(
        [&](QByteArrayView line) { handleLine(OutputStream::standardOutput, line, update); });
    m_standardErrorBuffer.finish(
        [&](QByteArrayView line) { handleLine(OutputStream::standardError, line, update); });
    return update;
}

std::optional<QString> QuickTaskOutputHandler::finalResponse() const
{
    if (m_backend == QuickTaskCLIBackend::codex)
        return m_lastAgentMessage;
    return m_finalResponseLines.join(u'\n');
}

void QuickTaskOutputHandler::handleLine(OutputStream stream, QByteArrayView rawLine,
                                        QuickTaskOutputUpdate &update)
{
    const std::optional<QByteArrayView> line = OutputLine::trimmed(rawLine);
    if (!line)
        return;
    if (stream == OutputStream::standardError) {
        appendLine(update.rawLogText, "[stderr] ", *line);
        appendLine(update.transcriptText, "stderr: ", *line);
        if (m_recentStderrLines.size() == recentStderrLineLimit)
            m_recentStderrLines.removeFirst();
        m_recentStderrLines.append(QString::fromUtf8(*line));
        return;
    }
    appendLine(update.rawLogText, "[stdout] ", *line);
    handleStandardOutputLine(*line, update);
}

void QuickTaskOutputHandler::handleStandardOutputLine(QByteArrayView line, QuickTaskOutputUpdate &update)
{
    switch (m_backend) {
    case QuickTaskCLIBackend::codex:
        handleCodexEventLine(line, update);
        return;
    case QuickTaskCLIBackend::claude:
        m_finalResponseLines.append(QString::fromUtf8(line));
        appendLine(update.transcriptText, {}, line);
        return;
    case QuickTaskCLIBackend::opencode:
        handleOpenCodeOutputLine(line, update);
        return;
    }
}

void QuickTaskOutputHandler::handleCodexEventLine(QByteArrayView line, QuickTaskOutputUpdate &update)
{
    // Decoding every line would make codex's bulk output (command results) the slowest
    // part of the pipeline; only events that can matter are decoded.
    if (CodexExecEvent::isSurelyIgnored(line))
        return;
    const std::optional<CodexExecEvent> event = CodexExecEvent::decode(line);
    if (!event)
        return;
    if (const std::optional<QString> threadID = event->startedThreadID()) {
        m_threadID = threadID;
        update.threadIDChanged = true;
        appendLine(update.transcriptText, "Thread: ", threadID->toUtf8());
    } else if (const std::optional<QString> text = event->agentMessageText()) {
        m_lastAgentMessage = text;
        update.finalResponseChanged = true;
        appendLine(update.transcriptText, {}, text->toUtf8());
    }
}

void QuickTaskOutputHandler::handleOpenCodeOutputLine(QByteArrayView line, QuickTaskOutputUpdate &update)
{
    const QString cleaned = OpenCodeOutput::cleanOpencodeOutputLine(QString::fromUtf8(line));
    if (cleaned.trimmed().isEmpty())
        return;
    m_finalResponseLines.append(cleaned);
    appendLine(update.transcriptText, {}, cleaned.toUtf8());
}
