// The device's persistent record: 128 bytes, the second half of which is the credential text.
#pragma once

#include <string>

// Creates the record with a credential of its own, and the folders above it, unless there is a file
// of that name. Throws DeviceError.
void createCredentialRecord(const std::string& path);

// Throws DeviceError unless the record can be read and holds `credential`.
void requireCredential(const std::string& path, const std::string& credential);
