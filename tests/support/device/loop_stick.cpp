// A stick with a real block device under it.
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/device/stick.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/unique_fd.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kControl = "/dev/loop-control";
constexpr unsigned int kControlMajor = 10;
constexpr unsigned int kControlMinor = 237;
constexpr unsigned int kLoopMajor = 7;
constexpr mode_t kDeviceMode = 0600;

// Opens a device through a node that exists only for the moment: the sandbox has a /dev of its own
// and need not show the machine's devices.
UniqueFd openDevice(const std::string& node, mode_t type, unsigned int major, unsigned int minor) {
    unlink(node.c_str());
    if (mknod(node.c_str(), type | kDeviceMode, makedev(major, minor)) != 0) {
        return UniqueFd();
    }
    UniqueFd fd(open(node.c_str(), O_RDWR | O_CLOEXEC));
    unlink(node.c_str());
    return fd;
}

UniqueFd openLoopControl() {
    return openDevice("/dev/loop-control.test", S_IFCHR, kControlMajor, kControlMinor);
}

struct LoopDevice {
    UniqueFd fd;
    unsigned int minor = 0;
};

// Takes a free loop device. Others on the machine look for one too, so losing a race is normal.
LoopDevice attach(const std::string& image) {
    const UniqueFd control = openLoopControl();
    const UniqueFd backing(open(image.c_str(), O_RDWR | O_CLOEXEC));
    if (!control || !backing) {
        throwErrno(kControl);
    }
    LoopDevice device;
    const bool attached = waitUntil([&] {
        const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) {
            return false;
        }
        device.minor = static_cast<unsigned int>(number);
        device.fd = openDevice("/dev/loop.test", S_IFBLK, kLoopMajor, device.minor);
        loop_config config{};
        config.fd = static_cast<unsigned int>(backing.get());
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;  // given back whatever becomes of this process
        return device.fd && ioctl(device.fd.get(), LOOP_CONFIGURE, &config) == 0;
    });
    if (!attached) {
        throwErrno("cannot attach a loop device");
    }
    return device;
}

bool mapsAllUsers() {
    // The initial user namespace maps every id to itself.
    return readFile("/proc/self/uid_map").find("4294967295") != std::string::npos;
}

}  // namespace

std::string LoopStick::whyUnavailable() {
    if (geteuid() != 0 || !mapsAllUsers()) {
        return "loop devices take the machine's root";
    }
    if (!openLoopControl()) {
        return "this machine has no loop devices";
    }
    if (runCommand({"mkfs.ext4", "-V"}).end != exited(0)) {
        return "mkfs.ext4 is not installed";
    }
    return {};
}

LoopStick::LoopStick(int number, const LoopStickOptions& options)
    : AnyStick(number), device_(options.device) {
    const std::string image = folder_.path("image");
    writeSparseFile(image, options.size);
    const CommandResult made =
        runCommand({"mkfs.ext4", "-q", "-F", "-m", std::to_string(options.reservedPercent), image});
    if (made.end != exited(0)) {
        throw std::runtime_error("mkfs.ext4: " + made.error);
    }
    LoopDevice loop = attach(image);
    loop_ = std::move(loop.fd);
    if (mknod(device_.c_str(), S_IFBLK | kDeviceMode, makedev(kLoopMajor, loop.minor)) != 0) {
        throwErrno(device_);
    }
    try {
        mount_.emplace(path(), device_, "ext4", 0, "");
    } catch (...) {
        unlink(device_.c_str());
        throw;
    }
}

LoopStick::~LoopStick() {
    mount_.reset();
    unlink(device_.c_str());
}

}  // namespace test_support
