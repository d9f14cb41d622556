#include "permissions/PermissionDescriptor.h"

bool PermissionDescriptor::isUserChangeable(Status status)
{
    return status == Status::granted || status == Status::needsAttention || status == Status::notRequested;
}
