// The microphone recogniser on a PulseAudio virtual microphone: a null sink whose monitor is
// remapped into a real source (Qt lists no monitors), made the default input; paplay speaks
// a recording into it.
#include "ResidentMemory.h"
#include "SpeechTestData.h"
#include "platform/SpeechRecognizer.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

int pactl(const QStringList &arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(u"pactl"_s, arguments);
    return process.waitForFinished() ? process.exitCode() : -1;
}

struct Update {
    QString transcript;
    bool isFinal;
};

} // namespace

class LinuxSpeechRecognizerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        const QString runtime = m_folder.filePath(u"run"_s);
        QVERIFY(QDir().mkpath(runtime));
        QFile::setPermissions(runtime,
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        const QString socket = runtime + u"/native"_s;
        // Set before Qt Multimedia first talks to the sound system.
        qputenv("HOME", m_folder.path().toLocal8Bit());
        qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
        qputenv("PULSE_SERVER", QByteArray("unix:") + socket.toLocal8Bit());
        m_pulse.setProgram(u"pulseaudio"_s);
        m_pulse.setArguments({u"--daemonize=no"_s, u"--exit-idle-time=-1"_s, u"--disallow-exit"_s, u"-n"_s,
                              u"--load=module-native-protocol-unix socket="_s + socket,
                              u"--load=module-null-sink sink_name=vmic_sink rate=16000 channels=1"_s,
                              u"--load=module-remap-source master=vmic_sink.monitor source_name=vmic"_s,
                              u"--load=module-always-sink"_s});
        m_pulse.setStandardErrorFile(m_folder.filePath(u"pulseaudio.log"_s));
        m_pulse.start();
        QVERIFY2(m_pulse.waitForStarted(), "pulseaudio (Debian's pulseaudio package) is needed");
        QVERIFY(QTest::qWaitFor([] { return pactl({u"info"_s}) == 0; }, 15000));
        QCOMPARE(pactl({u"set-default-source"_s, u"vmic"_s}), 0);

        // Silence around the words: the capture opens while paplay starts, and the last words
        // must be through the sound system before the stop.
        QFile speech(SpeechTestData::goForwardRaw());
        QVERIFY(speech.open(QIODevice::ReadOnly));
        QFile padded(m_folder.filePath(u"speech.raw"_s));
        QVERIFY(padded.open(QIODevice::WriteOnly));
        padded.write(QByteArray(SpeechTestData::sampleRate * 2, '\0') + speech.readAll() +
                     QByteArray(SpeechTestData::sampleRate * 3, '\0'));
    }

    void cleanupTestCase()
    {
        m_pulse.terminate();
        m_pulse.waitForFinished();
    }

    void recognisesTheMicrophoneThenCancels()
    {
        SpeechRecognizer::Configuration configuration;
        configuration.modelIdleRelease = std::chrono::milliseconds(500);
        const std::unique_ptr<SpeechRecognizer> recognizer = SpeechRecognizer::create(configuration);
        QCOMPARE(recognizer->microphoneAccess(), SpeechRecognizer::Access::authorized);
        QCOMPARE(recognizer->unavailableReason(), QString());
        QList<Update> updates;
        QStringList failures;
        connect(recognizer.get(), &SpeechRecognizer::recognitionUpdated, this,
                [&](const QString &transcript, bool isFinal) {
                    updates.append({transcript, isFinal});
                });
        connect(recognizer.get(), &SpeechRecognizer::recognitionFailed, this,
                [&](const QString &errorText) { failures.append(errorText); });

        recognizer->start();
        speak();
        recognizer->finishAudio();
        QVERIFY(QTest::qWaitFor([&] { return !updates.isEmpty() && updates.last().isFinal; }, 20000));
        QCOMPARE(failures, QStringList());
        QCOMPARE(updates.last().transcript.split(u' '), SpeechTestData::goForwardWords);
        // Partial transcripts came while the words were spoken, each one different.
        QVERIFY(updates.size() >= 2);
        for (qsizetype index = 0; index + 1 < updates.size(); ++index) {
            QVERIFY(!updates[index].isFinal);
            if (index > 0)
                QVERIFY(updates[index].transcript != updates[index - 1].transcript);
        }

        // Unused for a while, the model (most of what is resident) leaves memory; AddressSanitizer
        // keeps freed memory in quarantine, so only an uninstrumented build can tell.
        const double loaded = residentMegabytes();
        if (!kAddressSanitizer)
            QVERIFY2(QTest::qWaitFor([&] { return residentMegabytes() < loaded / 2; }, 10000),
                     qPrintable(u"%1 MB resident with the model, %2 MB later"_s.arg(loaded).arg(
                         residentMegabytes())));

        // A cancel in the middle of the words: nothing more is heard of that capture.
        updates.clear();
        recognizer->start();
        QProcess player;
        startSpeaking(player);
        QVERIFY(QTest::qWaitFor([&] { return !updates.isEmpty(); }, 20000));
        recognizer->cancel();
        recognizer->finishAudio();
        const qsizetype heard = updates.size();
        QTest::qWait(1500);
        QCOMPARE(updates.size(), heard);
        QCOMPARE(failures, QStringList());
        player.kill();
        player.waitForFinished();
    }

private:
    void startSpeaking(QProcess &player)
    {
        player.start(u"paplay"_s, {u"--raw"_s, u"--rate=16000"_s, u"--channels=1"_s, u"--format=s16le"_s,
                                   u"--device=vmic_sink"_s, m_folder.filePath(u"speech.raw"_s)});
        QVERIFY(player.waitForStarted());
    }

    void speak()
    {
        QProcess player;
        startSpeaking(player);
        QVERIFY(QTest::qWaitFor([&] { return player.state() == QProcess::NotRunning; }, 30000));
        QCOMPARE(player.exitCode(), 0);
    }

    QTemporaryDir m_folder;
    QProcess m_pulse;
};

QTEST_GUILESS_MAIN(LinuxSpeechRecognizerTest)
#include "tst_linuxspeechrecognizer.moc"
