#pragma once

#include <QString>

#include <memory>

// Opens files the way the desktop does when the user double-clicks them.
class FileOpener {
public:
    virtual ~FileOpener() = default;

    // The implementation for this platform. Needs a QGuiApplication.
    static std::unique_ptr<FileOpener> create();

    // Opens the file in its default application; false when no application took it.
    virtual bool openInDefaultApplication(const QString &path) = 0;
};
