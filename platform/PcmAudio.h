#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

// Turns audio of any rate, channel count and common sample format into the 16 kHz mono signed
// 16-bit samples the recognisers take. Streaming: chunks may split frames anywhere.
class PcmConverter final {
public:
    enum class SampleFormat { uint8, int16, int32, float32 };

    PcmConverter(int sampleRate, int channelCount, SampleFormat format);

    // The converted samples of this chunk (native-endian qint16).
    QByteArray convert(QByteArrayView bytes);

private:
    float sampleAt(const char *frame, int channel) const;

    int m_sampleRate;
    int m_channelCount;
    SampleFormat m_format;
    int m_bytesPerSample;
    // Bytes of a frame split across chunks.
    QByteArray m_partialFrame;
    // Linear interpolation: the next output's position in input frames from the start of the
    // next chunk (-1 is m_previous), and the last input frame of the previous chunk.
    double m_position = 0;
    float m_previous = 0;
};

namespace PcmAudio {

// A WAV file of 16 kHz mono signed 16-bit samples.
QByteArray wavFromSamples(const QByteArray &samples);

// The samples of a WAV file (PCM of 8, 16 or 32 bits, or 32-bit float, converted) or of a raw
// file of 16 kHz mono signed 16-bit little-endian samples (.raw, .pcm, or no RIFF header).
// Throws SpeechEngineError with a sentence naming the file.
QByteArray readSamplesFile(const QString &path);

} // namespace PcmAudio
