#include "backends/TextLinesOutputParser.h"

TextLinesOutputParser::TextLinesOutputParser(Cleaner clean)
    : m_clean(clean)
{
}

BackendOutputChange TextLinesOutputParser::parseLine(QByteArrayView line, QByteArray &transcript)
{
    if (!m_clean) {
        m_lines.append(QString::fromUtf8(line));
        BackendOutput::appendLine(transcript, {}, line);
        return {};
    }
    const QString cleaned = m_clean(QString::fromUtf8(line));
    if (cleaned.trimmed().isEmpty())
        return {};
    m_lines.append(cleaned);
    BackendOutput::appendLine(transcript, {}, cleaned.toUtf8());
    return {};
}

std::optional<QString> TextLinesOutputParser::finalResponse() const
{
    return m_lines.isEmpty() ? std::nullopt : std::optional<QString>(m_lines.join(u'\n'));
}
