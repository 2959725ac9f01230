// Backup and update files: a tar archive in one Zstandard frame, whose checksum covers every byte.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulator/device_error.h"

// Called at each step of a job: how much is done, and how much there is. It may sleep, and it ends
// the job by throwing.
using Pace = std::function<void(std::uint64_t done, std::uint64_t total)>;

struct Archive {
    // The manifest, which is the first member of the file.
    std::string kind;
    std::string device;
    std::string time;  // ISO 8601, UTC
    std::string firmware;  // of the device that was saved, or contained in an update

    std::vector<std::string> members;  // relative paths: folders to pack, plain files as read
};

// An open file of a stick. Pulling the stick takes the file out of the folders, while an open one
// could be used on.
class OpenFile {
public:
    // Opens a regular file as fopen does. Throws DeviceError.
    OpenFile(std::string path, const char* mode);
    std::FILE* get() const { return file_.get(); }
    // The open file by a name that other processes can open, also when the stick has been pulled.
    std::string link() const;
    // Whether the path still names the open file.
    bool isInPlace() const;
    // Throws DeviceError when it does not.
    void requireInPlace() const;

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::string path_;
    DeviceManagerStatus failure_;  // of a job or check that cannot use the file
    std::unique_ptr<std::FILE, Close> file_;
};

// The bytes of a file with the members that lie in `folder`. Throws DeviceError.
std::string packArchive(const Archive& content, const std::filesystem::path& folder);

// Writes `path` from front to back, so that its size shows the progress; unpackArchive refuses it
// until it is whole. On failure throws DeviceError, or what `pace` throws, and removes the file.
void writeArchive(const std::string& path, const std::string& bytes, const Pace& pace = {});

// Unpacks a file into `folder`; the members that it returns are the plain files there. Throws
// DeviceError for whatever is not a whole, unaltered file of this form.
Archive unpackArchive(const OpenFile& file, const std::filesystem::path& folder);
