// The device's persistent record.
#include "simulator/credential_record.h"

#include <glib.h>

#include <cerrno>
#include <system_error>

#include "simulator/device_error.h"

namespace {

constexpr std::size_t kHalf = 64;

std::string newCredential() {
    std::string text;
    while (text.size() < kHalf) {
        g_autofree char* uuid = g_uuid_string_random();
        for (const char* digit = uuid; *digit != '\0'; ++digit) {
            text += *digit == '-' ? "" : std::string(1, *digit);
        }
    }
    return text.substr(0, kHalf);
}

}  // namespace

void createCredentialRecord(const std::string& path) {
    if (g_file_test(path.c_str(), G_FILE_TEST_EXISTS) != FALSE) {
        return;
    }
    g_autofree char* folder = g_path_get_dirname(path.c_str());
    if (g_mkdir_with_parents(folder, 0755) != 0) {
        throw DeviceError(
            DeviceManagerStatus::failed,
            std::string("cannot create ") + folder + ": " + std::generic_category().message(errno));
    }
    const std::string record = std::string(kHalf, '\0') + newCredential();
    g_autoptr(GError) error = nullptr;
    if (g_file_set_contents_full(path.c_str(), record.data(), static_cast<gssize>(record.size()),
                                 G_FILE_SET_CONTENTS_CONSISTENT, 0600, &error) == FALSE) {
        throw DeviceError(DeviceManagerStatus::failed, error->message);
    }
}

void requireCredential(const std::string& path, const std::string& credential) {
    g_autofree char* bytes = nullptr;
    gsize count = 0;
    if (g_file_get_contents(path.c_str(), &bytes, &count, nullptr) == FALSE || count != 2 * kHalf) {
        throw DeviceError(DeviceManagerStatus::refused, "no usable credential record");
    }
    // The credential is handed over as a C text, so it ends at the first zero byte.
    const std::string half(bytes + kHalf, kHalf);
    if (credential != half.substr(0, half.find('\0'))) {
        throw DeviceError(DeviceManagerStatus::refused, "wrong credential");
    }
}
