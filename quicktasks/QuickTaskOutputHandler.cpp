#include "quicktasks/QuickTaskOutputHandler.h"

#include "backends/BackendProfiles.h"

using BackendOutput::appendLine;

QuickTaskOutputHandler::QuickTaskOutputHandler(QuickTaskCLIBackend backend)
    : m_backend(backend)
    , m_parser(BackendProfiles::of(backend).makeOutputParser())
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
    const BackendOutputChange change = m_parser->parseLine(*line, update.transcriptText);
    update.threadIDChanged |= change.threadIDChanged;
    update.finalResponseChanged |= change.finalResponseChanged;
}
