#include "backends/OpenCodeOutput.h"

#include <QRegularExpression>

namespace OpenCodeOutput {

QString cleanOpencodeOutputLine(const QString &line)
{
    // Control sequence introducer, parameter bytes, intermediate bytes, final byte.
    static const QRegularExpression controlSequence(QStringLiteral("\x1B\\[[0-?]*[ -/]*[@-~]"));
    QString cleaned = line;
    if (controlSequence.isValid())
        cleaned.remove(controlSequence);
    cleaned.remove(u'\r');
    cleaned.remove(QStringLiteral("<think>"));
    cleaned.remove(QStringLiteral("</think>"));
    cleaned.remove(QStringLiteral("\n<think>\n"));
    cleaned.remove(QStringLiteral("\n</think>\n"));
    const auto isLineBreak = [](QChar c) {
        return (c >= u'\n' && c <= u'\r') || c == u'\u0085' || c == u'\u2028' || c == u'\u2029';
    };
    qsizetype begin = 0;
    qsizetype end = cleaned.size();
    while (begin < end && isLineBreak(cleaned.at(begin)))
        ++begin;
    while (end > begin && isLineBreak(cleaned.at(end - 1)))
        --end;
    return cleaned.sliced(begin, end - begin);
}

} // namespace OpenCodeOutput
