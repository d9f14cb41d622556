// The composer's editing aids, in the process (offscreen), on this machine:
//   an editor composer's first frame with a 100,000-file git repository as its folder, against a
//   10-file one (the index is listed in the background and must not delay it), and when the
//   index is ready;
//   the `@` completion list per keystroke on that repository, from the key to the updated list;
//   a 1 MB paste with highlighting and Hunspell spelling: the paste itself, then every turn of the
//   event loop until the highlighting is done (the longest turn is the longest stall).
//
// Run it from the build folder: QT_QPA_PLATFORM=offscreen bin/bench_editing_aids
#include "BenchStatistics.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerSurface.h"
#include "composer/ComposerTextView.h"
#include "composer/EditorComposer.h"
#include "core/Clock.h"
#include "core/UserDefaults.h"
#include "editing/CompletionPopup.h"
#include "editing/MentionCompleter.h"
#include "editing/PromptEditingAids.h"
#include "editing/PromptHighlighter.h"
#include "editing/PromptHistory.h"
#include "editing/SpellCheckService.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTextEdit>

#include <cstdio>

namespace {

constexpr int kRuns = 15;

// A git repository of `count` empty files in folders of a hundred.
QString makeRepository(const QString &folder, int count)
{
    for (int index = 0; index < count; ++index) {
        const QString path = QStringLiteral("%1/module%2/part%3/file%4.cpp")
                                 .arg(folder)
                                 .arg(index / 1000)
                                 .arg(index / 100 % 10)
                                 .arg(index);
        if (index % 100 == 0)
            QDir().mkpath(QFileInfo(path).path());
        QFile(path).open(QIODevice::WriteOnly);
    }
    QProcess::execute(QStringLiteral("git"),
                      {QStringLiteral("-C"), folder, QStringLiteral("init"), QStringLiteral("-q")});
    QProcess::execute(QStringLiteral("git"),
                      {QStringLiteral("-C"), folder, QStringLiteral("add"), QStringLiteral(".")});
    return folder;
}

// When a widget is first painted, on a running clock.
class FrameWatch final : public QObject {
public:
    FrameWatch(QWidget *widget, const QElapsedTimer &clock)
        : m_clock(clock)
    {
        widget->installEventFilter(this);
    }
    double paintedAt = -1;

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && paintedAt < 0)
            paintedAt = double(m_clock.nsecsElapsed()) / 1e6;
        return false;
    }

private:
    const QElapsedTimer &m_clock;
};

struct Services {
    QTemporaryDir root;
    UserDefaults defaults{root.filePath(QStringLiteral("settings.conf"))};
    PromptHistory history{root.filePath(QStringLiteral("prompts.json")), Clock::system()};
    SpellCheckService spelling{defaults};
    ComposerServices composer()
    {
        return ComposerServices{&defaults, nullptr, {}, nullptr, nullptr, nullptr, &history, &spelling};
    }
};

