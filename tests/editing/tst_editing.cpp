// The editing aids' logic without a window: fuzzy ranking, the project listing (real git, real
// folders), the prompt history on disk, the Markdown scanner, the `@` token, find and replace,
// and spelling with the installed Hunspell dictionary.
#include "core/TarvelError.h"
#include "core/UserDefaults.h"
#include "editing/FuzzyMatcher.h"
#include "editing/HunspellSpellChecker.h"
#include "editing/MarkdownScanner.h"
#include "editing/MentionToken.h"
#include "editing/PathIndex.h"
#include "editing/ProjectFiles.h"
#include "editing/PromptHistory.h"
#include "editing/SpellCheckService.h"
#include "editing/TextSearch.h"
#include "support/ManualClock.h"
#include "support/TestEnvironment.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

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
    process.start(u"git"_s,
                  QStringList{u"-c"_s, u"user.name=T"_s, u"-c"_s, u"user.email=t@e.invalid"_s} + arguments);
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
        found.append(u"%1:%2"_s.arg(int(span.kind)).arg(line.mid(span.start, span.length)));
    return found;
}

QString span(SpanKind kind, const QString &text)
{
    return u"%1:%2"_s.arg(int(kind)).arg(text);
}

QStringList words(QStringView line)
{
    QStringList found;
    for (const MarkdownScanner::Word &word : MarkdownScanner::scan(line, {}).words)
        found.append(line.mid(word.start, word.length).toString());
    return found;
}

} // namespace

class EditingTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fuzzyMatchingPrefersNamesAndWordStarts()
    {
        PathIndex index({{u"src/parser/lexer.cpp"_s},
                         {u"src/parser/lexer.h"_s},
                         {u"docs/lexicon/index.md"_s},
                         {u"tools/flex_extra.py"_s},
                         {u"src/parser"_s, true},
                         {u"src/ParserConfig.cpp"_s}},
                        false);
        const auto best = [&index](const QString &query) {
            QStringList found;
            for (const PathIndex::Match &match : index.search(query, 3))
                found.append(index.entry(match.entry).path);
            return found;
        };
        QCOMPARE(best(u"lex"_s).mid(0, 2), (QStringList{u"src/parser/lexer.cpp"_s, u"src/parser/lexer.h"_s}));
        QCOMPARE(best(u"lexcpp"_s).value(0), u"src/parser/lexer.cpp"_s);
        QCOMPARE(best(u"pc"_s).value(0), u"src/ParserConfig.cpp"_s); // camel starts
        QCOMPARE(best(u"srcpars"_s).value(0), u"src/parser"_s);
        QVERIFY(best(u"zz"_s).isEmpty());
        // Narrowing from an earlier query must not lose what a shorter query would find.
        QCOMPARE(best(u"l"_s).size(), 3);
        QCOMPARE(best(u"le"_s).size(), 3);
        QVERIFY(best(u"x"_s).contains(u"tools/flex_extra.py"_s));
        // An empty query offers the top level first.
        QCOMPARE(index.entry(index.search(QString(), 1).value(0).entry).path.count(u'/'), 1);

        QList<qsizetype> positions;
        QVERIFY(FuzzyMatcher::score(u"LEX"_s, u"src/parser/lexer.cpp"_s, &positions));
        QCOMPARE(positions, (QList<qsizetype>{11, 12, 13}));
    }

    void gitListingIsWhatGitWouldCommitPlusFolders()
    {
        TestEnvironment environment;
        const QString repo = environment.path(u"repo"_s);
        writeFile(repo + u"/src/main.cpp"_s);
        writeFile(repo + u"/src/new file.cpp"_s); // untracked, with a space
        writeFile(repo + u"/build/out.o"_s);      // ignored
        writeFile(repo + u"/.gitignore"_s, "build/\n");
        git(repo, {u"init"_s, u"-q"_s});
        git(repo, {u"add"_s, u"src/main.cpp"_s, u".gitignore"_s});
        // An editor that git started hands its variables on; they name another repository.
        environment.set("GIT_DIR", environment.path(u"elsewhere/.git"_s));
        environment.set("GIT_INDEX_FILE", environment.path(u"elsewhere/index.lock"_s));

        const ProjectFiles::Listing listing = ProjectFiles::list(repo);
        QVERIFY(listing.fromGit);
        QVERIFY(!listing.truncated);
        QCOMPARE(paths(listing),
                 (QStringList{u".gitignore"_s, u"src/"_s, u"src/main.cpp"_s, u"src/new file.cpp"_s}));
        // From a folder inside the work tree, paths are relative to it.
        QCOMPARE(paths(ProjectFiles::list(repo + u"/src"_s)),
                 (QStringList{u"main.cpp"_s, u"new file.cpp"_s}));
        // The bound counts folders too, and says the list is short.
        const ProjectFiles::Listing bounded = ProjectFiles::list(repo, 2);
        QCOMPARE(bounded.entries.size(), 2);
        QVERIFY(bounded.truncated);
    }

    void walkSkipsHiddenAndBuildFoldersAndNeverFails()
    {
        TestEnvironment environment;
        const QString folder = environment.path(u"plain"_s);
        writeFile(folder + u"/notes.md"_s);
        writeFile(folder + u"/a/b/deep.txt"_s);
        writeFile(folder + u"/.cache/x"_s);
        writeFile(folder + u"/node_modules/pkg/index.js"_s);
        writeFile(folder + u"/build/out.o"_s);
        QDir().mkpath(folder + u"/locked"_s);
        writeFile(folder + u"/locked/secret"_s);
        QFile::setPermissions(folder + u"/locked"_s, QFileDevice::Permissions());
        environment.set("PATH", QString()); // no git either way

        const ProjectFiles::Listing listing = ProjectFiles::list(folder);
        QVERIFY(!listing.fromGit);
        QStringList expected{u"a/"_s, u"a/b/"_s, u"a/b/deep.txt"_s, u"locked/"_s, u"notes.md"_s};
        if (::geteuid() == 0) // root reads the locked folder anyway
            expected.insert(4, u"locked/secret"_s);
        QCOMPARE(paths(listing), expected);
        // Breadth first: a bound keeps the shallow entries.
        QCOMPARE(paths(ProjectFiles::list(folder, 3)), (QStringList{u"a/"_s, u"locked/"_s, u"notes.md"_s}));
        QVERIFY(ProjectFiles::list(environment.path(u"gone"_s)).entries.isEmpty());
        QFile::setPermissions(folder + u"/locked"_s,
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

        // In the background, cancelled at once: no result, and nothing left running.
        QFuture<std::shared_ptr<PathIndex>> future = ProjectFiles::indexInBackground(folder);
        future.cancel();
        future.waitForFinished();
        QCOMPARE(future.resultCount(), 0);
        QCOMPARE(ProjectFiles::indexInBackground(folder).result()->size(), 6);
    }

    void historyKeepsSubmittedPromptsOnDiskWithinItsBoundsAndSearchesThem()
    {
        // Thousands of whole-file writes: in memory where there is such a file system, each
        // write's sync to disk is all they would measure.
        QTemporaryDir root(QFileInfo(u"/dev/shm"_s).isWritable()
                               ? u"/dev/shm/tst_editing-XXXXXX"_s
                               : QDir::tempPath() + u"/tst_editing-XXXXXX"_s);
        ManualClock clock(kMorning);
        const QString file = root.filePath(u"History/prompts.json"_s);
        PromptHistory history(file, clock);
        history.record(u"first prompt"_s, u"/projects/app/"_s);
        clock.advance(60);
        history.record(u"other project"_s, u"/projects/lib"_s);
        history.record(u"   \n"_s, u"/projects/app"_s); // blank: not kept
        clock.advance(60);
        history.record(u"first prompt"_s, u"/projects/app"_s); // again: moves up
        QCOMPARE(QFileInfo(file).permissions() & 0x0777, QFile::ReadUser | QFile::WriteUser);
        QCOMPARE(QFileInfo(QFileInfo(file).path()).permissions() & 0x0777,
                 QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);

        // Another store on the same file is a restart: everything reads back, newest first.
        const PromptHistory reread(file, clock);
        const QList<PromptHistoryEntry> entries = reread.entries();
        QCOMPARE(entries.size(), 2);
        QCOMPARE(entries.at(0), (PromptHistoryEntry{u"first prompt"_s, u"/projects/app"_s, clock.now()}));
        QCOMPARE(reread.prompts(u"/projects/lib"_s), QStringList{u"other project"_s});
        QVERIFY(reread.prompts(std::nullopt).isEmpty());

        // 2,000 submissions keep the newest 1,000.
        for (int number = 0; number < 2000; ++number)
            history.record(u"prompt %1"_s.arg(number), u"/projects/app"_s);
        QCOMPARE(PromptHistory(file, clock).entries().size(), PromptHistory::maximumEntries);
        QCOMPARE(history.entries().constFirst().text, u"prompt 1999"_s);
        QCOMPARE(history.entries().constLast().text, u"prompt 1000"_s);
        // Large prompts keep the file within its bytes, the newest kept; one over the bound is not kept.
        const QString large(400 * 1024, u'x');
        for (int number = 0; number < 20; ++number)
            history.record(large + QString::number(number), u"/projects/app"_s);
        QVERIFY(QFileInfo(file).size() <= PromptHistory::maximumBytes);
        QVERIFY(history.entries().constFirst().text.endsWith(u"19"));
        history.record(QString(PromptHistory::maximumBytes + 1, u'y'), std::nullopt);
        QVERIFY(history.entries().constFirst().text.endsWith(u"19"));

        history.clear();
        QVERIFY(!QFile::exists(file));
        QVERIFY(PromptHistory(file, clock).entries().isEmpty());

        // A damaged file is set aside, bad entries are skipped.
        writeFile(file, R"({"entries":[{"text":"kept","date":"2026-01-01T10:00:00Z"},
            {"text":7,"date":"2026-01-01T10:00:00Z"},"junk",{"text":"no date"},
            {"text":"with cwd","cwd":"/a/b/../c","date":"2026-01-02T10:00:00Z"}]})");
        PromptHistory damaged(file, clock);
        QCOMPARE(damaged.entries().size(), 2);
        QCOMPARE(damaged.entries().at(0).cwd, u"/a/c"_s);

        writeFile(file, "{ not json");
        damaged.record(u"after the damage"_s, std::nullopt);
        QCOMPARE(damaged.entries().size(), 1);
        QCOMPARE(QFileInfo(file).dir().entryList({u"prompts-unreadable-*.json"_s}).size(), 1);

        // The search is fuzzy, this folder's prompts first.
        history.clear();
        const QString here = u"/projects/app"_s;
        history.record(u"Fix the failing parser tests"_s, u"/projects/lib"_s);
        history.record(u"Refactor the parser module"_s, here);
        history.record(u"Write release notes"_s, here);
        history.record(u"Update the dependencies and run the test suite again"_s, here);
        const auto texts = [&](const QString &query) {
            QStringList found;
            for (const PromptHistoryEntry &entry : history.search(query, here, 10))
                found.append(entry.text);
            return found;
        };
        QCOMPARE(texts(u"parser"_s),
                 (QStringList{u"Refactor the parser module"_s, u"Fix the failing parser tests"_s}));
        QCOMPARE(texts(u"fix pars"_s), QStringList{u"Fix the failing parser tests"_s});
        QCOMPARE(texts(u"relnotes"_s), QStringList{u"Write release notes"_s});
        QCOMPARE(texts(QString()).size(), 4);
        QCOMPARE(texts(QString()).constLast(), u"Fix the failing parser tests"_s);
    }

    void markdownScannerFindsTheConstructsTheAssistantsRead()
    {
        QCOMPARE(kinds(u"## Plan `x`"), (QStringList{span(SpanKind::heading, u"## Plan `x`"_s),
                                                     span(SpanKind::inlineCode, u"`x`"_s)}));
        QCOMPARE(kinds(u"- [x] **done** and *this*"),
                 (QStringList{span(SpanKind::listMarker, u"- [x]"_s), span(SpanKind::strong, u"**done**"_s),
                              span(SpanKind::emphasis, u"*this*"_s)}));
        QCOMPARE(kinds(u"> see [docs](https://x.org/a) or www.y.org."),
                 (QStringList{span(SpanKind::quoteMarker, u">"_s), span(SpanKind::linkText, u"[docs]"_s),
                              span(SpanKind::address, u"(https://x.org/a)"_s),
                              span(SpanKind::address, u"www.y.org"_s)}));
        // snake_case and paths are no emphasis; a mention ends before its punctuation; e-mail is none.
        QCOMPARE(kinds(u"call my_func_name in src/__init__.py, ask @src/app.cpp. mail a@b.c"),
                 (QStringList{span(SpanKind::mention, u"@src/app.cpp"_s),
                              span(SpanKind::path, u"src/__init__.py"_s), span(SpanKind::path, u"a@b.c"_s)}));
        QCOMPARE(
            kinds(u"12. item @\"my file.txt\" ``a ` b``"),
            (QStringList{span(SpanKind::listMarker, u"12."_s), span(SpanKind::mention, u"@\"my file.txt\""_s),
                         span(SpanKind::inlineCode, u"``a ` b``"_s)}));
        QCOMPARE(kinds(u"unclosed `tick and *star"), QStringList{});

        // A fence holds its state until a fence of its kind and length closes it.
        const MarkdownScanner::LineResult open = MarkdownScanner::scan(u"````python", {});
        QVERIFY(open.next.isInFence());
        QCOMPARE(MarkdownScanner::LineState::fromInt(open.next.toInt()), open.next);
        QCOMPARE(kinds(u"# not a heading *here*", open.next),
                 QStringList{span(SpanKind::codeBlock, u"# not a heading *here*"_s)});
        QVERIFY(MarkdownScanner::scan(u"```", open.next).next.isInFence());
        QVERIFY(MarkdownScanner::scan(u"~~~~", open.next).next.isInFence());
        QVERIFY(!MarkdownScanner::scan(u"  `````  ", open.next).next.isInFence());
        QVERIFY(MarkdownScanner::scan(u"```", open.next).words.isEmpty());

        // Spelling sees prose only: no code, paths, mentions, addresses, identifiers or acronyms.
        QCOMPARE(
            words(u"Teh `codde` in src/mian.c by @bbob at https://exampel.com: don't fooBar NASA x_y v2 I"),
            (QStringList{u"Teh"_s, u"in"_s, u"by"_s, u"at"_s, u"don't"_s, u"I"_s}));
    }

    void mentionTokenAndItsInsertion()
    {
        using MentionToken::Token;
        QCOMPARE(MentionToken::at(u"see @src/pa", 11), (Token{4, 7, u"src/pa"_s}));
        QCOMPARE(MentionToken::at(u"see @src/pa more", 8), (Token{4, 7, u"src"_s}));
        QCOMPARE(MentionToken::at(u"(@x", 3), (Token{1, 2, u"x"_s}));
        QCOMPARE(MentionToken::at(u"@\"my fi", 7), (Token{0, 7, u"my fi"_s}));
        QCOMPARE(MentionToken::at(u"mail a@b", 8), std::nullopt);
        QCOMPARE(MentionToken::at(u"@src done", 9), std::nullopt);
        QCOMPARE(MentionToken::insertion(u"src"_s, true), u"@src/"_s);
        QCOMPARE(MentionToken::insertion(u"my file.txt"_s, false), u"@\"my file.txt\""_s);
    }

    void findAllHonoursCaseAndWholeWords()
    {
        const QString text = u"Error: error_code ERROR errors error"_s;
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
        QCOMPARE(english->name, u"en_US"_s);
        QCOMPARE(SpellDictionaries::forLocale(installed, QLocale(u"en_NZ"_s))->name.left(3), u"en_"_s);
        QCOMPARE(SpellDictionaries::forLocale(installed, QLocale(u"fi_FI"_s)), std::nullopt);
        HunspellSpellChecker checker(*english);
        QVERIFY(checker.isCorrect(u"receive"_s));
        QVERIFY(checker.isCorrect(u"don\u2019t"_s));
        QVERIFY(!checker.isCorrect(u"recieve"_s));
        QVERIFY(checker.suggestions(u"recieve"_s).contains(u"receive"_s));
        QVERIFY(checker.isCorrect(u"\u65e5\u672c"_s)); // not the dictionary's to judge
        QVERIFY_THROWS_EXCEPTION(TarvelError, HunspellSpellChecker({u"none"_s, environment.path(u"x.aff"_s),
                                                                    environment.path(u"x.dic"_s)}));

        UserDefaults defaults(environment.path(u"Tarvel.conf"_s));
        defaults.setString(SpellCheckService::dictionaryKey, english->name);
        SpellCheckService service(defaults);
        QSignalSpy changed(&service, &SpellCheckService::checkerChanged);
        QVERIFY(service.isCorrect(u"tarvelish"_s)); // nothing loaded yet: no judgement
        service.prepare();
        QVERIFY(changed.wait(10000));
        QVERIFY(!service.isCorrect(u"tarvelish"_s));
        service.addToPersonalDictionary(u"tarvelish"_s);
        QVERIFY(service.isCorrect(u"tarvelish"_s));
        QCOMPARE(QFileInfo(service.personalWordsPath()).permissions() & 0x0077, QFileDevice::Permissions());

        // A new service (the next start) loads the personal word with the dictionary.
        SpellCheckService next(defaults);
        next.prepare();
        QTRY_VERIFY_WITH_TIMEOUT(next.isActive(), 10000);
        QVERIFY(next.isCorrect(u"tarvelish"_s));
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
        QVERIFY(!next.isCorrect(u"recieve"_s) && next.isCorrect(u"tarvelish"_s));
        defaults.setString(SpellCheckService::dictionaryKey, SpellCheckService::offValue);
        QVERIFY(!next.isActive()); // follows the setting
        QVERIFY(next.isCorrect(u"recieve"_s));
    }
};

QTEST_GUILESS_MAIN(EditingTest)
#include "tst_editing.moc"
