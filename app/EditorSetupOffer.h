#pragma once

#include "app/KeyboardGate.h"

#include <QObject>

#include <memory>

class EditorIntegrationManager;
class EditorIntegrationPromptWindow;
class ErrorLogManager;
class UserDefaults;

// Offers to point the shell's editor at Tarvel: once after launch when the set-up is missing
// or broken and the user has not declined it for good, and whenever the tray menu asks. The
// offer after launch is nobody's request, so it waits for the keyboard and gives way to a
// composer that comes up while it is on screen, coming back once that one has closed.
class EditorSetupOffer final : public QObject {
    Q_OBJECT

public:
    EditorSetupOffer(std::unique_ptr<EditorIntegrationManager> manager, UserDefaults &defaults,
                     ErrorLogManager &errorLog, KeyboardGate &keyboard, QObject *parent = nullptr);
    ~EditorSetupOffer() override;

    // Whether the tray menu offers the set-up.
    bool isNeeded() const;
    // The preferences' line about the set-up and its prompt.
    QString statusLine() const;
    void scheduleAfterLaunch();
    // Asked by the user, it opens at once with Install as the default button, and also says why
    // nothing needs doing.
    void offer(KeyboardGate::Origin origin);

private:
    bool isSuppressed() const;
    void offerWhenKeyboardFree();

    std::unique_ptr<EditorIntegrationManager> m_manager;
    UserDefaults &m_defaults;
    ErrorLogManager &m_errorLog;
    KeyboardGate &m_keyboard;
    EditorIntegrationPromptWindow *m_prompt = nullptr;
    bool m_steppedAside = false;
};
