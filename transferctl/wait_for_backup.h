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

// Looks at the stick again and again until the device manager accepts the file of a backup that was
// started at `start`. Draws a progress
// line when told to and standard error is a terminal. Throws Failure: refused when the file has
// gone again or the stick, no service when its life has ended and the job with it, time limit.
FinishedBackup waitForBackup(TransferClient& client, const StickPath& file,
                             std::chrono::steady_clock::time_point start, bool showProgress);

}  // namespace transferctl
