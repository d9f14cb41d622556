#include "platform/linux/PocketSphinxEngine.h"

#include "platform/SpeechRecognizer.h"

#include <QDir>
#include <QFileInfo>

#include <pocketsphinx.h>

namespace {

QString acousticModel(const QDir &folder)
{
    return folder.filePath(QStringLiteral("en-us"));
}
QString languageModel(const QDir &folder)
{
    return folder.filePath(QStringLiteral("en-us.lm.bin"));
}
QString dictionary(const QDir &folder)
{
    return folder.filePath(QStringLiteral("cmudict-en-us.dict"));
}

} // namespace

QString PocketSphinxEngine::modelDirectory()
{
    const QString configured = qEnvironmentVariable("TARVEL_POCKETSPHINX_MODEL");
    return configured.isEmpty() ? QStringLiteral(TARVEL_POCKETSPHINX_MODEL_DIR "/en-us") : configured;
}

namespace {

// PocketSphinx ends the whole process (exit(1)) on some damaged model files instead of failing the
// load, so what it needs is checked first: each file there, readable and not empty.
QString damagedModelFile(const QDir &folder)
{
    const QDir acoustic(acousticModel(folder));
    QStringList needed{languageModel(folder), dictionary(folder)};
    for (const char *name : {"mdef", "means", "variances", "transition_matrices", "noisedict", "feat.params"})
        needed.append(acoustic.filePath(QString::fromLatin1(name)));
    needed.append(acoustic.filePath(QFileInfo::exists(acoustic.filePath(QStringLiteral("sendump")))
                                        ? QStringLiteral("sendump")
                                        : QStringLiteral("mixture_weights")));
    for (const QString &path : std::as_const(needed)) {
        const QFileInfo file(path);
        if (!file.isFile() || !file.isReadable() || file.size() == 0)
            return path;
    }
    return {};
}

} // namespace

QString PocketSphinxEngine::unavailableReason()
{
    const QDir folder(modelDirectory());
    const bool present = QFileInfo(acousticModel(folder)).isDir() &&
                         QFileInfo(languageModel(folder)).isFile() && QFileInfo(dictionary(folder)).isFile();
    if (present) {
        const QString damaged = damagedModelFile(folder);
        if (damaged.isEmpty())
            return {};
        return QStringLiteral("The PocketSphinx speech model in %1 is damaged (%2 is missing, unreadable or "
                              "empty). Reinstall the Debian package pocketsphinx-en-us.")
            .arg(QDir::toNativeSeparators(folder.path()), QFileInfo(damaged).fileName());
    }
    return QStringLiteral(
               "Speech recognition needs the PocketSphinx US English model, which is not installed "
               "(looked in %1). Install the Debian package pocketsphinx-en-us, or set a speech "
               "recogniser command in Tarvel's settings.")
        .arg(QDir::toNativeSeparators(folder.path()));
}

PocketSphinxEngine::PocketSphinxEngine()
{
    const QDir folder(modelDirectory());
    if (const QString reason = unavailableReason(); !reason.isEmpty())
        throw SpeechRecognizerError(SpeechRecognizerError::Kind::recognitionUnavailable, reason);
    const QByteArray hmm = QFile::encodeName(acousticModel(folder));
    const QByteArray lm = QFile::encodeName(languageModel(folder));
    const QByteArray dict = QFile::encodeName(dictionary(folder));
    // The decoder logs every step to standard error; Tarvel reports what matters itself. The
    // flat-lexicon pass re-decodes the whole utterance when it ends, tens of milliseconds per
    // second of speech between the stop and the final transcript; without it the word error
    // rate on the LibriVox recordings is no worse (bench_speech).
    QList<QByteArray> arguments{"pocketsphinx"};
    arguments << "-hmm" << hmm << "-lm" << lm << "-dict" << dict << "-logfn"
              << "/dev/null"
              << "-fwdflat"
              << "no";
    std::vector<char *> argv;
    for (QByteArray &argument : arguments)
        argv.push_back(argument.data());
    m_config = cmd_ln_parse_r(nullptr, ps_args(), static_cast<int32>(argv.size()), argv.data(), FALSE);
    if (m_config)
        m_decoder = ps_init(m_config);
    if (!m_decoder) {
        if (m_config)
            cmd_ln_free_r(m_config);
        const QString reason = unavailableReason();
        throw SpeechRecognizerError(
            SpeechRecognizerError::Kind::recognitionUnavailable,
            reason.isEmpty() ? QStringLiteral("Could not load the PocketSphinx speech model from %1.")
                                   .arg(QDir::toNativeSeparators(folder.path()))
                             : reason);
    }
}

PocketSphinxEngine::~PocketSphinxEngine()
{
    if (m_inUtterance)
        ps_end_utt(m_decoder);
    ps_free(m_decoder);
    cmd_ln_free_r(m_config);
}

void PocketSphinxEngine::beginUtterance()
{
    if (m_inUtterance)
        ps_end_utt(m_decoder);
    m_inUtterance = ps_start_utt(m_decoder) == 0;
    if (!m_inUtterance)
        throw SpeechEngineError(QStringLiteral("The speech recogniser could not start listening."));
}

QString PocketSphinxEngine::feed(const qint16 *samples, qsizetype count)
{
    if (!m_inUtterance || count <= 0)
        return hypothesis();
    ps_process_raw(m_decoder, samples, static_cast<size_t>(count), FALSE, FALSE);
    return hypothesis();
}

QString PocketSphinxEngine::finishUtterance(std::stop_token)
{
    if (!m_inUtterance)
        throw SpeechEngineError(QStringLiteral("The speech recogniser was not listening."));
    m_inUtterance = false;
    if (ps_end_utt(m_decoder) < 0)
        throw SpeechEngineError(QStringLiteral("The speech recogniser failed to finish the transcript."));
    return hypothesis();
}

QString PocketSphinxEngine::hypothesis() const
{
    int32 score = 0;
    const char *text = ps_get_hyp(m_decoder, &score);
    return text ? QString::fromUtf8(text).simplified() : QString();
}

std::unique_ptr<SpeechEngine> SpeechEngine::createBuiltIn()
{
    return std::make_unique<PocketSphinxEngine>();
}

QString SpeechEngine::builtInUnavailableReason()
{
    return PocketSphinxEngine::unavailableReason();
}
