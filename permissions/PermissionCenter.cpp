#include "permissions/PermissionCenter.h"

using Access = PlatformPermissionState::Access;
using Kind = PermissionDescriptor::Kind;
using Section = PermissionDescriptor::Section;
using Status = PermissionDescriptor::Status;

PermissionCenter::PermissionCenter(PermissionPlatform &platform, QObject *parent)
    : PermissionCenter(platform, PermissionWording::host(), parent)
{
}

PermissionCenter::PermissionCenter(PermissionPlatform &platform, PermissionWording wording, QObject *parent)
    : QObject(parent)
    , m_platform(platform)
    , m_wording(std::move(wording))
{
}

QFuture<QList<PermissionDescriptor>> PermissionCenter::fetchDescriptors()
{
    return m_platform.notificationAuthorizationStatus().then(
        this, [this](const PlatformPermissionState &notifications) {
            QList<PermissionDescriptor> descriptors{
                makeNotificationDescriptor(notifications),
                makeSpeechRecognitionDescriptor(m_platform.speechRecognitionState()),
                makeMicrophoneDescriptor(m_platform.microphoneState())};
            descriptors.append(onDemandDescriptors());
            return descriptors;
        });
}

QFuture<PermissionSummary> PermissionCenter::fetchSummary()
{
    return fetchDescriptors().then(this, [](const QList<PermissionDescriptor> &descriptors) {
        return PermissionSummary::fromDescriptors(descriptors);
    });
}

QFuture<void> PermissionCenter::performAction(const PermissionDescriptor &descriptor)
{
    switch (descriptor.kind) {
    case Kind::notifications:
        return handleNotificationsAction(descriptor.status);
    case Kind::speechRecognition:
        return handleSpeechRecognitionAction(descriptor.status);
    case Kind::microphone:
        return handleMicrophoneAction(descriptor.status);
    case Kind::screenRecording:
        return openSettings(PermissionSettingsPage::screenRecording);
    case Kind::filesAndFolders:
        return openSettings(PermissionSettingsPage::filesAndFolders);
    }
    return QtFuture::makeReadyFuture();
}

QFuture<void> PermissionCenter::requestNotificationAccessIfUnasked()
{
    return m_platform.notificationAuthorizationStatus()
        .then(this,
              [this](const PlatformPermissionState &state) {
                  return state.access == Access::notDetermined
                             ? m_platform.requestNotificationsAuthorization()
                             : QtFuture::makeReadyFuture();
              })
        .unwrap();
}

QFuture<void> PermissionCenter::handleNotificationsAction(Status status)
{
    return status == Status::notRequested ? m_platform.requestNotificationsAuthorization()
                                          : openSettings(PermissionSettingsPage::notifications);
}

QFuture<void> PermissionCenter::handleSpeechRecognitionAction(Status status)
{
    return status == Status::notRequested ? m_platform.requestSpeechRecognition()
                                          : openSettings(PermissionSettingsPage::speechRecognition);
}

QFuture<void> PermissionCenter::handleMicrophoneAction(Status status)
{
    return status == Status::notRequested ? m_platform.requestMicrophone()
                                          : openSettings(PermissionSettingsPage::microphone);
}

QFuture<void> PermissionCenter::openSettings(PermissionSettingsPage page)
{
    return m_platform.openSettings(page).then(this, [this](const QString &whereToLook) {
        if (!whereToLook.isEmpty())
            Q_EMIT settingsUnavailable(whereToLook);
    });
}

PermissionDescriptor PermissionCenter::makeNotificationDescriptor(const PlatformPermissionState &state) const
{
    // Notifications have no restricted state of their own: anything but an answer reads as denied.
    PlatformPermissionState counted = state;
    if (counted.access == Access::restricted)
        counted.access = Access::denied;
    return makeCountedDescriptor(
        Kind::notifications, QStringLiteral("Notifications"),
        QStringLiteral("Completion banners and Copy actions for finished quick tasks."), counted);
}

PermissionDescriptor
PermissionCenter::makeSpeechRecognitionDescriptor(const PlatformPermissionState &state) const
{
    return makeCountedDescriptor(Kind::speechRecognition, QStringLiteral("Speech Recognition"),
                                 QStringLiteral("Transcribes dictated notes on %1 before the rewrite pass.")
                                     .arg(m_wording.thisComputer),
                                 state);
}

PermissionDescriptor PermissionCenter::makeMicrophoneDescriptor(const PlatformPermissionState &state) const
{
    return makeCountedDescriptor(
        Kind::microphone, QStringLiteral("Microphone"),
        QStringLiteral("Captures dictated notes locally for prompt drafting inside the composer."), state);
}

PermissionDescriptor PermissionCenter::makeCountedDescriptor(Kind kind, QString title, QString detail,
                                                             const PlatformPermissionState &state) const
{
    PermissionDescriptor descriptor;
    descriptor.section = Section::permissions;
    descriptor.kind = kind;
    descriptor.title = std::move(title);
    descriptor.includesInSummary = true;
    switch (state.access) {
    case Access::authorized:
        descriptor.status = Status::granted;
        descriptor.actionTitle = QStringLiteral("Manage…");
        break;
    case Access::denied:
        descriptor.status = Status::needsAttention;
        descriptor.actionTitle = QStringLiteral("Open Settings");
        break;
    case Access::notDetermined:
        descriptor.status = Status::notRequested;
        descriptor.actionTitle = QStringLiteral("Allow…");
        break;
    case Access::restricted:
        descriptor.status = Status::restricted;
        detail += QStringLiteral(" %1 currently restricts this access, so it cannot be changed here.")
                      .arg(m_wording.systemAtSentenceStart);
        break;
    }
    if (!state.note.isEmpty())
        detail += u' ' + state.note;
    descriptor.detail = std::move(detail);
    return descriptor;
}

QList<PermissionDescriptor> PermissionCenter::onDemandDescriptors() const
{
    const QString placementDetail =
        m_wording.isMac
            ? QStringLiteral(
                  "Usually works automatically. If macOS blocks Terminal window metadata on your setup, "
                  "enable Screen Recording in Privacy & Security.")
            : QStringLiteral(
                  "Usually works automatically on X11 with a window manager that follows EWMH, and on "
                  "sway through its IPC. Other Wayland desktops show no application the other windows, "
                  "so there the desktop places composers.");
    const QString filesDetail =
        m_wording.isMac
            ? QStringLiteral("Desktop, Documents, Downloads, iCloud Drive, removable, and network "
                             "volumes are requested by macOS when a task touches them.")
            : QStringLiteral("Home folders, removable, and network volumes are reached with your own "
                             "user's rights when a task touches them; nothing needs allowing.");
    return {
        {Section::onDemandAccess, Kind::screenRecording, QStringLiteral("Terminal Window Placement"),
         placementDetail, Status::managedBySystem, QStringLiteral("Open Settings"), false},
        {Section::onDemandAccess, Kind::filesAndFolders, QStringLiteral("Files & Folders"), filesDetail,
         Status::onDemand, QStringLiteral("Open Settings"), false},
    };
}
