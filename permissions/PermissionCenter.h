#pragma once

#include "permissions/PermissionDescriptor.h"
#include "permissions/PermissionSummary.h"
#include "permissions/PermissionWording.h"
#include "platform/PermissionPlatform.h"

#include <QFuture>
#include <QList>
#include <QObject>

// The permissions Tarvel relies on, as rows with fixed texts and one action each. Keeps no
// state: every call asks the platform again. Main thread only.
class PermissionCenter final : public QObject {
    Q_OBJECT

public:
    explicit PermissionCenter(PermissionPlatform &platform, QObject *parent = nullptr);
    PermissionCenter(PermissionPlatform &platform, PermissionWording wording, QObject *parent = nullptr);

    // Notifications, Speech Recognition, microphone, Terminal Window Placement, Files & Folders.
    QFuture<QList<PermissionDescriptor>> fetchDescriptors();
    QFuture<PermissionSummary> fetchSummary();
    // Asks for access or opens the row's settings page. Callers refresh the rows afterwards.
    QFuture<void> performAction(const PermissionDescriptor &descriptor);
    // At launch: asks for notification access where the system has not asked the user yet. A
    // system that asks nobody, or has an answer, is left as it is.
    QFuture<void> requestNotificationAccessIfUnasked();

    const PermissionWording &wording() const { return m_wording; }

Q_SIGNALS:
    // No settings page could be opened for an action; the sentence says where to look instead.
    void settingsUnavailable(const QString &whereToLook);

private:
    PermissionDescriptor makeNotificationDescriptor(const PlatformPermissionState &state) const;
    PermissionDescriptor makeSpeechRecognitionDescriptor(const PlatformPermissionState &state) const;
    PermissionDescriptor makeMicrophoneDescriptor(const PlatformPermissionState &state) const;
    PermissionDescriptor makeCountedDescriptor(PermissionDescriptor::Kind kind, QString title, QString detail,
                                               const PlatformPermissionState &state) const;
    QList<PermissionDescriptor> onDemandDescriptors() const;
    QFuture<void> handleNotificationsAction(PermissionDescriptor::Status status);
    QFuture<void> handleSpeechRecognitionAction(PermissionDescriptor::Status status);
    QFuture<void> handleMicrophoneAction(PermissionDescriptor::Status status);
    QFuture<void> openSettings(PermissionSettingsPage page);

    PermissionPlatform &m_platform;
    PermissionWording m_wording;
};
