// The device's name, read from the settings library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/device/device_calls.h"
#include "tests/support/device/device_double.h"
#include "transfer/tf_mngr.h"

namespace test_support {
namespace {

using testing::ElementsAreArray;

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
    EXPECT_THAT(device_.calls(), testing::ElementsAre(nameReading().front()));
}

TEST_F(DeviceName, isEmptyWithoutSettings) {
    device_.order("Vesk.getSingleton", "absent");
    EXPECT_EQ(manager_.getDeviceName(), "");
    EXPECT_THAT(device_.calls(), testing::IsEmpty());
}

TEST_F(DeviceName, leavesTransactionOpenWhenReadFails) {
    device_.orderStatus("Vesk.getValue", -1);
    device_.order("Vesk.getValue", "value", "");
    EXPECT_EQ(manager_.getDeviceName(), "");
    EXPECT_THAT(device_.calls(), testing::ElementsAre(nameReading()[0], nameReading()[1]));
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

}  // namespace
}  // namespace test_support
