#include "voice/PromptRewriteOutput.h"

#include "quicktasks/CodexExecEvent.h"
#include "quicktasks/OpenCodeOutput.h"

PromptRewriteOutput::PromptRewriteOutput(QuickTaskCLIBackend backend)
    : m_backend(backend)
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
    switch (m_backend) {
    case QuickTaskCLIBackend::claude:
        m_finalResponseLines.append(line);
        return;
    case QuickTaskCLIBackend::opencode: {
        const QString cleaned = OpenCodeOutput::cleanOpencodeOutputLine(line);
        if (!cleaned.trimmed().isEmpty())
            m_finalResponseLines.append(cleaned);
        return;
    }
    case QuickTaskCLIBackend::codex:
        if (const std::optional<CodexExecEvent> event = CodexExecEvent::decode(line.toUtf8())) {
            if (const std::optional<QString> text = event->agentMessageText())
                m_finalResponse = text;
        }
        return;
    }
}

std::variant<QString, VoicePromptDraftError> PromptRewriteOutput::outcome(int exitStatus,
                                                                          const QString &transcript) const
{
    std::optional<QString> response = m_finalResponse;
    if (m_backend != QuickTaskCLIBackend::codex) {
        const QString joined = m_finalResponseLines.join(u'\n').trimmed();
        if (!joined.isEmpty())
            response = joined;
    }
    const QString name = QuickTaskCLIBackends::displayTitle(m_backend);

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
    const QString draft = response.value_or(QString()).trimmed();
    if (draft.isEmpty())
        return VoicePromptDraftError::promptRewriteFailed(
            transcript, name + QStringLiteral(" returned an empty prompt draft."));
    return draft;
}
