// The proposed name of a backup file: device name and local time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "tests/support/device/device_calls.h"
#include "tests/support/device/device_double.h"
#include "tests/unit/controlled_clock.h"
#include "transfer/tf_mngr.h"

namespace test_support {
namespace {

constexpr const char* kUtc = "UTC0";
constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* kLordHowe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";

// The seconds since 1970 of a time in UTC.
std::time_t utc(int year, int month, int day, int hour, int minute, int second) {
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    return timegm(&fields);
}

class BackupFileName : public testing::Test {
protected:
    std::string proposedAt(std::time_t now, std::uint32_t type = 1) {
        clock_.standAt(now);
        return manager_.GetBackupFileName(type);
    }

    DeviceDouble device_;
    ControlledClock clock_;
    TfMngr manager_;
};

struct Moment {
    const char* name;
    const char* zone;
    std::time_t now;
    const char* stamp;
};

const Moment kMoments[] = {
    {"a morning in January", kUtc, utc(2026, 1, 5, 9, 7, 3), "202615.9-7-3"},
    {"the first second of a year", kUtc, utc(2026, 1, 1, 0, 0, 0), "202611.0-0-0"},
    {"a leap day", kUtc, utc(2028, 2, 29, 12, 0, 9), "2028229.12-0-9"},
    {"a new year ahead of UTC", kCentralEurope, utc(2026, 12, 31, 23, 0, 0), "202711.0-0-0"},
    {"an old year behind UTC", kNewYork, utc(2027, 1, 1, 4, 59, 59), "20261231.23-59-59"},
    {"the first second of summer time", kCentralEurope, utc(2026, 3, 29, 1, 0, 0), "2026329.3-0-0"},
    {"the first second of winter time", kCentralEurope, utc(2026, 10, 25, 1, 0, 0),
     "20261025.2-0-0"},
    {"half an hour of summer time", kLordHowe, utc(2026, 10, 3, 15, 30, 0), "2026104.2-30-0"},
};

TEST_F(BackupFileName, endsInLocalTimeWithoutZeros) {
    for (const Moment& moment : kMoments) {
        SCOPED_TRACE(moment.name);
        const TimeZone zone(moment.zone);
        EXPECT_EQ(proposedAt(moment.now), std::string("DEVICE-") + moment.stamp + ".psb");
    }
}

TEST_F(BackupFileName, isTheSameForEveryKind) {
    const TimeZone zone(kUtc);
    for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
        EXPECT_EQ(proposedAt(0, type), "DEVICE-197011.0-0-0.psb") << type;
    }
}

TEST_F(BackupFileName, isEmptyWithoutDeviceName) {
    device_.order("Vesk.getValue", "value", "");
    EXPECT_EQ(proposedAt(0), "");
    EXPECT_THAT(device_.calls(), testing::ElementsAreArray(nameReading()));
}

TEST_F(BackupFileName, takesDeviceNameAsItIs) {
    const TimeZone zone(kUtc);
    for (const std::string name : {"a/b", "%n", "x-y.psb", " "}) {
        device_.order("Vesk.getValue", "value", name);
        EXPECT_EQ(proposedAt(0), name + "-197011.0-0-0.psb");
    }
    const std::string longName(10000, 'x');
    device_.order("Vesk.getValue", "value", longName);
    EXPECT_EQ(proposedAt(0), longName + "-197011.0-0-0.psb");
}

TEST_F(BackupFileName, hasValidSizeAlways) {
    for (const std::uint32_t type : {0U, 1U, 3U, 0xFFFFFFFFU}) {
        for (const char* mount : {"USB_X60.1", "", "nowhere", "..", "%n"}) {
            EXPECT_TRUE(manager_.ValidateBackupSize(type, mount)) << type << " " << mount;
        }
    }
    EXPECT_THAT(device_.calls(), testing::IsEmpty()) << "the validation asked the device";
}

}  // namespace
}  // namespace test_support
