// Any path: what it is split into, and what creating it on a file system of its own makes.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <vector>

#include "tests/fuzz/target.h"

namespace {

using fuzz::kStick;

constexpr std::size_t kKept = 255;  // bytes of a path

// The directories that a walk makes are among the prefixes that end before a separator, and the
// path itself; each is tried with mkdir in the model's own order.
std::vector<std::string> modelOfTries(std::string path) {
    path.resize(std::min(path.size(), kKept));
    if (!path.empty() && path.back() == '/') {
        path.pop_back();
    }
    std::vector<std::string> tries;
    for (std::size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1)) {
        tries.push_back(path.substr(0, at));
    }
    tries.push_back(path);
    return tries;
}

// Every directory on the stick, with its mode.
std::set<std::string> madeOnStick() {
    std::set<std::string> made;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(kStick)) {
        struct stat64 status {};
        lstat64(entry.path().c_str(), &status);
        made.insert(entry.path().string() + " " + std::to_string(status.st_mode));
    }
    return made;
}

}  // namespace

// A path that leads out of the stick is used unchanged; only the sandbox can be written.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TfMngr& tested = fuzz::manager();
    const std::string bytes = fuzz::Input(data, size).rest();
    const std::string path = bytes.substr(0, bytes.find('\0'));  // as the interface takes them
    const bool leaves = path.find("..") != std::string::npos;
    const std::string target = std::string(kStick) + "/" + path;
    fuzz::require(TfMngr::relativePath(target, "USB_X60.1") == path, "the relative path");
    fuzz::require(TfMngr::parentPath(target + "/x") == target, "the parent path");

    struct stat64 status {};
    const bool existed = stat64(target.c_str(), &status) == 0;
    fuzz::require(tested.CreateDirectory("USB_X60.1", path) == !existed,
                  "true unless something was there");
    const std::set<std::string> made = madeOnStick();
    fuzz::clearStick();

    int last = -1;
    if (!existed && !leaves) {
        for (const std::string& prefix : modelOfTries(target)) {
            last = mkdir(prefix.c_str(), 0700);
        }
        fuzz::require(madeOnStick() == made, "what the walk makes");
        fuzz::clearStick();
        fuzz::require(TfMngr::makeDirectoryPath(target.c_str()) == last, "the last result");
        const bool deleted = tested.DeleteFile("USB_X60.1", path);
        fuzz::require(!deleted || stat64(target.c_str(), &status) != 0, "what is deleted is gone");
        fuzz::clearStick();
    }
    return 0;
}
