// The stub of the closed settings library: reads the settings of the simulated device.
#include "transfer/platform/vesk_service_interface.h"

#include <glib.h>

#include "simulator/device_folder.h"

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = -1;

// What the open transaction reads: the settings as they were when it began. Null outside a
// transaction.
GKeyFile* settings = nullptr;

}  // namespace

VeskServiceInterface* VeskServiceInterface::getSingleton() {
    static VeskServiceInterface service;
    return &service;
}

// A transaction that was left open is replaced, so that one failed getValue does not end all
// reading.
int VeskServiceInterface::startTransaction(bool /*first*/, bool /*second*/) {
    g_autofree char* path = g_build_filename(kDefaultStateFolder, kSettingsFile, nullptr);
    g_autoptr(GKeyFile) read = g_key_file_new();
    if (g_key_file_load_from_file(read, path, G_KEY_FILE_NONE, nullptr) == FALSE) {
        return kFailure;
    }
    g_clear_pointer(&settings, g_key_file_unref);
    settings = g_steal_pointer(&read);
    return kSuccess;
}

int VeskServiceInterface::getValue(const std::string& key, std::string& value) {
    const std::size_t separator = key.find('/');
    if (separator == std::string::npos || settings == nullptr) {
        return kFailure;
    }
    g_autofree char* text = g_key_file_get_string(settings, key.substr(0, separator).c_str(),
                                                  key.substr(separator + 1).c_str(), nullptr);
    if (text == nullptr) {
        return kFailure;
    }
    value = text;
    return kSuccess;
}

void VeskServiceInterface::stopTransaction() {
    g_clear_pointer(&settings, g_key_file_unref);
}
