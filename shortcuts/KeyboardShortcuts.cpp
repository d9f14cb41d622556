#include "shortcuts/KeyboardShortcuts.h"

#include "core/JSONCoding.h"
#include "core/UserDefaults.h"

#include <QVariant>

const QString KeyboardShortcuts::keyPrefix = QStringLiteral("KeyboardShortcuts_");
const QString KeyboardShortcuts::shortcutByNameDidChangeNotification =
    QStringLiteral("KeyboardShortcuts_shortcutByNameDidChange");

KeyboardShortcuts::KeyboardShortcuts(UserDefaults &defaults, QObject *parent)
    : KeyboardShortcuts(defaults, nativeShortcutDisplayStyle(), parent)
{
}

KeyboardShortcuts::KeyboardShortcuts(UserDefaults &defaults, ShortcutDisplayStyle displayStyle,
                                     QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_displayStyle(displayStyle)
{
    connect(&m_defaults, &UserDefaults::didChange, this, [this](const QString &key) {
        if (key.startsWith(keyPrefix)) {
            Q_EMIT shortcutByNameDidChange(key.mid(keyPrefix.size()));
        } else if (key.isEmpty()) {
            // Written elsewhere: any name may have changed.
            for (const ShortcutName &name : ShortcutNames::all())
                Q_EMIT shortcutByNameDidChange(name.rawValue);
        }
    });
}

QString KeyboardShortcuts::storageKey(const ShortcutName &name)
{
    return keyPrefix + name.rawValue;
}

std::optional<Shortcut> KeyboardShortcuts::getShortcut(const ShortcutName &name) const
{
    const QVariant stored = m_defaults.value(storageKey(name));
    switch (stored.typeId()) {
    case QMetaType::Bool:
        return stored.toBool() ? name.defaultShortcut : std::nullopt;
    case QMetaType::Int:
    case QMetaType::LongLong:
        // The Mac store may hand a Boolean back as a number.
        return stored.toLongLong() != 0 ? name.defaultShortcut : std::nullopt;
    case QMetaType::QString: {
        const QString text = stored.toString();
        // An INI file keeps false as its text.
        if (text.trimmed() == u"false")
            return std::nullopt;
        try {
            return JSONCoding::decodeRecord<Shortcut>(text.toUtf8());
        } catch (const TarvelError &) {
            return name.defaultShortcut; // unreadable: as if nothing were stored
        }
    }
    default:
        return name.defaultShortcut;
    }
}

void KeyboardShortcuts::setShortcut(const std::optional<Shortcut> &shortcut, const ShortcutName &name)
{
    const QString key = storageKey(name);
    if (shortcut)
        m_defaults.setString(key, QString::fromUtf8(JSONCoding::encodeRecord(*shortcut)).trimmed());
    else if (name.defaultShortcut)
        m_defaults.setBool(key, false);
    else
        m_defaults.remove(key);
}
