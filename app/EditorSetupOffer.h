#pragma once

#include <QObject>

#include <memory>

class EditorIntegrationManager;
class ErrorLogManager;
class UserDefaults;

// Offers to point the shell's editor at Tarvel: once after launch when the set-up is missing
// or broken and the user has not declined it for good, and whenever the tray menu asks.
class EditorSetupOffer final : public QObject {
    Q_OBJECT

public:
    EditorSetupOffer(std::unique_ptr<EditorIntegrationManager> manager, UserDefaults &defaults,
                     ErrorLogManager &errorLog, QObject *parent = nullptr);
    ~EditorSetupOffer() override;

    // Whether the tray menu offers the set-up.
    bool isNeeded() const;
    // The preferences' line about the set-up and its prompt.
    QString statusLine() const;
    void scheduleAfterLaunch();
    // Asked by the user, it also says why nothing needs doing.
    void offer(bool askedByUser);

private:
    std::unique_ptr<EditorIntegrationManager> m_manager;
    UserDefaults &m_defaults;
    ErrorLogManager &m_errorLog;
    bool m_isOpen = false;
};
