#pragma once

#include "platform/SpeechEngine.h"

#include <QByteArray>
#include <QStringList>

// The user's own recogniser: the utterance is kept in memory, written to a private temporary
// WAV when it ends, and the command line gets that file's path as its last argument; what it
// prints is the transcript. It gives no partial transcripts.
class CommandSpeechEngine final : public SpeechEngine {
public:
    CommandSpeechEngine(QString command, std::chrono::milliseconds timeLimit);

    // Splits a command line as a POSIX shell would for quoting: '…' keeps everything, "…" keeps
    // everything but backslash escapes of " \ $ `, a backslash outside quotes escapes the next
    // character. No expansions.
    static QStringList splitCommandLine(const QString &command);
    // Empty when the command's program can be found and run; otherwise a sentence naming it.
    static QString unavailableReason(const QString &command);

    void beginUtterance() override;
    QString feed(const qint16 *samples, qsizetype count) override;
    QString finishUtterance(std::stop_token stop) override;

private:
    QString m_command;
    QStringList m_arguments;
    std::chrono::milliseconds m_timeLimit;
    QByteArray m_samples;
};
