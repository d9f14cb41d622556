#include "remote/SshConfigBlock.h"

#include "editor_integration/MarkedBlock.h"

#include <QRegularExpression>

namespace SshConfigBlock {
namespace {

QByteArray beginMarker(const QString &host)
{
    return QStringLiteral("# >>> Tarvel remote editing: %1 >>>").arg(host).toUtf8();
}

QByteArray endMarker(const QString &host)
{
    return QStringLiteral("# <<< Tarvel remote editing: %1 <<<").arg(host).toUtf8();
}

// ssh splits arguments at white space unless they are in double quotes.
QString argument(const QString &value)
{
    return value.contains(u' ') || value.contains(u'\t') ? u'"' + value + u'"' : value;
}

} // namespace

bool isUsableHost(const QString &host)
{
    static const QRegularExpression plain(QStringLiteral(R"(^[A-Za-z0-9_.:\[\]][A-Za-z0-9_.:\[\]-]*$)"));
    return plain.match(host).hasMatch();
}

QStringList optionLines(const QString &remoteSocket, const QString &localSocket)
{
    return {QStringLiteral("RemoteForward %1 %2").arg(argument(remoteSocket), argument(localSocket)),
            QStringLiteral("StreamLocalBindUnlink yes")};
}

QByteArray block(const QString &host, const QString &remoteSocket, const QString &localSocket)
{
    QByteArray text = beginMarker(host) + '\n';
    text +=
        QStringLiteral("# Prompts that tarvel-edit on %1 opens come to Tarvel's composer on this desktop.\n")
            .arg(host)
            .toUtf8();
    text += "Host " + host.toUtf8() + '\n';
    for (const QString &line : optionLines(remoteSocket, localSocket))
        text += "    " + line.toUtf8() + '\n';
    return text + endMarker(host) + '\n';
}

std::optional<int> userEntryLine(const QByteArray &config, const QString &host)
{
    // Tarvel's own blocks are not the user's entries.
    QByteArray text = config;
    for (auto range = MarkedBlock::range(text, beginMarker(host), endMarker(host)); range;
         range = MarkedBlock::range(text, beginMarker(host), endMarker(host))) {
        // Kept as empty lines, so that line numbers stay those of the file.
        const int lines = int(text.mid(range->first, range->second - range->first).count('\n'));
        text.replace(range->first, range->second - range->first, QByteArray(lines, '\n'));
    }
    static const QRegularExpression hostLine(QStringLiteral(R"(^\s*host(?:\s*=\s*|\s+)(.*)$)"),
                                             QRegularExpression::CaseInsensitiveOption);
    const QList<QByteArray> lines = text.split('\n');
    for (qsizetype index = 0; index < lines.size(); ++index) {
        const QRegularExpressionMatch match = hostLine.match(QString::fromUtf8(lines.at(index)).trimmed());
        if (!match.hasMatch())
            continue;
        for (QString pattern :
             match.captured(1).split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts)) {
            if (pattern.size() >= 2 && pattern.startsWith(u'"') && pattern.endsWith(u'"'))
                pattern = pattern.mid(1, pattern.size() - 2);
            if (pattern.compare(host, Qt::CaseInsensitive) == 0)
                return int(index) + 1;
        }
    }
    return std::nullopt;
}

bool hasBlock(const QByteArray &config, const QString &host)
{
    return MarkedBlock::range(config, beginMarker(host), endMarker(host)).has_value();
}

QByteArray merged(const QByteArray &config, const QString &host, const QByteArray &block)
{
    if (const auto range = MarkedBlock::range(config, beginMarker(host), endMarker(host))) {
        QByteArray text = config;
        return text.replace(range->first, range->second - range->first, block);
    }
    return MarkedBlock::appended(config, block);
}

} // namespace SshConfigBlock
