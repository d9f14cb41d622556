#pragma once

#include <QString>
#include <QStringList>

// A dictionary the composer's spelling asks about one word at a time. The application uses
// Hunspell's; a test can use a word list.
class SpellChecker {
public:
    virtual ~SpellChecker() = default;

    virtual bool isCorrect(const QString &word) = 0;
    virtual QStringList suggestions(const QString &word) = 0;
    // Accepts a word from now on (the personal word list's, for this checker's life).
    virtual void addWord(const QString &word) = 0;
    // The dictionary's name, such as "en_US".
    virtual QString name() const = 0;
};
