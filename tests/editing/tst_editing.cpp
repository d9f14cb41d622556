// The editing aids' logic without a window: fuzzy ranking, the project listing (real git, real
// folders), the prompt history on disk, Up/Down browsing, the Markdown scanner, the `@` token,
// find and replace, and spelling with the installed Hunspell dictionary.
#include "core/TarvelError.h"
#include "core/UserDefaults.h"
#include "editing/FuzzyMatcher.h"
#include "editing/HunspellSpellChecker.h"
#include "editing/MarkdownScanner.h"
#include "editing/MentionToken.h"
#include "editing/PathIndex.h"
#include "editing/ProjectFiles.h"
#include "editing/PromptHistory.h"
#include "editing/PromptHistoryBrowser.h"
#include "editing/SpellCheckService.h"
#include "editing/TextSearch.h"
#include "support/ManualClock.h"
#include "support/TestEnvironment.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using MarkdownScanner::SpanKind;

namespace {

const QDateTime kMorning(QDate(2026, 3, 1), QTime(9, 0), Qt::UTC);

void writeFile(const QString &path, const QByteArray &content = {})
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

QString git(const QString &folder, const QStringList &arguments)
{
    QProcess process;
    process.setWorkingDirectory(folder);
    process.start(QStringLiteral("git"),
                  QStringList{QStringLiteral("-c"), QStringLiteral("user.name=T"), QStringLiteral("-c"),
                              QStringLiteral("user.email=t@e.invalid")} +
                      arguments);
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput());
}

QStringList paths(const ProjectFiles::Listing &listing)
{
    QStringList list;
    for (const PathIndex::Entry &entry : listing.entries)
        list.append(entry.isFolder ? entry.path + u'/' : entry.path);
    list.sort();
    return list;
}

QStringList kinds(QStringView line, MarkdownScanner::LineState state = {})
{
    QStringList found;
    for (const MarkdownScanner::Span &span : MarkdownScanner::scan(line, state).spans)
        found.append(QStringLiteral("%1:%2").arg(int(span.kind)).arg(line.mid(span.start, span.length)));
    return found;
}

QString span(SpanKind kind, const QString &text)
{
    return QStringLiteral("%1:%2").arg(int(kind)).arg(text);
}

QStringList words(QStringView line)
{
    QStringList found;
    for (const MarkdownScanner::Word &word : MarkdownScanner::scan(line, {}).words)
        found.append(line.mid(word.start, word.length).toString());
    return found;
}

// A word list instead of a dictionary.
class WordList final : public SpellChecker {
public:
    explicit WordList(QStringList words)
        : m_words(std::move(words))
    {
    }
    bool isCorrect(const QString &word) override { return m_words.contains(word.toLower()); }
    QStringList suggestions(const QString &) override { return {}; }
    void addWord(const QString &word) override { m_words.append(word.toLower()); }
    QString name() const override { return QStringLiteral("list"); }

private:
    QStringList m_words;
};

} // namespace

class EditingTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fuzzyMatchingPrefersNamesAndWordStarts()
    {
        PathIndex index({{QStringLiteral("src/parser/lexer.cpp")},
                         {QStringLiteral("src/parser/lexer.h")},
                         {QStringLiteral("docs/lexicon/index.md")},
                         {QStringLiteral("tools/flex_extra.py")},
                         {QStringLiteral("src/parser"), true},
                         {QStringLiteral("src/ParserConfig.cpp")}},
                        false);
        const auto best = [&index](const QString &query) {
            QStringList found;
            for (const PathIndex::Match &match : index.search(query, 3))
                found.append(index.entry(match.entry).path);
            return found;
        };
        QCOMPARE(best(QStringLiteral("lex")).mid(0, 2),
                 (QStringList{QStringLiteral("src/parser/lexer.cpp"), QStringLiteral("src/parser/lexer.h")}));
        QCOMPARE(best(QStringLiteral("lexcpp")).value(0), QStringLiteral("src/parser/lexer.cpp"));
        QCOMPARE(best(QStringLiteral("pc")).value(0), QStringLiteral("src/ParserConfig.cpp")); // camel starts
        QCOMPARE(best(QStringLiteral("srcpars")).value(0), QStringLiteral("src/parser"));
        QVERIFY(best(QStringLiteral("zz")).isEmpty());
        // Narrowing from an earlier query must not lose what a shorter query would find.
        QCOMPARE(best(QStringLiteral("l")).size(), 3);
        QCOMPARE(best(QStringLiteral("le")).size(), 3);
        QVERIFY(best(QStringLiteral("x")).contains(QStringLiteral("tools/flex_extra.py")));
        // An empty query offers the top level first.
        QCOMPARE(index.entry(index.search(QString(), 1).value(0).entry).path.count(u'/'), 1);

        QList<qsizetype> positions;
        QVERIFY(
            FuzzyMatcher::score(QStringLiteral("LEX"), QStringLiteral("src/parser/lexer.cpp"), &positions));
        QCOMPARE(positions, (QList<qsizetype>{11, 12, 13}));
    }

    void gitListingIsWhatGitWouldCommitPlusFolders()
    {
        TestEnvironment environment;
        const QString repo = environment.path(QStringLiteral("repo"));
        writeFile(repo + QStringLiteral("/src/main.cpp"));
        writeFile(repo + QStringLiteral("/src/new file.cpp")); // untracked, with a space
        writeFile(repo + QStringLiteral("/build/out.o"));      // ignored
        writeFile(repo + QStringLiteral("/.gitignore"), "build/\n");
        git(repo, {QStringLiteral("init"), QStringLiteral("-q")});
        git(repo, {QStringLiteral("add"), QStringLiteral("src/main.cpp"), QStringLiteral(".gitignore")});
        // An editor that git started hands its variables on; they name another repository.
        environment.set("GIT_DIR", environment.path(QStringLiteral("elsewhere/.git")));
        environment.set("GIT_INDEX_FILE", environment.path(QStringLiteral("elsewhere/index.lock")));

        const ProjectFiles::Listing listing = ProjectFiles::list(repo);
        QVERIFY(listing.fromGit);
        QVERIFY(!listing.truncated);
        QCOMPARE(paths(listing),
                 (QStringList{QStringLiteral(".gitignore"), QStringLiteral("src/"),
                              QStringLiteral("src/main.cpp"), QStringLiteral("src/new file.cpp")}));
        // From a folder inside the work tree, paths are relative to it.
        QCOMPARE(paths(ProjectFiles::list(repo + QStringLiteral("/src"))),
                 (QStringList{QStringLiteral("main.cpp"), QStringLiteral("new file.cpp")}));
        // The bound counts folders too, and says the list is short.
        const ProjectFiles::Listing bounded = ProjectFiles::list(repo, 2);
        QCOMPARE(bounded.entries.size(), 2);
        QVERIFY(bounded.truncated);
    }

    void walkSkipsHiddenAndBuildFoldersAndNeverFails()
    {
        TestEnvironment environment;
        const QString folder = environment.path(QStringLiteral("plain"));
        writeFile(folder + QStringLiteral("/notes.md"));
        writeFile(folder + QStringLiteral("/a/b/deep.txt"));
        writeFile(folder + QStringLiteral("/.cache/x"));
        writeFile(folder + QStringLiteral("/node_modules/pkg/index.js"));
        writeFile(folder + QStringLiteral("/build/out.o"));
        QDir().mkpath(folder + QStringLiteral("/locked"));
        writeFile(folder + QStringLiteral("/locked/secret"));
        QFile::setPermissions(folder + QStringLiteral("/locked"), QFileDevice::Permissions());
        environment.set("PATH", QString()); // no git either way

        const ProjectFiles::Listing listing = ProjectFiles::list(folder);
        QVERIFY(!listing.fromGit);
        QStringList expected{QStringLiteral("a/"), QStringLiteral("a/b/"), QStringLiteral("a/b/deep.txt"),
                             QStringLiteral("locked/"), QStringLiteral("notes.md")};
        if (::geteuid() == 0) // root reads the locked folder anyway
            expected.insert(4, QStringLiteral("locked/secret"));
        QCOMPARE(paths(listing), expected);
        // Breadth first: a bound keeps the shallow entries.
        QCOMPARE(paths(ProjectFiles::list(folder, 3)),
                 (QStringList{QStringLiteral("a/"), QStringLiteral("locked/"), QStringLiteral("notes.md")}));
        QVERIFY(ProjectFiles::list(environment.path(QStringLiteral("gone"))).entries.isEmpty());
        QFile::setPermissions(folder + QStringLiteral("/locked"),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

        // In the background, cancelled at once: no result, and nothing left running.
        QFuture<std::shared_ptr<PathIndex>> future = ProjectFiles::indexInBackground(folder);
        future.cancel();
        future.waitForFinished();
        QCOMPARE(future.resultCount(), 0);
        QCOMPARE(ProjectFiles::indexInBackground(folder).result()->size(), 6);
    }

    void historyKeepsSubmittedPromptsOnDiskWithinItsBounds()
    {
        // Thousands of whole-file writes: in memory where there is such a file system, each
        // write's sync to disk is all they would measure.
        QTemporaryDir root(QFileInfo(QStringLiteral("/dev/shm")).isWritable()
                               ? QStringLiteral("/dev/shm/tst_editing-XXXXXX")
                               : QDir::tempPath() + QStringLiteral("/tst_editing-XXXXXX"));
        ManualClock clock(kMorning);
        const QString file = root.filePath(QStringLiteral("History/prompts.json"));
        PromptHistory history(file, clock);
        history.record(QStringLiteral("first prompt"), QStringLiteral("/projects/app/"));
        clock.advance(60);
        history.record(QStringLiteral("other project"), QStringLiteral("/projects/lib"));
        history.record(QStringLiteral("   \n"), QStringLiteral("/projects/app")); // blank: not kept
        clock.advance(60);
        history.record(QStringLiteral("first prompt"), QStringLiteral("/projects/app")); // again: moves up
        QCOMPARE(QFileInfo(file).permissions() & 0x0777, QFile::ReadUser | QFile::WriteUser);
        QCOMPARE(QFileInfo(QFileInfo(file).path()).permissions() & 0x0777,
                 QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);

        // Another store on the same file is a restart: everything reads back, newest first.
        const PromptHistory reread(file, clock);
        const QList<PromptHistoryEntry> entries = reread.entries();
        QCOMPARE(entries.size(), 2);
        QCOMPARE(entries.at(0), (PromptHistoryEntry{QStringLiteral("first prompt"),
                                                    QStringLiteral("/projects/app"), clock.now()}));
        QCOMPARE(reread.prompts(QStringLiteral("/projects/lib")),
                 QStringList{QStringLiteral("other project")});
        QVERIFY(reread.prompts(std::nullopt).isEmpty());

        // 2,000 submissions keep the newest 1,000.
        for (int number = 0; number < 2000; ++number)
            history.record(QStringLiteral("prompt %1").arg(number), QStringLiteral("/projects/app"));
        QCOMPARE(PromptHistory(file, clock).entries().size(), PromptHistory::maximumEntries);
        QCOMPARE(history.entries().constFirst().text, QStringLiteral("prompt 1999"));
        QCOMPARE(history.entries().constLast().text, QStringLiteral("prompt 1000"));
        // Large prompts keep the file within its bytes, the newest kept; one over the bound is not kept.
        const QString large(400 * 1024, u'x');
        for (int number = 0; number < 20; ++number)
            history.record(large + QString::number(number), QStringLiteral("/projects/app"));
        QVERIFY(QFileInfo(file).size() <= PromptHistory::maximumBytes);
        QVERIFY(history.entries().constFirst().text.endsWith(u"19"));
        history.record(QString(PromptHistory::maximumBytes + 1, u'y'), std::nullopt);
        QVERIFY(history.entries().constFirst().text.endsWith(u"19"));

        history.clear();
        QVERIFY(!QFile::exists(file));
        QVERIFY(PromptHistory(file, clock).entries().isEmpty());
    }

    void damagedHistoryIsSetAsideAndBadEntriesSkipped()
    {
        QTemporaryDir root;
        ManualClock clock(kMorning);
        const QString file = root.filePath(QStringLiteral("prompts.json"));
        writeFile(file, R"({"entries":[{"text":"kept","date":"2026-01-01T10:00:00Z"},
            {"text":7,"date":"2026-01-01T10:00:00Z"},"junk",{"text":"no date"},
            {"text":"with cwd","cwd":"/a/b/../c","date":"2026-01-02T10:00:00Z"}]})");
        PromptHistory history(file, clock);
        QCOMPARE(history.entries().size(), 2);
        QCOMPARE(history.entries().at(0).cwd, QStringLiteral("/a/c"));

        writeFile(file, "{ not json");
        history.record(QStringLiteral("after the damage"), std::nullopt);
        QCOMPARE(history.entries().size(), 1);
        QCOMPARE(QDir(root.path()).entryList({QStringLiteral("prompts-unreadable-*.json")}).size(), 1);
    }

    void historySearchIsFuzzyWithThisFoldersPromptsFirst()
    {
        QTemporaryDir root;
        ManualClock clock(kMorning);
        PromptHistory history(root.filePath(QStringLiteral("prompts.json")), clock);
        const QString here = QStringLiteral("/projects/app");
        history.record(QStringLiteral("Fix the failing parser tests"), QStringLiteral("/projects/lib"));
        history.record(QStringLiteral("Refactor the parser module"), here);
        history.record(QStringLiteral("Write release notes"), here);
        history.record(QStringLiteral("Update the dependencies and run the test suite again"), here);
        const auto texts = [&](const QString &query) {
            QStringList found;
            for (const PromptHistoryEntry &entry : history.search(query, here, 10))
                found.append(entry.text);
            return found;
        };
        QCOMPARE(texts(QStringLiteral("parser")),
                 (QStringList{QStringLiteral("Refactor the parser module"),
                              QStringLiteral("Fix the failing parser tests")}));
        QCOMPARE(texts(QStringLiteral("fix pars")),
                 QStringList{QStringLiteral("Fix the failing parser tests")});
        QCOMPARE(texts(QStringLiteral("relnotes")), QStringList{QStringLiteral("Write release notes")});
        QCOMPARE(texts(QString()).size(), 4);
        QCOMPARE(texts(QString()).constLast(), QStringLiteral("Fix the failing parser tests"));
    }

    // Up and Down through a folder's prompts run in a real composer in tst_editingviews; here, a
    // recalled prompt that was edited ends the browsing, so neither key replaces the edit.
    void browsingEndsWhenARecalledPromptIsEdited()
    {
        PromptHistoryBrowser browser;
        browser.setPrompts({QStringLiteral("newest"), QStringLiteral("older")});
        QCOMPARE(browser.older(QString()), QStringLiteral("newest"));
        QVERIFY(browser.isBrowsing());
        QCOMPARE(browser.older(QStringLiteral("newest, edited")), std::nullopt);
        QVERIFY(!browser.isBrowsing());
        QCOMPARE(browser.newer(QStringLiteral("newest")), std::nullopt);
    }

    void markdownScannerFindsTheConstructsTheAssistantsRead()
    {
        QCOMPARE(kinds(u"## Plan `x`"), (QStringList{span(SpanKind::heading, QStringLiteral("## Plan `x`")),
                                                     span(SpanKind::inlineCode, QStringLiteral("`x`"))}));
        QCOMPARE(kinds(u"- [x] **done** and *this*"),
                 (QStringList{span(SpanKind::listMarker, QStringLiteral("- [x]")),
                              span(SpanKind::strong, QStringLiteral("**done**")),
                              span(SpanKind::emphasis, QStringLiteral("*this*"))}));
        QCOMPARE(kinds(u"> see [docs](https://x.org/a) or www.y.org."),
                 (QStringList{span(SpanKind::quoteMarker, QStringLiteral(">")),
                              span(SpanKind::linkText, QStringLiteral("[docs]")),
                              span(SpanKind::address, QStringLiteral("(https://x.org/a)")),
                              span(SpanKind::address, QStringLiteral("www.y.org"))}));
        // snake_case and paths are no emphasis; a mention ends before its punctuation; e-mail is none.
        QCOMPARE(kinds(u"call my_func_name in src/__init__.py, ask @src/app.cpp. mail a@b.c"),
                 (QStringList{span(SpanKind::mention, QStringLiteral("@src/app.cpp")),
                              span(SpanKind::path, QStringLiteral("src/__init__.py")),
                              span(SpanKind::path, QStringLiteral("a@b.c"))}));
        QCOMPARE(kinds(u"12. item @\"my file.txt\" ``a ` b``"),
                 (QStringList{span(SpanKind::listMarker, QStringLiteral("12.")),
                              span(SpanKind::mention, QStringLiteral("@\"my file.txt\"")),
                              span(SpanKind::inlineCode, QStringLiteral("``a ` b``"))}));
        QCOMPARE(kinds(u"unclosed `tick and *star"), QStringList{});

        // A fence holds its state until a fence of its kind and length closes it.
        const MarkdownScanner::LineResult open = MarkdownScanner::scan(u"````python", {});
        QVERIFY(open.next.isInFence());
        QCOMPARE(MarkdownScanner::LineState::fromInt(open.next.toInt()), open.next);
        QCOMPARE(kinds(u"# not a heading *here*", open.next),
                 QStringList{span(SpanKind::codeBlock, QStringLiteral("# not a heading *here*"))});
        QVERIFY(MarkdownScanner::scan(u"```", open.next).next.isInFence());
        QVERIFY(MarkdownScanner::scan(u"~~~~", open.next).next.isInFence());
        QVERIFY(!MarkdownScanner::scan(u"  `````  ", open.next).next.isInFence());
        QVERIFY(MarkdownScanner::scan(u"```", open.next).words.isEmpty());

        // Spelling sees prose only: no code, paths, mentions, addresses, identifiers or acronyms.
        QCOMPARE(
            words(u"Teh `codde` in src/mian.c by @bbob at https://exampel.com: don't fooBar NASA x_y v2 I"),
            (QStringList{QStringLiteral("Teh"), QStringLiteral("in"), QStringLiteral("by"),
                         QStringLiteral("at"), QStringLiteral("don't"), QStringLiteral("I")}));
    }

    void mentionTokenAndItsInsertion()
    {
        using MentionToken::Token;
        QCOMPARE(MentionToken::at(u"see @src/pa", 11), (Token{4, 7, QStringLiteral("src/pa")}));
        QCOMPARE(MentionToken::at(u"see @src/pa more", 8), (Token{4, 7, QStringLiteral("src")}));
        QCOMPARE(MentionToken::at(u"(@x", 3), (Token{1, 2, QStringLiteral("x")}));
        QCOMPARE(MentionToken::at(u"@\"my fi", 7), (Token{0, 7, QStringLiteral("my fi")}));
        QCOMPARE(MentionToken::at(u"mail a@b", 8), std::nullopt);
        QCOMPARE(MentionToken::at(u"@src done", 9), std::nullopt);
        QCOMPARE(MentionToken::insertion(QStringLiteral("src"), true), QStringLiteral("@src/"));
        QCOMPARE(MentionToken::insertion(QStringLiteral("my file.txt"), false),
                 QStringLiteral("@\"my file.txt\""));
    }

    void findAllHonoursCaseAndWholeWords()
    {
        const QString text = QStringLiteral("Error: error_code ERROR errors error");
        QCOMPARE(TextSearch::findAll(text, u"error", {}).size(), 5);
        QCOMPARE(TextSearch::findAll(text, u"error", {true, false}).size(), 3);
        QCOMPARE(TextSearch::findAll(text, u"error", {false, true}),
                 (QList<TextSearch::Match>{{0, 5}, {18, 5}, {31, 5}}));
        QCOMPARE(TextSearch::findAll(u"aaaa", u"aa", {}).size(), 2); // not overlapping
        const QList<TextSearch::Match> matches{{2, 1}, {8, 1}};
        QCOMPARE(TextSearch::nextMatch(matches, 3, false), 1);
        QCOMPARE(TextSearch::nextMatch(matches, 9, false), 0); // wraps
        QCOMPARE(TextSearch::nextMatch(matches, 2, true), 1);
    }

    void spellingWithTheInstalledDictionaryAndThePersonalList()
    {
        TestEnvironment environment;
        const QList<SpellDictionary> installed = SpellDictionaries::installed();
        const std::optional<SpellDictionary> english =
            SpellDictionaries::forLocale(installed, QLocale(QLocale::C));
        if (!english)
            QSKIP("No English Hunspell dictionary is installed (hunspell-en-us).");
        QCOMPARE(english->name, QStringLiteral("en_US"));
        QCOMPARE(SpellDictionaries::forLocale(installed, QLocale(QStringLiteral("en_NZ")))->name.left(3),
                 QStringLiteral("en_"));
        QCOMPARE(SpellDictionaries::forLocale(installed, QLocale(QStringLiteral("fi_FI"))), std::nullopt);
        HunspellSpellChecker checker(*english);
        QVERIFY(checker.isCorrect(QStringLiteral("receive")));
        QVERIFY(checker.isCorrect(QStringLiteral("don\u2019t")));
        QVERIFY(!checker.isCorrect(QStringLiteral("recieve")));
        QVERIFY(checker.suggestions(QStringLiteral("recieve")).contains(QStringLiteral("receive")));
        QVERIFY(checker.isCorrect(QStringLiteral("\u65e5\u672c"))); // not the dictionary's to judge
        QVERIFY_THROWS_EXCEPTION(
            TarvelError,
            HunspellSpellChecker({QStringLiteral("none"), environment.path(QStringLiteral("x.aff")),
                                  environment.path(QStringLiteral("x.dic"))}));

        UserDefaults defaults(environment.path(QStringLiteral("Tarvel.conf")));
        defaults.setString(SpellCheckService::dictionaryKey, english->name);
        SpellCheckService service(defaults);
        QSignalSpy changed(&service, &SpellCheckService::checkerChanged);
        QVERIFY(service.isCorrect(QStringLiteral("tarvelish"))); // nothing loaded yet: no judgement
        service.prepare();
        QVERIFY(changed.wait(10000));
        QVERIFY(!service.isCorrect(QStringLiteral("tarvelish")));
        service.addToPersonalDictionary(QStringLiteral("tarvelish"));
        QVERIFY(service.isCorrect(QStringLiteral("tarvelish")));
        QCOMPARE(QFileInfo(service.personalWordsPath()).permissions() & 0x0077, QFileDevice::Permissions());

        // A new service (the next start) loads the personal word with the dictionary.
        SpellCheckService next(defaults);
        next.prepare();
        QTRY_VERIFY_WITH_TIMEOUT(next.isActive(), 10000);
        QVERIFY(next.isCorrect(QStringLiteral("tarvelish")));
        // Composers on screen hold the dictionary; it goes a while after the last one left, and
        // comes back with the next.
        next.setReleaseDelay(std::chrono::milliseconds(50));
        next.hold();
        next.hold();
        next.letGo();
        QTest::qWait(200);
        QVERIFY(next.isActive());
        next.letGo();
        QTRY_VERIFY(!next.isActive());
        next.hold();
        QTRY_VERIFY_WITH_TIMEOUT(next.isActive(), 10000);
        QVERIFY(!next.isCorrect(QStringLiteral("recieve")) && next.isCorrect(QStringLiteral("tarvelish")));
        defaults.setString(SpellCheckService::dictionaryKey, SpellCheckService::offValue);
        QVERIFY(!next.isActive()); // follows the setting
        QVERIFY(next.isCorrect(QStringLiteral("recieve")));

        next.setChecker(std::make_unique<WordList>(QStringList{QStringLiteral("fine")}));
        QVERIFY(next.isCorrect(QStringLiteral("Fine")) && !next.isCorrect(QStringLiteral("receive")));
    }
};

QTEST_GUILESS_MAIN(EditingTest)
#include "tst_editing.moc"
