// Numbers in the units that people read.
#include "transferctl/units.h"

#include <glib.h>

#include <array>
#include <cinttypes>
#include <cstdio>

namespace transferctl {
namespace {

constexpr std::string_view kNoBreakSpace = "\u00a0";
constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kSecondsPerHour = 3600;
constexpr double kPercent = 100;

}  // namespace

std::string humanSize(std::uint64_t bytes) {
    g_autofree gchar* text = g_format_size_full(bytes, G_FORMAT_SIZE_IEC_UNITS);
    std::string size = text;
    const std::size_t gap = size.find(kNoBreakSpace);
    return gap == std::string::npos ? size : size.replace(gap, kNoBreakSpace.size(), " ");
}

std::string humanRate(std::uint64_t bytes, std::chrono::milliseconds time) {
    if (time.count() <= 0) {
        return "-";
    }
    const double perSecond =
        static_cast<double>(bytes) * kMillisecondsPerSecond / static_cast<double>(time.count());
    return humanSize(static_cast<std::uint64_t>(perSecond)) + "/s";
}

std::string humanDuration(std::chrono::milliseconds time) {
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    const std::int64_t hours = seconds / kSecondsPerHour;
    const std::int64_t minutes = seconds / kSecondsPerMinute % kSecondsPerMinute;
    std::array<char, 32> text{};
    if (hours > 0) {
        std::snprintf(text.data(), text.size(), "%" PRId64 ":%02" PRId64 ":%02" PRId64, hours,
                      minutes, seconds % kSecondsPerMinute);
    } else {
        std::snprintf(text.data(), text.size(), "%" PRId64 ":%02" PRId64, minutes,
                      seconds % kSecondsPerMinute);
    }
    return text.data();
}

std::string humanShare(std::uint64_t part, std::uint64_t whole) {
    if (whole == 0) {
        return "-";
    }
    const double share = static_cast<double>(part) * kPercent / static_cast<double>(whole);
    return std::to_string(static_cast<int>(share)) + " %";
}

}  // namespace transferctl
