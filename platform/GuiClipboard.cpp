#include "platform/GuiClipboard.h"

#include <QClipboard>
#include <QGuiApplication>

void GuiClipboard::setText(const QString &text)
{
    if (QClipboard *clipboard = QGuiApplication::clipboard())
        clipboard->setText(text, QClipboard::Clipboard);
}

QString GuiClipboard::text() const
{
    const QClipboard *clipboard = QGuiApplication::clipboard();
    return clipboard ? clipboard->text(QClipboard::Clipboard) : QString();
}

std::unique_ptr<Clipboard> Clipboard::create()
{
    return std::make_unique<GuiClipboard>();
}
