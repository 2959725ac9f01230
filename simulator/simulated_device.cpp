// The jobs and checks of the simulated device.
#include "simulator/simulated_device.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <regex>
#include <sstream>
#include <system_error>
#include <utility>

#include "simulator/default_contents.h"
#include "simulator/device_layout.h"
#include "simulator/device_name.h"
#include "simulator/state_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kFullBackup = "fullbackup";
constexpr const char* kFirmwareKind = "firmware";

// Archive members of these kinds are named relative to the data folder.
const std::vector<ArchiveKind>& backupKinds() {
    static const std::vector<ArchiveKind> kKinds = {
        {kFullBackup, {"settings", "recipes", "users"}},
        {"recipes", {"recipes"}},
        {"userdatabase", {"users"}},
    };
    return kKinds;
}

// Members of an update are named relative to the state folder.
const std::vector<ArchiveKind>& updateKinds() {
    static const std::vector<ArchiveKind> kKinds = {{kFirmwareKind, {kFirmwareFolder}}};
    return kKinds;
}

const ArchiveKind& backupKind(const std::string& word) {
    for (const ArchiveKind& kind : backupKinds()) {
        if (kind.word == word) {
            return kind;
        }
    }
    throw DeviceError(DeviceManagerStatus::unknownKind, "unknown backup kind");
}

// Runs `work`; what is wrong with an archive gets the status given, what is wrong here is a
// failure.
template <typename Work>
auto withStatus(DeviceManagerStatus archiveStatus, Work work) {
    try {
        return work();
    } catch (const ArchiveError& error) {
        throw DeviceError(archiveStatus, error.what());
    } catch (const fs::filesystem_error& error) {
        throw DeviceError(DeviceManagerStatus::failed, error.what());
    }
}

std::string now() {
    g_autoptr(GDateTime) time = g_date_time_new_now_utc();
    g_autofree char* text = g_date_time_format_iso8601(time);
    return text;
}

class FolderReceiver final : public MemberReceiver {
public:
    explicit FolderReceiver(fs::path folder) : folder_(std::move(folder)) {}
    void begin(const MemberRecord& member) override {
        const fs::path path = folder_ / member.name;
        fs::create_directories(path.parent_path());
        file_.open(path, std::ios::binary | std::ios::trunc);
        requireGood(path);
    }
    void data(const char* bytes, std::size_t count) override {
        file_.write(bytes, static_cast<std::streamsize>(count));
    }
    void end() override {
        file_.close();
        requireGood(folder_);
    }

private:
    void requireGood(const fs::path& path) const {
        if (!file_) {
            throw fs::filesystem_error("cannot write", path,
                                       std::error_code(errno, std::generic_category()));
        }
    }

    fs::path folder_;
    std::ofstream file_;
};

std::vector<ArchiveMember> collect(const fs::path& base, const ArchiveKind& kind) {
    std::vector<ArchiveMember> members;
    for (const std::string& folder : kind.folders) {
        if (!fs::exists(base / folder)) {
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(base / folder)) {
            if (entry.is_directory() && !entry.is_symlink()) {
                continue;
            }
            if (!entry.is_regular_file() || entry.is_symlink()) {
                throw ArchiveError("not a plain file in the state folder");
            }
            members.push_back({entry.path().lexically_relative(base).generic_string(),
                               readStateFile(entry.path())});
        }
    }
    std::sort(members.begin(), members.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return members;
}

void requireAbsolute(const std::string& path) {
    if (!fs::path(path).is_absolute()) {
        throw DeviceError(DeviceManagerStatus::unusableFile, "not an absolute path");
    }
}

std::array<unsigned long, 4> parseVersion(const std::string& text) {
    static const std::regex kVersion("[0-9]{1,9}(\\.[0-9]{1,9}){0,3}");
    if (!std::regex_match(text, kVersion)) {
        throw DeviceError(DeviceManagerStatus::unusableFile, "not a version");
    }
    std::array<unsigned long, 4> numbers{};
    std::istringstream stream(text);
    std::string number;
    for (std::size_t i = 0; std::getline(stream, number, '.'); ++i) {
        numbers.at(i) = std::stoul(number);
    }
    return numbers;
}

std::string summary(const ArchiveManifest& manifest) {
    return manifest.kind + " of " + manifest.device + ", " + manifest.time + ", firmware " +
           manifest.firmware + ", " + std::to_string(manifest.members.size()) + " files";
}

std::unique_lock<std::mutex> beginJob(std::mutex& job) {
    std::unique_lock<std::mutex> lock(job, std::try_to_lock);
    if (!lock.owns_lock()) {
        throw DeviceError(DeviceManagerStatus::busy, "another job is running");
    }
    return lock;
}

void requireInstallable(const ArchiveManifest& manifest, const std::string& installed) {
    const std::string payload = std::string(kFirmwareFolder) + "/" + kPayloadFile;
    if (manifest.members.size() != 1 || manifest.members.front().name != payload) {
        throw DeviceError(DeviceManagerStatus::unusableFile, "an update holds one payload");
    }
    if (!isNewerVersion(manifest.firmware, installed)) {
        throw DeviceError(DeviceManagerStatus::unusableFile,
                          "version " + manifest.firmware + " is not newer than " + installed);
    }
}

}  // namespace

