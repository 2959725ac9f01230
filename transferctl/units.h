// Numbers in the units that people read.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace transferctl {

inline constexpr double kMillisecondsPerSecond = 1000;

// "1.8 KiB", "16.0 MiB"; below 1024 in bytes.
std::string humanSize(std::uint64_t bytes);

// "1.8 MiB/s", the mean over the time; "-" when no time has passed.
std::string humanRate(std::uint64_t bytes, std::chrono::milliseconds time);

// "0:05", "1:02:03".
std::string humanDuration(std::chrono::milliseconds time);

// "42 %", rounded down; "-" of nothing. `part` is at most `whole`.
std::string humanShare(std::uint64_t part, std::uint64_t whole);

}  // namespace transferctl
