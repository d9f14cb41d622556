// `tarvel transcribe FILE` as a user runs it: a real process, its output and exit status.
#include "SpeechTestData.h"
#include "TestEnvironment.h"
#include "core/UserDefaults.h"
#include "settings/AppSettings.h"

#include <QProcess>
#include <QtTest>

class TranscribeCommandTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // The settings file tarvel reads: the one under the test's private XDG_CONFIG_HOME.
        QCoreApplication::setOrganizationName(QStringLiteral("Tarvel"));
        QCoreApplication::setApplicationName(QStringLiteral("Tarvel"));
        m_environment = std::make_unique<TestEnvironment>();
    }

    void transcribes_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("recognizerScript");
        QTest::addColumn<QString>("modelFolder");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("errorText");

        QTest::newRow("raw speech") << SpeechTestData::goForwardRaw() << QByteArray() << QString()
                                    << QString() << 0 << QStringLiteral("go forward ten meters\n")
                                    << QString();
        QTest::newRow("the user's command")
            << SpeechTestData::goForwardRaw() << QByteArray()
            << QStringLiteral("eval last=\\${$#}\nhead -c 4 \"$last\"; echo ' says hello'") << QString() << 0
            << QStringLiteral("RIFF says hello\n") << QString();
        QTest::newRow("damaged WAV") << QStringLiteral("damaged.wav")
                                     << QByteArray("RIFF\x10\0\0\0WAVEdata", 16) << QString() << QString()
                                     << 1 << QString() << QStringLiteral("Could not read the audio file");
        // Found by fuzzing: a rate past 2^31 turned negative and the resampler read before its frames.
        QTest::newRow("absurd sample rate")
            << QStringLiteral("absurd.wav")
            << QByteArray("RIFF\x30\0\0\0WAVEfmt \x10\0\0\0\x03\0\x01\0\x80\xbb\xfb\xff"
                          "\0\0\0\0\x04\0\x20\0data\x08\0\0\0\0\0\0\0\0\0\x80\x3f",
                          52)
            << QString() << QString() << 1 << QString() << QStringLiteral("its format is damaged");
        QTest::newRow("missing file")
            << QStringLiteral("absent.wav") << QByteArray() << QString() << QString() << 1 << QString()
            << QStringLiteral("there is no such file");
        QTest::newRow("no model") << SpeechTestData::goForwardRaw() << QByteArray() << QString()
                                  << QStringLiteral("/nonexistent/model") << 1 << QString()
                                  << QStringLiteral("Install the Debian package pocketsphinx-en-us");
    }

    void transcribes()
    {
        QFETCH(QString, file);
        QFETCH(QByteArray, contents);
        QFETCH(QString, recognizerScript);
        QFETCH(QString, modelFolder);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QFETCH(QString, errorText);

        TestEnvironment &environment = *m_environment;
        if (!contents.isEmpty()) {
            file = environment.path(file);
            QFile written(file);
            QVERIFY(written.open(QIODevice::WriteOnly));
            written.write(contents);
        } else if (!QFileInfo(file).isAbsolute()) {
            file = environment.path(file);
        }
        AppSettings settings(UserDefaults::standard());
        settings.setSpeechRecognizerCommand({});
        if (!recognizerScript.isEmpty()) {
            const QString program = environment.path(QStringLiteral("recognizer"));
            QFile script(program);
            QVERIFY(script.open(QIODevice::WriteOnly));
            script.write(QStringLiteral("#!/bin/sh\n%1\n").arg(recognizerScript).toUtf8());
            script.close();
            script.setPermissions(script.permissions() | QFileDevice::ExeOwner);
            settings.setSpeechRecognizerCommand(program);
        }

        QProcess tarvel;
        QProcessEnvironment processEnvironment = QProcessEnvironment::systemEnvironment();
        if (!modelFolder.isEmpty())
            processEnvironment.insert(QStringLiteral("TARVEL_POCKETSPHINX_MODEL"), modelFolder);
        tarvel.setProcessEnvironment(processEnvironment);
        tarvel.start(QStringLiteral(TARVEL_APP_PATH), {QStringLiteral("transcribe"), file});
        QVERIFY(tarvel.waitForFinished(60000));
        const QString standardError = QString::fromUtf8(tarvel.readAllStandardError());
        QCOMPARE(tarvel.exitCode(), exitCode);
        QCOMPARE(QString::fromUtf8(tarvel.readAllStandardOutput()), output);
        if (errorText.isEmpty())
            QCOMPARE(standardError, QString());
        else
            QVERIFY2(standardError.startsWith(QStringLiteral("tarvel: ")) &&
                         standardError.contains(errorText),
                     qPrintable(standardError));
        settings.setSpeechRecognizerCommand({});
    }

private:
    // One for the whole run: the standard settings store is opened once.
    std::unique_ptr<TestEnvironment> m_environment;
};

QTEST_GUILESS_MAIN(TranscribeCommandTest)
#include "tst_transcribecommand.moc"
