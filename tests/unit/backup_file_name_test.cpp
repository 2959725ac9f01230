// The device's name, read from the settings library, and the backup file name that it begins.
#include <glib.h>
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

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class DeviceName : public testing::Test {
protected:
    DeviceDouble device_;
    TfMngr manager_;
};

TEST_F(DeviceName, isReadInTransaction) {
    EXPECT_EQ(manager_.getDeviceName(), "DEVICE");
    EXPECT_THAT(device_.calls(), ElementsAreArray(nameReading()));
    EXPECT_TRUE(device_.records().front().onMainThread);
}

TEST_F(DeviceName, isEmptyWithoutTransaction) {
    device_.orderStatus("Vesk.startTransaction", 1);
    EXPECT_EQ(manager_.getDeviceName(), "");
    EXPECT_THAT(device_.calls(), ElementsAre(nameReading().front()));
}

TEST_F(DeviceName, isEmptyWithoutSettings) {
    device_.order("Vesk.getSingleton", "absent");
    EXPECT_EQ(manager_.getDeviceName(), "");
    EXPECT_THAT(device_.calls(), IsEmpty());
}

TEST_F(DeviceName, leavesTransactionOpenWhenReadFails) {
    device_.orderStatus("Vesk.getValue", -1);
    device_.order("Vesk.getValue", "value", "");
    EXPECT_EQ(manager_.getDeviceName(), "");
    EXPECT_THAT(device_.calls(), ElementsAre(nameReading()[0], nameReading()[1]));
}

TEST_F(DeviceName, isWhatFailedReadHasWritten) {
    device_.orderStatus("Vesk.getValue", -1);
    device_.order("Vesk.getValue", "value", "half a na");
    EXPECT_EQ(manager_.getDeviceName(), "half a na");
}

TEST_F(DeviceName, isPassedOnUnchanged) {
    for (const std::string& name :
         {std::string(), std::string(" "), std::string("two words"), std::string("%n%s%d"),
          std::string("a/../b"), std::string("\xFF\xFE"), std::string("line\nend"),
          std::string(10000, 'x')}) {
        device_.order("Vesk.getValue", "value", name);
        EXPECT_EQ(manager_.getDeviceName(), name);
    }
}

// ---- backup file names -------------------------------------------------------------------------

constexpr const char* kUtc = "UTC0";
constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* kLordHowe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";

class BackupFileName : public testing::Test {
protected:
    std::string proposedAt(const char* now, std::uint32_t type = 1) {
        g_autoptr(GDateTime) moment = g_date_time_new_from_iso8601(now, nullptr);
        clock_.standAt(static_cast<std::time_t>(g_date_time_to_unix(moment)));
        return manager_.GetBackupFileName(type);
    }

    DeviceDouble device_;
    ControlledClock clock_;
    TfMngr manager_;
};

struct Moment {
    const char* zone;
    const char* now;
    const char* stamp;
};

const Moment kMoments[] = {
    {kUtc, "2026-01-05T09:07:03Z", "202615.9-7-3"},
    {kUtc, "2026-01-01T00:00:00Z", "202611.0-0-0"},
    {kUtc, "2028-02-29T12:00:09Z", "2028229.12-0-9"},
    {kCentralEurope, "2026-12-31T23:00:00Z", "202711.0-0-0"},
    {kNewYork, "2027-01-01T04:59:59Z", "20261231.23-59-59"},
    {kCentralEurope, "2026-03-29T01:00:00Z", "2026329.3-0-0"},  // summer time begins
    {kCentralEurope, "2026-10-25T01:00:00Z", "20261025.2-0-0"},  // and ends
    {kLordHowe, "2026-10-03T15:30:00Z", "2026104.2-30-0"},
};

TEST_F(BackupFileName, endsInLocalTimeWithoutZeros) {
    for (const Moment& moment : kMoments) {
        const TimeZone zone(moment.zone);
        EXPECT_EQ(proposedAt(moment.now), std::string("DEVICE-") + moment.stamp + ".psb");
    }
}

TEST_F(BackupFileName, isTheSameForEveryKind) {
    const TimeZone zone(kUtc);
    for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
        EXPECT_EQ(proposedAt("1970-01-01T00:00:00Z", type), "DEVICE-197011.0-0-0.psb") << type;
    }
}

TEST_F(BackupFileName, isEmptyWithoutDeviceName) {
    device_.order("Vesk.getValue", "value", "");
    EXPECT_EQ(proposedAt("1970-01-01T00:00:00Z"), "");
    EXPECT_THAT(device_.calls(), ElementsAreArray(nameReading()));
}

TEST_F(BackupFileName, hasValidSizeAlways) {
    for (const std::uint32_t type : {0U, 1U, 3U, 0xFFFFFFFFU}) {
        for (const char* mount : {"USB_X60.1", "", "nowhere", "..", "%n"}) {
            EXPECT_TRUE(manager_.ValidateBackupSize(type, mount)) << type << " " << mount;
        }
    }
    EXPECT_THAT(device_.calls(), IsEmpty()) << "the validation asked the device";
}

}  // namespace
}  // namespace test_support
