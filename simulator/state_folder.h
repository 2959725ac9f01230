// Files and folders below the state folder, and how they change at once or not at all.
#pragma once

#include <filesystem>
#include <string>

// Throws DeviceError.
std::string readStateFile(const std::filesystem::path& path);
// Replaces the file at once and makes the folders above it. Throws DeviceError, filesystem_error.
void writeStateFile(const std::filesystem::path& path, const std::string& bytes);

// What follows throws filesystem_error.

// A folder beside the contents that goes away with everything that is still in it.
class StagingFolder {
public:
    explicit StagingFolder(const std::filesystem::path& state);
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;
    ~StagingFolder();
    std::filesystem::path path() const { return path_; }

private:
    std::string path_;
};

// Removes the staging folders of a process that was interrupted.
void clearStaging(const std::filesystem::path& state);

// The one step that makes a restore or an update count: nobody ever sees half of it.
void exchangeFolders(const std::filesystem::path& left, const std::filesystem::path& right);
