// The permissions window, offscreen: the rows it shows, and that they follow the actions and
// Tarvel becoming active again.
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

QPushButton *actionOf(const QWidget &window, int row)
{
    return window.findChildren<QWidget *>(u"PermissionRow"_s).at(row)->findChild<QPushButton *>();
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

QTEST_MAIN(PermissionsWindowTest)
#include "tst_permissionswindow.moc"
