// What faults and the library of failing allocations, which is in the service, tell each other.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace faults {

inline constexpr const char* kAllocationPageVariable = "MORVANE_FAULTS_PAGE";

// Whose allocations are counted apart: those of one thread come in the same order each time.
enum AllocatingThread : std::uint32_t { kMainThread, kBusThread, kOtherThread, kAllocatingThreads };

// A file that both have mapped.
struct AllocationPage {
    std::atomic<std::uint32_t> armed;  // otherwise nothing is counted and nothing fails
    std::atomic<std::uint32_t> thread;  // whose allocation is to fail
    std::atomic<std::uint32_t> nth;  // from 1; 0: none
    std::atomic<std::uint32_t> happened;
    std::array<std::atomic<std::uint32_t>, kAllocatingThreads> counts;
};

}  // namespace faults
