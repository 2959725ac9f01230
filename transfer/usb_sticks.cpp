// Finding the mounted USB sticks and their capacity.
#include <mntent.h>
#include <sys/statfs.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

#include "transfer/contract.h"
#include "transfer/tf_mngr.h"

namespace {

constexpr const char* kMountTable = "/etc/mtab";
constexpr const char* kIgnoredSource = "rootfs";
constexpr const char* kStickDevicePrefix = "/dev/sd";

constexpr std::size_t kMountEntrySize = 4096;
constexpr std::size_t kMountTableBuffer = 16UL * 1024;  // most tables in one read

bool startsWith(const char* text, const char* prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

struct CloseMountTable {
    void operator()(FILE* table) const { endmntent(table); }
};

// The directories on which the mount table shows a /dev/sd device, in its order; none when the
// table cannot be read.
std::vector<std::string> readStickMounts() {
    std::vector<std::string> directories;
    char buffer[kMountTableBuffer];
    const std::unique_ptr<FILE, CloseMountTable> table(setmntent(kMountTable, "r"));
    if (!table) {
        return directories;
    }
    std::setvbuf(table.get(), buffer, _IOFBF, sizeof buffer);
    struct mntent entry {};
    char strings[kMountEntrySize];
    while (getmntent_r(table.get(), &entry, strings, sizeof strings) != nullptr) {
        // Kept: the first test never decides, since "rootfs" is no /dev/sd device.
        if (std::strcmp(entry.mnt_fsname, kIgnoredSource) != 0 &&
            startsWith(entry.mnt_fsname, kStickDevicePrefix)) {
            directories.emplace_back(entry.mnt_dir);
        }
    }
    return directories;
}

// Kept: an entry counts when its directory is any prefix of the path, so a device mounted on "/" or
// "/media" makes every probed directory count as mounted.
bool isCovered(const std::string& path, const std::vector<std::string>& stickMounts) {
    return std::any_of(stickMounts.begin(), stickMounts.end(), [&path](const std::string& mount) {
        return startsWith(path.c_str(), mount.c_str());
    });
}

}  // namespace

std::vector<UsbStickInfo> TfMngr::enumerateUsbSticks() {
    std::vector<UsbStickInfo> found;
    const std::vector<std::string> stickMounts = readStickMounts();
    for (int number = kFirstStick; number <= kLastStick; ++number) {
        const std::string name = formatString("%s%d", kStickPrefix, number);
        const std::string path = mountPath(name);
        struct statfs64 fileSystem {};
        if (!isCovered(path, stickMounts) || statfs64(path.c_str(), &fileSystem) != 0) {
            continue;
        }
        const auto blockSize = static_cast<std::uint64_t>(fileSystem.f_bsize);
        const std::uint64_t total = static_cast<std::uint64_t>(fileSystem.f_blocks) * blockSize;
        // Kept: f_bfree, which includes the blocks reserved for root.
        const std::uint64_t free = static_cast<std::uint64_t>(fileSystem.f_bfree) * blockSize;
        std::printf("Disk size: %" PRIu64 " Byte\n", total);
        std::printf("Free size: %" PRIu64 " Byte\n", free);
        found.push_back({name, name, total, free});
    }
    return found;
}

bool TfMngr::isMountedUsbDevice(const std::string& path) {
    return isCovered(path, readStickMounts());
}
