#pragma once

#include "platform/Clipboard.h"

// The clipboard of the QGuiApplication (the X11 CLIPBOARD selection, or Wayland's).
class GuiClipboard final : public Clipboard {
public:
    void setText(const QString &text) override;
    QString text() const override;
};
