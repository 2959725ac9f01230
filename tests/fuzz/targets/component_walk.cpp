// Any path to create, on a file system of its own: what is made is what the model says.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "tests/doubles/plain_device_manager.h"
#include "tests/fuzz/one_stick.h"
#include "tests/fuzz/target.h"

namespace {

namespace fs = std::filesystem;
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

// Every directory there is, with its mode, relative to the stick.
std::string treeOf(const std::string& root) {
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        struct stat64 status {};
        lstat64(entry.path().c_str(), &status);
        found.push_back(entry.path().string() + " " + std::to_string(status.st_mode));
    }
    std::sort(found.begin(), found.end());
    std::string all;
    for (const std::string& line : found) {
        all += line + "\n";
    }
    return all;
}

void clear() {
    for (const auto& entry : fs::directory_iterator(kStick)) {
        fs::remove_all(entry.path());
    }
}

}  // namespace

// A path that leads out of the stick is used as it comes; only the sandbox is there to be changed.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TfMngr& tested = fuzz::manager();
    const std::string path = fuzz::upToZero(fuzz::Input(data, size).rest());
    const bool leaves = path.find("..") != std::string::npos;
    const std::string target = std::string(kStick) + "/" + path;

    struct stat64 status {};
    const bool existed = stat64(target.c_str(), &status) == 0;
    fuzz::require(tested.CreateDirectory("USB_X60.1", path) == !existed,
                  "true unless something was there");
    const std::string made = leaves ? "" : treeOf(kStick);
    clear();

    int last = -1;
    if (!existed && !leaves) {
        for (const std::string& prefix : modelOfTries(target)) {
            last = mkdir(prefix.c_str(), 0700);
        }
        fuzz::require(treeOf(kStick) == made, "what the walk makes");
        clear();
        fuzz::require(TfMngr::makeDirectoryPath(target.c_str()) == last, "the last result");
        const bool deleted = tested.DeleteFile("USB_X60.1", path);
        fuzz::require(!deleted || stat64(target.c_str(), &status) != 0, "what is deleted is gone");
        clear();
    }
    return 0;
}
