#include "platform/CommandSpeechEngine.h"

#include "platform/PcmAudio.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryFile>

#include <csignal>
#include <unistd.h>

namespace {

// What a failing command said last: its final few non-empty lines of standard error.
QString lastLines(const QByteArray &output, int count)
{
    QStringList lines = QString::fromUtf8(output).split(u'\n', Qt::SkipEmptyParts);
    for (QString &line : lines)
        line = line.trimmed();
    lines.removeAll(QString());
    return lines.mid(std::max<qsizetype>(0, lines.size() - count)).join(u' ');
}

void killProcessGroup(QProcess &process)
{
    if (process.processId() > 0)
        ::kill(-static_cast<pid_t>(process.processId()), SIGKILL);
    process.kill();
    process.waitForFinished(1000);
}

} // namespace

CommandSpeechEngine::CommandSpeechEngine(QString command, std::chrono::milliseconds timeLimit)
    : m_command(std::move(command))
    , m_arguments(splitCommandLine(m_command))
    , m_timeLimit(timeLimit)
{
}

QStringList CommandSpeechEngine::splitCommandLine(const QString &command)
{
    QStringList words;
    QString word;
    bool inWord = false;
    enum class Quote { none, singleQuoted, doubleQuoted } quote = Quote::none;
    for (qsizetype index = 0; index < command.size(); ++index) {
        const QChar character = command[index];
        const bool hasNext = index + 1 < command.size();
        if (quote == Quote::singleQuoted) {
            if (character == u'\'')
                quote = Quote::none;
            else
                word += character;
        } else if (quote == Quote::doubleQuoted) {
            if (character == u'"')
                quote = Quote::none;
            else if (character == u'\\' && hasNext && QStringView(u"\"\\$`").contains(command[index + 1]))
                word += command[++index];
            else
                word += character;
        } else if (character.isSpace()) {
            if (inWord)
                words << std::exchange(word, QString());
            inWord = false;
        } else {
            inWord = true;
            if (character == u'\'')
                quote = Quote::singleQuoted;
            else if (character == u'"')
                quote = Quote::doubleQuoted;
            else if (character == u'\\' && hasNext)
                word += command[++index];
            else
                word += character;
        }
    }
    if (inWord)
        words << word;
    return words;
}

QString CommandSpeechEngine::unavailableReason(const QString &command)
{
    const QStringList arguments = splitCommandLine(command);
    if (arguments.isEmpty())
        return QStringLiteral("The speech recogniser command in Tarvel's settings is empty. "
                              "Set a command line or clear it to use the built-in recogniser.");
    const QString &program = arguments.first();
    const bool found = program.contains(u'/')
                           ? QFileInfo(program).isExecutable() && QFileInfo(program).isFile()
                           : !QStandardPaths::findExecutable(program).isEmpty();
    if (found)
        return {};
    return QStringLiteral("The speech recogniser command \u201c%1\u201d was not found or cannot be run. "
                          "Install it or fix the command in Tarvel's settings.")
        .arg(program);
}

void CommandSpeechEngine::beginUtterance()
{
    m_samples.clear();
}

QString CommandSpeechEngine::feed(const qint16 *samples, qsizetype count)
{
    m_samples.append(reinterpret_cast<const char *>(samples), count * qsizetype(sizeof(qint16)));
    return {};
}

QString CommandSpeechEngine::finishUtterance(std::stop_token stop)
{
    // Private to the user (0600) and removed when this returns, whatever happens.
    QTemporaryFile wav(QDir::tempPath() + QStringLiteral("/tarvel-utterance-XXXXXX.wav"));
    if (!wav.open() || wav.write(PcmAudio::wavFromSamples(m_samples)) < 0 || !wav.flush())
        throw SpeechEngineError(QStringLiteral("Could not write the recording for the speech recogniser: %1")
                                    .arg(wav.errorString()));
    wav.close();
    m_samples.clear();

    QStringList arguments = m_arguments;
    const QString program = arguments.takeFirst();
    arguments << wav.fileName();
    QProcess process;
    // Its own process group, so that a time-out also ends what it started.
    process.setChildProcessModifier([] { ::setpgid(0, 0); });
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForStarted())
        throw SpeechEngineError(
            QStringLiteral("Could not run the speech recogniser command \u201c%1\u201d: %2")
                .arg(program, process.errorString()));
    QElapsedTimer elapsed;
    elapsed.start();
    while (!process.waitForFinished(50)) {
        if (process.state() == QProcess::NotRunning)
            break;
        if (stop.stop_requested()) {
            killProcessGroup(process);
            throw SpeechEngineError(QStringLiteral("The speech recogniser was stopped."));
        }
        if (elapsed.elapsed() > m_timeLimit.count()) {
            killProcessGroup(process);
            const auto seconds =
                std::chrono::duration_cast<std::chrono::duration<double>>(m_timeLimit).count();
            throw SpeechEngineError(
                QStringLiteral("The speech recogniser command took longer than %1 seconds and was stopped.")
                    .arg(seconds));
        }
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        const QString said = lastLines(process.readAllStandardError(), 3);
        const QString status = process.exitStatus() == QProcess::NormalExit
                                   ? QStringLiteral("exit status %1").arg(process.exitCode())
                                   : QStringLiteral("it crashed");
        throw SpeechEngineError(
            said.isEmpty()
                ? QStringLiteral("The speech recogniser command failed (%1).").arg(status)
                : QStringLiteral("The speech recogniser command failed (%1): %2").arg(status, said));
    }
    // Recognisers print a line per segment; the transcript is one run of words.
    return QString::fromUtf8(process.readAllStandardOutput()).simplified();
}
