#pragma once

#include <QImage>
#include <QProcess>
#include <QString>

// What a window shows now, as the X server has it; for the desktop tests that link Qt Gui.
inline QImage windowImage(const QString &window)
{
    QProcess import;
    import.start(QStringLiteral("import"), {QStringLiteral("-window"), window, QStringLiteral("png:-")});
    import.waitForFinished(10000);
    return QImage::fromData(import.readAllStandardOutput(), "PNG");
}
