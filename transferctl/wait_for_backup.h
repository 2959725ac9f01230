// Waiting for the end of a backup, which the service does not report.
#pragma once

#include <chrono>
#include <cstdint>

#include "transferctl/transfer_client.h"

namespace transferctl {

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
