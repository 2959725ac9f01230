// What the device-manager double reports, which every other test expects to be nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <new>

#include "tests/support/device/device_double.h"
#include "transfer/console_log.h"
#include "transfer/platform/device_manager_client.h"

namespace test_support {
namespace {

class DeviceDoubleTest : public testing::Test {
protected:
    DeviceDouble device_;
};

TEST_F(DeviceDoubleTest, reportsALogThatIsGone) {
    device_.expectViolations();
    alignas(CConsoleLog) std::array<std::byte, sizeof(CConsoleLog)> place{};
    auto* log = new (place.data()) CConsoleLog;
    IBRController* controller = BRCreateController();
    controller->setLog(log);
    log->~CConsoleLog();
    std::memset(place.data(), 0, place.size());
    controller->disconnect();
    BRDestroyController(controller);
    EXPECT_THAT(device_.violations(),
                testing::Each(testing::EndsWith("holds a log object that has gone")));
    EXPECT_EQ(device_.violations().size(), 2U);
}

TEST_F(DeviceDoubleTest, reportsReservedSlots) {
    device_.expectViolations();
    IBRController* backup = BRCreateController();
    backup->reserved7("");
    backup->reserved8();
    IFUController* update = FUCreateController();
    update->reserved3();
    update->reserved4();
    update->reserved6("");
    update->reserved7();
    update->reserved9();
    update->reserved10();
    update->reserved11();
    update->reserved12();
    EXPECT_THAT(device_.violations(), testing::Each(testing::EndsWith("was called")));
    EXPECT_EQ(device_.violations().size(), 10U);
}

TEST_F(DeviceDoubleTest, reportsUseAfterDestruction) {
    device_.expectViolations();
    IBRController* controller = BRCreateController();
    BRDestroyController(controller);
    controller->disconnect();
    BRDestroyController(controller);
    BRDestroyController(nullptr);
    FUDestroyController(reinterpret_cast<IFUController*>(controller));
    EXPECT_EQ(device_.violations().size(), 4U) << testing::PrintToString(device_.violations());
}

}  // namespace
}  // namespace test_support
