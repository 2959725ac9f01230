// The transfer service as a client calls it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "com.morvane.transfer/dbus-adaptor.h"
#include "transfer/contract.h"
#include "transferctl/failure.h"
#include "transferctl/stick_path.h"

namespace transferctl {

// No other kind may be sent: the service takes kind 0 for a restore.
enum class BackupKind : std::uint32_t { kFull = 1, kRecipes = 2, kUsers = 3 };

struct Stick {
    std::string name;
    std::uint64_t size = 0;  // bytes
    std::uint64_t free = 0;
};

struct File {
    bool isDirectory = false;
    std::uint64_t size = 0;  // bytes
    StickPath place;
};

// The time limit of a command.
class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds limit) : end_(Clock::now() + limit) {}

    bool hasPassed() const { return Clock::now() >= end_; }

    // Milliseconds until then, at least 1. Throws Failure (time limit) once it has passed.
    int remaining() const;

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end_;
};

using Connection = std::shared_ptr<GDBusConnection>;

// The system bus. Losing it does not end the process. Throws Failure.
Connection connectToBus(const Deadline& deadline);

// Calls the process that owned the service's name when the client was made, never its successor.
// All operations throw Failure: refused by the bus's policy, no service, a reply that breaks the
// interface, time limit. One thread.
class TransferClient {
public:
    explicit TransferClient(const Deadline& deadline);
    TransferClient(Connection connection, std::string owner, const Deadline& deadline);

    // The service's unique bus name.
    const std::string& owner() const { return owner_; }

    // Tells this process of the service from every other one, also after a restart of the bus.
    std::string identity() const;

    // The service's process id.
    unsigned process() const;

    std::vector<Stick> sticks();

    // Throws Failure (refused) unless the stick is mounted.
    void requireMounted(const std::string& stick);

    // One directory; empty also when there is none.
    std::vector<File> directory(const StickPath& place);

    // The entry as its directory lists it; nothing when it is missing or hidden.
    std::optional<File> find(const StickPath& place);

    // The files below that the device manager accepts; the service ends a list at kTreeListLimit.
    std::vector<File> backups(const StickPath& place);
    std::vector<File> updates(const StickPath& place);

    // False: the directory is there already. True: the service has tried.
    bool createDirectory(const StickPath& place);
    bool deleteFile(const StickPath& place);

    // The name that the service proposes for a backup. Throws Failure (refused) when there is none.
    std::string proposedName();

    JobResult startBackup(const StickPath& file, BackupKind kind);
    JobResult startRestore(const StickPath& file);
    JobResult startUpdate(const StickPath& file);

private:
    template <typename Method, typename... Arguments>
    void call(Method method, Arguments... arguments);
    template <typename Result, typename Method>
    Result callWithPlace(Method method, const StickPath& place);
    template <typename Method>
    std::vector<File> list(Method method, const StickPath& place);

    Deadline deadline_;
    Connection connection_;
    std::string owner_;
    std::shared_ptr<MorvaneTransferSac> proxy_;
};

}  // namespace transferctl
