// Errors of the message bus in the terms of transferctl.
#pragma once

#include <gio/gio.h>

#include "transferctl/failure.h"

namespace transferctl {

// The failure that an error of a call stands for. The policy's refusal is "refused", a time-out is
// "time limit", everything else "no service".
Failure failureOf(const GError* error);

// Whether the service owns its name but its objects are not there, as for a moment after its start.
bool objectsAreMissing(const GError* error);

}  // namespace transferctl
