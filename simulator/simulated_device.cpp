// The jobs and checks of the simulated device.
#include "simulator/simulated_device.h"

#include <glib.h>

#include <algorithm>
#include <cstring>
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

const std::string& requireAbsolute(const std::string& path) {
    if (!fs::path(path).is_absolute()) {
        refuse("not an absolute path");
    }
    return path;
}

// A name that leads out of its folder is no name of ours.
bool isBelow(const std::string& name, const std::string& folder) {
    return name.rfind(folder + "/", 0) == 0 && fs::path(name).lexically_normal() == name;
}

void requireBackup(const Archive& content) {
    const auto folders = foldersOf(content.kind);
    const auto belongs = [&](const auto& member) {
        return std::any_of(folders.begin(), folders.end(),
                           [&](const auto& folder) { return isBelow(member.first, folder); });
    };
    if (folders.empty() || !std::all_of(content.members.begin(), content.members.end(), belongs)) {
        refuse("not a backup");
    }
}

// Puts the members below `folder`, at the pace of a job that ends when the stick has been pulled.
void unpack(const Archive& content, const OpenFile& file, const fs::path& folder,
            const Pace& pace) {
    const std::size_t steps = content.members.size() + 1;
    std::size_t done = 0;
    const auto step = [&] {
        if (pace) {
            pace(++done, steps);
        }
        file.requireInPlace();
    };
    for (const auto& [name, bytes] : content.members) {
        writeStateFile(folder / name, bytes);
        step();
    }
    step();
}

void requireVersion(const std::string& text) {
    static const std::regex kVersion("[0-9]{1,9}(\\.[0-9]{1,9}){0,3}");
    if (!std::regex_match(text, kVersion)) {
        refuse("not a version");
    }
}

std::string summary(const Archive& content) {
    return content.kind + " of " + content.device + ", " + content.time + ", firmware " +
           content.firmware + ", " + std::to_string(content.members.size()) + " files";
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
    writeArchive(
        path,
        {kFirmwareKind, "Morvane-X60", now(), version, {{kPayloadFile, firmwarePayload(version)}}});
}

SimulatedDevice::SimulatedDevice(fs::path state) : state_(std::move(state)) {
    prepareStateFolder(state_);
}

std::uint64_t SimulatedDevice::backup(const std::string& path, const std::string& kind,
                                      const Pace& pace) {
    const auto lock = beginJob(job_);
    return writeArchive(requireAbsolute(path), collect(kind), pace);
}

// What a kind covers is one folder, so that one exchange replaces it.
std::string SimulatedDevice::restore(const std::string& path, const Pace& pace) {
    const auto lock = beginJob(job_);
    const OpenFile file(requireAbsolute(path), "rbe");
    const Archive content = readArchive(file);
    requireBackup(content);
    const auto folders = foldersOf(content.kind);
    const StagingFolder staging(state_);
    unpack(content, file, staging.path(), pace);
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
    const OpenFile file(requireAbsolute(path), "rbe");
    const Archive content = readArchive(file);
    requireInstallable(content);
    const StagingFolder staging(state_);
    writeStateFile(staging.path() / kVersionFile, content.firmware + "\n");
    unpack(content, file, staging.path(), pace);
    exchangeFolders(staging.path() / kFirmwareFolder, state_ / kFirmwareFolder);
    return content.firmware;
}

std::uint64_t SimulatedDevice::backupSize(const std::string& kind) const {
    return archiveSizeLimit(collect(kind));
}

std::string SimulatedDevice::checkBackupFile(const std::string& path) const {
    const Archive content = readArchive(OpenFile(requireAbsolute(path), "rbe"));
    requireBackup(content);
    return summary(content);
}

std::string SimulatedDevice::checkFirmwareFile(const std::string& path) const {
    const Archive content = readArchive(OpenFile(requireAbsolute(path), "rbe"));
    requireInstallable(content);
    return summary(content);
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

// What a backup of this kind holds now.
Archive SimulatedDevice::collect(const std::string& kind) const {
    Archive content = {kind, name(), now(), firmwareVersion(), {}};
    const auto folders = foldersOf(kind);
    if (folders.empty()) {
        throw DeviceError(DeviceManagerStatus::unknownKind, "unknown backup kind");
    }
    for (const std::string& folder : folders) {
        if (!fs::exists(state_ / folder)) {
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(state_ / folder)) {
            if (entry.is_symlink() || (!entry.is_directory() && !entry.is_regular_file())) {
                throw DeviceError(DeviceManagerStatus::failed,
                                  "not a plain file in the state folder");
            }
            if (entry.is_regular_file()) {
                content.members[entry.path().lexically_relative(state_)] =
                    readStateFile(entry.path());
            }
        }
    }
    return content;
}

void SimulatedDevice::requireInstallable(const Archive& content) const {
    if (content.kind != kFirmwareKind || content.members.size() != 1 ||
        content.members.count(kPayloadFile) == 0) {
        refuse("not an update");
    }
    const std::string installed = firmwareVersion();
    requireVersion(content.firmware);
    if (strverscmp(content.firmware.c_str(), installed.c_str()) <= 0) {
        refuse("version " + content.firmware + " is not newer than " + installed);
    }
}
