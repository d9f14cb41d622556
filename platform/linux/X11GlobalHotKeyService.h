#pragma once

#include "platform/GlobalHotKeyService.h"

#include <QAbstractNativeEventFilter>
#include <QHash>
#include <QList>
#include <QSet>

#include <map>

struct xcb_connection_t;

// Passive key grabs on the root windows over Qt's own xcb connection. A grab matches the modifier
// state exactly, so each combination is grabbed once for every state of Caps, Num and Scroll Lock.
// Works only inside a QGuiApplication on the xcb platform.
class X11GlobalHotKeyService final : public GlobalHotKeyService, public QAbstractNativeEventFilter {
    Q_OBJECT

public:
    explicit X11GlobalHotKeyService(QObject *parent = nullptr);
    ~X11GlobalHotKeyService() override;

    // Whether this process talks to an X server through Qt.
    static bool isAvailable();

    QString unavailableReason() const override;
    QString registerHotKey(int id, const Shortcut &shortcut) override;
    void unregisterHotKey(int id) override;

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

private:
    struct Grab {
        quint32 root;
        quint8 keycode;
        quint16 modifiers;
    };
    struct Registration {
        QList<quint8> keycodes;
        quint16 modifiers = 0;
        QList<Grab> grabs;
    };

    void ungrab(const QList<Grab> &grabs);
    void keyPressed(quint8 keycode, quint16 state, quint32 time);
    void keyReleased(quint8 keycode, quint32 time);
    void finishReleases();

    xcb_connection_t *m_connection = nullptr;
    QList<quint32> m_roots;
    // The lock modifiers as the server maps them when the last key was grabbed.
    quint16 m_lockMasks = 0;
    std::map<int, Registration> m_registrations;
    // Held hot keys: X repeats a held key's press, which is one press to the user.
    QSet<int> m_held;
    // Releases not yet reported, by id, with their time: without detectable auto-repeat a held key
    // sends release and press pairs with one time stamp, and such a release is no release.
    QHash<int, quint32> m_pendingReleases;
};
