// The methods that answer with a number, as a client calls them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "tests/support/bus/system_bus.h"

namespace test_support {

inline constexpr int kNoAnswer = -1000;

// The last number of a reply, such as a count, or kNoAnswer.
int lastNumber(const Reply& reply);

int doBackup(const SystemBus& bus, const std::string& mount, std::uint32_t type,
             const std::string& file);
int doRestore(const SystemBus& bus, const std::string& mount, const std::string& file);
int doOsUpdate(const SystemBus& bus, const std::string& mount, const std::string& file);

// The number of files in a listing ("GetBackupFilesList") of a stick's root.
int filesListed(const SystemBus& bus, const std::string& method, const std::string& mount);

std::chrono::nanoseconds durationOf(const std::function<void()>& action);

}  // namespace test_support
