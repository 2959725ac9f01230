// The system bus as a client that is not asked to stay needs it.
#pragma once

#include <gio/gio.h>

#include <optional>
#include <string>

#include "transfer/contract.h"
#include "transferctl/deadline.h"
#include "transferctl/gobject_holder.h"

namespace transferctl {

// Connects, also to the address in DBUS_SYSTEM_BUS_ADDRESS. Losing the bus does not end the
// process. Throws Failure (no service, time limit).
ObjectHolder<GDBusConnection> connectToBus(const Deadline& deadline);

// The unique name of the service, nothing while it does not run. Throws Failure.
std::optional<std::string> ownerOfService(GDBusConnection* connection, const Deadline& deadline);

// The id of the process behind a unique name; nothing when the bus does not tell.
std::optional<unsigned> processOf(GDBusConnection* connection, const std::string& owner,
                                  const Deadline& deadline);

}  // namespace transferctl
