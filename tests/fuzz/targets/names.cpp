// Any device name at any time: the proposed file name, and formatted text of any length.
#include <glib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <limits>

#include "tests/doubles/plain_vesk.h"
#include "tests/fuzz/target.h"
#include "tests/unit/controlled_clock.h"
#include "transfer/reply_encoding.h"
#include "transfer/tf_mngr.h"

namespace {

// Up to the end of the year 9999, or as far as this machine's clock goes.
constexpr std::int64_t kSeconds =
    std::min<std::int64_t>(253'402'300'800, std::numeric_limits<std::time_t>::max());
constexpr std::size_t kFormatted = 1023;  // bytes at most

TfMngr& manager() {
    static auto* const kManager = new TfMngr;
    return *kManager;
}

// The time stamp by streams of digits only, read back and compared with the time.
bool tellsTime(const std::string& stamp, std::time_t now) {
    const struct tm local = *std::localtime(&now);
    const std::string expected = std::to_string(local.tm_year + 1900) +
                                 std::to_string(local.tm_mon + 1) + std::to_string(local.tm_mday) +
                                 "." + std::to_string(local.tm_hour) + "-" +
                                 std::to_string(local.tm_min) + "-" + std::to_string(local.tm_sec);
    return stamp == expected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto now = static_cast<std::time_t>(input.number() % kSeconds);
    static std::string device;  // as long as the settings library refers to it
    device = input.rest();
    plain_vesk::deviceName = device;
    TfMngr& tested = manager();

    test_support::ControlledClock clock;
    clock.standAt(now);
    const std::string name = tested.GetBackupFileName(1);
    if (device.empty()) {
        fuzz::require(name.empty(), "no device name, no file name");
    } else {
        const std::string ending = ".psb";
        const std::size_t begin = device.size() + 1;
        fuzz::require(name.size() > begin + ending.size(), "a name has all of its parts");
        fuzz::require(name.compare(0, begin, device + "-") == 0, "the device name comes first");
        fuzz::require(name.compare(name.size() - ending.size(), ending.size(), ending) == 0,
                      "the ending comes last");
        fuzz::require(tellsTime(name.substr(begin, name.size() - begin - ending.size()), now),
                      "the time stands between");
    }
    const std::string shown = reply::validString(name);
    fuzz::require(
        g_utf8_validate(shown.data(), static_cast<gssize>(shown.size()), nullptr) != FALSE,
        "the reply is UTF-8");
    const std::string text = fuzz::upToZero(device);
    fuzz::require(TfMngr::formatString("%s", text.c_str()) == text.substr(0, kFormatted),
                  "formatted text is whole or cut");
    return 0;
}
