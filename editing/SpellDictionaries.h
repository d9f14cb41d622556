#pragma once

#include <QList>
#include <QLocale>
#include <QString>

#include <optional>

// A Hunspell dictionary installed on this system: its name ("en_US") and its two files.
struct SpellDictionary {
    QString name;
    QString affixPath;
    QString wordsPath;

    friend bool operator==(const SpellDictionary &, const SpellDictionary &) = default;
};

// The dictionaries the system offers and the one a locale calls for.
namespace SpellDictionaries {

// Where dictionaries are looked for, the user's own and DICPATH's first.
QStringList searchFolders();
// Every installed dictionary once (the first folder's wins), sorted by name.
QList<SpellDictionary> installed(const QStringList &folders = searchFolders());
// The name a locale's dictionary has: "de_CH"; the C locale's is "en_US".
QString localeName(const QLocale &locale);
// The locale's own dictionary ("de_CH"), else one of its language, preferring the language's
// main country ("de_DE"), else none.
std::optional<SpellDictionary> forLocale(const QList<SpellDictionary> &dictionaries, const QLocale &locale);
// "English (United States)" for "en_US", or the name itself when Qt does not know it.
QString displayName(const QString &name);

} // namespace SpellDictionaries
