// The other side of the orders: hands one to a device manager that runs.
#pragma once

#include <gio/gio.h>

#include <string>

// Returns the behaviour in words, as it is after the order. Throws DeviceError when no device
// manager answers on 127.0.0.1:`port`, or when it does not know the order.
std::string giveOrder(guint16 port, const std::string& order, const std::string& value);
