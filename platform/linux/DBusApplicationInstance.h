#pragma once

#include "platform/ApplicationInstance.h"

// Owns the session-bus name and serves one method, Reopen, on the application's
// object path; a second copy calls it and exits.
class DBusApplicationInstance final : public ApplicationInstance {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "zq.tarvel.Application")

public:
    using ApplicationInstance::ApplicationInstance;

    Claim claim() override;

public Q_SLOTS:
    Q_SCRIPTABLE void Reopen();
};