// Milliseconds from making a composer to its first frame, and to its index being ready.
std::pair<double, double> openComposer(Services &services, const QString &folder)
{
    QElapsedTimer timer;
    timer.start();
    EditorComposer composer(QString(), services.composer());
    composer.surface().setWorkingFolder(folder);
    FrameWatch frame(composer.panel(), timer);
    QSignalSpy ready(composer.surface().editingAids()->mentions(), &MentionCompleter::indexReady);
    composer.showWindow();
    while (frame.paintedAt < 0)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    const double firstFrame = frame.paintedAt;
    if (ready.isEmpty())
        ready.wait(60000);
    return {firstFrame, double(timer.nsecsElapsed()) / 1e6};
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QTemporaryDir repositories;
    std::printf("making a 100,000-file git repository...\n");
    const QString large = makeRepository(repositories.filePath(QStringLiteral("large")), 100000);
    const QString small = makeRepository(repositories.filePath(QStringLiteral("small")), 10);
    Services services;
    openComposer(services, small); // the first composer loads fonts and styles

    // Taken in turns, so that the machine's other load falls on both alike.
    QList<double> frames[2];
    QList<double> indexes[2];
    for (int run = 0; run < kRuns; ++run) {
        for (int which = 0; which < 2; ++which) {
            const auto [frame, index] = openComposer(services, which == 0 ? small : large);
            frames[which].append(frame);
            indexes[which].append(index);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
    }
    for (int which = 0; which < 2; ++which) {
        const char *label = which == 0 ? "10 files" : "100,000 files";
        BenchStatistics::of(frames[which])
            .print(qPrintable(
                QStringLiteral("composer made -> first frame, %1").arg(QString::fromLatin1(label))));
        BenchStatistics::of(indexes[which])
            .print(qPrintable(
                QStringLiteral("composer made -> index ready, %1").arg(QString::fromLatin1(label))));
    }

    {
        EditorComposer composer(QString(), services.composer());
        composer.surface().setWorkingFolder(large);
        QSignalSpy ready(composer.surface().editingAids()->mentions(), &MentionCompleter::indexReady);
        composer.showWindow();
        if (ready.isEmpty())
            ready.wait(60000);
        std::printf("%-44s %8lld entries\n", "index of the large repository",
                    static_cast<long long>(composer.surface().editingAids()->mentions()->index()->size()));
        ComposerTextView *view = composer.panel()->textView();
        QList<double> keystrokes;
        for (const QString &typed :
             {QStringLiteral("@mod7part3file7345"), QStringLiteral(" @file9"), QStringLiteral(" @m12p4f")}) {
            for (const QChar character : typed) {
                QElapsedTimer timer;
                timer.start();
                QTest::keyClick(view, character.toLatin1());
                QCoreApplication::processEvents(); // the list is brought up to date after the key
                keystrokes.append(double(timer.nsecsElapsed()) / 1e6);
            }
            QTest::keyClick(view, Qt::Key_Escape);
        }
        BenchStatistics::of(keystrokes).print("key -> completion list updated (100,000 files)");
    }

    {
        services.spelling.prepare();
        QSignalSpy loaded(&services.spelling, &SpellCheckService::checkerChanged);
        loaded.wait(10000);
        std::printf("%-44s %s\n", "dictionary", qPrintable(services.spelling.dictionaryName()));
        QString paste;
        for (int line = 0; paste.size() < 1024 * 1024; ++line)
            paste += QStringLiteral("2026-03-01 12:00:%1 worker %2 recieved the `job` from @queue/main, "
                                    "see https://example.org/x and **retry** it\n")
                         .arg(line % 60)
                         .arg(line);
        EditorComposer composer(QString(), services.composer());
        composer.showWindow();
        if (!QTest::qWaitForWindowExposed(composer.panel()))
            std::fprintf(stderr, "The window was never shown; the figure below does not count.\n");
        PromptHighlighter *highlighter = composer.surface().editingAids()->highlighter();
        QElapsedTimer timer;
        timer.start();
        composer.panel()->textView()->insertTypedText(paste);
        const double pasted = double(timer.nsecsElapsed()) / 1e6;
        QList<double> turns;
        timer.restart();
        QElapsedTimer total;
        total.start();
        while (highlighter->isPending()) {
            QElapsedTimer turn;
            turn.start();
            QCoreApplication::processEvents();
            turns.append(double(turn.nsecsElapsed()) / 1e6);
        }
        std::printf("%-44s %8.1f ms (%lld characters)\n", "1 MB paste: the insertion itself", pasted,
                    static_cast<long long>(paste.size()));
        std::printf("%-44s %8.1f ms\n", "1 MB paste: first turn after it (layout)", turns.value(0));
        turns.removeFirst();
        BenchStatistics::of(turns).print("1 MB paste: later turns while highlighting");
        std::printf("%-44s %8.1f ms\n", "1 MB paste: highlighted and spelled after",
                    double(total.nsecsElapsed()) / 1e6);
        // Typing on at the end of the pasted text: the key, the highlighting and the height.
        QList<double> typing;
        for (const QChar character : QStringLiteral("and the rest")) {
            QElapsedTimer key;
            key.start();
            QTest::keyClick(composer.panel()->textView(), character.toLatin1());
            while (highlighter->isPending())
                QCoreApplication::processEvents();
            QCoreApplication::processEvents();
            typing.append(double(key.nsecsElapsed()) / 1e6);
        }
        BenchStatistics::of(typing).print("1 MB paste: key typed after it");

        // What the same paste costs a plain text edit of the same font, without the composer and
        // its aids: Qt's own share of the figures above.
        QTextEdit plain;
        plain.setFont(composer.panel()->textView()->font());
        plain.resize(composer.panel()->textView()->size());
        plain.show();
        if (!QTest::qWaitForWindowExposed(&plain))
            std::fprintf(stderr, "The window was never shown; the figure below does not count.\n");
        timer.restart();
        plain.textCursor().insertText(paste);
        std::printf("%-44s %8.1f ms\n", "1 MB paste into a plain QTextEdit",
                    double(timer.nsecsElapsed()) / 1e6);
        timer.restart();
        QCoreApplication::processEvents();
        std::printf("%-44s %8.1f ms\n", "  and its first turn after", double(timer.nsecsElapsed()) / 1e6);
        timer.restart();
        plain.document()->size();
        std::printf("%-44s %8.1f ms\n", "  and measuring its whole height",
                    double(timer.nsecsElapsed()) / 1e6);
    }
    return 0;
}
