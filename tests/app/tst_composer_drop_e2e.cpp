// Files dropped on a scratch composer by another process over XDND, on the headless desktop
// with the real tarvel and the fake backends: on the attachment strip and the panel they
// become attachments, on the text their paths (what is then refused, such as OpenCode's
// folders, is tst_scratchcomposer's). What a drop did is read from what reaches the backend.
// Runs inside tests/e2e/desktop-session.sh.
#include "DesktopTestSupport.h"

#include "composer/AttachmentStripView.h"
#include "composer/ComposerLayout.h"

#include <QTemporaryDir>

using namespace desktop_test;

namespace {
// Where to drop on a ready scratch composer, from its layout: the header is the panel's own
// surface, the text starts below it, and the strip's dashed box sits right above the footer.
QPoint onHeader(const Geometry &panel)
{
    return {panel.x + 200, panel.y + ComposerLayout::topPadding + 11};
}

QPoint onFirstTextLine(const Geometry &panel)
{
    return {panel.x + 300, panel.y + ComposerLayout::topPadding + 22 + ComposerLayout::headerSpacing + 10};
}

QPoint onEmptyStrip(const Geometry &panel)
{
    using namespace ComposerLayout;
    return {panel.centerX(), panel.y + panel.height - bottomPadding - footerHeight - interSectionSpacing -
                                 attachmentTopSpacing - AttachmentStripView::placeholderHeight / 2};
}

// How often the process's main thread went to sleep and woke up again over a while: a
// timer left running shows up here.
int wakeupsOver(qint64 pid, int milliseconds)
{
    const auto switches = [pid] {
        const QByteArray status = readFile(QStringLiteral("/proc/%1/status").arg(pid));
        return QRegularExpression(QStringLiteral("\\nvoluntary_ctxt_switches:\\s+(\\d+)"))
            .match(QString::fromLatin1(status))
            .captured(1)
            .toInt();
    };
    const int before = switches();
    QTest::qWait(milliseconds);
    return switches() - before;
}
} // namespace

class ComposerDropEndToEndTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run through tests/e2e/desktop-session.sh");
        QVERIFY(m_root.isValid());
        writeFile(m_notes, "notes\n");
        writeFile(m_project + QStringLiteral("/main.c"), "int main(void) { return 0; }\n");
        QImage picture(48, 32, QImage::Format_RGB32);
        picture.fill(QColor(30, 120, 200));
        QDir().mkpath(QFileInfo(m_picture).path());
        QVERIFY(picture.save(m_picture));
    }

    // Codex: a file on the text is written as its path; a picture on the strip, then a
    // folder and the same picture under another spelling on the header, are attached once.
    void dropsAttachOnTheStripAndPanelAndWritePathsOnTheText()
    {
        FakeBackends fakes;
        Application app(m_root.filePath(QStringLiteral("codex")), fakes,
                        {{QStringLiteral("FAKE_CODEX_VERSION_DELAY"), QStringLiteral("0.1")}});
        app.start();
        const QString composer = app.openReadyComposer();
        type(QStringLiteral("Compare with "));

        // Once the drop on the text is done, the editor is as quiet as before it.
        const int idle = wakeupsOver(app.pid(), 2000);
        QVERIFY(dragFiles({m_notes}, onFirstTextLine(geometry(composer))));
        QTest::qWait(300);
        const int afterDrop = wakeupsOver(app.pid(), 2000);
        QVERIFY2(afterDrop <= idle + 6, qPrintable(QStringLiteral("%1 > %2").arg(afterDrop).arg(idle)));
        QVERIFY(dragFiles({m_picture}, onEmptyStrip(geometry(composer))));
        // The pill row makes the panel taller, upward: measure it again.
        QTest::qWait(300);
        const QString samePicture = m_root.filePath(QStringLiteral("shots/../shots/picture.png"));
        QVERIFY(dragFiles({m_project, samePicture}, onHeader(geometry(composer))));
        QTest::qWait(300);
        screenshot(QStringLiteral("scratch-dropped-file"), composer);

        // The drag source had the focus; give it back to the composer.
        activate(composer);
        key(QStringLiteral("ctrl+Return"));
        const QStringList arguments = fakes.nextArguments(QStringLiteral("codex"));
        QVERIFY(!arguments.isEmpty());
        QCOMPARE(attachedPaths(arguments.constLast()), (QStringList{m_picture, m_project}));
        QVERIFY2(arguments.constLast().endsWith(QStringLiteral(" items.\n\nCompare with ") + m_notes),
                 qPrintable(arguments.constLast()));
        QTRY_COMPARE_WITH_TIMEOUT(app.sessionStatus(), QStringLiteral("succeeded"), 15000);
    }

private:
    QTemporaryDir m_root;
    const QString m_notes = m_root.filePath(QStringLiteral("files/notes.txt"));
    const QString m_picture = m_root.filePath(QStringLiteral("shots/picture.png"));
    const QString m_project = m_root.filePath(QStringLiteral("project"));
};

QTEST_MAIN(ComposerDropEndToEndTest)
#include "tst_composer_drop_e2e.moc"