bool isNewerVersion(const std::string& left, const std::string& right) {
    return parseVersion(left) > parseVersion(right);
}

void writeUpdateFile(const std::string& path, const std::string& version) {
    parseVersion(version);  // throws
    ArchiveManifest head;
    head.kind = kFirmwareKind;
    head.device = "Morvane-X60";
    head.time = now();
    head.firmware = version;
    const std::string name = std::string(kFirmwareFolder) + "/" + kPayloadFile;
    const auto seed = g_str_hash(version.c_str());
    withStatus(DeviceManagerStatus::failed, [&] {
        return writeArchive(path, head, {{name, firmwarePayload(seed)}});
    });
}

SimulatedDevice::SimulatedDevice(fs::path state) : state_(std::move(state)) {
    withStatus(DeviceManagerStatus::failed, [&] {
        fs::create_directories(state_);
        clearStaging(state_);
        createDefaultContents(state_);
    });
}

std::uint64_t SimulatedDevice::backup(const std::string& path, const std::string& kind,
                                      const Pace& pace) {
    requireAbsolute(path);
    const ArchiveKind& chosen = backupKind(kind);
    const auto lock = beginJob(job_);
    return withStatus(DeviceManagerStatus::failed, [&] {
        return writeArchive(path, describe(kind), collect(state_ / kDataFolder, chosen), pace);
    });
}

// What a kind covers is one folder, so that one exchange replaces it.
std::string SimulatedDevice::restore(const std::string& path, const Pace& pace) {
    requireAbsolute(path);
    const auto lock = beginJob(job_);
    return withStatus(DeviceManagerStatus::unusableFile, [&] {
        const StagingFolder staging(state_);
        FolderReceiver receiver(staging.path() / kDataFolder);
        const ArchiveManifest manifest = readArchive(path, backupKinds(), &receiver, pace);
        const auto& folders = backupKind(manifest.kind).folders;
        const fs::path covered =
            folders.size() == 1 ? fs::path(kDataFolder) / folders.front() : fs::path(kDataFolder);
        for (const std::string& folder : folders) {
            fs::create_directories(staging.path() / kDataFolder / folder);
        }
        fs::create_directories(state_ / covered);
        exchangeFolders(staging.path() / covered, state_ / covered);
        return manifest.kind;
    });
}

std::string SimulatedDevice::update(const std::string& path, const Pace& pace) {
    requireAbsolute(path);
    const auto lock = beginJob(job_);
    checkFirmwareFile(path);  // turned away at once, not after the time of a job
    return withStatus(DeviceManagerStatus::unusableFile, [&] {
        const StagingFolder staging(state_);
        FolderReceiver receiver(staging.path());
        const ArchiveManifest manifest = readArchive(path, updateKinds(), &receiver, pace);
        requireInstallable(manifest, firmwareVersion());
        const fs::path firmware = staging.path() / kFirmwareFolder;
        writeStateFile(firmware / kVersionFile, manifest.firmware + "\n");
        exchangeFolders(firmware, state_ / kFirmwareFolder);
        return manifest.firmware;
    });
}

std::uint64_t SimulatedDevice::backupSize(const std::string& kind) const {
    const ArchiveKind& chosen = backupKind(kind);
    return withStatus(DeviceManagerStatus::failed, [&] {
        return archiveSizeLimit(describe(kind), collect(state_ / kDataFolder, chosen));
    });
}

std::string SimulatedDevice::checkBackupFile(const std::string& path) const {
    requireAbsolute(path);
    return withStatus(DeviceManagerStatus::unusableFile,
                      [&] { return summary(readArchive(path, backupKinds())); });
}

std::string SimulatedDevice::checkFirmwareFile(const std::string& path) const {
    requireAbsolute(path);
    return withStatus(DeviceManagerStatus::unusableFile, [&] {
        const ArchiveManifest manifest = readArchive(path, updateKinds());
        requireInstallable(manifest, firmwareVersion());
        return summary(manifest);
    });
}

std::string SimulatedDevice::firmwareVersion() const {
    return withStatus(DeviceManagerStatus::failed, [&] {
        std::istringstream text(readStateFile(state_ / kFirmwareFolder / kVersionFile));
        std::string version;
        std::getline(text, version);
        return version;
    });
}

std::string SimulatedDevice::name() const {
    try {
        return deviceName(state_);
    } catch (const DeviceError&) {
        return "unnamed";
    }
}

ArchiveManifest SimulatedDevice::describe(const std::string& kind) const {
    ArchiveManifest head;
    head.kind = kind;
    head.device = name();
    head.time = now();
    head.firmware = firmwareVersion();
    return head;
}
