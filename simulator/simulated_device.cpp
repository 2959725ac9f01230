// The jobs and checks of the simulated device.
#include "simulator/simulated_device.h"

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <regex>
#include <utility>
#include <vector>

#include "simulator/device_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kFirmwareKind = "firmware";

// What a backup of this kind holds: files below these folders of the state folder. Empty for an
// unknown kind.
std::vector<std::string> foldersOf(const std::string& kind) {
    static const std::map<std::string, std::vector<std::string>> kKinds = {
        {"fullbackup", {"data/settings", "data/recipes", "data/users"}},
        {"recipes", {"data/recipes"}},
        {"userdatabase", {"data/users"}},
    };
    const auto found = kKinds.find(kind);
    return found == kKinds.end() ? std::vector<std::string>() : found->second;
}

[[noreturn]] void refuse(const std::string& reason) {
    throw DeviceError(DeviceManagerStatus::unusableFile, reason);
}

std::string now() {
    g_autoptr(GDateTime) time = g_date_time_new_now_utc();
    g_autofree char* text = g_date_time_format_iso8601(time);
    return text;
}

void requireBackup(const Archive& content) {
    const auto folders = foldersOf(content.kind);
    const auto belongs = [&](const std::string& member) {
        return std::any_of(folders.begin(), folders.end(),
                           [&](const auto& folder) { return member.rfind(folder + "/", 0) == 0; });
    };
    if (folders.empty() || !std::all_of(content.members.begin(), content.members.end(), belongs)) {
        refuse("not a backup");
    }
}

// The time that a job takes with a file that has been unpacked; it ends when the stick is pulled.
void takeTime(const OpenFile& file, const Pace& pace) {
    constexpr std::uint64_t kSteps = 20;
    for (std::uint64_t done = 1; pace && done <= kSteps; ++done) {
        pace(done, kSteps);
        file.requireInPlace();
    }
}

void requireVersion(const std::string& text) {
    static const std::regex kVersion("[0-9]{1,9}(\\.[0-9]{1,9}){0,3}");
    if (!std::regex_match(text, kVersion)) {
        refuse("not a version");
    }
}

std::unique_lock<std::mutex> beginJob(std::mutex& job) {
    std::unique_lock<std::mutex> lock(job, std::try_to_lock);
    if (!lock.owns_lock()) {
        throw DeviceError(DeviceManagerStatus::busy, "another job is running");
    }
    return lock;
}

}  // namespace

void writeUpdateFile(const std::string& path, const std::string& version) {
    requireVersion(version);
    const StagingFolder staging(fs::temp_directory_path());
    writeStateFile(staging.path() / kPayloadFile, firmwarePayload(version));
    writeArchive(path,
                 packArchive({kFirmwareKind, "Morvane-X60", now(), version, {kFirmwareFolder}},
                             staging.path()));
}

SimulatedDevice::SimulatedDevice(fs::path state) : state_(std::move(state)) {
    prepareStateFolder(state_);
}

std::uint64_t SimulatedDevice::backup(const std::string& path, const std::string& kind,
                                      const Pace& pace) {
    const auto lock = beginJob(job_);
    const std::string bytes = pack(kind);
    writeArchive(path, bytes, pace);
    return bytes.size();
}

// What a kind covers is one folder, so that one exchange replaces it.
std::string SimulatedDevice::restore(const std::string& path, const Pace& pace) {
    const auto lock = beginJob(job_);
    const OpenFile file(path, "rbe");
    const StagingFolder staging(state_);
    const Archive content = unpackArchive(file, staging.path());
    requireBackup(content);
    takeTime(file, pace);
    const auto folders = foldersOf(content.kind);
    for (const std::string& folder : folders) {
        fs::create_directories(staging.path() / folder);
    }
    const fs::path covered = folders.size() == 1 ? folders.front() : kDataFolder;
    fs::create_directories(state_ / covered);
    exchangeFolders(staging.path() / covered, state_ / covered);
    return content.kind;
}

std::string SimulatedDevice::update(const std::string& path, const Pace& pace) {
    const auto lock = beginJob(job_);
    const OpenFile file(path, "rbe");
    const StagingFolder staging(state_);
    const Archive content = unpackArchive(file, staging.path());
    requireInstallable(content);
    takeTime(file, pace);
    writeStateFile(staging.path() / kVersionFile, content.firmware + "\n");
    exchangeFolders(staging.path() / kFirmwareFolder, state_ / kFirmwareFolder);
    return content.firmware;
}

// The manifest of the backup itself may differ by some bytes.
std::uint64_t SimulatedDevice::backupSize(const std::string& kind) const {
    constexpr std::uint64_t kReserve = 1024;
    return pack(kind).size() + kReserve;
}

void SimulatedDevice::checkBackupFile(const std::string& path) const {
    const StagingFolder staging(state_);
    requireBackup(unpackArchive(OpenFile(path, "rbe"), staging.path()));
}

void SimulatedDevice::checkFirmwareFile(const std::string& path) const {
    const StagingFolder staging(state_);
    requireInstallable(unpackArchive(OpenFile(path, "rbe"), staging.path()));
}

std::string SimulatedDevice::firmwareVersion() const {
    const std::string text = readStateFile(state_ / kVersionFile);
    return text.substr(0, text.find('\n'));
}

std::string SimulatedDevice::name() const {
    try {
        return deviceName(state_);
    } catch (const DeviceError&) {
        return "unnamed";
    }
}

// The bytes of a backup made now.
std::string SimulatedDevice::pack(const std::string& kind) const {
    Archive content = {kind, name(), now(), firmwareVersion(), {}};
    const auto folders = foldersOf(kind);
    if (folders.empty()) {
        throw DeviceError(DeviceManagerStatus::unknownKind, "unknown backup kind");
    }
    for (const std::string& folder : folders) {
        fs::create_directories(state_ / folder);
        content.members.push_back(folder);
    }
    return packArchive(content, state_);
}

void SimulatedDevice::requireInstallable(const Archive& content) const {
    if (content.kind != kFirmwareKind ||
        content.members != std::vector<std::string>{kPayloadFile}) {
        refuse("not an update");
    }
    const std::string installed = firmwareVersion();
    requireVersion(content.firmware);
    if (strverscmp(content.firmware.c_str(), installed.c_str()) <= 0) {
        refuse("version " + content.firmware + " is not newer than " + installed);
    }
}
