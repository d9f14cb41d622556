#pragma once

#include <QList>
#include <QString>
#include <QUuid>

#include <functional>
#include <optional>

// What the status menu lists, top to bottom. Built fresh each time the menu opens;
// the view turns each entry into a menu item.
struct StatusMenuEntry {
    enum class Kind { action, disabledText, separator, sessionRow };
    enum class Action {
        none,
        openScratchComposer,
        clearFinishedTasks,
        checkPendingRequests,
        openPreferences,
        setUpEditor,
        openErrors,
        quit
    };

    Kind kind = Kind::action;
    QString title;
    Action action = Action::none;
    // Names items the menu replaces in place ("QuickTaskSession", ...).
    QString identifier;
    QUuid sessionId;
    bool enabled = true;

    friend bool operator==(const StatusMenuEntry &, const StatusMenuEntry &) = default;
};

namespace StatusMenuIdentifiers {
inline const QString quickTaskSession = QStringLiteral("QuickTaskSession");
inline const QString quickTaskClearFinishedSeparator = QStringLiteral("QuickTaskClearFinishedSeparator");
inline const QString quickTaskClearFinishedItem = QStringLiteral("QuickTaskClearFinishedItem");
} // namespace StatusMenuIdentifiers

struct StatusMenuState {
    QList<QUuid> sessionIds;
    bool hasFinishedSessions = false;
    // The request on screen: present with its working directory (which may be empty).
    bool isEditingRequest = false;
    std::optional<QString> editingRequestCwd;
    int queuedRequestCount = 0;
    // Asked only when nothing is queued: does a fresh scan find waiting requests?
    std::function<bool()> hasWaitingRequests;
    bool preferencesAvailable = false;
    // The editor integration is missing or broken.
    bool editorSetupNeeded = false;
    bool hasErrors = false;
    QString applicationDisplayName = QStringLiteral("Tarvel");
};

namespace StatusMenuModel {

QList<StatusMenuEntry> build(const StatusMenuState &state);
// Drops separators at either end and any that follow another separator.
QList<StatusMenuEntry> normalizeSeparators(QList<StatusMenuEntry> entries);
bool shouldInsertSeparatorBeforePreferences(const QList<StatusMenuEntry> &entries);

} // namespace StatusMenuModel
