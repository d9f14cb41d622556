// The desktop's light or dark look, from a stand-in for the desktop portal on a private session
// bus, applied to the application's palette (offscreen).
#include "app/AppearanceController.h"
#include "composer/ComposerPanel.h"
#include "composer/ComposerTextView.h"
#include "composer/EditorComposer.h"
#include "editing/CompletionPopup.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QStyle>
#include <QtTest>

namespace {

// What org.freedesktop.portal.Settings answers: the color-scheme number, wrapped twice as the
// portal's Read does.
class FakePortalSettings final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")

public:
    uint scheme = 1;

public Q_SLOTS:
    QDBusVariant Read(const QString &settingNamespace, const QString &key)
    {
        if (settingNamespace != u"org.freedesktop.appearance" || key != u"color-scheme")
            return QDBusVariant(QVariant::fromValue(QDBusVariant(QString())));
        return QDBusVariant(QVariant::fromValue(QDBusVariant(scheme)));
    }
};

} // namespace

class AppearanceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void palettesFollowThePortal()
    {
        QDBusConnection portal =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("portal"));
        FakePortalSettings settings;
        QVERIFY(portal.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &settings,
                                      QDBusConnection::ExportAllSlots));
        QVERIFY(portal.registerService(QStringLiteral("org.freedesktop.portal.Desktop")));
        const QPalette original = QApplication::palette();
        const QColor dark = AppearanceController::darkPalette().color(QPalette::Window);
        const QColor light = QApplication::style()->standardPalette().color(QPalette::Window);
        QVERIFY(dark != light);

        AppearanceController appearance(ColorSchemeSource::create());
        QTRY_COMPARE(QApplication::palette().color(QPalette::Window), dark);
        const auto change = [&](uint scheme) {
            QDBusMessage signal = QDBusMessage::createSignal(
                QStringLiteral("/org/freedesktop/portal/desktop"),
                QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("SettingChanged"));
            signal << QStringLiteral("org.freedesktop.appearance") << QStringLiteral("color-scheme")
                   << QVariant::fromValue(QDBusVariant(scheme));
            QVERIFY(portal.send(signal));
        };
        // Views made in one look and shown in the other (the composer is made ahead of time) draw
        // in the look of the moment: text that kept the dark look's colour was unreadable on light.
        EditorComposer composer(QStringLiteral("Keep the public API as it is."));
        composer.showWindow();
        ComposerTextView &text = *composer.panel()->textView();
        CompletionPopup list(&text);
        list.present({{QStringLiteral("src/parser/lexer.cpp"), false, {}}}, QRect(10, 10, 1, 12), QString());
        QVERIFY(QTest::qWaitForWindowExposed(&list));
        for (const auto &[scheme, window] : {std::pair{2u, light}, std::pair{1u, dark}}) {
            change(scheme);
            QTRY_COMPARE(QApplication::palette().color(QPalette::Window), window);
            for (QWidget *view : {static_cast<QWidget *>(&text), static_cast<QWidget *>(&list)}) {
                for (const QPalette::ColorRole role : {QPalette::Text, QPalette::Highlight})
                    QCOMPARE(view->palette().color(role), QApplication::palette().color(role));
            }
            QCOMPARE(list.palette().color(QPalette::Base), QApplication::palette().color(QPalette::Base));
        }
        change(0);
        QTRY_COMPARE(QApplication::palette(), original);
    }
};

QTEST_MAIN(AppearanceTest)
#include "tst_appearance.moc"
