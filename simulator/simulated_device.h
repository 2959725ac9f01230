// The simulated device: its contents in a state folder, and the jobs and checks of its device
// manager.
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>

#include "simulator/backup_archive.h"

// Writes an update file that installs `version`. Throws DeviceError.
void writeUpdateFile(const std::string& path, const std::string& version);

// Settings, recipes, users and firmware live in the state folder and nowhere else, so that they
// outlast the process. All operations may be called from any thread; they throw DeviceError or, for
// what is wrong in the state folder, filesystem_error. One job (backup, restore, update) runs at a
// time, another is turned away as busy; checks are answered meanwhile.
class SimulatedDevice {
public:
    explicit SimulatedDevice(std::filesystem::path state);

    // Writes the backup file and returns its size in bytes.
    std::uint64_t backup(const std::string& path, const std::string& kind, const Pace& pace = {});

    // Replaces what the archive's kind covers by its contents, or leaves everything as it was.
    // Returns the kind.
    std::string restore(const std::string& path, const Pace& pace = {});

    // Installs the update, or leaves the firmware as it was. Returns the new version.
    std::string update(const std::string& path, const Pace& pace = {});

    // The most bytes that a backup of this kind takes up now.
    std::uint64_t backupSize(const std::string& kind) const;

    // Throw for a file that restore or update would not take.
    void checkBackupFile(const std::string& path) const;
    void checkFirmwareFile(const std::string& path) const;

    // "unnamed" where the settings hold no name.
    std::string name() const;
    std::string firmwareVersion() const;

private:
    std::string pack(const std::string& kind) const;
    void requireInstallable(const Archive& content) const;

    std::filesystem::path state_;
    std::mutex job_;  // held by the running job
};
