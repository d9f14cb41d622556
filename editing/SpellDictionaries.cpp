#include "editing/SpellDictionaries.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <algorithm>

namespace SpellDictionaries {

QStringList searchFolders()
{
    QStringList folders;
    for (const QString &folder : qEnvironmentVariable("DICPATH").split(u':', Qt::SkipEmptyParts))
        folders.append(folder);
    const QString dataHome =
        qEnvironmentVariable("XDG_DATA_HOME", QDir::homePath() + QStringLiteral("/.local/share"));
    folders.append(dataHome + QStringLiteral("/hunspell"));
    folders.append(QDir::homePath() + QStringLiteral("/Library/Spelling"));
    for (const QString &folder :
         qEnvironmentVariable("XDG_DATA_DIRS", QStringLiteral("/usr/local/share:/usr/share"))
             .split(u':', Qt::SkipEmptyParts)) {
        folders.append(folder + QStringLiteral("/hunspell"));
        folders.append(folder + QStringLiteral("/myspell"));
        folders.append(folder + QStringLiteral("/myspell/dicts"));
    }
    folders.append(QStringLiteral("/Library/Spelling"));
    folders.append(QStringLiteral("/opt/homebrew/share/hunspell"));
    folders.removeDuplicates();
    return folders;
}

QList<SpellDictionary> installed(const QStringList &folders)
{
    QList<SpellDictionary> found;
    QSet<QString> names;
    for (const QString &folder : folders) {
        const QDir directory(folder);
        for (const QFileInfo &words :
             directory.entryInfoList({QStringLiteral("*.dic")}, QDir::Files | QDir::Readable)) {
            const QString name = words.completeBaseName();
            const QString affix = directory.filePath(name + QStringLiteral(".aff"));
            // Hyphenation patterns share the extension; they have no affix file.
            if (names.contains(name) || !QFileInfo(affix).isReadable())
                continue;
            names.insert(name);
            found.append({name, affix, words.absoluteFilePath()});
        }
    }
    std::sort(found.begin(), found.end(), [](const SpellDictionary &left, const SpellDictionary &right) {
        return left.name < right.name;
    });
    return found;
}

QString localeName(const QLocale &locale)
{
    // The C (POSIX) locale speaks American English.
    return locale.language() == QLocale::C ? QStringLiteral("en_US") : locale.name();
}

std::optional<SpellDictionary> forLocale(const QList<SpellDictionary> &dictionaries, const QLocale &locale)
{
    const QString exact = localeName(locale);
    for (const SpellDictionary &dictionary : dictionaries) {
        if (dictionary.name == exact)
            return dictionary;
    }
    const QString language = exact.section(u'_', 0, 0);
    if (language.isEmpty())
        return std::nullopt;
    // The language's main country, as Qt has it for the bare language ("de" is de_DE).
    const QString main = QLocale(language).name();
    std::optional<SpellDictionary> sameLanguage;
    for (const SpellDictionary &dictionary : dictionaries) {
        if (dictionary.name == main)
            return dictionary;
        if (!sameLanguage && (dictionary.name == language || dictionary.name.startsWith(language + u'_') ||
                              dictionary.name.startsWith(language + u'-')))
            sameLanguage = dictionary;
    }
    return sameLanguage;
}

QString displayName(const QString &name)
{
    const QLocale locale(name);
    if (locale.language() == QLocale::C || !name.startsWith(QLocale::languageToCode(locale.language())))
        return name;
    if (!name.contains(u'_'))
        return QLocale::languageToString(locale.language());
    return QStringLiteral("%1 (%2)").arg(QLocale::languageToString(locale.language()),
                                         QLocale::territoryToString(locale.territory()));
}

} // namespace SpellDictionaries
