// What a client gets for calls of what the service does not have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";

// Each test ends by making sure that the same process goes on.
class BusError : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(service_.waitUntilAnswers());
        process_ = service_.processId();
    }

    void TearDown() override {
        EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
        EXPECT_EQ(service_.processId(), process_);
    }

    Reply property(const std::string& operation, GVariant* arguments) const {
        return bus_.call(kTransferPath, "org.freedesktop.DBus.Properties", operation, arguments);
    }

    ServiceProcess service_;
    SystemBus bus_;

private:
    std::optional<pid_t> process_;
};

TEST_F(BusError, answersUnknownMethod) {
    const BusPolicy openPolicy(kOpenBusPolicy);
    for (const char* const method :
         {"Eject", "getUSBStickDetails", "GetUsbStickDetails", "GetUSBStickDetail", "Quit"}) {
        EXPECT_EQ(bus_.transfer(method).error, kUnknownMethod) << method;
    }
    EXPECT_EQ(bus_.call(kControlPath, kControlInterface, "GetUSBStickDetails").error,
              kUnknownMethod);
}

TEST_F(BusError, answersUnknownObject) {
    for (const char* const path : {kControlPath, "/", "/sacIntf/1", "/sacintf"}) {
        EXPECT_EQ(bus_.call(path, kTransferInterface, "GetUSBStickDetails").error, kUnknownMethod)
            << path;
    }
}

TEST_F(BusError, answersPropertyWrite) {
    for (const char* const name : {"organizationName", "organizationDomain"}) {
        const Reply set = property(
            "Set", g_variant_new("(ssv)", kTransferInterface, name, g_variant_new_string("x")));
        EXPECT_EQ(set.error, kInvalidArgs);
    }
}

TEST_F(BusError, answersUnknownProperty) {
    EXPECT_EQ(property("Get", g_variant_new("(ss)", kTransferInterface, "organization-name")).error,
              kInvalidArgs);
    EXPECT_EQ(property("Get", g_variant_new("(ss)", kControlInterface, "organizationName")).error,
              kInvalidArgs);
}

TEST_F(BusError, leavesBothPropertiesEmpty) {
    property("Set", g_variant_new("(ssv)", kTransferInterface, "organizationName",
                                  g_variant_new_string("x")));
    EXPECT_EQ(property("GetAll", g_variant_new("(s)", kTransferInterface)).text(),
              "({'organizationName': <''>, 'organizationDomain': <''>},)");
}

}  // namespace
}  // namespace test_support
