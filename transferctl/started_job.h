// The job that this user has started last, on record in a file of the runtime directory.
#pragma once

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

}  // namespace transferctl
