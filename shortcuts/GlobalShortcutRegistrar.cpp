#include "shortcuts/GlobalShortcutRegistrar.h"

#include "platform/GlobalHotKeyService.h"
#include "shortcuts/KeyboardShortcuts.h"

GlobalShortcutRegistrar::GlobalShortcutRegistrar(KeyboardShortcuts &shortcuts, GlobalHotKeyService &service,
                                                 QObject *parent)
    : QObject(parent)
    , m_shortcuts(shortcuts)
    , m_service(service)
{
    connect(&m_shortcuts, &KeyboardShortcuts::shortcutByNameDidChange, this,
            &GlobalShortcutRegistrar::shortcutChanged);
    connect(&m_service, &GlobalHotKeyService::pressed, this, [this](int id) { run(id, true); });
    connect(&m_service, &GlobalHotKeyService::released, this, [this](int id) { run(id, false); });
}

void GlobalShortcutRegistrar::onKeyDown(const ShortcutName &name, std::function<void()> handler)
{
    entry(name).keyDown.push_back(std::move(handler));
}

void GlobalShortcutRegistrar::onKeyUp(const ShortcutName &name, std::function<void()> handler)
{
    entry(name).keyUp.push_back(std::move(handler));
}

GlobalShortcutRegistrar::Entry &GlobalShortcutRegistrar::entry(const ShortcutName &name)
{
    const auto found = m_entries.find(name.rawValue);
    if (found != m_entries.end())
        return found->second;
    Entry &created = m_entries[name.rawValue];
    created.name = name;
    created.id = int(m_names.size()) + 1;
    m_names.insert(created.id, name.rawValue);
    if (const QString failure = move(created, m_shortcuts.getShortcut(name), false); !failure.isEmpty())
        Q_EMIT registrationFailed(name.rawValue, failure);
    return created;
}

QString GlobalShortcutRegistrar::move(Entry &entry, const std::optional<Shortcut> &shortcut,
                                      bool keepEarlierOnFailure)
{
    const std::optional<Shortcut> earlier = entry.registered;
    const QString earlierProblem = entry.problem;
    if (earlier) {
        m_service.unregisterHotKey(entry.id);
        entry.registered.reset();
    }
    entry.problem.clear();
    if (!shortcut)
        return {};
    const QString failure = m_service.registerHotKey(entry.id, *shortcut);
    if (failure.isEmpty()) {
        entry.registered = shortcut;
        return {};
    }
    if (!keepEarlierOnFailure) {
        entry.problem = failure;
        return failure;
    }
    entry.problem = earlierProblem;
    if (earlier) {
        if (const QString lost = m_service.registerHotKey(entry.id, *earlier); lost.isEmpty())
            entry.registered = earlier;
        else
            entry.problem = lost;
    }
    return failure;
}

QString GlobalShortcutRegistrar::tryRegister(const ShortcutName &name,
                                             const std::optional<Shortcut> &shortcut)
{
    const auto found = m_entries.find(name.rawValue);
    if (found == m_entries.end())
        return {};
    Entry &entry = found->second;
    if (shortcut == entry.registered && entry.problem.isEmpty())
        return {};
    return move(entry, shortcut, true);
}

QString GlobalShortcutRegistrar::problem(const ShortcutName &name) const
{
    const auto found = m_entries.find(name.rawValue);
    return found == m_entries.end() ? QString() : found->second.problem;
}

void GlobalShortcutRegistrar::shortcutChanged(const QString &name)
{
    const auto found = m_entries.find(name);
    if (found == m_entries.end())
        return;
    Entry &entry = found->second;
    const std::optional<Shortcut> current = m_shortcuts.getShortcut(entry.name);
    // A recorder that called tryRegister first has already moved the registration.
    if (current == entry.registered && entry.problem.isEmpty())
        return;
    // The store is what the user sees, so a combination that cannot be had leaves none registered.
    if (const QString failure = move(entry, current, false); !failure.isEmpty())
        Q_EMIT registrationFailed(name, failure);
}

void GlobalShortcutRegistrar::run(int id, bool down)
{
    const auto name = m_names.constFind(id);
    if (name == m_names.cend())
        return;
    // Copied: a handler may attach another one.
    const std::vector<std::function<void()>> handlers =
        down ? m_entries[*name].keyDown : m_entries[*name].keyUp;
    for (const std::function<void()> &handler : handlers)
        handler();
}
