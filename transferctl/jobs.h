// The job that this user has started last, and waiting for the end of a backup.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "transferctl/transfer_client.h"

namespace transferctl {

struct StartedJob {
    std::string job;  // "backup", "restore" or "update"
    std::string file;  // "USB_X60.1:a.psb"
};

// Nothing when this user has started none in the process that the client calls.
std::optional<StartedJob> startedJob(const TransferClient& client);

// Calls `start`, which throws Failure unless the job has started, and keeps the job on record;
// without a record it warns and starts. Throws Failure (refused) when one has been started in the
// same process, unless forced: the service would work on the names of both.
void startOnce(const TransferClient& client, const StartedJob& job, bool isForced,
               const std::function<void()>& start);

struct FinishedBackup {
    std::uint64_t size = 0;  // bytes
    std::chrono::milliseconds time{};
};

// Looks at the file of a backup that was started at `begin` until the device manager accepts it.
// Shows the progress when told to and standard error is a terminal. Throws Failure: refused when
// the file or its stick goes, no service when the process goes that has the job, time limit.
FinishedBackup waitForBackup(TransferClient* client, const StickPath& file,
                             std::chrono::steady_clock::time_point begin, bool showsProgress);

}  // namespace transferctl
