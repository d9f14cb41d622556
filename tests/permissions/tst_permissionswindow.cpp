// The permissions window, offscreen: the rows it shows, and that a row's button runs the action
// and the rows follow.
#include "FakePermissionPlatform.h"
#include "permissions/PermissionCenter.h"
#include "permissions/PermissionsWindow.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QtTest>

using namespace Qt::StringLiterals;
using Access = PlatformPermissionState::Access;

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

QPushButton *actionOf(const QWidget &window, const QString &title)
{
    for (const QWidget *row : window.findChildren<QWidget *>(u"PermissionRow"_s)) {
        if (row->findChild<QLabel *>(u"PermissionTitle"_s)->text() == title)
            return row->findChild<QPushButton *>(u"PermissionAction"_s);
    }
    return nullptr;
}

} // namespace

class PermissionsWindowTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
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

        QTRY_COMPARE(texts(window, u"PermissionTitle"_s),
                     (QStringList{u"Notifications"_s, u"Speech Recognition"_s, u"Microphone"_s,
                                  u"Terminal Window Placement"_s, u"Files & Folders"_s}));
        QCOMPARE(texts(window, u"PermissionAction"_s),
                 (QStringList{u"Manage…"_s, QString(), u"Allow…"_s, u"Open Settings"_s, u"Open Settings"_s}));
        QCOMPARE(window.findChild<QLabel *>(u"PermissionSummaryTitle"_s)->text(), u"Permissions 1/2"_s);

        actionOf(window, u"Microphone"_s)->click();
        QTRY_COMPARE(texts(window, u"PermissionAction"_s).at(2), u"Manage…"_s);
        QCOMPARE(platform.calls, QStringList{u"request microphone"_s});
        QCOMPARE(window.findChild<QLabel *>(u"PermissionSummaryTitle"_s)->text(), u"Permissions 2/2"_s);
    }

    void settingsThatCannotOpenAreExplained()
    {
        FakePermissionPlatform platform;
        platform.whereToLook = u"Nothing needs allowing here."_s;
        PermissionCenter center(platform);
        PermissionsWindow window(center);
        window.show();
        QTRY_VERIFY(actionOf(window, u"Files & Folders"_s));

        actionOf(window, u"Files & Folders"_s)->click();
        QTRY_VERIFY(window.findChild<QMessageBox *>(u"PermissionsMessage"_s));
        const auto *message = window.findChild<QMessageBox *>(u"PermissionsMessage"_s);
        QTRY_VERIFY(message->isVisible());
        QCOMPARE(message->text(), platform.whereToLook);
        QCOMPARE(platform.calls, QStringList{u"open filesAndFolders"_s});
    }

    void refreshesWhenTarvelBecomesActive()
    {
        FakePermissionPlatform platform;
        PermissionCenter center(platform);
        PermissionsWindow window(center);
        window.show();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        QTRY_COMPARE(texts(window, u"PermissionStatus"_s).first(), u"Not Requested"_s);

        platform.notifications.access = Access::authorized;
        // As when the user comes back from the system's settings.
        Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationActive);
        QTRY_COMPARE(texts(window, u"PermissionStatus"_s).first(), u"Allowed"_s);
    }
};

QTEST_MAIN(PermissionsWindowTest)
#include "tst_permissionswindow.moc"
