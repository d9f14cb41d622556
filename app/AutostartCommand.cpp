#include "app/AutostartCommand.h"

#include "core/TarvelError.h"
#include "platform/LoginItem.h"

int runAutostartCommand(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    const QString action = arguments.value(0);
    if (arguments.size() != 1 || (action != u"on" && action != u"off" && action != u"status")) {
        err << "usage: tarvel autostart on|off|status\n";
        return 2;
    }
    try {
        if (action != u"status")
            LoginItem::setEnabled(action == u"on");
    } catch (const TarvelError &error) {
        err << "tarvel: " << error.description() << '\n';
        return 1;
    }
    if (LoginItem::isEnabled())
        out << "Tarvel starts at login (" << LoginItem::location() << ").\n";
    else
        out << "Tarvel does not start at login.\n";
    return 0;
}
