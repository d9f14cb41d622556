#pragma once

// Where the preferences window's controls sit: the same window is built in this process at the
// real one's size (same display, style and fonts) and measured, like the tray menu's rows.
#include "DesktopTestSupport.h"

#include "core/UserDefaults.h"
#include "preferences/PreferencesWindow.h"
#include "shortcuts/KeyboardShortcuts.h"

#include <QScrollArea>
#include <QScrollBar>
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

    // Scrolls both windows to their top or end, with the wheel over the real one's scroll bar (over
    // the content a wheel would turn pop-ups). At either end the measured positions hold even where
    // the content differs further away.
    void scroll(bool toEnd) const
    {
        QScrollBar *bar = m_window.findChild<QScrollArea *>()->verticalScrollBar();
        bar->setValue(toEnd ? bar->maximum() : 0);
        const QPoint overBar = bar->mapTo(&m_window, bar->rect().center());
        xdotool({QStringLiteral("mousemove"), QString::number(m_origin.x + overBar.x()),
                 QString::number(m_origin.y + overBar.y()), QStringLiteral("click"),
                 QStringLiteral("--repeat"), QStringLiteral("40"), QStringLiteral("--delay"),
                 QStringLiteral("5"), toEnd ? QStringLiteral("5") : QStringLiteral("4")});
        QTest::qWait(300);
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
