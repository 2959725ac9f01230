// Where hostile paths do no harm.
#include "tests/fuzz/private_world.h"

#include <fcntl.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/files/paths.h"
#include "tests/support/process/sandbox.h"

namespace fuzz {
namespace {

constexpr int kUnsafe = 2;

[[noreturn]] void giveUp(const std::string& what) {
    std::fprintf(stderr, "fuzz: the machine is not safe: %s: %s\n", what.c_str(),
                 std::strerror(errno));
    std::exit(kUnsafe);
}

// Where something is mounted, without the root itself: that, with /etc, /media, /mnt, /run and
// /tmp, is memory of the sandbox's own.
std::vector<std::string> machineMounts() {
    const std::unique_ptr<FILE, int (*)(FILE*)> table(setmntent("/proc/self/mounts", "r"),
                                                      endmntent);
    if (!table) {
        giveUp("/proc/self/mounts cannot be read");
    }
    std::vector<std::string> directories;
    while (const mntent* entry = getmntent(table.get())) {
        if (std::strcmp(entry->mnt_dir, "/") != 0) {
            directories.emplace_back(entry->mnt_dir);
        }
    }
    return directories;
}

// Makes a mount read-only, or writable again, and leaves its other flags alone: an ordinary user
// could not change them.
void changeMount(const std::string& directory, unsigned long readOnly) {
    struct statvfs status {};
    if (statvfs(directory.c_str(), &status) != 0) {
        giveUp("cannot look at the mount " + directory);
    }
    constexpr unsigned long kKept = MS_NOSUID | MS_NODEV | MS_NOEXEC;
    static_assert(kKept == (ST_NOSUID | ST_NODEV | ST_NOEXEC), "both have the same bits");
    const unsigned long flags = MS_REMOUNT | MS_BIND | (status.f_flag & kKept) | readOnly;
    if (mount(nullptr, directory.c_str(), nullptr, flags, nullptr) != 0) {
        giveUp("cannot change the mount " + directory);
    }
}

void makeMachineReadOnly(const char* output) {
    if (output != nullptr && mount(output, output, nullptr, MS_BIND, nullptr) != 0) {
        giveUp(std::string("cannot keep ") + output);
    }
    for (const std::string& directory : machineMounts()) {
        changeMount(directory, MS_RDONLY);
    }
    if (output != nullptr) {
        changeMount(output, 0);
    }
}

bool isReadOnly(const std::string& directory) {
    const std::string probe = directory + "/morvane-fuzz-probe";
    if (mkdir(probe.c_str(), 0700) == 0) {
        rmdir(probe.c_str());
        return false;
    }
    return errno == EROFS;
}

// Looks at every mount, and tries the ones that matter.
void checkMachineIsReadOnly(const char* output) {
    for (const std::string& directory : machineMounts()) {
        struct statvfs status {};
        const bool looked = statvfs(directory.c_str(), &status) == 0;
        const bool isOutput = output != nullptr && directory == output;
        if (!isOutput && (!looked || (status.f_flag & ST_RDONLY) == 0)) {
            giveUp(directory + " can be written");
        }
    }
    for (const std::string& directory :
         {test_support::sourcePath("."), test_support::buildPath("."), std::string("/usr"),
          std::string("/.etc")}) {
        if (!isReadOnly(directory)) {
            giveUp(directory + " can be written");
        }
    }
}

}  // namespace

void enterPrivateWorld(int argc, char** argv) {
    test_support::enterSandbox(argc, argv);
    const char* const output = std::getenv("MORVANE_FUZZ_OUTPUT");
    makeMachineReadOnly(output);
    checkMachineIsReadOnly(output);
}

}  // namespace fuzz
