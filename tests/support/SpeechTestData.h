#pragma once

#include <QFile>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <vector>

// Debian's pocketsphinx-testdata: real recordings with what is said in them.
namespace SpeechTestData {

constexpr int sampleRate = 16000;

inline QString path(const QString &relative)
{
    return QStringLiteral(TARVEL_SPEECH_TEST_DATA "/") + relative;
}

// goforward.raw: 16 kHz mono s16le.
inline QString goForwardRaw()
{
    return path(QStringLiteral("goforward.raw"));
}
inline const QStringList goForwardWords = {QStringLiteral("go"), QStringLiteral("forward"),
                                           QStringLiteral("ten"), QStringLiteral("meters")};

struct Recording {
    QString wavPath;
    QStringList words;
};

// The LibriVox set: librivox/transcription holds "<s> words </s> (file id)" per line.
inline QList<Recording> libriVox()
{
    QList<Recording> recordings;
    QFile file(path(QStringLiteral("librivox/transcription")));
    if (!file.open(QIODevice::ReadOnly))
        return recordings;
    static const QRegularExpression line(QStringLiteral(R"(^<s>(.*)</s>\s*\((\S+)\))"));
    for (const QByteArray &bytes : file.readAll().split('\n')) {
        const QRegularExpressionMatch match = line.match(QString::fromUtf8(bytes).trimmed());
        if (match.hasMatch())
            recordings.append({path(QStringLiteral("librivox/%1.wav").arg(match.captured(2))),
                               match.captured(1).split(u' ', Qt::SkipEmptyParts)});
    }
    return recordings;
}

// Substitutions, insertions and deletions that turn the reference into the hypothesis.
inline qsizetype wordErrors(const QStringList &reference, const QStringList &hypothesis)
{
    std::vector<qsizetype> row(static_cast<size_t>(hypothesis.size() + 1));
    for (size_t column = 0; column < row.size(); ++column)
        row[column] = static_cast<qsizetype>(column);
    for (qsizetype i = 1; i <= reference.size(); ++i) {
        qsizetype diagonal = row[0];
        row[0] = i;
        for (qsizetype j = 1; j <= hypothesis.size(); ++j) {
            const qsizetype above = row[static_cast<size_t>(j)];
            row[static_cast<size_t>(j)] =
                std::min({above + 1, row[static_cast<size_t>(j - 1)] + 1,
                          diagonal + (reference[i - 1] == hypothesis[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row.back();
}

} // namespace SpeechTestData
