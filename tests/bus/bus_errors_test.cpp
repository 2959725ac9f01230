// What a client gets for calls that the contract does not know, and that the service outlives them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/bus/bus_policy.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

struct Signature {
    const char* method;
    const char* in;  // the types of its arguments
};

constexpr Signature kMethods[] = {{"GetUSBStickDetails", ""},
                                  {"GetStickDetailsWithCount", ""},
                                  {"ValidateBackupSize", "us"},
                                  {"GetBackupFileName", "u"},
                                  {"GetDirectoryIndex", "ss"},
                                  {"GetDirectoryIndexForUpdate", "ss"},
                                  {"GetDirectoryIndexForBackup", "ss"},
                                  {"DeleteFile", "ss"},
                                  {"CreateDirectory", "ss"},
                                  {"DoOSUpdate", "ss"},
                                  {"DoBackup", "sus"},
                                  {"DoRestore", "ss"},
                                  {"GetRestoreFilesList", "ss"},
                                  {"GetUpdateFilesList", "ss"},
                                  {"GetBackupFilesList", "ss"}};

// A tuple of harmless values, one for each type in `types`.
GVariant* valuesOf(const std::string& types) {
    GVariantBuilder tuple;
    g_variant_builder_init(&tuple, G_VARIANT_TYPE_TUPLE);
    for (const char type : types) {
        switch (type) {
            case 's':
                g_variant_builder_add(&tuple, "s", "a");
                break;
            case 'u':
                g_variant_builder_add(&tuple, "u", 1U);
                break;
            case 'i':
                g_variant_builder_add(&tuple, "i", 1);
                break;
            default:
                g_variant_builder_add(&tuple, "v", g_variant_new_string("a"));
        }
    }
    return g_variant_builder_end(&tuple);
}

// The signatures next to `types` that are not `types`: one argument more, one less, another type
// in each place, a box around each.
std::vector<std::string> nearMisses(const std::string& types) {
    std::vector<std::string> misses = {types + "s"};
    for (std::size_t i = 0; i < types.size(); ++i) {
        misses.push_back(types.substr(0, i) + types.substr(i + 1));
        for (const char other : {'i', 'v', types[i] == 's' ? 'u' : 's'}) {
            misses.push_back(types);
            misses.back()[i] = other;
        }
    }
    return misses;
}

// Each test ends by making sure that the service went on, the same process, and that no call
// reached the device libraries behind the interface.
class BusErrors : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(service_.waitUntilAnswers());
        process_ = service_.processId();
    }

    void TearDown() override {
        EXPECT_THAT(device_.calls(), testing::IsEmpty());
        EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
        EXPECT_EQ(service_.processId(), process_);
    }

    Reply property(const std::string& operation, GVariant* arguments) const {
        return bus_.call(kTransferPath, kProperties, operation, arguments);
    }

    DeviceDouble device_;
    ServiceProcess service_{{{}, device_.environment(), {}, {}, {}}};
    SystemBus bus_;

private:
    std::optional<pid_t> process_;
};

TEST_F(BusErrors, refuseArgumentsOfOtherTypesOrNumber) {
    for (const auto& [method, in] : kMethods) {
        for (const std::string& types : nearMisses(in)) {
            EXPECT_EQ(bus_.transfer(method, valuesOf(types)).error, kInvalidArgs)
                << method << "(" << types << ")";
        }
    }
}

TEST_F(BusErrors, refuseArgumentsOfQuitAndInit) {
    for (const char* const method : {"Quit", "Init"}) {
        EXPECT_EQ(bus_.call(kControlPath, kControlInterface, method, valuesOf("s")).error,
                  kInvalidArgs);
    }
}

TEST_F(BusErrors, refuseMethodsThatTheInterfaceLacks) {
    const OpenBusPolicy openPolicy;
    for (const char* const method : {"Eject", "getUSBStickDetails", "GetUsbStickDetails",
                                     "GetUSBStickDetail", "Quit", "Init"}) {
        EXPECT_EQ(bus_.transfer(method).error, kUnknownMethod) << method;
    }
    EXPECT_EQ(bus_.call(kControlPath, kControlInterface, "GetUSBStickDetails").error,
              kUnknownMethod);
}

TEST_F(BusErrors, refuseObjectsThatTheServiceLacks) {
    const auto error = [this](const char* path, const char* interface) {
        return bus_.call(path, interface, "GetUSBStickDetails").error;
    };
    EXPECT_EQ(error(kControlPath, kTransferInterface), kUnknownMethod);
    EXPECT_EQ(error("/", kTransferInterface), kUnknownMethod);
    EXPECT_EQ(error("/sacIntf/1", kTransferInterface), kUnknownMethod);
    EXPECT_EQ(error("/sacintf", kTransferInterface), kUnknownMethod);
}

TEST_F(BusErrors, refusePropertyWritesAndKeepTheValue) {
    for (const char* const name : {"organizationName", "organizationDomain"}) {
        EXPECT_EQ(property("Set", g_variant_new("(ssv)", kTransferInterface, name,
                                                g_variant_new_string("x")))
                      .error,
                  kInvalidArgs);
        EXPECT_EQ(property("Get", g_variant_new("(ss)", kTransferInterface, name)).text(),
                  "(<''>,)");
    }
}

TEST_F(BusErrors, readBothPropertiesAsEmptyText) {
    EXPECT_EQ(property("GetAll", g_variant_new("(s)", kTransferInterface)).text(),
              "({'organizationName': <''>, 'organizationDomain': <''>},)");
}

TEST_F(BusErrors, refusePropertiesThatTheInterfaceLacks) {
    EXPECT_EQ(property("Get", g_variant_new("(ss)", kTransferInterface, "organization-name")).error,
              kInvalidArgs);
    EXPECT_EQ(property("Get", g_variant_new("(ss)", kControlInterface, "organizationName")).error,
              kInvalidArgs);
}

}  // namespace
}  // namespace test_support
