// What the simulated device throws.
#pragma once

#include <glib.h>

#include <stdexcept>
#include <string>

#include "simulator/device_manager_status.h"

// Why the device did not do what it was asked; what() says it in words.
class DeviceError : public std::runtime_error {
public:
    DeviceError(DeviceManagerStatus statusValue, const std::string& text)
        : std::runtime_error(text), status(statusValue) {}
    DeviceManagerStatus status;
};

// Throws what GLib reported, which must not be null.
[[noreturn]] inline void failWith(const GError* error) {
    throw DeviceError(DeviceManagerStatus::failed, error->message);
}
