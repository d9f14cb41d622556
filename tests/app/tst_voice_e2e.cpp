// Dictation on the desktop: the real tarvel and its recogniser on the PulseAudio virtual
// microphone of desktop-session.sh --microphone, the rewrite and the quick task run by the
// fake codex. A recording of "go forward ten meters" is played into the microphone between
// two presses of the voice shortcut. Screenshots of the recording and processing composer go
// to the artifacts folder.
#include "DesktopTestSupport.h"
#include "SpeechTestData.h"

#include <QImage>
#include <QTemporaryDir>

using namespace desktop_test;
using Variables = QMap<QString, QString>;

namespace {

QImage windowImage(const QString &window)
{
    QProcess import;
    import.start(QStringLiteral("import"), {QStringLiteral("-window"), window, QStringLiteral("png:-")});
    import.waitForFinished(10000);
    return QImage::fromData(import.readAllStandardOutput(), "PNG");
}

QString codexAnswer(const QString &text)
{
    return QStringLiteral(R"(out {"type":"item.completed","item":{"type":"agent_message","text":"%1"}}\n)")
        .arg(text);
}

} // namespace

class VoiceEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        QVERIFY2(!qEnvironmentVariableIsEmpty("TARVEL_DESKTOP_MICROPHONE_SINK"),
                 "run through tests/e2e/desktop-session.sh --microphone");
        QVERIFY(m_root.isValid());
        // Silence around the words: the capture opens while paplay starts, and the last words
        // must be through the sound system before the stop.
        QFile speech(SpeechTestData::goForwardRaw());
        QVERIFY(speech.open(QIODevice::ReadOnly));
        writeFile(m_speech, QByteArray(SpeechTestData::sampleRate * 2, '\0') + speech.readAll() +
                                QByteArray(SpeechTestData::sampleRate * 2, '\0'));
    }

    // Recording shows in the composer and the tray; the transcript reaches the rewrite; the
    // draft becomes the composer's text, which is what the quick task is started with.
    void dictatedDraftStartsTheQuickTask()
    {
        FakeBackends fakes;
        Application app(m_root.filePath(QStringLiteral("draft")), fakes,
                        withSteps(fakes, {QStringLiteral("sleep 1"),
                                          codexAnswer(QStringLiteral("Drive forward ten meters.")),
                                          QStringLiteral("ready")}));
        app.start();
        const QString composer = app.openReadyComposer();
        const QImage idleIcon = windowImage(app.trayIconWindow());

        key(QStringLiteral("ctrl+r"));
        QTRY_VERIFY_WITH_TIMEOUT(windowImage(app.trayIconWindow()) != idleIcon, 10000);
        screenshot(QStringLiteral("voice-recording"), composer);
        speak();
        key(QStringLiteral("ctrl+r"));
        QTest::qWait(300);
        screenshot(QStringLiteral("voice-processing"), composer);
        QTRY_COMPARE_WITH_TIMEOUT(windowImage(app.trayIconWindow()), idleIcon, 10000);

        const QStringList rewrite = fakes.nextArguments(QStringLiteral("codex"));
        QVERIFY2(!rewrite.isEmpty(), "the rewrite did not run");
        QVERIFY(rewrite.constLast().startsWith(QStringLiteral("Rewrite the user's dictated notes")));
        QVERIFY2(rewrite.constLast().endsWith(QStringLiteral("\nDictated notes:\ngo forward ten meters")),
                 qPrintable(rewrite.constLast()));
        QTRY_VERIFY_WITH_TIMEOUT(fakes.isReady(), 15000);
        fakes.forget(QStringLiteral("ready"));
        QTest::qWait(500); // the answer reaches the composer through the event loop

        activate(composer);
        key(QStringLiteral("ctrl+Return"));
        const QStringList task = fakes.nextArguments(QStringLiteral("codex"));
        QVERIFY2(!task.isEmpty(), "the quick task did not start");
        QCOMPARE(task.constLast(), QStringLiteral("Drive forward ten meters."));
    }

    // The backend fails: the words heard are inserted as they are, and an alert says so.
    void failedRewriteLeavesTheRawTranscript()
    {
        FakeBackends fakes;
        Application app(
            m_root.filePath(QStringLiteral("raw")), fakes,
            withSteps(fakes, {QStringLiteral("err quota exceeded\\n"), QStringLiteral("exit 1")}));
        app.start();
        const QString composer = app.openReadyComposer();
        key(QStringLiteral("ctrl+r"));
        QTest::qWait(500);
        speak();
        key(QStringLiteral("ctrl+r"));
        QVERIFY(!fakes.nextArguments(QStringLiteral("codex")).isEmpty());
        QString alert;
        QTRY_VERIFY_WITH_TIMEOUT(!(alert = app.otherWindow({composer})).isEmpty(), 10000);
        screenshot(QStringLiteral("voice-raw-transcript"));
        key(QStringLiteral("Return"));
        QTRY_VERIFY_WITH_TIMEOUT(app.otherWindow({composer}).isEmpty(), 5000);

        activate(composer);
        key(QStringLiteral("ctrl+Return"));
        const QStringList task = fakes.nextArguments(QStringLiteral("codex"));
        QVERIFY2(!task.isEmpty(), "the quick task did not start");
        QCOMPARE(task.constLast(), QStringLiteral("go forward ten meters"));
    }

    // Without a sound server there is no input device: an alert, and nothing is recorded.
    void withoutAMicrophoneNothingRecords()
    {
        FakeBackends fakes;
        Variables environment = withSteps(fakes, {});
        environment.insert(QStringLiteral("PULSE_SERVER"),
                           QStringLiteral("unix:") + m_root.filePath(QStringLiteral("no-sound-server")));
        Application app(m_root.filePath(QStringLiteral("silent")), fakes, environment);
        app.start();
        const QString composer = app.openReadyComposer();
        const QImage idleIcon = windowImage(app.trayIconWindow());
        key(QStringLiteral("ctrl+r"));
        QString alert;
        QTRY_VERIFY_WITH_TIMEOUT(!(alert = app.otherWindow({composer})).isEmpty(), 10000);
        screenshot(QStringLiteral("voice-no-microphone"));
        QCOMPARE(windowImage(app.trayIconWindow()), idleIcon);
        key(QStringLiteral("Return"));
        QTRY_VERIFY_WITH_TIMEOUT(app.otherWindow({composer}).isEmpty(), 5000);
    }

private:
    Variables withSteps(const FakeBackends &fakes, const QStringList &steps) const
    {
        return {{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")},
                {QStringLiteral("FAKE_STEPS"), fakes.writeSteps(steps)}};
    }

    void speak() const
    {
        QProcess player;
        player.start(QStringLiteral("paplay"),
                     {QStringLiteral("--raw"), QStringLiteral("--rate=16000"), QStringLiteral("--channels=1"),
                      QStringLiteral("--format=s16le"),
                      QStringLiteral("--device=") + qEnvironmentVariable("TARVEL_DESKTOP_MICROPHONE_SINK"),
                      m_speech});
        QVERIFY(player.waitForFinished(30000));
        QCOMPARE(player.exitCode(), 0);
    }

    QTemporaryDir m_root;
    const QString m_speech = m_root.filePath(QStringLiteral("speech.raw"));
};

QTEST_MAIN(VoiceEndToEndTest)
#include "tst_voice_e2e.moc"
