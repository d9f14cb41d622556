// The permission center: the summary sentences, the rows each platform answer gives, that the
// on-demand rows never count, and which platform call each action makes.
#include "FakePermissionPlatform.h"
#include "permissions/PermissionCenter.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;
using Access = PlatformPermissionState::Access;
using Kind = PermissionDescriptor::Kind;
using Status = PermissionDescriptor::Status;

Q_DECLARE_METATYPE(Access)
Q_DECLARE_METATYPE(Kind)
Q_DECLARE_METATYPE(Status)

namespace {

PermissionDescriptor descriptorOf(Kind kind, const QList<PermissionDescriptor> &descriptors)
{
    for (const PermissionDescriptor &descriptor : descriptors) {
        if (descriptor.kind == kind)
            return descriptor;
    }
    return {};
}

PlatformPermissionState &stateOf(Kind kind, FakePermissionPlatform &platform)
{
    return kind == Kind::notifications       ? platform.notifications
           : kind == Kind::speechRecognition ? platform.speechRecognition
                                             : platform.microphone;
}

} // namespace

class PermissionCenterTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void summarySentences_data()
    {
        QTest::addColumn<bool>("mac");
        QTest::addColumn<int>("granted");
        QTest::addColumn<int>("userChangeable");
        QTest::addColumn<int>("managed");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("detail");

        const QString counted = QStringLiteral(
            "Notifications, Speech Recognition, and microphone access are counted here. File and "
            "placement access are handled by macOS when needed.");
        QTest::newRow("all granted") << true << 3 << 3 << 0 << u"Permissions 3/3"_s << counted;
        QTest::newRow("nothing counted") << true << 0 << 0 << 0 << u"Permissions"_s << counted;
        QTest::newRow("one managed only")
            << true << 0 << 0 << 1 << u"Permission managed by macOS"_s
            << u"The voice-permission status shown here is managed by macOS and cannot be changed in Tarvel."_s;
        QTest::newRow("two managed only")
            << true << 0 << 0 << 2 << u"2 permissions managed by macOS"_s
            << u"2 voice-permission statuses are managed by macOS and cannot be changed in Tarvel."_s;
        QTest::newRow("voice restricted, notifications granted")
            << true << 1 << 1 << 2 << u"Permissions 1/1"_s
            << u"1 user-changeable permissions are counted here. 2 additional voice-permission statuses are "
               "managed by macOS and shown for reference."_s;
        QTest::newRow("microphone restricted") << true << 1 << 2 << 1 << u"Permissions 1/2"_s
                                               << u"2 user-changeable permissions are counted here. 1 "
                                                  u"additional voice-permission status is managed "
                                                  "by macOS and shown for reference."_s;
        QTest::newRow("one changeable, one managed") << true << 0 << 1 << 1 << u"Permissions 0/1"_s
                                                     << u"1 user-changeable permission is counted here. 1 "
                                                        u"additional voice-permission status is managed "
                                                        "by macOS and shown for reference."_s;
        QTest::newRow("elsewhere, counted") << false << 2 << 3 << 0 << u"Permissions 2/3"_s
                                            << u"Notifications, Speech Recognition, and microphone access "
                                               u"are counted here. File and placement "
                                               "access are handled by the system when needed."_s;
        QTest::newRow("elsewhere, one managed")
            << false << 0 << 0 << 1 << u"Permission managed by the system"_s
            << u"The voice-permission status shown here is managed by the system and cannot be changed in "
               "Tarvel."_s;
    }

    void summarySentences()
    {
        QFETCH(bool, mac);
        QFETCH(int, granted);
        QFETCH(int, userChangeable);
        QFETCH(int, managed);
        const PermissionSummary summary{granted, userChangeable, managed};
        const PermissionWording wording =
            mac ? PermissionWording::forMac() : PermissionWording::forOtherSystems();
        QTEST(summary.title(wording), "title");
        QTEST(summary.detail(wording), "detail");
    }

    void rowForEachPlatformAnswer_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<Access>("access");
        QTest::addColumn<Status>("status");
        QTest::addColumn<QString>("actionTitle");
        QTest::addColumn<QString>("detail");

        const QString notifications =
            QStringLiteral("Completion banners and Copy actions for finished quick tasks.");
        const QString speech =
            QStringLiteral("Transcribes dictated notes on this Mac before the rewrite pass.");
        const QString microphone =
            QStringLiteral("Captures dictated notes locally for prompt drafting inside the composer.");
        const QString restricted =
            QStringLiteral(" macOS currently restricts this access, so it cannot be changed here.");
        for (const auto &[kind, name, detail] :
             {std::tuple{Kind::notifications, "notifications", notifications},
              std::tuple{Kind::speechRecognition, "speech", speech},
              std::tuple{Kind::microphone, "microphone", microphone}}) {
            const QByteArray prefix = QByteArray(name) + ' ';
            QTest::newRow(prefix + "authorised")
                << kind << Access::authorized << Status::granted << u"Manage…"_s << detail;
            QTest::newRow(prefix + "denied")
                << kind << Access::denied << Status::needsAttention << u"Open Settings"_s << detail;
            QTest::newRow(prefix + "not determined")
                << kind << Access::notDetermined << Status::notRequested << u"Allow…"_s << detail;
        }
        QTest::newRow("speech restricted") << Kind::speechRecognition << Access::restricted
                                           << Status::restricted << QString() << speech + restricted;
        QTest::newRow("microphone restricted") << Kind::microphone << Access::restricted << Status::restricted
                                               << QString() << microphone + restricted;
        // Notifications have no restricted state: an answer the system adds later needs attention.
        QTest::newRow("notifications restricted")
            << Kind::notifications << Access::restricted << Status::needsAttention << u"Open Settings"_s
            << notifications;
    }

    void rowForEachPlatformAnswer()
    {
        QFETCH(Kind, kind);
        QFETCH(Access, access);
        FakePermissionPlatform platform;
        stateOf(kind, platform).access = access;
        PermissionCenter center(platform, PermissionWording::forMac());

        const QList<PermissionDescriptor> descriptors = awaited(center.fetchDescriptors()).result();
        const QList<Kind> order{Kind::notifications, Kind::speechRecognition, Kind::microphone,
                                Kind::screenRecording, Kind::filesAndFolders};
        QCOMPARE(descriptors.size(), order.size());
        for (qsizetype i = 0; i < order.size(); ++i)
            QCOMPARE(descriptors.at(i).kind, order.at(i));

        const PermissionDescriptor row = descriptorOf(kind, descriptors);
        QCOMPARE(row.section, PermissionDescriptor::Section::permissions);
        QVERIFY(row.includesInSummary);
        QTEST(row.status, "status");
        QTEST(row.actionTitle.value_or(QString()), "actionTitle");
        QTEST(row.detail, "detail");
    }

    void platformNoteFollowsTheDetail()
    {
        FakePermissionPlatform platform;
        platform.microphone = {Access::denied, QStringLiteral("No microphone is connected.")};
        PermissionCenter center(platform, PermissionWording::forOtherSystems());
        const PermissionDescriptor row =
            descriptorOf(Kind::microphone, awaited(center.fetchDescriptors()).result());
        QCOMPARE(row.detail, u"Captures dictated notes locally for prompt drafting inside the composer. No "
                             "microphone is connected."_s);
    }

    // Whatever the counted rows say, the on-demand rows neither add to nor change the summary.
    void onDemandRowsNeverCount()
    {
        const QList<Access> accesses{Access::notDetermined, Access::denied, Access::restricted,
                                     Access::authorized};
        FakePermissionPlatform platform;
        PermissionCenter center(platform);
        for (Access notifications : accesses) {
            for (Access speech : accesses) {
                for (Access microphone : accesses) {
                    platform.notifications.access = notifications;
                    platform.speechRecognition.access = speech;
                    platform.microphone.access = microphone;
                    const QList<PermissionDescriptor> rows = awaited(center.fetchDescriptors()).result();
                    const PermissionSummary summary = awaited(center.fetchSummary()).result();
                    QCOMPARE(summary, PermissionSummary::fromDescriptors(rows.first(3)));
                    QCOMPARE(summary.userChangeableCount + summary.managedBySystemCount, 3);
                    for (const PermissionDescriptor &row : rows.sliced(3)) {
                        QCOMPARE(row.section, PermissionDescriptor::Section::onDemandAccess);
                        QVERIFY(!row.includesInSummary);
                    }
                }
            }
        }
    }

    void summaryOfTheRows()
    {
        FakePermissionPlatform platform;
        platform.notifications.access = Access::authorized;
        platform.speechRecognition.access = Access::restricted;
        platform.microphone.access = Access::restricted;
        PermissionCenter center(platform);
        QCOMPARE(awaited(center.fetchSummary()).result(), (PermissionSummary{1, 1, 2}));
        platform.notifications.access = Access::denied;
        platform.speechRecognition.access = Access::authorized;
        QCOMPARE(awaited(center.fetchSummary()).result(), (PermissionSummary{1, 2, 1}));
    }

    void actions_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<Access>("access");
        QTest::addColumn<QString>("call");

        QTest::newRow("notifications asked")
            << Kind::notifications << Access::notDetermined << u"request notifications"_s;
        QTest::newRow("notifications granted")
            << Kind::notifications << Access::authorized << u"open notifications"_s;
        QTest::newRow("notifications denied")
            << Kind::notifications << Access::denied << u"open notifications"_s;
        QTest::newRow("speech asked")
            << Kind::speechRecognition << Access::notDetermined << u"request speechRecognition"_s;
        QTest::newRow("speech denied")
            << Kind::speechRecognition << Access::denied << u"open speechRecognition"_s;
        QTest::newRow("microphone asked")
            << Kind::microphone << Access::notDetermined << u"request microphone"_s;
        QTest::newRow("microphone granted") << Kind::microphone << Access::authorized << u"open microphone"_s;
        QTest::newRow("placement") << Kind::screenRecording << Access::notDetermined
                                   << u"open screenRecording"_s;
        QTest::newRow("files") << Kind::filesAndFolders << Access::notDetermined << u"open filesAndFolders"_s;
    }

    void actions()
    {
        QFETCH(Kind, kind);
        QFETCH(Access, access);
        FakePermissionPlatform platform;
        platform.notifications.access = platform.speechRecognition.access = platform.microphone.access =
            access;
        PermissionCenter center(platform);
        const PermissionDescriptor row = descriptorOf(kind, awaited(center.fetchDescriptors()).result());
        awaited(center.performAction(row));
        QFETCH(QString, call);
        QCOMPARE(platform.calls, QStringList{call});
    }

    void settingsThatCannotOpenSayWhereToLook()
    {
        FakePermissionPlatform platform;
        platform.microphone.access = Access::denied;
        PermissionCenter center(platform);
        QSignalSpy whereToLook(&center, &PermissionCenter::settingsUnavailable);
        const PermissionDescriptor row =
            descriptorOf(Kind::microphone, awaited(center.fetchDescriptors()).result());

        awaited(center.performAction(row));
        QCOMPARE(whereToLook.size(), 0);

        platform.whereToLook = QStringLiteral("Use pavucontrol.");
        awaited(center.performAction(row));
        QCOMPARE(whereToLook.size(), 1);
        QCOMPARE(whereToLook.at(0).at(0).toString(), platform.whereToLook);
    }
};

QTEST_GUILESS_MAIN(PermissionCenterTest)
#include "tst_permissioncenter.moc"
