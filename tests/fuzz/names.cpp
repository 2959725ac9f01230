// Any device name at any time: the proposed file name.
#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>

#include "tests/doubles/plain_vesk.h"
#include "tests/fuzz/target.h"
#include "tests/unit/controlled_clock.h"

namespace {

// Up to the end of the year 9999, or as far as this machine's clock goes.
constexpr std::int64_t kSeconds =
    std::min<std::int64_t>(253'402'300'800, std::numeric_limits<std::time_t>::max());

// The time stamp, without the code under test.
std::string modelOfStamp(std::time_t now) {
    const struct tm local = *std::localtime(&now);
    return std::to_string(local.tm_year + 1900) + std::to_string(local.tm_mon + 1) +
           std::to_string(local.tm_mday) + "." + std::to_string(local.tm_hour) + "-" +
           std::to_string(local.tm_min) + "-" + std::to_string(local.tm_sec);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto now = static_cast<std::time_t>(input.number() % kSeconds);
    static std::string device;  // as long as the settings library refers to it
    device = input.rest();
    plain_vesk::deviceName = device;
    test_support::ControlledClock clock;
    clock.standAt(now);
    const std::string name = fuzz::manager().GetBackupFileName(1);
    fuzz::require(name == (device.empty() ? "" : device + "-" + modelOfStamp(now) + ".psb"),
                  "device name, time and ending, or nothing");
    return 0;
}
