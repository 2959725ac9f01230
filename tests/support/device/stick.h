// USB sticks for tests: file systems mounted where the device mounts its sticks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"

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

    // Returns whether it could be unmounted; false while a file on it is open.
    bool unmount();
    // What pulling the stick does: gone at once, open files live on until they are closed.
    void unmountLazily();
    // Changes flags such as MS_RDONLY; throws std::system_error.
    void remount(unsigned long flags);

    const std::string& directory() const { return directory_; }

private:
    std::string directory_;
    std::string data_;
    bool mounted_ = false;
    bool madeDirectory_ = false;
};

// What every kind of stick offers. Paths are relative to the stick's root.
class AnyStick {
public:
    std::string name() const { return stickName(number_); }
    std::string path() const { return stickPath(number_); }
    std::string path(const std::string& relative) const { return path() + "/" + relative; }

    // The parent directories are made as needed.
    void addFile(const std::string& relative, std::string_view bytes = "content") const;
    void addSparseFile(const std::string& relative, std::uint64_t size) const;
    void addDirectory(const std::string& relative) const;

    bool unmount() { return mount_->unmount(); }
    void pull() { mount_->unmountLazily(); }
    void makeReadOnly();

protected:
    explicit AnyStick(int number) : number_(number) {}
    ~AnyStick() = default;

    std::optional<Mount> mount_;

private:
    int number_;
};

struct StickOptions {
    std::string size = "16m";  // as the tmpfs option has it
    std::string device = "/dev/sda1";
    bool readOnly = false;
};

// A tmpfs whose source in the mount table is a /dev/sd name.
class Stick : public AnyStick {
public:
    explicit Stick(int number, const StickOptions& options = {});
};

struct LoopStickOptions {
    std::uint64_t size = 16U * 1024U * 1024U;
    std::string device = "/dev/sdb1";  // the node that is made for the loop device
    int reservedPercent = 5;  // of the blocks, kept for root
};

// An ext4 file system on a loop device that appears as /dev/sd..., with reserved blocks.
class LoopStick : public AnyStick {
public:
    // Why this machine cannot have one (it takes root and loop devices); empty when it can.
    static std::string whyUnavailable();

    explicit LoopStick(int number, const LoopStickOptions& options = {});
    ~LoopStick();

private:
    TemporaryDirectory folder_;
    UniqueFd loop_;
    std::string device_;
};

}  // namespace test_support
