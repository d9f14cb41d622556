#include "voice/PromptRewriteOutput.h"

#include "backends/BackendProfiles.h"

PromptRewriteOutput::PromptRewriteOutput(QuickTaskCLIBackend backend)
    : m_backend(backend)
    , m_parser(BackendProfiles::of(backend).makeOutputParser())
{
}

void PromptRewriteOutput::consume(OutputStream stream, QByteArrayView bytes)
{
    OutputLineBuffer &buffer =
        stream == OutputStream::standardOutput ? m_standardOutputBuffer : m_standardErrorBuffer;
    buffer.append(bytes, [&](QByteArrayView line) { processLine(stream, line); });
}

void PromptRewriteOutput::finish()
{
    m_standardOutputBuffer.finish(
        [&](QByteArrayView line) { processLine(OutputStream::standardOutput, line); });
    m_standardErrorBuffer.finish(
        [&](QByteArrayView line) { processLine(OutputStream::standardError, line); });
}

void PromptRewriteOutput::processLine(OutputStream stream, QByteArrayView rawLine)
{
    if (!OutputLine::isValidUtf8(rawLine))
        return;
    const QString line = QString::fromUtf8(rawLine).trimmed();
    if (line.isEmpty())
        return;

    if (stream == OutputStream::standardError) {
        m_recentStderrLines.append(line);
        while (m_recentStderrLines.size() > recentStderrLineLimit)
            m_recentStderrLines.removeFirst();
        return;
    }
    m_parser->parseLine(line.toUtf8(), m_discardedTranscript);
    m_discardedTranscript.clear();
}

std::variant<QString, VoicePromptDraftError> PromptRewriteOutput::outcome(int exitStatus,
                                                                          const QString &transcript) const
{
    const QString name = BackendProfiles::of(m_backend).displayTitle();

    if (exitStatus != 0) {
        const QString detail =
            m_recentStderrLines.isEmpty()
                ? name + QStringLiteral(" could not turn the transcript into a prompt draft.")
                : m_recentStderrLines
                      .mid(m_recentStderrLines.size() -
                           std::min(failureStderrLineCount, m_recentStderrLines.size()))
                      .join(QStringLiteral(" | "));
        return VoicePromptDraftError::promptRewriteFailed(transcript, detail);
    }
    const QString draft = m_parser->finalResponse().value_or(QString()).trimmed();
    if (draft.isEmpty())
        return VoicePromptDraftError::promptRewriteFailed(
            transcript, name + QStringLiteral(" returned an empty prompt draft."));
    return draft;
}
