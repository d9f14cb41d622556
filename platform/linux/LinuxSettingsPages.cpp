#include "platform/linux/LinuxSettingsPages.h"

namespace LinuxSettingsPages {
namespace {

QList<SettingsCommand> knownCommands(PermissionSettingsPage page)
{
    const auto command = [](const char *program, QStringList arguments = {}) {
        return SettingsCommand{QString::fromLatin1(program), std::move(arguments)};
    };
    switch (page) {
    case PermissionSettingsPage::notifications:
        return {command("gnome-control-center", {QStringLiteral("notifications")}),
                command("systemsettings", {QStringLiteral("kcm_notifications")}),
                command("systemsettings5", {QStringLiteral("kcm_notifications")}),
                command("xfce4-notifyd-config"), command("xfce4-settings-manager")};
    case PermissionSettingsPage::microphone:
        return {command("gnome-control-center", {QStringLiteral("sound")}),
                command("systemsettings", {QStringLiteral("kcm_pulseaudio")}),
                command("systemsettings5", {QStringLiteral("kcm_pulseaudio")}), command("pavucontrol")};
    // Nothing on the Linux desktop grants these: recognition runs in Tarvel, windows are found
    // through the window manager, and files are reached with the user's own rights.
    case PermissionSettingsPage::speechRecognition:
    case PermissionSettingsPage::screenRecording:
    case PermissionSettingsPage::filesAndFolders:
        return {};
    }
    return {};
}

} // namespace

QList<SettingsCommand> candidates(PermissionSettingsPage page, const ExecutableLookup &findExecutable)
{
    QList<SettingsCommand> installed;
    for (SettingsCommand command : knownCommands(page)) {
        command.program = findExecutable(command.program);
        if (!command.program.isEmpty())
            installed.append(std::move(command));
    }
    return installed;
}

QString whereToLook(PermissionSettingsPage page)
{
    switch (page) {
    case PermissionSettingsPage::notifications:
        return QStringLiteral(
            "No notification settings were found on this desktop: how Tarvel's notifications "
            "appear is set in your notification server's own configuration.");
    case PermissionSettingsPage::microphone:
        return QStringLiteral(
            "No sound settings were found on this desktop: choose the microphone and its level "
            "in your desktop's sound settings, or install pavucontrol.");
    case PermissionSettingsPage::speechRecognition:
        return QStringLiteral("Nothing needs allowing here: speech recognition runs on this computer, inside "
                              "Tarvel.");
    case PermissionSettingsPage::screenRecording:
        return QStringLiteral("Nothing needs allowing here: Tarvel finds terminal windows through the window "
                              "manager on X11. On Wayland it cannot, and no setting changes that.");
    case PermissionSettingsPage::filesAndFolders:
        return QStringLiteral(
            "Nothing needs allowing here: Tarvel and the tasks it runs reach files with your "
            "own user's rights.");
    }
    return {};
}

} // namespace LinuxSettingsPages
