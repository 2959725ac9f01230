// The device's name, one of the settings in the state folder.
#pragma once

#include <filesystem>
#include <string>

// The name in the settings of the device in the state folder. Throws DeviceError when it has none.
std::string deviceName(const std::filesystem::path& state);
// Gives it another; every other setting is kept. Throws DeviceError, also for a name that is not
// UTF-8.
void setDeviceName(const std::filesystem::path& state, const std::string& name);
