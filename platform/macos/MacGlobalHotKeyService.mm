#include "platform/GlobalHotKeyService.h"

#include <Carbon/Carbon.h>

#include <map>

namespace {

// Tells our hot keys from anyone else's in the application's event target.
constexpr OSType hotKeySignature = (OSType('T') << 24) | (OSType('R') << 16) | (OSType('V') << 8) | 'L';

// Carbon's event hot keys: the stored shortcut is already a Carbon key code and modifier mask.
class MacGlobalHotKeyService final : public GlobalHotKeyService {
public:
    explicit MacGlobalHotKeyService(QObject *parent)
        : GlobalHotKeyService(parent)
    {
        const EventTypeSpec types[] = {{kEventClassKeyboard, kEventHotKeyPressed},
                                       {kEventClassKeyboard, kEventHotKeyReleased}};
        if (InstallApplicationEventHandler(&MacGlobalHotKeyService::handle, 2, types, this, &m_handler) !=
            noErr)
            m_handler = nullptr;
    }

    ~MacGlobalHotKeyService() override
    {
        for (const auto &[id, ref] : m_hotKeys)
            UnregisterEventHotKey(ref);
        if (m_handler != nullptr)
            RemoveEventHandler(m_handler);
    }

    QString unavailableReason() const override
    {
        if (m_handler != nullptr)
            return {};
        return QStringLiteral("Global shortcuts could not be set up; restarting Tarvel may help.");
    }

    QString registerHotKey(int id, const Shortcut &shortcut) override
    {
        unregisterHotKey(id);
        if (m_handler == nullptr)
            return unavailableReason();
        const EventHotKeyID hotKeyId{hotKeySignature, UInt32(id)};
        EventHotKeyRef ref = nullptr;
        const OSStatus status =
            RegisterEventHotKey(UInt32(shortcut.carbonKeyCode), UInt32(shortcut.carbonModifiers), hotKeyId,
                                GetApplicationEventTarget(), 0, &ref);
        const QString name = shortcut.displayText(nativeShortcutDisplayStyle());
        if (status == eventHotKeyExistsErr)
            return QStringLiteral("%1 is already used by another application.").arg(name);
        if (status != noErr)
            return QStringLiteral("%1 could not be set up as a system-wide shortcut.").arg(name);
        m_hotKeys[id] = ref;
        return {};
    }

    void unregisterHotKey(int id) override
    {
        const auto it = m_hotKeys.find(id);
        if (it == m_hotKeys.end())
            return;
        UnregisterEventHotKey(it->second);
        m_hotKeys.erase(it);
    }

private:
    static OSStatus handle(EventHandlerCallRef, EventRef event, void *userData)
    {
        EventHotKeyID hotKeyId{};
        if (GetEventParameter(event, kEventParamDirectObject, typeEventHotKeyID, nullptr, sizeof(hotKeyId),
                              nullptr, &hotKeyId) != noErr ||
            hotKeyId.signature != hotKeySignature)
            return eventNotHandledErr;
        auto *self = static_cast<MacGlobalHotKeyService *>(userData);
        const int id = int(hotKeyId.id);
        if (self->m_hotKeys.count(id) == 0)
            return eventNotHandledErr;
        if (GetEventKind(event) == kEventHotKeyPressed)
            Q_EMIT self->pressed(id);
        else
            Q_EMIT self->released(id);
        return noErr;
    }

    EventHandlerRef m_handler = nullptr;
    std::map<int, EventHotKeyRef> m_hotKeys;
};

} // namespace

std::unique_ptr<GlobalHotKeyService> GlobalHotKeyService::create(QObject *parent)
{
    return std::make_unique<MacGlobalHotKeyService>(parent);
}
