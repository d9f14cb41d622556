#pragma once

#include <QObject>

#include <memory>

// Makes Tarvel a single instance per session. The first copy claims the session's
// application name; a later copy asks the first to open a scratch composer and exits.
class ApplicationInstance : public QObject {
    Q_OBJECT

public:
    enum class Claim {
        primary,        // this copy is the application
        alreadyRunning, // another copy is; it was asked to show itself
        unavailable,    // no session to claim (on Linux: no session bus); run anyway
    };

    using QObject::QObject;

    virtual Claim claim() = 0;

    static std::unique_ptr<ApplicationInstance> create(QObject *parent = nullptr);

Q_SIGNALS:
    // A second copy was started while this one runs.
    void reopenRequested();
};
