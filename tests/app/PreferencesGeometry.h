#pragma once

// Where the preferences window's controls sit: the same window is built in this process at the
// real one's size (same display, style and fonts) and measured, like the tray menu's rows.
#include "DesktopTestSupport.h"

#include "core/UserDefaults.h"
#include "preferences/PreferencesWindow.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QTemporaryDir>

namespace desktop_test {

inline QString preferencesWindowOf(const Application &app)
{
    for (const QString &id : app.visibleWindows()) {
        if (xdotool({QStringLiteral("getwindowname"), id}).startsWith(u"Preferences"))
            return id;
    }
    return {};
}

class MeasuredPreferences final {
public:
    explicit MeasuredPreferences(const QString &realWindow)
        : m_origin(geometry(realWindow))
    {
        m_window.setAttribute(Qt::WA_DontShowOnScreen); // laid out, never mapped
        m_window.resize(m_origin.width, m_origin.height);
        m_window.show();
        QCoreApplication::processEvents();
    }

    // Clicks the centre of the named control in the real window.
    void click(const QString &objectName) const
    {
        const auto *widget = m_window.findChild<QWidget *>(objectName);
        QVERIFY2(widget, qPrintable(objectName));
        const QPoint centre = widget->mapTo(&m_window, widget->rect().center());
        desktop_test::click(m_origin.x + centre.x(), m_origin.y + centre.y());
    }

private:
    Geometry m_origin;
    QTemporaryDir m_folder;
    UserDefaults m_defaults{m_folder.filePath(QStringLiteral("Tarvel.conf"))};
    KeyboardShortcuts m_shortcuts{m_defaults};
    PreferencesWindow m_window{m_defaults, m_shortcuts, nullptr};
};

} // namespace desktop_test
