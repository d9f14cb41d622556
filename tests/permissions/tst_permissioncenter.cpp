// The permission center: the summary sentences, the row each platform answer gives, that the
// on-demand rows never count, and which platform call each action makes; then its window,
// offscreen: the rows it shows follow the actions and Tarvel becoming active again.
#include "FakePermissionPlatform.h"
#include "permissions/PermissionCenter.h"
#include "permissions/PermissionsWindow.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;
using Access = PlatformPermissionState::Access;
using Kind = PermissionDescriptor::Kind;
using Status = PermissionDescriptor::Status;
using Page = PermissionSettingsPage;

namespace {

QStringList texts(const QWidget &window, const QString &objectName)
{
    QStringList result;
    for (const QWidget *row : window.findChildren<QWidget *>(u"PermissionRow"_s)) {
        if (const auto *label = row->findChild<QLabel *>(objectName))
            result.append(label->text());
        else if (const auto *button = row->findChild<QPushButton *>(objectName))
            result.append(button->text());
        else
            result.append(QString());
    }
    return result;
}

QPushButton *actionOf(const QWidget &window, int row)
{
    return window.findChildren<QWidget *>(u"PermissionRow"_s).at(row)->findChild<QPushButton *>();
}

} // namespace

class PermissionCenterTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void summarySentences()
    {
        const auto check = [](const PermissionWording &wording, const PermissionSummary &summary,
                              const QString &title, const QString &detail) {
            QCOMPARE(summary.title(wording), title);
            QCOMPARE(summary.detail(wording), detail);
        };
        check(PermissionWording::forMac(), {3, 3, 0}, u"Permissions 3/3"_s,
              u"Notifications, Speech Recognition, and microphone access are counted here. File and "
              "placement access are handled by macOS when needed."_s);
        // Stays plural for one changeable permission when more than one is managed.
        check(PermissionWording::forMac(), {1, 1, 2}, u"Permissions 1/1"_s,
              u"1 user-changeable permissions are counted here. 2 additional voice-permission statuses "
              "are managed by macOS and shown for reference."_s);
        check(PermissionWording::forMac(), {1, 2, 1}, u"Permissions 1/2"_s,
              u"2 user-changeable permissions are counted here. 1 additional voice-permission status is "
              "managed by macOS and shown for reference."_s);
        check(PermissionWording::forOtherSystems(), {0, 0, 1}, u"Permission managed by the system"_s,
              u"The voice-permission status shown here is managed by the system and cannot be changed in "
              "Tarvel."_s);
    }

    // Each counted row shows its own answer through one mapping; notifications know no restriction,
    // so a restricted answer reads as denied there. The on-demand rows follow, never counted, in the
    // rows or the summary.
    void rowForEachPlatformAnswer()
    {
        FakePermissionPlatform platform;
        PermissionCenter center(platform, PermissionWording::forMac());
        using Row = std::tuple<Kind, Status, QString, bool>; // the action, and whether it says why not
        const auto rows = [&] {
            QList<Row> shown;
            for (const PermissionDescriptor &row : awaited(center.fetchDescriptors()).result()) {
                if (row.includesInSummary == (row.section == PermissionDescriptor::Section::onDemandAccess))
                    shown.append({row.kind, row.status, u"counted on demand"_s, false});
                shown.append({row.kind, row.status, row.actionTitle.value_or(QString()),
                              row.detail.endsWith(u" macOS currently restricts this access, so it cannot be "
                                                  "changed here."_s)});
            }
            return shown;
        };
        platform.notifications.access = Access::authorized;
        platform.speechRecognition.access = Access::denied;
        QCOMPARE(rows(),
                 (QList<Row>{{Kind::notifications, Status::granted, u"Manage…"_s, false},
                             {Kind::speechRecognition, Status::needsAttention, u"Open Settings"_s, false},
                             {Kind::microphone, Status::notRequested, u"Allow…"_s, false},
                             {Kind::screenRecording, Status::managedBySystem, u"Open Settings"_s, false},
                             {Kind::filesAndFolders, Status::onDemand, u"Open Settings"_s, false}}));
        platform.notifications.access = platform.speechRecognition.access = platform.microphone.access =
            Access::restricted;
        QCOMPARE(rows().first(3),
                 (QList<Row>{{Kind::notifications, Status::needsAttention, u"Open Settings"_s, false},
                             {Kind::speechRecognition, Status::restricted, QString(), true},
                             {Kind::microphone, Status::restricted, QString(), true}}));
        // Only the counted rows make the summary: one changeable, two managed by the system.
        QCOMPARE(awaited(center.fetchSummary()).result(), (PermissionSummary{0, 1, 2}));
    }

    // Which platform call each row's action makes, and whether the user is told where to look; at
    // launch only a notification access nobody has answered yet is asked for.
    void actions()
    {
        const auto open = [](Page page) {
            return u"open %1"_s.arg(int(page));
        };
        for (const auto &[row, access, call] :
             {std::tuple{0, Access::notDetermined, u"request notifications"_s},
              std::tuple{0, Access::denied, open(Page::notifications)},
              std::tuple{1, Access::notDetermined, u"request speechRecognition"_s},
              std::tuple{1, Access::denied, open(Page::speechRecognition)},
              std::tuple{2, Access::authorized, open(Page::microphone)},
              std::tuple{3, Access::notDetermined, open(Page::screenRecording)},
              std::tuple{4, Access::notDetermined, open(Page::filesAndFolders)}}) {
            FakePermissionPlatform platform;
            platform.notifications.access = platform.speechRecognition.access = platform.microphone.access =
                access;
            platform.whereToLook = u"Look elsewhere."_s;
            PermissionCenter center(platform);
            QSignalSpy whereToLook(&center, &PermissionCenter::settingsUnavailable);
            awaited(center.performAction(awaited(center.fetchDescriptors()).result().at(row)));
            QCOMPARE(platform.calls, QStringList{call});
            QCOMPARE(whereToLook.size(), call.startsWith(u"open"_s) ? 1 : 0);

            FakePermissionPlatform atLaunch;
            atLaunch.notifications.access = access;
            awaited(PermissionCenter(atLaunch).requestNotificationAccessIfUnasked());
            QCOMPARE(atLaunch.calls.contains(u"request notifications"_s), access == Access::notDetermined);
        }
    }

    void rowsFollowTheActions()
    {
        FakePermissionPlatform platform;
        platform.notifications.access = Access::authorized;
        platform.speechRecognition.access = Access::restricted;
        platform.microphone.access = Access::notDetermined;
        PermissionCenter center(platform, PermissionWording::forOtherSystems());
        PermissionsWindow window(center);
        window.show();
        // Becoming active refreshes too; let that happen before the action.
        QVERIFY(QTest::qWaitForWindowActive(&window));

        QTRY_COMPARE(texts(window, u"PermissionTitle"_s).size(), 5);
        QCOMPARE(texts(window, u"PermissionAction"_s),
                 (QStringList{u"Manage…"_s, QString(), u"Allow…"_s, u"Open Settings"_s, u"Open Settings"_s}));
        QCOMPARE(window.findChild<QLabel *>(u"PermissionSummaryTitle"_s)->text(), u"Permissions 1/2"_s);

        actionOf(window, 2)->click();
        QTRY_COMPARE(texts(window, u"PermissionAction"_s).at(2), u"Manage…"_s);
        QCOMPARE(window.findChild<QLabel *>(u"PermissionSummaryTitle"_s)->text(), u"Permissions 2/2"_s);

        platform.whereToLook = u"Nothing needs allowing here."_s;
        actionOf(window, 4)->click();
        QTRY_VERIFY(window.findChild<QMessageBox *>(u"PermissionsMessage"_s));
        QCOMPARE(window.findChild<QMessageBox *>(u"PermissionsMessage"_s)->text(), platform.whereToLook);

        // As when the user comes back from the system's settings.
        platform.notifications.access = Access::denied;
        Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationActive);
        QTRY_COMPARE(texts(window, u"PermissionStatus"_s).first(), u"Needs Attention"_s);
    }
};

QTEST_MAIN(PermissionCenterTest)
#include "tst_permissioncenter.moc"
