#pragma once

#include <QString>

#include <memory>

// The desktop's general clipboard.
class Clipboard {
public:
    virtual ~Clipboard() = default;

    // The implementation for this platform. Needs a QGuiApplication.
    static std::unique_ptr<Clipboard> create();

    virtual void setText(const QString &text) = 0;
    virtual QString text() const = 0;
};
