#include "editing/PromptHistory.h"

#include "core/Clock.h"
#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"
#include "editing/FuzzyMatcher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>
#include <numeric>

namespace {

const QString kEntries = QStringLiteral("entries");
const QString kText = QStringLiteral("text");
const QString kCwd = QStringLiteral("cwd");
const QString kDate = QStringLiteral("date");
const QString kVersion = QStringLiteral("version");
// What the pretty-printed file adds around an entry's compact form: indentation, line breaks.
constexpr qsizetype kEntryLayoutBytes = 96;
constexpr qsizetype kFileLayoutBytes = 64;
// Search looks at the start of long prompts only: a subsequence is found in any long text.
constexpr qsizetype kSearchedLength = 4000;
// Characters a search term may skip between two of its own, inside a word.
constexpr qsizetype kLongestGap = 3;
// A term found as typed scores like a run of consecutive characters.
constexpr int kContiguousCharacterScore = 28;
constexpr int kFuzzyAttempts = 4;

std::optional<QString> normalizedFolder(const std::optional<QString> &cwd)
{
    if (!cwd || cwd->isEmpty())
        return std::nullopt;
    return QDir::cleanPath(*cwd);
}

QJsonObject toJson(const PromptHistoryEntry &entry)
{
    QJsonObject object{{kText, entry.text}, {kDate, JSONCoding::encodeDate(entry.date)}};
    JSONCoding::insertOptional(object, kCwd, entry.cwd);
    return object;
}

// What an entry adds to the file: its compact form, the slashes the file escapes, the layout.
qsizetype encodedSize(const PromptHistoryEntry &entry)
{
    const QByteArray compact = QJsonDocument(toJson(entry)).toJson(QJsonDocument::Compact);
    return compact.size() + compact.count('/') + kEntryLayoutBytes;
}

// Whether each matched character after the first follows the one before closely or begins a
// word ("relnotes" for "release notes"): a long prompt holds almost any letters in order.
bool isCloseMatch(QStringView text, const QList<qsizetype> &positions)
{
    for (qsizetype index = 1; index < positions.size(); ++index) {
        if (positions.at(index) - positions.at(index - 1) > kLongestGap + 1 &&
            !FuzzyMatcher::isWordStart(text, positions.at(index)))
            return false;
    }
    return true;
}

// A search term's score in a prompt: as typed first, then as a close fuzzy match, looked for a
// few times further on when the first one found is spread too thinly.
std::optional<int> termScore(QStringView term, QStringView text, QStringView folded)
{
    if (const qsizetype at = folded.indexOf(term); at >= 0)
        return int(term.size()) * kContiguousCharacterScore + (FuzzyMatcher::isWordStart(text, at) ? 16 : 0);
    qsizetype offset = 0;
    for (int attempt = 0; attempt < kFuzzyAttempts && offset < folded.size(); ++attempt) {
        QList<qsizetype> positions;
        const std::optional<int> score =
            FuzzyMatcher::score(term, text.mid(offset), folded.mid(offset), &positions);
        if (!score)
            return std::nullopt;
        for (qsizetype &position : positions)
            position += offset;
        if (isCloseMatch(text, positions))
            return score;
        offset = positions.constFirst() + 1;
    }
    return std::nullopt;
}

} // namespace

PromptHistory::PromptHistory()
    : PromptHistory(QDir(FileStore::baseDirectory()).filePath(QStringLiteral("History/prompts.json")),
                    Clock::system())
{
}

PromptHistory::PromptHistory(QString path, const Clock &clock)
    : m_path(std::move(path))
    , m_clock(clock)
{
}

QList<PromptHistoryEntry> PromptHistory::decode(const QByteArray &data)
{
    const QJsonObject object = JSONCoding::decodeObject(data);
    QList<PromptHistoryEntry> entries;
    for (const QJsonValue &value : JSONCoding::requiredArray(object, kEntries)) {
        // One damaged entry costs that entry, not the history.
        if (!value.isObject())
            continue;
        const QJsonObject fields = value.toObject();
        try {
            PromptHistoryEntry entry{JSONCoding::requiredString(fields, kText),
                                     normalizedFolder(JSONCoding::optionalString(fields, kCwd)),
                                     JSONCoding::requiredDate(fields, kDate)};
            if (!entry.text.trimmed().isEmpty())
                entries.append(std::move(entry));
        } catch (const DecodingError &) {
        }
    }
    return bounded(std::move(entries));
}

QByteArray PromptHistory::encode(const QList<PromptHistoryEntry> &oldestFirst)
{
    QJsonArray list;
    for (const PromptHistoryEntry &entry : oldestFirst)
        list.append(toJson(entry));
    return JSONCoding::encode(QJsonObject{{kVersion, 1}, {kEntries, list}});
}

QList<PromptHistoryEntry> PromptHistory::bounded(QList<PromptHistoryEntry> oldestFirst)
{
    qsizetype bytes = kFileLayoutBytes;
    QList<PromptHistoryEntry> kept;
    for (qsizetype index = oldestFirst.size() - 1; index >= 0 && kept.size() < maximumEntries; --index) {
        const qsizetype size = encodedSize(oldestFirst.at(index));
        // One prompt larger than the whole store is left out; it must not push out the rest.
        if (kFileLayoutBytes + size > maximumBytes)
            continue;
        if (bytes + size > maximumBytes)
            break;
        bytes += size;
        kept.append(oldestFirst.at(index));
    }
    std::reverse(kept.begin(), kept.end());
    return kept;
}

