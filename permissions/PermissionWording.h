#pragma once

#include <QString>

// How the permission texts name the system they run on: the Mac's texts say "macOS" and
// "this Mac"; elsewhere they name the system and the computer in general terms.
struct PermissionWording {
    // Within a sentence: "macOS", "the system".
    QString system;
    // At the start of a sentence: "macOS", "The system".
    QString systemAtSentenceStart;
    // "this Mac", "this computer".
    QString thisComputer;
    // The Mac's own texts for the two on-demand rows; elsewhere texts about the desktop.
    bool isMac = false;

    static PermissionWording forMac();
    static PermissionWording forOtherSystems();
    // The wording for the system Tarvel runs on.
    static PermissionWording host();
};
