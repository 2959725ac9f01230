// Any bytes as the mount table: what counts as a stick is what the C library reads from it.
#include <mntent.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "tests/fuzz/target.h"

namespace {

constexpr const char* kMountTable = "/etc/mtab";

// The directories of the /dev/sd devices, one entry at a time and without the code under test.
std::vector<std::string> modelOfMounts() {
    std::vector<std::string> directories;
    const std::unique_ptr<FILE, int (*)(FILE*)> table(setmntent(kMountTable, "r"), endmntent);
    while (const mntent* entry = getmntent(table.get())) {
        if (std::string(entry->mnt_fsname).rfind("/dev/sd", 0) == 0) {
            directories.emplace_back(entry->mnt_dir);
        }
    }
    return directories;
}

bool modelCovers(const std::vector<std::string>& directories, const std::string& path) {
    return std::any_of(directories.begin(), directories.end(), [&](const std::string& directory) {
        return path.compare(0, directory.size(), directory) == 0;
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TfMngr& tested = fuzz::manager();
    test_support::writeFile(kMountTable, fuzz::Input(data, size).rest());
    const std::vector<std::string> directories = modelOfMounts();

    std::string listed;
    for (const UsbStickInfo& stick : tested.enumerateUsbSticks()) {
        fuzz::require(stick.name == stick.mountName, "both names of a stick are one");
        fuzz::require(stick.freeBytes <= stick.totalBytes, "no more is free than there is");
        listed += stick.name + " ";
    }
    std::string expected;
    for (const char* name : {"USB_X60.1", "USB_X60.3"}) {
        const std::string path = TfMngr::mountPath(name);
        const bool covered = modelCovers(directories, path);
        fuzz::require(tested.isMountedUsbDevice(path) == covered, "mounted as the model says");
        expected += covered ? std::string(name) + " " : "";
    }
    fuzz::require(listed == expected, "the sticks that exist and are mounted, in order");
    return 0;
}