void PromptHistory::load() const
{
    const QFileInfo file(m_path);
    if (!file.exists()) {
        m_entries.clear();
        m_sizes.clear();
        m_loadedModified = QDateTime();
        m_loadedSize = -1;
        return;
    }
    if (file.lastModified() == m_loadedModified && file.size() == m_loadedSize)
        return;
    try {
        m_entries = decode(DataFile::read(m_path));
        m_sizes.clear();
        for (const PromptHistoryEntry &entry : std::as_const(m_entries))
            m_sizes.append(encodedSize(entry));
    } catch (const DecodingError &) {
        // Kept under another name: the next prompt must not write over what may still be read.
        const QString aside = QFileInfo(m_path).dir().filePath(
            QStringLiteral("prompts-unreadable-%1.json")
                .arg(m_clock.now().toString(QStringLiteral("yyyyMMdd-HHmmss"))));
        QFile::rename(m_path, aside);
        m_entries.clear();
        m_sizes.clear();
    } catch (const TarvelError &) {
        m_entries.clear();
        m_sizes.clear();
        return;
    }
    const QFileInfo reread(m_path);
    m_loadedModified = reread.lastModified();
    m_loadedSize = reread.exists() ? reread.size() : -1;
}

void PromptHistory::save(QList<PromptHistoryEntry> oldestFirst, QList<qsizetype> sizes)
{
    FileStore::ensurePrivateFolder(QFileInfo(m_path).path());
    QByteArray data = encode(oldestFirst);
    // The estimate keeps this rare: drop the oldest until the written form fits.
    while (data.size() > maximumBytes && !oldestFirst.isEmpty()) {
        oldestFirst.removeFirst();
        sizes.removeFirst();
        data = encode(oldestFirst);
    }
    DataFile::write(m_path, data, DataFile::privatePermissions);
    m_entries = std::move(oldestFirst);
    m_sizes = std::move(sizes);
    const QFileInfo written(m_path);
    m_loadedModified = written.lastModified();
    m_loadedSize = written.size();
}

void PromptHistory::record(const QString &text, const std::optional<QString> &cwd)
{
    if (text.trimmed().isEmpty())
        return;
    load();
    PromptHistoryEntry entry{text, normalizedFolder(cwd), m_clock.now()};
    const qsizetype size = encodedSize(entry);
    // Larger than the whole store: keeping it would push out everything else.
    if (kFileLayoutBytes + size > maximumBytes)
        return;
    QList<PromptHistoryEntry> entries = m_entries;
    QList<qsizetype> sizes = m_sizes;
    for (qsizetype index = entries.size() - 1; index >= 0; --index) {
        if (entries.at(index).text == entry.text && entries.at(index).cwd == entry.cwd) {
            entries.removeAt(index);
            sizes.removeAt(index);
        }
    }
    entries.append(std::move(entry));
    sizes.append(size);
    qsizetype bytes = std::accumulate(sizes.cbegin(), sizes.cend(), kFileLayoutBytes);
    qsizetype dropped = 0;
    while (entries.size() - dropped > maximumEntries || bytes > maximumBytes)
        bytes -= sizes.at(dropped++);
    entries.remove(0, dropped);
    sizes.remove(0, dropped);
    save(std::move(entries), std::move(sizes));
}

void PromptHistory::clear()
{
    DataFile::removeIfExists(m_path);
    m_entries.clear();
    m_sizes.clear();
    m_loadedModified = QDateTime();
    m_loadedSize = -1;
}

QList<PromptHistoryEntry> PromptHistory::entries() const
{
    load();
    QList<PromptHistoryEntry> newestFirst(m_entries.crbegin(), m_entries.crend());
    return newestFirst;
}

QStringList PromptHistory::prompts(const std::optional<QString> &cwd) const
{
    const std::optional<QString> folder = normalizedFolder(cwd);
    QStringList texts;
    for (const PromptHistoryEntry &entry : entries()) {
        if (entry.cwd == folder)
            texts.append(entry.text);
    }
    return texts;
}

QList<PromptHistoryEntry> PromptHistory::search(QStringView query, const std::optional<QString> &cwd,
                                                qsizetype limit) const
{
    const std::optional<QString> folder = normalizedFolder(cwd);
    QStringList terms;
    for (const QString &word : query.toString().split(u' ', Qt::SkipEmptyParts))
        terms.append(FuzzyMatcher::foldedQuery(word));
    struct Scored {
        const PromptHistoryEntry *entry;
        bool sameFolder;
        int score;
        qsizetype age;
    };
    const QList<PromptHistoryEntry> newestFirst = entries();
    QList<Scored> found;
    for (qsizetype age = 0; age < newestFirst.size(); ++age) {
        const PromptHistoryEntry &entry = newestFirst.at(age);
        const QStringView searched = QStringView(entry.text).left(kSearchedLength);
        const QString folded = FuzzyMatcher::foldedCandidate(searched);
        int total = 0;
        bool matches = true;
        for (const QString &term : std::as_const(terms)) {
            const std::optional<int> score = termScore(term, searched, folded);
            if (!score) {
                matches = false;
                break;
            }
            total += *score;
        }
        if (matches)
            found.append({&entry, folder && entry.cwd == folder, total, age});
    }
    std::stable_sort(found.begin(), found.end(), [](const Scored &left, const Scored &right) {
        if (left.sameFolder != right.sameFolder)
            return left.sameFolder;
        if (left.score != right.score)
            return left.score > right.score;
        return left.age < right.age;
    });
    QList<PromptHistoryEntry> result;
    for (qsizetype index = 0; index < found.size() && index < limit; ++index)
        result.append(*found.at(index).entry);
    return result;
}
