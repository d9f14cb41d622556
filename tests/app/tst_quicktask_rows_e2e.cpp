// A finished quick task's row in the real tray menu, clicked on the headless desktop: Copy
// puts the answer on the X clipboard, the row itself opens the transcript through xdg-open
// (a recording stand-in first on tarvel's PATH), and Retry opens a composer with the same
// prompt and attachment (its pill's remove button is tst_scratchcomposer's). Runs inside
// tests/e2e/desktop-session.sh.
#include "TrayMenuGeometry.h"

#include <QTemporaryDir>

using namespace desktop_test;

namespace {
const QStringList kFinishedRowActions{QStringLiteral("Copy"), QStringLiteral("Retry"),
                                      QStringLiteral("Delete")};
} // namespace

class QuickTaskRowsEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // One finished task: a prompt with a picture pasted as a file, and the fake's answer.
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        QVERIFY(m_root.isValid());
        const QString opener = m_fakes.executable(QStringLiteral("xdg-open"));
        writeFile(opener, "#!/bin/sh\nprintf '%s\\n' \"$@\" >>\"$FAKE_RECORD_DIR/xdg-open.args\"\n");
        QVERIFY(QFile::setPermissions(opener, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QImage picture(48, 32, QImage::Format_RGB32);
        picture.fill(QColor(200, 60, 30));
        QVERIFY(picture.save(m_picture));

        m_app = std::make_unique<Application>(
            m_root.filePath(QStringLiteral("app")), m_fakes,
            QMap<QString, QString>{{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")}});
        m_app->start();
        m_app->readyComposerAfter([this] { m_app->openComposerFromMenu(); });
        type(QStringLiteral("Describe the picture"));
        pasteFiles({m_picture});
        key(QStringLiteral("ctrl+Return"));
        m_firstRun = m_fakes.nextArguments(QStringLiteral("codex"));
        QVERIFY2(m_firstRun.contains(m_picture), qPrintable(m_firstRun.join(u' ')));
        QTRY_COMPARE_WITH_TIMEOUT(m_app->sessionStatus(), QStringLiteral("succeeded"), 15000);
    }

    void copyPutsTheAnswerOnTheClipboardAndClosesTheMenu()
    {
        QVERIFY(clipboardText().isEmpty());
        const QString menu = m_app->openMenu();
        screenshot(QStringLiteral("menu-finished-row"));
        clickInlineButton(menu, kFinishedRowActions, QStringLiteral("Copy"));
        QTRY_VERIFY_WITH_TIMEOUT(m_app->menuWindow().isEmpty(), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QStringLiteral("Fake answer."), 5000);
    }

    void clickingTheRowOpensTheTranscriptAndClosesTheMenu()
    {
        const QString menu = m_app->openMenu();
        clickRowText(menu, kFinishedRowActions);
        QTRY_VERIFY_WITH_TIMEOUT(m_app->menuWindow().isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!m_fakes.recorded(QStringLiteral("xdg-open.args")).isEmpty(), 5000);
        QTest::qWait(300); // a second opening would show up as a second line
        const QStringList opened = QString::fromUtf8(m_fakes.recorded(QStringLiteral("xdg-open.args")))
                                       .split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(opened.size(), 1);
        const QUrl url(opened.constFirst());
        QVERIFY2(url.isLocalFile(), qPrintable(opened.constFirst()));
        const QString id = m_app->sessions().at(0).toObject().value(u"id").toString();
        QCOMPARE(QFileInfo(url.toLocalFile()).fileName(), id + QStringLiteral(".txt"));
        QVERIFY(QFile::exists(url.toLocalFile()));
    }

    // The composer comes back with the prompt and the picture: submitted as it is, the
    // backend gets what the first run got.
    void retryOpensAComposerWithThePromptAndAttachment()
    {
        const QString menu = m_app->openMenu();
        const QString composer = m_app->readyComposerAfter(
            [&] { clickInlineButton(menu, kFinishedRowActions, QStringLiteral("Retry")); });
        QTRY_VERIFY_WITH_TIMEOUT(m_app->menuWindow().isEmpty(), 5000);
        activate(composer);
        screenshot(QStringLiteral("scratch-retry"), composer);
        key(QStringLiteral("ctrl+Return"));
        QCOMPARE(m_fakes.nextArguments(QStringLiteral("codex")), m_firstRun);
        QTRY_COMPARE_WITH_TIMEOUT(m_app->sessions().size(), 2, 5000);
    }

private:
    QTemporaryDir m_root;
    FakeBackends m_fakes;
    const QString m_picture = m_root.filePath(QStringLiteral("red.png"));
    std::unique_ptr<Application> m_app;
    QStringList m_firstRun;
};

QTEST_MAIN(QuickTaskRowsEndToEndTest)
#include "tst_quicktask_rows_e2e.moc"
