#include "editing/HunspellSpellChecker.h"

#include "core/TarvelError.h"

#include <QFile>
#include <QFileInfo>

#include <hunspell/hunspell.hxx>

namespace {

// The dictionary's SET line as Qt knows encodings ("ISO8859-1" is "ISO-8859-1" to Qt).
QByteArray qtEncodingName(const std::string &hunspellName)
{
    QByteArray name = QByteArray::fromStdString(hunspellName).trimmed().toUpper();
    if (name.startsWith("ISO8859"))
        name.insert(3, '-');
    return name.isEmpty() ? QByteArrayLiteral("ISO-8859-1") : name;
}

} // namespace

HunspellSpellChecker::HunspellSpellChecker(const SpellDictionary &dictionary)
    : m_name(dictionary.name)
{
    for (const QString &path : {dictionary.affixPath, dictionary.wordsPath}) {
        if (!QFileInfo(path).isReadable())
            throw SystemError(QStringLiteral("read the dictionary \u201c%1\u201d").arg(path),
                              QStringLiteral("the file cannot be read"));
    }
    m_hunspell = std::make_unique<Hunspell>(QFile::encodeName(dictionary.affixPath).constData(),
                                            QFile::encodeName(dictionary.wordsPath).constData());
    const QByteArray encoding = qtEncodingName(m_hunspell->get_dict_encoding());
    m_encoder = QStringEncoder(encoding.constData());
    m_decoder = QStringDecoder(encoding.constData());
    if (!m_encoder.isValid() || !m_decoder.isValid())
        throw TarvelError(QStringLiteral("The dictionary %1 uses the encoding %2, which Tarvel cannot read.")
                              .arg(m_name, QString::fromLatin1(encoding)));
    QFile affix(dictionary.affixPath);
    if (affix.open(QIODevice::ReadOnly)) {
        for (int line = 0; line < 200 && !affix.atEnd(); ++line) {
            const QByteArray text = affix.readLine().trimmed();
            if (text.startsWith("TRY ")) {
                m_alphabet = QString(m_decoder.decode(text.mid(4))).toLower();
                break;
            }
        }
    }
}

bool HunspellSpellChecker::isInAlphabet(const QString &word) const
{
    if (m_alphabet.isEmpty())
        return true;
    for (const QChar character : word) {
        if (character.isLetter() && !m_alphabet.contains(character.toLower()))
            return false;
    }
    return true;
}

HunspellSpellChecker::~HunspellSpellChecker() = default;

std::optional<std::string> HunspellSpellChecker::encoded(const QString &word)
{
    m_encoder.resetState();
    const QByteArray bytes = m_encoder.encode(word);
    if (m_encoder.hasError())
        return std::nullopt;
    return bytes.toStdString();
}

bool HunspellSpellChecker::isCorrect(const QString &word)
{
    // A word in letters the dictionary does not use is not the dictionary's to judge.
    if (!isInAlphabet(word))
        return true;
    const std::optional<std::string> bytes = encoded(word);
    return !bytes || m_hunspell->spell(*bytes);
}

QStringList HunspellSpellChecker::suggestions(const QString &word)
{
    const std::optional<std::string> bytes = encoded(word);
    if (!bytes)
        return {};
    QStringList list;
    for (const std::string &suggestion : m_hunspell->suggest(*bytes)) {
        m_decoder.resetState();
        list.append(m_decoder.decode(QByteArray::fromStdString(suggestion)));
    }
    return list;
}

void HunspellSpellChecker::addWord(const QString &word)
{
    if (const std::optional<std::string> bytes = encoded(word))
        m_hunspell->add(*bytes);
}
