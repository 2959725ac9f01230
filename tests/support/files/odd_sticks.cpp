#include "tests/support/files/odd_sticks.h"

#include <filesystem>
#include <system_error>

#include "transfer/contract.h"

namespace test_support {

namespace fs = std::filesystem;

OddSticks::OddSticks(unsigned seed) : random_(seed) {
    for (const Stick* stick : {&first_, &second_}) {
        for (const char* file : {"a", "b.psb", "set.psb/a", "u.fwf", "d/e/b.psb", "d/\xC3\xA4"}) {
            stick->addFile(file, file);
        }
        stick->addDirectory("empty");
        fs::create_directory_symlink("..", stick->path("up"));
        fs::create_symlink("missing", stick->path("lost.psb"));
        fs::create_directory_symlink("/media/usb/USB_X60.2", stick->path("d/other"));
    }
}

std::string OddSticks::mount() {
    return oneOf({"USB_X60.1", "USB_X60.1", "USB_X60.2", "", "..", "USB_X60.1/d", "USB_X60.3"});
}

std::string OddSticks::path() {
    static const std::vector<std::string> kWords{
        "a",       "b.psb", "set.psb", "d", "e", "empty", "up",  "lost.psb", "other", "u.fwf",
        "new.psb", "..",    ".",       "",  " ", "%n%s",  "\n-", "\xC3\xA4", "c.psb"};
    static const std::vector<std::string> kFolders{"d", "empty", "set.psb", "up", "d/e", "a"};
    std::string path = random_() % 2 == 0 ? oneOf(kFolders) + "/" : "";
    path += oneOf(kWords);
    for (auto more = random_() % 3; more > 0; --more) {
        path += "/" + oneOf(kWords);
    }
    return path;
}

std::string targetOf(const std::string& mount, const std::string& path) {
    return std::string(kMountBase) + "/" + mount + "/" + path;
}

bool staysOnSticks(const std::string& target) {
    // As far as there is something.
    const fs::path found = fs::weakly_canonical(target);
    return found.string().compare(0, std::string(kMountBase).size(), kMountBase) == 0;
}

std::string physicalPath(std::string target) {
    while (target.size() > 1 && target.back() == '/') {
        target.pop_back();
    }
    std::error_code missing;
    const fs::path parent = fs::canonical(fs::path(target).parent_path(), missing);
    return missing ? "" : parent / fs::path(target).filename();
}

}  // namespace test_support
