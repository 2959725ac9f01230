// Questions about sticks and directories that several commands ask.
#pragma once

#include <optional>

#include "transferctl/transfer_client.h"

namespace transferctl {

// Throws Failure (refused) unless the stick is mounted.
void requireMounted(TransferClient& client, const std::string& stick);

// The entry as its directory's listing shows it; nothing when it is not there or hidden.
std::optional<File> findFile(TransferClient& client, const StickPath& place);

}  // namespace transferctl
