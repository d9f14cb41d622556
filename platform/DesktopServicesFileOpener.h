#pragma once

#include "platform/FileOpener.h"

// Opens files through QDesktopServices (xdg-open's rules: the MIME type's default
// application).
class DesktopServicesFileOpener final : public FileOpener {
public:
    bool openInDefaultApplication(const QString &path) override;
};
