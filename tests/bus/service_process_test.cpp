// That a bus test fails when a sanitizer of the service reports.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

TEST(ServiceProcess, failsTestOnSanitizerReport) {
    DeviceDouble device;
    device.order("Vesk.startTransaction", "misuse");
    auto service = std::make_unique<ServiceProcess>(ServiceOptions{{}, device.environment()});
    ASSERT_TRUE(service->waitUntilAnswers());
    SystemBus().transfer("GetBackupFileName", g_variant_new("(u)", 1U));
    EXPECT_NONFATAL_FAILURE(service.reset(), "heap-use-after-free");
}

}  // namespace
}  // namespace test_support

#endif
