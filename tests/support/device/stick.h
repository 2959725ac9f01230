// USB sticks for tests: file systems mounted where the device mounts its sticks.
#pragma once

#include <sys/mount.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace test_support {

// "USB_X60.N" and where it is mounted.
std::string stickName(int number);
std::string stickPath(int number);

// A mount that ends with its owner. Throws std::system_error when it cannot be made.
class Mount {
public:
    Mount(std::string directory, const std::string& device, const std::string& type,
          unsigned long flags, const std::string& data);
    ~Mount();
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

    // Returns whether it is unmounted; without MNT_DETACH it is not while a file on it is open.
    bool unmount(int flags = 0);

private:
    std::string directory_;
    bool mounted_ = false;
    bool madeDirectory_ = false;
};

struct StickOptions {
    std::string size = "16m";  // as the tmpfs option has it
    std::string device = "/dev/sda1";
};

// A tmpfs whose source in the mount table is a /dev/sd name. Paths are relative to its root.
class Stick {
public:
    explicit Stick(int number, const StickOptions& options = {});

    std::string name() const { return stickName(number_); }
    std::string path() const { return stickPath(number_); }
    std::string path(const std::string& relative) const { return path() + "/" + relative; }

    // The parent directories are made as needed.
    void addFile(const std::string& relative, std::string_view bytes = "content") const;
    void addSparseFile(const std::string& relative, std::uint64_t size) const;
    void addDirectory(const std::string& relative) const;

    bool unmount() { return mount_.unmount(); }
    // Gone at once; open files live on until they are closed.
    void pull() { mount_.unmount(MNT_DETACH); }
    void makeReadOnly() const;

private:
    int number_;
    Mount mount_;
};

inline constexpr const char* kMountTable = "/etc/mtab";

// One line of a mount table.
std::string mountLine(const std::string& source, const std::string& directory,
                      const std::string& type = "vfat");

}  // namespace test_support
