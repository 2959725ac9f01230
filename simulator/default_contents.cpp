// Default settings, users, recipes and firmware.
#include "simulator/default_contents.h"

#include <algorithm>
#include <random>
#include <sstream>

#include "simulator/device_layout.h"
#include "simulator/state_folder.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kDefaultVersion = "1.4.0";
constexpr std::size_t kRecipeCount = 12;
constexpr std::size_t kPictureBytes = 65536;
constexpr std::size_t kPayloadBytes = 262144;

// Bytes that do not compress, the same for the same seed.
std::string noise(std::size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(generator()); });
    return bytes;
}

void createData(const fs::path& data) {
    writeStateFile(data / kSettingsFile,
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
        std::ostringstream recipe;
        recipe << "[Recipe]\nname=Recipe " << i << "\ntemperature=" << 60 + i
               << "\npicture=" << stem << ".picture\n";
        writeStateFile(data / "recipes" / (stem + ".ini"), recipe.str());
        writeStateFile(data / "recipes" / (stem + ".picture"),
                       noise(kPictureBytes, static_cast<unsigned>(i)));
    }
}

void createFirmware(const fs::path& firmware) {
    writeStateFile(firmware / kVersionFile, std::string(kDefaultVersion) + "\n");
    writeStateFile(firmware / kPayloadFile, firmwarePayload(0));
}

void createOnce(const fs::path& state, const char* folder, void (*create)(const fs::path&)) {
    if (fs::exists(state / folder)) {
        return;
    }
    const StagingFolder staging(state);
    create(staging.path() / folder);
    fs::rename(staging.path() / folder, state / folder);
}

}  // namespace

std::string firmwarePayload(unsigned seed) {
    return noise(kPayloadBytes, seed);
}

void createDefaultContents(const fs::path& state) {
    createOnce(state, kDataFolder, createData);
    createOnce(state, kFirmwareFolder, createFirmware);
}
