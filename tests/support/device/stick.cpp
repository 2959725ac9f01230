// USB sticks for tests: file systems mounted where the device mounts its sticks.
#include "tests/support/device/stick.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"
#include "transfer/contract.h"

namespace test_support {

std::string stickName(int number) {
    return kStickPrefix + std::to_string(number);
}

std::string stickPath(int number) {
    return kMountBase + ("/" + stickName(number));
}

Mount::Mount(std::string directory, const std::string& device, const std::string& type,
             unsigned long flags, const std::string& data)
    : directory_(std::move(directory)) {
    madeDirectory_ = std::filesystem::create_directories(directory_);
    if (mount(device.c_str(), directory_.c_str(), type.c_str(), flags, data.c_str()) != 0) {
        throwErrno("mount " + directory_);
    }
    mounted_ = true;
}

Mount::~Mount() {
    unmount(MNT_DETACH);
    if (madeDirectory_) {
        rmdir(directory_.c_str());
    }
}

bool Mount::unmount(int flags) {
    if (mounted_ && umount2(directory_.c_str(), flags) == 0) {
        mounted_ = false;
    }
    return !mounted_;
}

Stick::Stick(int number, const StickOptions& options)
    : number_(number), mount_(path(), options.device, "tmpfs", 0, "size=" + options.size) {}

void Stick::addFile(const std::string& relative, std::string_view bytes) const {
    makeDirectories(std::filesystem::path(path(relative)).parent_path());
    writeFile(path(relative), bytes);
}

void Stick::addSparseFile(const std::string& relative, std::uint64_t size) const {
    addFile(relative, "");
    if (truncate(path(relative).c_str(), static_cast<off_t>(size)) != 0) {
        throwErrno(path(relative));
    }
}

void Stick::addDirectory(const std::string& relative) const {
    makeDirectories(path(relative));
}

void Stick::makeReadOnly() const {
    if (mount("none", path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        throwErrno("remount " + path());
    }
}

std::string mountLine(const std::string& source, const std::string& directory,
                      const std::string& type) {
    return source + " " + directory + " " + type + " rw,relatime 0 0\n";
}

}  // namespace test_support
