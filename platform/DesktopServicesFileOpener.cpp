#include "platform/DesktopServicesFileOpener.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

bool DesktopServicesFileOpener::openInDefaultApplication(const QString &path)
{
    if (!QFileInfo(path).isFile())
        return false;
    return QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

std::unique_ptr<FileOpener> FileOpener::create()
{
    return std::make_unique<DesktopServicesFileOpener>();
}
