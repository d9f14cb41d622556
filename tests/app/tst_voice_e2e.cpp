// Dictation on the desktop: the real tarvel and its recogniser (the built-in one, or a slow
// recogniser command) on the PulseAudio virtual microphone of desktop-session.sh --microphone,
// the rewrite and the quick task run by the fake codex. A recording of "go forward ten meters"
// is played into the microphone between two presses of the voice shortcut. Screenshots of the
// recording, transcribing and processing composer go to the artifacts folder.
#include "DesktopTestSupport.h"
#include "SpeechTestData.h"
#include "WindowImage.h"

#include <QImage>
#include <QTemporaryDir>

using namespace desktop_test;
using namespace Qt::StringLiterals;

class VoiceEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
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
    // draft (or, when the backend fails, the words heard, with an alert) becomes the composer's
    // text, which is what the quick task starts with.
    void dictationStartsTheQuickTask_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QString>("recognizer"); // a recogniser command's script; empty: the built-in one
        QTest::addColumn<QString>("heard");
        QTest::addColumn<QString>("prompt");
        const QStringList draft{u"sleep 1"_s, FakeBackends::codexAnswerStep(u"Drive forward ten meters."_s),
                                u"ready"_s};
        const QString goForward = u"go forward ten meters"_s;
        QTest::newRow("draft") << draft << QString() << goForward << u"Drive forward ten meters."_s;
        QTest::newRow("raw transcript")
            << QStringList{u"err quota exceeded\\n"_s, u"exit 1"_s} << QString() << goForward << goForward;
        // Its words come only after the stop, long after a streaming recogniser's final result.
        QTest::newRow("slow recogniser command")
            << draft << u"head -c 4 \"$1\" | grep -q RIFF || exit 3\nsleep 3\necho turn left at the lights"_s
            << u"turn left at the lights"_s << u"Drive forward ten meters."_s;
    }
    void dictationStartsTheQuickTask()
    {
        QFETCH(QStringList, steps);
        QFETCH(QString, recognizer);
        QFETCH(QString, heard);
        const bool answers = steps.contains(u"ready"_s);
        FakeBackends fakes;
        Application app(m_root.filePath(QString::fromUtf8(QTest::currentDataTag())), fakes,
                        {{u"FAKE_STEPS"_s, fakes.writeSteps(steps)}});
        if (!recognizer.isEmpty()) {
            const QString script = app.home() + u"/recognizer"_s;
            writeFile(script, "#!/bin/sh\n" + recognizer.toUtf8() + '\n');
            QFile::setPermissions(script, QFile::permissions(script) | QFileDevice::ExeOwner);
            app.setSetting(u"SpeechRecognizerCommand"_s, u"'%1'"_s.arg(script)); // the path has spaces
        }
        app.start();
        const QString composer = app.openReadyComposer();
        const QImage idleIcon = windowImage(app.trayIconWindow());

        key(u"ctrl+r"_s);
        QTRY_VERIFY_WITH_TIMEOUT(windowImage(app.trayIconWindow()) != idleIcon, 10000);
        if (answers)
            screenshot(u"voice-recording"_s, composer);
        speak();
        key(u"ctrl+r"_s);
        if (answers) {
            QTest::qWait(300);
            screenshot(recognizer.isEmpty() ? u"voice-processing"_s : u"voice-transcribing"_s, composer);
        }
        QTRY_COMPARE_WITH_TIMEOUT(windowImage(app.trayIconWindow()), idleIcon, 10000);
        const QStringList rewrite = fakes.nextArguments(u"codex"_s);
        QVERIFY2(!rewrite.isEmpty(), "the rewrite did not run");
        QVERIFY(rewrite.constLast().startsWith(u"Rewrite the user's dictated notes"_s));
        QVERIFY2(rewrite.constLast().endsWith(u"\nDictated notes:\n"_s + heard),
                 qPrintable(rewrite.constLast()));
        if (answers) {
            QTRY_VERIFY_WITH_TIMEOUT(fakes.isReady(), 15000);
            fakes.forget(u"ready"_s);
            QTest::qWait(500); // the answer reaches the composer through the event loop
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(!app.otherWindow({composer}).isEmpty(), 10000);
            screenshot(u"voice-raw-transcript"_s);
            key(u"Return"_s);
            QTRY_VERIFY_WITH_TIMEOUT(app.otherWindow({composer}).isEmpty(), 5000);
        }
        activate(composer);
        key(u"ctrl+Return"_s);
        const QStringList task = fakes.nextArguments(u"codex"_s);
        QVERIFY2(!task.isEmpty(), "the quick task did not start");
        QTEST(task.constLast(), "prompt");
    }

    // A dictation that cannot record shows its alert at once, without a stop, and the tray
    // shows no recording.
    void failuresShowAtOnce_data()
    {
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("value");
        // Without a sound server there is no input device.
        QTest::newRow("no microphone")
            << u"PULSE_SERVER"_s << u"unix:"_s + m_root.filePath(u"no-sound-server"_s);
        // A model whose files are there but do not load fails once the capture has begun.
        const QString model = m_root.filePath(u"broken-model"_s);
        QDir().mkpath(model + u"/en-us"_s);
        writeFile(model + u"/en-us.lm.bin"_s, {});
        writeFile(model + u"/cmudict-en-us.dict"_s, {});
        QTest::newRow("broken speech model") << u"TARVEL_POCKETSPHINX_MODEL"_s << model;
    }
    void failuresShowAtOnce()
    {
        QFETCH(QString, variable);
        QFETCH(QString, value);
        FakeBackends fakes;
        Application app(m_root.filePath(variable), fakes,
                        {{u"FAKE_STEPS"_s, fakes.writeSteps({})}, {variable, value}});
        app.start();
        const QString composer = app.openReadyComposer();
        const QImage idleIcon = windowImage(app.trayIconWindow());
        key(u"ctrl+r"_s);
        QTRY_VERIFY_WITH_TIMEOUT(!app.otherWindow({composer}).isEmpty(), 10000);
        screenshot(u"voice-failure-"_s + variable);
        QTRY_COMPARE_WITH_TIMEOUT(windowImage(app.trayIconWindow()), idleIcon, 5000);
    }

private:
    void speak() const
    {
        QProcess player;
        player.start(u"paplay"_s,
                     {u"--raw"_s, u"--rate=16000"_s, u"--channels=1"_s, u"--format=s16le"_s,
                      u"--device="_s + qEnvironmentVariable("TARVEL_DESKTOP_MICROPHONE_SINK"), m_speech});
        QVERIFY(player.waitForFinished(30000));
        QCOMPARE(player.exitCode(), 0);
    }

    QTemporaryDir m_root;
    const QString m_speech = m_root.filePath(u"speech.raw"_s);
};

QTEST_MAIN(VoiceEndToEndTest)
#include "tst_voice_e2e.moc"
