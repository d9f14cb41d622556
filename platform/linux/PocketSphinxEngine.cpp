#include "platform/linux/PocketSphinxEngine.h"

#include "platform/SpeechRecognizer.h"
#include "platform/linux/PocketSphinxModel.h"

#include <QDir>
#include <QFileInfo>

#include <pocketsphinx.h>

PocketSphinxEngine::PocketSphinxEngine()
{
    using namespace PocketSphinxModel;
    const QDir folder(directory());
    if (const QString reason = PocketSphinxModel::unavailableReason(); !reason.isEmpty())
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
        const QString reason = PocketSphinxModel::unavailableReason();
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
