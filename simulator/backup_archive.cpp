// Backup and update files, packed and unpacked by the programs tar and zstd.
#include "simulator/backup_archive.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>

#include "simulator/device_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBlock = 16384;
constexpr std::size_t kLastBytes = 16;
constexpr const char* kManifestName = "manifest";
constexpr const char* kManifestGroup = "Archive";

constexpr std::pair<const char*, std::string Archive::*> kManifestKeys[] = {
    {"Kind", &Archive::kind},
    {"Device", &Archive::device},
    {"Time", &Archive::time},
    {"Firmware", &Archive::firmware},
};

[[noreturn]] void refuseArchive(const std::string& reason) {
    throw DeviceError(DeviceManagerStatus::unusableFile, reason);
}

[[noreturn]] void failWithErrno(const char* action, DeviceManagerStatus status) {
    throw DeviceError(status, std::string(action) + ": " + std::generic_category().message(errno));
}

std::string manifestOf(const Archive& content) {
    g_autoptr(GKeyFile) file = g_key_file_new();
    for (const auto& [key, value] : kManifestKeys) {
        g_key_file_set_string(file, kManifestGroup, key, (content.*value).c_str());
    }
    g_autofree char* text = g_key_file_to_data(file, nullptr, nullptr);
    return text;
}

Archive parseManifest(const fs::path& path) {
    Archive content;
    g_autoptr(GKeyFile) file = g_key_file_new();
    g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr);
    for (const auto& [key, value] : kManifestKeys) {
        g_autofree char* found = g_key_file_get_string(file, kManifestGroup, key, nullptr);
        if (found == nullptr) {
            refuseArchive(std::string("bad manifest: no ") + key);
        }
        content.*value = found;
    }
    return content;
}

// Whether tar has done all of it.
bool runTar(std::vector<std::string> words) {
    words.insert(words.begin(), {"tar", "--zstd", "--force-local", "--no-same-owner"});
    std::vector<char*> arguments;
    std::transform(words.begin(), words.end(), std::back_inserter(arguments),
                   [](std::string& word) { return word.data(); });
    arguments.push_back(nullptr);
    constexpr auto kFlags =
        static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_LEAVE_DESCRIPTORS_OPEN |
                                 G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL);
    int end = 0;
    return g_spawn_sync(nullptr, arguments.data(), nullptr, kFlags, nullptr, nullptr, nullptr,
                        nullptr, &end, nullptr) != FALSE &&
           end == 0;
}

// The plain files below a folder, relative to it. Throws DeviceError for what is neither such a
// file nor a folder.
std::vector<std::string> filesBelow(const fs::path& folder, DeviceManagerStatus failure) {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_symlink() || (!entry.is_directory() && !entry.is_regular_file())) {
            throw DeviceError(failure, "a member is not a plain file");
        }
        if (entry.is_regular_file()) {
            files.push_back(entry.path().lexically_relative(folder));
        }
    }
    return files;
}

}  // namespace

// Devices and pipes are turned away before they are opened: opening one may wait for ever.
OpenFile::OpenFile(std::string path, const char* mode)
    : path_(std::move(path)),
      failure_(*mode == 'w' ? DeviceManagerStatus::failed : DeviceManagerStatus::unusableFile) {
    struct stat status {};
    if (stat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw DeviceError(failure_, "not a regular file");
    }
    file_.reset(std::fopen(path_.c_str(), mode));
    if (file_ == nullptr) {
        failWithErrno("cannot open", failure_);
    }
}

std::string OpenFile::link() const {
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fileno(file_.get()));
}

bool OpenFile::isInPlace() const {
    std::error_code gone;
    return fs::equivalent(path_, link(), gone);
}

void OpenFile::requireInPlace() const {
    if (!isInPlace()) {
        throw DeviceError(failure_, "the file is gone");
    }
}

std::string packArchive(const Archive& content, const fs::path& folder) {
    const StagingFolder staging(folder);
    const fs::path file = staging.path() / "archive";
    writeStateFile(staging.path() / kManifestName, manifestOf(content));
    std::vector<std::string> words = {"--create",     "--file",      file,          "--directory",
                                      staging.path(), kManifestName, "--directory", folder};
    words.insert(words.end(), content.members.begin(), content.members.end());
    for (const std::string& member : content.members) {
        filesBelow(folder / member, DeviceManagerStatus::failed);
    }
    if (!runTar(words)) {
        throw DeviceError(DeviceManagerStatus::failed, "cannot pack the files");
    }
    return readStateFile(file);
}

void writeArchive(const std::string& path, const std::string& bytes, const Pace& pace) {
    const OpenFile file(path, "wbe");
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    const auto write = [&](std::size_t begin, std::size_t end) {
        if (std::fwrite(bytes.data() + begin, 1, end - begin, file.get()) != end - begin) {
            failWithErrno("cannot write", DeviceManagerStatus::failed);
        }
    };
    try {
        // The end of the frame comes after the time of the job: until then no check takes the file.
        const std::size_t most = bytes.size() - kLastBytes;
        for (std::size_t done = 0; done < most;) {
            const std::size_t next = std::min(done + kBlock, most);
            write(done, next);
            done = next;
            if (pace) {
                pace(done, most);
            }
            file.requireInPlace();
        }
        write(most, bytes.size());
        if (fsync(fileno(file.get())) != 0) {
            failWithErrno("cannot write", DeviceManagerStatus::failed);
        }
    } catch (...) {
        // Another file may have taken its place.
        if (file.isInPlace()) {
            std::error_code ignored;
            fs::remove(path, ignored);
        }
        throw;
    }
}

Archive unpackArchive(const OpenFile& file, const fs::path& folder) {
    if (!runTar({"--extract", "--file", file.link(), "--directory", folder})) {
        refuseArchive("not a backup or update file");
    }
    Archive content = parseManifest(folder / kManifestName);
    fs::remove(folder / kManifestName);
    content.members = filesBelow(folder, DeviceManagerStatus::unusableFile);
    return content;
}
