// The files of the simulated device: where they lie, what a new device holds, and how they change
// at once or not at all.
#pragma once

#include <filesystem>
#include <string>

constexpr const char* kDefaultStateFolder = "/mnt/usrdata/device";
constexpr const char* kDefaultCredentialRecord = "/mnt/usrdata/persistent/pdata.rt_file.ESAT";

// Relative to the state folder.
constexpr const char* kDataFolder = "data";
constexpr const char* kSettingsFile = "data/settings/settings.ini";  // a GKeyFile
constexpr const char* kFirmwareFolder = "firmware";
constexpr const char* kVersionFile = "firmware/version";
constexpr const char* kPayloadFile = "firmware/payload";

// Every operation below throws DeviceError or filesystem_error.

std::string readStateFile(const std::filesystem::path& path);
// Replaces the file at once and makes the folders above it.
void writeStateFile(const std::filesystem::path& path, const std::string& bytes);

// Removes what an interrupted process left, and fills the parts of the state folder that are not
// there, each in one step.
void prepareStateFolder(const std::filesystem::path& state);

// The payload of a firmware: bytes that do not compress, the same for the same version.
std::string firmwarePayload(const std::string& version);

// The device's name, one of its settings. Every other setting is kept; the name has to be UTF-8.
std::string deviceName(const std::filesystem::path& state);
void setDeviceName(const std::filesystem::path& state, const std::string& name);

// The persistent record: 128 bytes, the second half of which is the credential. It is created,
// with the folders above it, unless a file of that name exists.
void createCredentialRecord(const std::string& path);
// Throws unless the record can be read and holds `credential`.
void requireCredential(const std::string& path, const std::string& credential);

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

// The one step that makes a restore or update count: nobody ever sees half of it.
void exchangeFolders(const std::filesystem::path& left, const std::filesystem::path& right);
