#include "app/Alerts.h"

#include "core/AppConstants.h"

#include <QMessageBox>

namespace Alerts {
namespace {

void show(QMessageBox::Icon icon, const QString &message, const QString &informativeText)
{
    QMessageBox box(icon, AppConstants::appName, message);
    box.setInformativeText(informativeText);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.exec();
}

} // namespace

void showWarning(const QString &message, const QString &informativeText)
{
    show(QMessageBox::Warning, message, informativeText);
}

void showNotice(const QString &message, const QString &informativeText)
{
    show(QMessageBox::Information, message, informativeText);
}

} // namespace Alerts
