#pragma once

#include "editing/SpellChecker.h"
#include "editing/SpellDictionaries.h"

#include <QFutureWatcher>
#include <QHash>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>

class UserDefaults;

// The application's spelling: the dictionary the preferences choose (the locale's by default,
// or none), loaded in the background and shared by every composer, and the personal word list
// that "Add to Dictionary" writes. With no dictionary installed checking is off. The dictionary
// is several megabytes a tray application has no use for while idle: composers on screen hold
// it, and it goes a while after the last one closed.
class SpellCheckService final : public QObject {
    Q_OBJECT

public:
    // The user-defaults key of the choice: absent or empty follows the locale, "off" turns
    // checking off, anything else names a dictionary.
    static const QString dictionaryKey;
    static const QString offValue;

    // personalWordsPath: the word list's file; empty uses the data folder's.
    explicit SpellCheckService(UserDefaults &defaults, const QString &personalWordsPath = QString(),
                               QObject *parent = nullptr);
    ~SpellCheckService() override;

    // What the stored choice calls for now: a dictionary, or none (off, or none installed).
    static std::optional<SpellDictionary> chosenDictionary(const UserDefaults &defaults);

    // Starts loading the chosen dictionary unless it is loaded or loading already.
    void prepare();
    // A composer came on screen: the dictionary loads a moment later (the composer's first frame
    // and the window manager come first), unless it is there already.
    void hold();
    // A composer left the screen: once none has held it for releaseDelay, the dictionary goes.
    void letGo();
    void setReleaseDelay(std::chrono::milliseconds delay) { m_release.setInterval(delay); }
    // Uses this checker, as if it had been loaded (a test's word list).
    void setChecker(std::unique_ptr<SpellChecker> checker);
    bool isActive() const { return m_checker != nullptr; }
    QString dictionaryName() const { return m_checker ? m_checker->name() : QString(); }

    // Whether a word is spelled right; any word is while checking is off.
    bool isCorrect(const QString &word);
    QStringList suggestions(const QString &word);
    // Accepts the word from now on and keeps it in the personal word list. Throws SystemError.
    void addToPersonalDictionary(const QString &word);
    QStringList personalWords() const;
    QString personalWordsPath() const { return m_personalWordsPath; }

Q_SIGNALS:
    // A dictionary was loaded or dropped, or a word added: what was checked may read otherwise.
    void checkerChanged();

private:
    void settingsChanged(const QString &key);
    void drop();

    UserDefaults &m_defaults;
    QString m_personalWordsPath;
    std::shared_ptr<SpellChecker> m_checker;
    std::unique_ptr<QFutureWatcher<std::shared_ptr<SpellChecker>>> m_load;
    // The dictionary the checker or the load under way is for; none when off.
    std::optional<SpellDictionary> m_wanted;
    bool m_prepared = false;
    QHash<QString, bool> m_verdicts;
    int m_holders = 0;
    QTimer m_loadSoon;
    QTimer m_release;
};
