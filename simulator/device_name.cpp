// The device's name in its settings file, a GKeyFile.
#include "simulator/device_name.h"

#include <glib.h>

#include "simulator/device_error.h"
#include "simulator/device_layout.h"
#include "simulator/key_file.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kDeviceGroup = "DEVICE_INFO";
constexpr const char* kDeviceNameKey = "transfername";

fs::path settingsPath(const fs::path& state) {
    return state / kDataFolder / kSettingsFile;
}

KeyFile loadSettings(const fs::path& state) {
    g_autoptr(GError) error = nullptr;
    KeyFile settings(g_key_file_new());
    if (g_key_file_load_from_file(settings.get(), settingsPath(state).c_str(),
                                  G_KEY_FILE_KEEP_COMMENTS, &error) == FALSE) {
        failWith(error);
    }
    return settings;
}

}  // namespace

std::string deviceName(const fs::path& state) {
    g_autoptr(GError) error = nullptr;
    const KeyFile settings = loadSettings(state);
    g_autofree char* name =
        g_key_file_get_string(settings.get(), kDeviceGroup, kDeviceNameKey, &error);
    if (name == nullptr) {
        failWith(error);
    }
    return name;
}

void setDeviceName(const fs::path& state, const std::string& name) {
    g_autoptr(GError) error = nullptr;
    if (g_utf8_validate(name.data(), static_cast<gssize>(name.size()), nullptr) == FALSE) {
        throw DeviceError(DeviceManagerStatus::failed, "a device name has to be UTF-8");
    }
    const KeyFile settings = loadSettings(state);
    g_key_file_set_string(settings.get(), kDeviceGroup, kDeviceNameKey, name.c_str());
    if (g_key_file_save_to_file(settings.get(), settingsPath(state).c_str(), &error) == FALSE) {
        failWith(error);
    }
}
