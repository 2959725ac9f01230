// The files of the simulated device.
#include "simulator/device_folder.h"

#include <fcntl.h>
#include <glib.h>
#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>
#include <system_error>

#include "simulator/device_error.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kDefaultVersion = "1.4.0";
constexpr std::size_t kRecipeCount = 12;
constexpr std::size_t kPictureBytes = 65536;
constexpr std::size_t kPayloadBytes = 262144;
constexpr std::size_t kHalfRecord = 64;
constexpr const char* kStagingPrefix = ".incoming-";
constexpr const char* kDeviceGroup = "DEVICE_INFO";
constexpr const char* kDeviceNameKey = "transfername";

[[noreturn]] void failWith(const GError* error) {
    throw DeviceError(DeviceManagerStatus::failed, error->message);
}

[[noreturn]] void failWithErrno(const char* action, const fs::path& path) {
    throw fs::filesystem_error(action, path, std::error_code(errno, std::generic_category()));
}

// Bytes that do not compress, the same for the same seed.
std::string noise(std::size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(generator()); });
    return bytes;
}

void createData(const fs::path& state) {
    const fs::path data = state / kDataFolder;
    writeStateFile(state / kSettingsFile,
                   "[DEVICE_INFO]\n"
                   "transfername=Morvane-X60\n"
                   "serial=X60-000042\n"
                   "\n"
                   "[DISPLAY]\n"
                   "brightness=80\n"
                   "language=en\n");
    writeStateFile(data / "users/users.ini",
                   "[operator]\nlevel=1\n\n[service]\nlevel=5\n\n[admin]\nlevel=9\n");
    for (std::size_t i = 1; i <= kRecipeCount; ++i) {
        const std::string stem = "recipe-" + std::to_string(i);
        writeStateFile(data / "recipes" / (stem + ".ini"),
                       "[Recipe]\nname=Recipe " + std::to_string(i) + "\ntemperature=" +
                           std::to_string(60 + i) + "\npicture=" + stem + ".picture\n");
        writeStateFile(data / "recipes" / (stem + ".picture"),
                       noise(kPictureBytes, static_cast<unsigned>(i)));
    }
}

void createFirmware(const fs::path& state) {
    writeStateFile(state / kVersionFile, std::string(kDefaultVersion) + "\n");
    writeStateFile(state / kPayloadFile, firmwarePayload(kDefaultVersion));
}

void createOnce(const fs::path& state, const char* folder, void (*create)(const fs::path&)) {
    if (fs::exists(state / folder)) {
        return;
    }
    const StagingFolder staging(state);
    create(staging.path());
    fs::rename(staging.path() / folder, state / folder);
}

// To be released by its caller.
GKeyFile* loadSettings(const fs::path& state) {
    g_autoptr(GError) error = nullptr;
    g_autoptr(GKeyFile) settings = g_key_file_new();
    if (g_key_file_load_from_file(settings, (state / kSettingsFile).c_str(),
                                  G_KEY_FILE_KEEP_COMMENTS, &error) == FALSE) {
        failWith(error);
    }
    return g_steal_pointer(&settings);
}

}  // namespace

std::string readStateFile(const fs::path& path) {
    g_autoptr(GError) error = nullptr;
    g_autofree char* bytes = nullptr;
    gsize count = 0;
    if (g_file_get_contents(path.c_str(), &bytes, &count, &error) == FALSE) {
        failWith(error);
    }
    return {bytes, count};
}

void writeStateFile(const fs::path& path, const std::string& bytes) {
    g_autoptr(GError) error = nullptr;
    fs::create_directories(path.parent_path());
    if (g_file_set_contents(path.c_str(), bytes.data(), static_cast<gssize>(bytes.size()),
                            &error) == FALSE) {
        failWith(error);
    }
}

void prepareStateFolder(const fs::path& state) {
    fs::create_directories(state);
    for (const auto& entry : fs::directory_iterator(state)) {
        if (entry.path().filename().string().rfind(kStagingPrefix, 0) == 0) {
            fs::remove_all(entry.path());
        }
    }
    createOnce(state, kDataFolder, createData);
    createOnce(state, kFirmwareFolder, createFirmware);
}

std::string firmwarePayload(const std::string& version) {
    return noise(kPayloadBytes, g_str_hash(version.c_str()));
}

std::string deviceName(const fs::path& state) {
    g_autoptr(GError) error = nullptr;
    g_autoptr(GKeyFile) settings = loadSettings(state);
    g_autofree char* name = g_key_file_get_string(settings, kDeviceGroup, kDeviceNameKey, &error);
    if (name == nullptr) {
        failWith(error);
    }
    return name;
}

void setDeviceName(const fs::path& state, const std::string& name) {
    if (g_utf8_validate(name.c_str(), -1, nullptr) == FALSE) {
        throw DeviceError(DeviceManagerStatus::failed, "a device name has to be UTF-8");
    }
    g_autoptr(GKeyFile) settings = loadSettings(state);
    g_key_file_set_string(settings, kDeviceGroup, kDeviceNameKey, name.c_str());
    gsize count = 0;
    g_autofree char* text = g_key_file_to_data(settings, &count, nullptr);
    writeStateFile(state / kSettingsFile, {text, count});
}

void createCredentialRecord(const std::string& path) {
    if (fs::exists(path)) {
        return;
    }
    g_autofree char* random = g_uuid_string_random();
    g_autofree char* credential = g_compute_checksum_for_string(G_CHECKSUM_SHA256, random, -1);
    writeStateFile(path, std::string(kHalfRecord, '\0') + credential);
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
}

void requireCredential(const std::string& path, const std::string& credential) {
    g_autofree char* bytes = nullptr;
    gsize count = 0;
    if (g_file_get_contents(path.c_str(), &bytes, &count, nullptr) == FALSE ||
        count != 2 * kHalfRecord) {
        throw DeviceError(DeviceManagerStatus::refused, "no usable credential record");
    }
    // The bytes end with a zero that GLib adds, and a credential with its first one.
    if (credential != bytes + kHalfRecord) {
        throw DeviceError(DeviceManagerStatus::refused, "wrong credential");
    }
}

StagingFolder::StagingFolder(const fs::path& state)
    : path_((state / (std::string(kStagingPrefix) + "XXXXXX")).string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        failWithErrno("mkdtemp", path_);
    }
}

StagingFolder::~StagingFolder() {
    std::error_code ignored;  // the next start clears what is left
    fs::remove_all(path_, ignored);
}

void exchangeFolders(const fs::path& left, const fs::path& right) {
    if (renameat2(AT_FDCWD, left.c_str(), AT_FDCWD, right.c_str(), RENAME_EXCHANGE) != 0) {
        failWithErrno("exchange", right);
    }
}
