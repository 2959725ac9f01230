// What a device holds that has never been used.
#pragma once

#include <filesystem>
#include <string>

// Fills the parts of the state folder that are not there, each in one step, so that an interrupted
// start leaves none half filled. Throws DeviceError, filesystem_error.
void createDefaultContents(const std::filesystem::path& state);

// A payload of a firmware: bytes that do not compress, the same for the same seed.
std::string firmwarePayload(unsigned seed);
