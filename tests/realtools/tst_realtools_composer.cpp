// The scratch composer with the real codex, claude and opencode: the real tarvel on the
// headless desktop with the tools from `make real-tools` first on its PATH and set up for
// the loopback model server (RealToolProfile), a composer opened from the tray menu, a
// prompt typed and a file pasted into it, and the session followed in sessions.json until
// it ends with the server's answer. Runs inside loopback-only.sh and desktop-session.sh.
#include "DesktopTestSupport.h"
#include "LoopbackModelServer.h"
#include "RealToolProfile.h"
#include "support/TestEnvironment.h"

#include <QElapsedTimer>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>

using namespace desktop_test;

namespace {

const QString kPrompt = QStringLiteral("Summarize the attached notes in one line.");
const QByteArray kNotes = "Ship on Friday; the release notes still need a line on the new tray menu.";
// opencode needs about a second of processor time to print its version, next to the other
// two checks on two cores: close to the 2 s limit of the check. A check that ran out of time
// leaves the composer unavailable (or on another backend), or refuses the start with an
// alert; that is tried again, and reported.
constexpr int kVersionCheckAttempts = 3;
constexpr int kReadyTimeout = 20000;
constexpr int kTaskTimeout = 120000;

QString storedBackend(const Application &app)
{
    return QSettings(app.settingsFile(), QSettings::IniFormat)
        .value(QStringLiteral("QuickTaskBackend"))
        .toString();
}

void storeBackend(const Application &app, const QString &backend)
{
    QSettings settings(app.settingsFile(), QSettings::IniFormat);
    settings.setValue(QStringLiteral("QuickTaskBackend"), backend);
}

// The composer's text view takes typing only once the composer is ready: a probe typed into
// it comes back through the clipboard. Each probe is new, since tarvel keeps the clipboard of
// a composer that has closed.
bool takesTyping()
{
    static int probes = 0;
    const QString probe = QStringLiteral("probe%1").arg(++probes);
    key(QStringLiteral("ctrl+a"));
    type(probe);
    key(QStringLiteral("ctrl+a"));
    key(QStringLiteral("ctrl+c"));
    return clipboardText() == probe;
}

// What went wrong as the application saw it: its error log and the tasks' raw output.
QString applicationLog(const Application &app)
{
    QString text = QString::fromUtf8(readFile(app.dataFolder() + QStringLiteral("/Errors/errors.json")));
    const QDir rawLogs(app.dataFolder() + QStringLiteral("/QuickTasks/RawLogs"));
    for (const QString &name : rawLogs.entryList(QDir::Files))
        text += u'\n' + name + QStringLiteral(":\n") + QString::fromUtf8(readFile(rawLogs.filePath(name)));
    return text;
}

// A composer opened from the tray menu once it is ready for backend, or empty.
QString openReadyComposer(const Application &app, const QString &backend)
{
    for (int attempt = 1; attempt <= kVersionCheckAttempts; ++attempt) {
        QElapsedTimer timer;
        timer.start();
        const QString composer = app.openComposerFromMenu();
        if (composer.isEmpty())
            return {};
        const bool ready = QTest::qWaitFor(takesTyping, kReadyTimeout);
        if (ready && storedBackend(app) == backend) {
            qInfo("%s: the composer was ready %lld ms after it opened", qPrintable(backend),
                  static_cast<long long>(timer.elapsed()));
            return composer;
        }
        qInfo("Attempt %d: after %lld ms the composer %s", attempt, static_cast<long long>(timer.elapsed()),
              ready ? qPrintable(QStringLiteral("went to ") + storedBackend(app)) : "was not ready");
        screenshot(QStringLiteral("realtools-composer-%1-attempt-%2").arg(backend).arg(attempt), composer);
        key(QStringLiteral("Escape"));
        if (!QTest::qWaitFor([&] { return app.composerWindow().isEmpty(); }, 5000))
            return {};
        storeBackend(app, backend);
    }
    return {};
}

// Submits the composer; true once it has closed, which it does when the task started.
bool submit(const Application &app, const QString &composer)
{
    for (int attempt = 1; attempt <= kVersionCheckAttempts; ++attempt) {
        key(QStringLiteral("ctrl+Return"));
        if (QTest::qWaitFor([&] { return app.composerWindow().isEmpty(); }, 15000))
            return true;
        // A failed start shows an alert.
        const QString alert = app.otherWindow({composer});
        qInfo("Attempt %d: the task did not start: %s", attempt, qPrintable(applicationLog(app)));
        screenshot(QStringLiteral("realtools-start-attempt-%1").arg(attempt));
        if (alert.isEmpty())
            return false;
        // The alert takes no key in its first half second, and has no button armed for Return.
        QTest::qWait(600);
        activate(alert);
        key(QStringLiteral("Escape"));
        if (!QTest::qWaitFor([&] { return !app.visibleWindows().contains(alert); }, 5000))
            return false;
        activate(composer);
    }
    return false;
}

} // namespace

class RealToolsComposerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("xclip")).isEmpty(), "xclip is needed");
        const QString isolation = RealToolProfile::networkIsolationProblem();
        QVERIFY2(isolation.isEmpty(), qPrintable(isolation));
        // Nothing of this process's environment may point a tool elsewhere; tarvel inherits it.
        for (const QString &name : RealToolProfile::clearedVariables())
            m_environment.unset(name.toLatin1().constData());
    }

    void taskFromTheComposerEndsWithTheServersAnswer_data()
    {
        QTest::addColumn<QuickTaskCLIBackend>("backend");
        for (const BackendProfile *profile : BackendProfiles::all())
            QTest::newRow(qPrintable(profile->rawValue())) << profile->backend();
    }
    void taskFromTheComposerEndsWithTheServersAnswer()
    {
        QFETCH(QuickTaskCLIBackend, backend);
        if (const QString reason = RealToolProfile::missingReason(backend); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        const QString name = BackendProfiles::of(backend).rawValue();
        QTemporaryDir root;
        LoopbackModelServer server(root.filePath(QStringLiteral("requests.jsonl")));
        QVERIFY2(server.port() > 0, "The loopback model server did not start.");
        const RealToolProfile profile(backend, server);
        Application app(root.filePath(QStringLiteral("app")), profile.variables());
        QCOMPARE(profile.writeConfigurationFiles(app.environment()), QString());
        storeBackend(app, name);
        const QString notes = root.filePath(QStringLiteral("files/notes.txt"));
        writeFile(notes, kNotes);

        app.start();
        const QString composer = openReadyComposer(app, name);
        QVERIFY2(!composer.isEmpty(),
                 qPrintable(QStringLiteral("No composer became ready for %1 (see the attempts above). %2")
                                .arg(name, applicationLog(app))));
        key(QStringLiteral("ctrl+a")); // the prompt replaces the probe
        type(kPrompt);
        const auto files = pasteFiles({notes});
        screenshot(QStringLiteral("realtools-composer-") + name, composer);

        QElapsedTimer timer;
        timer.start();
        QVERIFY2(submit(app, composer), qPrintable(applicationLog(app)));
        const bool ended = QTest::qWaitFor(
            [&] {
                const QString status = app.sessionStatus();
                return !status.isEmpty() && status != u"running";
            },
            kTaskTimeout);
        QVERIFY2(ended,
                 qPrintable(QString::fromUtf8(QJsonDocument(app.sessions()).toJson()) + applicationLog(app)));
        qInfo("%s: the task ended %lld ms after it was submitted", qPrintable(name),
              static_cast<long long>(timer.elapsed()));

        QCOMPARE(app.sessions().size(), 1);
        const QJsonObject session = app.sessions().at(0).toObject();
        QVERIFY2(session.value(u"status").toString() == u"succeeded", qPrintable(applicationLog(app)));
        QCOMPARE(session.value(u"finalResponse").toString(), LoopbackModelServer::taskAnswer());
        QCOMPARE(session.value(u"backend").toString(), name);
        if (backend == QuickTaskCLIBackend::codex) // its thread, for a follow-up
            QVERIFY(!session.value(u"threadID").toString().isEmpty());
        QCOMPARE(session.value(u"prompt").toString(), kPrompt);
        const QJsonArray attachments = session.value(u"attachments").toArray();
        QCOMPARE(attachments.size(), 1);
        QCOMPARE(attachments.at(0).toObject().value(u"path").toString(), notes);
        // The tool sent both to the loopback server: the base URL it used was the server's.
        QVERIFY(server.received(profile.modelRequestPath(), kPrompt));
        QVERIFY(server.received(profile.modelRequestPath(), notes));
        // opencode sends the file itself; codex and claude are given its folder and would read
        // it when the model asked, which the stand-in never does.
        if (backend == QuickTaskCLIBackend::opencode)
            QVERIFY(server.received(profile.modelRequestPath(), QString::fromUtf8(kNotes)));
    }

private:
    TestEnvironment m_environment;
};

QTEST_GUILESS_MAIN(RealToolsComposerTest)
#include "tst_realtools_composer.moc"
