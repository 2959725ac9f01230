// Where the simulated device keeps its things, shared by the simulator and the stand-in settings
// library.
#pragma once

constexpr const char* kDefaultStateFolder = "/mnt/usrdata/device";
constexpr const char* kDefaultCredentialRecord = "/mnt/usrdata/persistent/pdata.rt_file.ESAT";

// Relative to the state folder.
constexpr const char* kDataFolder = "data";
constexpr const char* kFirmwareFolder = "firmware";

// Relative to the firmware folder.
constexpr const char* kVersionFile = "version";
constexpr const char* kPayloadFile = "payload";

// Relative to the data folder. A GKeyFile: the setting "GROUP/key" is `key` in [GROUP].
constexpr const char* kSettingsFile = "settings/settings.ini";
