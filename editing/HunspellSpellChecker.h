#pragma once

#include "editing/SpellChecker.h"
#include "editing/SpellDictionaries.h"

#include <QStringConverter>

#include <memory>

class Hunspell;

// A Hunspell dictionary. Loading one takes tens of milliseconds, so it is made off the main
// thread and used on it afterwards; Hunspell itself is not for two threads at once.
class HunspellSpellChecker final : public SpellChecker {
public:
    // Throws TarvelError when the files cannot be read or their encoding is unknown to Qt.
    explicit HunspellSpellChecker(const SpellDictionary &dictionary);
    ~HunspellSpellChecker() override;

    bool isCorrect(const QString &word) override;
    QStringList suggestions(const QString &word) override;
    void addWord(const QString &word) override;
    QString name() const override { return m_name; }

private:
    std::optional<std::string> encoded(const QString &word);
    bool isInAlphabet(const QString &word) const;

    QString m_name;
    std::unique_ptr<Hunspell> m_hunspell;
    QStringEncoder m_encoder;
    QStringDecoder m_decoder;
    // The letters the dictionary suggests with (its TRY line), in lower case; empty when it has
    // none. A word with other letters (another script) is not this dictionary's to judge.
    QString m_alphabet;
};
