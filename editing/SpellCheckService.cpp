#include "editing/SpellCheckService.h"

#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"
#include "core/UserDefaults.h"
#include "editing/BackgroundWork.h"
#include "editing/HunspellSpellChecker.h"

#include <QDir>
#include <QFileInfo>
#include <QPromise>
#include <QThreadPool>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {
// Verdicts kept for words seen before; a long log repeats its words, Hunspell is slow to ask.
constexpr qsizetype kRememberedVerdicts = 200000;
// Loading takes a core for about a tenth of a second; not while the composer is being mapped.
constexpr std::chrono::milliseconds kLoadDelay(300);
constexpr std::chrono::minutes kReleaseDelay(3);
} // namespace

const QString SpellCheckService::dictionaryKey = QStringLiteral("SpellCheckingDictionary");
const QString SpellCheckService::offValue = QStringLiteral("off");

SpellCheckService::SpellCheckService(UserDefaults &defaults, const QString &personalWordsPath,
                                     QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_personalWordsPath(
          personalWordsPath.isEmpty()
              ? QDir(FileStore::baseDirectory()).filePath(QStringLiteral("Spelling/personal-words.txt"))
              : personalWordsPath)
{
    connect(&defaults, &UserDefaults::didChange, this, &SpellCheckService::settingsChanged);
    m_loadSoon.setSingleShot(true);
    m_loadSoon.setInterval(kLoadDelay);
    connect(&m_loadSoon, &QTimer::timeout, this, &SpellCheckService::prepare);
    m_release.setSingleShot(true);
    m_release.setInterval(kReleaseDelay);
    connect(&m_release, &QTimer::timeout, this, &SpellCheckService::drop);
}

SpellCheckService::~SpellCheckService() = default;

std::optional<SpellDictionary> SpellCheckService::chosenDictionary(const UserDefaults &defaults)
{
    const QString choice = defaults.string(dictionaryKey).value_or(QString()).trimmed();
    if (choice == offValue)
        return std::nullopt;
    const QList<SpellDictionary> installed = SpellDictionaries::installed();
    for (const SpellDictionary &dictionary : installed) {
        if (dictionary.name == choice)
            return dictionary;
    }
    // A chosen dictionary that was removed since: the locale's, rather than none.
    return SpellDictionaries::forLocale(installed, QLocale::system());
}

void SpellCheckService::settingsChanged(const QString &key)
{
    if (m_prepared && (key.isEmpty() || key == dictionaryKey))
        prepare();
}

void SpellCheckService::prepare()
{
    m_prepared = true;
    const std::optional<SpellDictionary> wanted = chosenDictionary(m_defaults);
    if (wanted == m_wanted && (m_checker || m_load))
        return;
    m_wanted = wanted;
    m_load.reset();
    if (!wanted) {
        if (m_checker) {
            m_checker.reset();
            m_verdicts.clear();
            Q_EMIT checkerChanged();
        }
        return;
    }
    auto promise = std::make_shared<QPromise<std::shared_ptr<SpellChecker>>>();
    m_load = std::make_unique<QFutureWatcher<std::shared_ptr<SpellChecker>>>();
    connect(m_load.get(), &QFutureWatcherBase::finished, this, [this] {
        const QFuture<std::shared_ptr<SpellChecker>> future = m_load->future();
        std::shared_ptr<SpellChecker> loaded = future.resultCount() > 0 ? future.result() : nullptr;
        m_load.release()->deleteLater();
        // A dictionary that does not load leaves checking off; the doctor says why.
        if (!loaded && !m_checker)
            return;
        m_checker = std::move(loaded);
        m_verdicts.clear();
        Q_EMIT checkerChanged();
    });
    m_load->setFuture(promise->future());
    promise->start();
    BackgroundWork::pool().start([promise, dictionary = *wanted, words = personalWords()] {
        std::shared_ptr<SpellChecker> checker;
        try {
            checker = std::make_shared<HunspellSpellChecker>(dictionary);
            for (const QString &word : words)
                checker->addWord(word);
        } catch (const TarvelError &) {
            checker.reset();
        }
        promise->addResult(std::move(checker));
        promise->finish();
    });
}

void SpellCheckService::hold()
{
    ++m_holders;
    m_release.stop();
    if (!m_checker && !m_load && !m_loadSoon.isActive())
        m_loadSoon.start();
}

void SpellCheckService::letGo()
{
    if (m_holders > 0 && --m_holders == 0) {
        m_loadSoon.stop();
        m_release.start();
    }
}

void SpellCheckService::drop()
{
    m_prepared = false;
    m_wanted.reset();
    m_load.reset();
    m_verdicts = {};
    if (m_checker) {
        m_checker.reset();
        Q_EMIT checkerChanged();
    }
#ifdef __GLIBC__
    // The dictionary is many small blocks; without a trim the allocator would keep them.
    malloc_trim(0);
#endif
}

void SpellCheckService::setChecker(std::unique_ptr<SpellChecker> checker)
{
    m_load.reset();
    m_checker = std::move(checker);
    m_wanted.reset();
    m_verdicts.clear();
    Q_EMIT checkerChanged();
}

bool SpellCheckService::isCorrect(const QString &word)
{
    if (!m_checker)
        return true;
    if (const auto known = m_verdicts.constFind(word); known != m_verdicts.cend())
        return *known;
    if (m_verdicts.size() >= kRememberedVerdicts)
        m_verdicts.clear();
    const bool correct = m_checker->isCorrect(word);
    m_verdicts.insert(word, correct);
    return correct;
}

QStringList SpellCheckService::suggestions(const QString &word)
{
    return m_checker ? m_checker->suggestions(word) : QStringList();
}

QStringList SpellCheckService::personalWords() const
{
    const std::optional<QByteArray> bytes = DataFile::readIfPlainFile(m_personalWordsPath, 4 * 1024 * 1024);
    if (!bytes)
        return {};
    QStringList words;
    for (const QString &line : QString::fromUtf8(*bytes).split(u'\n')) {
        if (!line.trimmed().isEmpty())
            words.append(line.trimmed());
    }
    return words;
}

void SpellCheckService::addToPersonalDictionary(const QString &word)
{
    QStringList words = personalWords();
    if (!words.contains(word)) {
        words.append(word);
        FileStore::ensurePrivateFolder(QFileInfo(m_personalWordsPath).path());
        DataFile::write(m_personalWordsPath, (words.join(u'\n') + u'\n').toUtf8(),
                        DataFile::privatePermissions);
    }
    if (m_checker)
        m_checker->addWord(word);
    m_verdicts.clear();
    Q_EMIT checkerChanged();
}
