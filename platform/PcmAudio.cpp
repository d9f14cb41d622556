#include "platform/PcmAudio.h"

#include "platform/SpeechEngine.h"

#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <cstring>

PcmConverter::PcmConverter(int sampleRate, int channelCount, SampleFormat format)
    : m_sampleRate(sampleRate)
    , m_channelCount(std::max(1, channelCount))
    , m_format(format)
    , m_bytesPerSample(format == SampleFormat::uint8   ? 1
                       : format == SampleFormat::int16 ? 2
                                                       : 4)
{
}

float PcmConverter::sampleAt(const char *frame, int channel) const
{
    const char *at = frame + channel * m_bytesPerSample;
    switch (m_format) {
    case SampleFormat::uint8:
        return (static_cast<unsigned char>(*at) - 128) / 128.0f;
    case SampleFormat::int16: {
        qint16 value;
        std::memcpy(&value, at, sizeof value);
        return value / 32768.0f;
    }
    case SampleFormat::int32: {
        qint32 value;
        std::memcpy(&value, at, sizeof value);
        return static_cast<float>(value / 2147483648.0);
    }
    case SampleFormat::float32: {
        float value;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    }
    return 0;
}

QByteArray PcmConverter::convert(QByteArrayView bytes)
{
    const int frameBytes = m_bytesPerSample * m_channelCount;
    if (m_sampleRate == SpeechEngine::sampleRate && m_channelCount == 1 && m_format == SampleFormat::int16 &&
        m_partialFrame.isEmpty() && bytes.size() % 2 == 0)
        return bytes.toByteArray();

    QByteArray input = m_partialFrame + bytes.toByteArray();
    const qsizetype frameCount = input.size() / frameBytes;
    m_partialFrame = input.mid(frameCount * frameBytes);
    if (frameCount == 0)
        return {};

    std::vector<float> mono(static_cast<size_t>(frameCount));
    for (qsizetype index = 0; index < frameCount; ++index) {
        const char *frame = input.constData() + index * frameBytes;
        float sum = 0;
        for (int channel = 0; channel < m_channelCount; ++channel)
            sum += sampleAt(frame, channel);
        mono[static_cast<size_t>(index)] = sum / static_cast<float>(m_channelCount);
    }

    const double step = static_cast<double>(m_sampleRate) / SpeechEngine::sampleRate;
    QByteArray output;
    output.reserve(static_cast<qsizetype>(static_cast<double>(frameCount) / step + 2) * 2);
    double position = m_position;
    // Each output sample reads the frame after its position, so the last frame of this chunk is
    // interpolated from when the next chunk brings its neighbour (m_previous then holds it).
    while (position < static_cast<double>(frameCount - 1)) {
        const auto index = static_cast<qsizetype>(std::floor(position));
        const float fraction = static_cast<float>(position - static_cast<double>(index));
        const float before = index < 0 ? m_previous : mono[static_cast<size_t>(index)];
        const float after = mono[static_cast<size_t>(index + 1)];
        const float value = std::clamp(before + (after - before) * fraction, -1.0f, 1.0f);
        const auto sample = static_cast<qint16>(std::lround(value * 32767.0f));
        output.append(reinterpret_cast<const char *>(&sample), sizeof sample);
        position += step;
    }
    m_position = position - static_cast<double>(frameCount);
    m_previous = mono.back();
    return output;
}

namespace {

void appendLittleEndian16(QByteArray &bytes, quint16 value)
{
    char buffer[2];
    qToLittleEndian(value, buffer);
    bytes.append(buffer, 2);
}

void appendLittleEndian32(QByteArray &bytes, quint32 value)
{
    char buffer[4];
    qToLittleEndian(value, buffer);
    bytes.append(buffer, 4);
}

[[noreturn]] void refuse(const QString &path, const QString &why)
{
    throw SpeechEngineError(
        QStringLiteral("Could not read the audio file \u201c%1\u201d: %2").arg(path, why));
}

// The samples of a RIFF WAVE file, converted.
QByteArray samplesOfWav(const QString &path, const QByteArray &file)
{
    if (file.size() < 12 || file.mid(8, 4) != "WAVE")
        refuse(path, QStringLiteral("it is not a WAV file."));
    quint16 formatTag = 0, channels = 0, bitsPerSample = 0;
    quint32 sampleRate = 0;
    bool haveFormat = false;
    qsizetype offset = 12;
    while (offset + 8 <= file.size()) {
        const QByteArray id = file.mid(offset, 4);
        const quint32 size = qFromLittleEndian<quint32>(file.constData() + offset + 4);
        const qsizetype body = offset + 8;
        // A streamed WAV may leave the data size open (0 or 0xFFFFFFFF): take what is there.
        const qsizetype available = std::min<qsizetype>(size, file.size() - body);
        if (id == "fmt " && available >= 16) {
            formatTag = qFromLittleEndian<quint16>(file.constData() + body);
            channels = qFromLittleEndian<quint16>(file.constData() + body + 2);
            sampleRate = qFromLittleEndian<quint32>(file.constData() + body + 4);
            bitsPerSample = qFromLittleEndian<quint16>(file.constData() + body + 14);
            // WAVE_FORMAT_EXTENSIBLE keeps the real tag in its sub-format.
            if (formatTag == 0xFFFE && available >= 26)
                formatTag = qFromLittleEndian<quint16>(file.constData() + body + 24);
            haveFormat = true;
        } else if (id == "data") {
            if (!haveFormat)
                refuse(path, QStringLiteral("its data comes before its format."));
            PcmConverter::SampleFormat format;
            if (formatTag == 1 && bitsPerSample == 8)
                format = PcmConverter::SampleFormat::uint8;
            else if (formatTag == 1 && bitsPerSample == 16)
                format = PcmConverter::SampleFormat::int16;
            else if (formatTag == 1 && bitsPerSample == 32)
                format = PcmConverter::SampleFormat::int32;
            else if (formatTag == 3 && bitsPerSample == 32)
                format = PcmConverter::SampleFormat::float32;
            else
                refuse(path, QStringLiteral("its encoding is not supported (use PCM or 32-bit float WAV, "
                                            "ideally 16 kHz mono 16-bit)."));
            if (channels == 0 || sampleRate < 1000 || sampleRate > 1'000'000)
                refuse(path, QStringLiteral("its format is damaged."));
            const qsizetype length = size == 0 || size == 0xFFFFFFFF ? file.size() - body : available;
            PcmConverter converter(static_cast<int>(sampleRate), channels, format);
            return converter.convert(QByteArrayView(file.constData() + body, length));
        }
        offset = body + size + (size & 1);
    }
    refuse(path, haveFormat ? QStringLiteral("it holds no audio data.")
                            : QStringLiteral("it has no format chunk."));
}

} // namespace

namespace PcmAudio {

QByteArray wavFromSamples(const QByteArray &samples)
{
    QByteArray wav;
    wav.reserve(44 + samples.size());
    wav.append("RIFF");
    appendLittleEndian32(wav, static_cast<quint32>(36 + samples.size()));
    wav.append("WAVEfmt ");
    appendLittleEndian32(wav, 16);
    appendLittleEndian16(wav, 1); // PCM
    appendLittleEndian16(wav, 1); // mono
    appendLittleEndian32(wav, SpeechEngine::sampleRate);
    appendLittleEndian32(wav, SpeechEngine::sampleRate * 2);
    appendLittleEndian16(wav, 2);
    appendLittleEndian16(wav, 16);
    wav.append("data");
    appendLittleEndian32(wav, static_cast<quint32>(samples.size()));
    if constexpr (QSysInfo::ByteOrder == QSysInfo::LittleEndian) {
        wav.append(samples);
    } else {
        for (qsizetype index = 0; index + 1 < samples.size(); index += 2)
            appendLittleEndian16(wav, qFromUnaligned<quint16>(samples.constData() + index));
    }
    return wav;
}

QByteArray readSamplesFile(const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile())
        refuse(path, QStringLiteral("there is no such file."));
    if (!file.open(QIODevice::ReadOnly))
        refuse(path, file.errorString());
    const QByteArray bytes = file.readAll();
    const QString suffix = QFileInfo(path).suffix().toLower();
    const bool raw = suffix == u"raw" || suffix == u"pcm" || !bytes.startsWith("RIFF");
    if (!raw)
        return samplesOfWav(path, bytes);
    if (bytes.isEmpty())
        refuse(path, QStringLiteral("it is empty."));
    if (bytes.size() % 2 != 0)
        refuse(path, QStringLiteral("it is neither a WAV file nor raw 16-bit audio (odd length)."));
    // Raw files are little-endian; on such a machine the conversion is a copy.
    if constexpr (QSysInfo::ByteOrder == QSysInfo::LittleEndian)
        return bytes;
    QByteArray samples(bytes.size(), Qt::Uninitialized);
    for (qsizetype index = 0; index < bytes.size(); index += 2)
        qToUnaligned(qFromLittleEndian<qint16>(bytes.constData() + index), samples.data() + index);
    return samples;
}

} // namespace PcmAudio
