// What holds for calls of any method, and of what the service does not have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/bus/steady_service.h"
#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/interface_description.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"

namespace test_support {
namespace {

constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";

// The signatures next to `types` that are not `types`: one argument more, one less, another type
// in each place, a variant around each.
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

class EveryMethod : public SteadyServiceWithDouble {
protected:
    Reply call(const Method& method, const std::string& types) const {
        const char* const path =
            method.interface == kTransferInterface ? kTransferPath : kControlPath;
        return bus_.call(path, method.interface, method.name, harmlessArguments(types));
    }

    static std::vector<Method> all() {
        std::vector<Method> methods = transferMethods();
        methods.insert(methods.end(), controlMethods().begin(), controlMethods().end());
        return methods;
    }
};

TEST_F(EveryMethod, answersWithItsOutSignature) {
    for (const Method& method : all()) {
        const Reply reply = call(method, method.in);
        EXPECT_EQ(reply.type(), "(" + method.out + ")") << method.name << ": " << reply.message;
    }
}

TEST_F(EveryMethod, refusesOtherArguments) {
    for (const Method& method : all()) {
        for (const std::string& types : nearMisses(method.in)) {
            EXPECT_EQ(call(method, types).error, kInvalidArgs)
                << method.name << "(" << types << ")";
        }
    }
    EXPECT_THAT(device_.calls(), testing::IsEmpty());
}

class BusError : public SteadyService {
protected:
    Reply property(const std::string& operation, GVariant* arguments) const {
        return bus_.call(kTransferPath, "org.freedesktop.DBus.Properties", operation, arguments);
    }
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

TEST_F(BusError, answersUnknownProperty) {
    EXPECT_EQ(property("Get", g_variant_new("(ss)", kTransferInterface, "organization-name")).error,
              kInvalidArgs);
    EXPECT_EQ(property("Get", g_variant_new("(ss)", kControlInterface, "organizationName")).error,
              kInvalidArgs);
}

TEST_F(BusError, leavesBothPropertiesEmpty) {
    for (const char* const name : {"organizationName", "organizationDomain"}) {
        EXPECT_EQ(property("Set", g_variant_new("(ssv)", kTransferInterface, name,
                                                g_variant_new_string("x")))
                      .error,
                  kInvalidArgs);
    }
    EXPECT_EQ(property("GetAll", g_variant_new("(s)", kTransferInterface)).printed(),
              "({'organizationName': <''>, 'organizationDomain': <''>},)");
}

class Client : public SteadyServiceWithDouble {
protected:
    const Stick stick_{1};
};

TEST_F(Client, mayVanishDuringItsCall) {
    stick_.addFile("a.psb");
    device_.order("BR.checkBackupFile", "hang", device_.gate());
    {
        const SystemBus vanishing;
        const ObjectPtr<GDBusMessage> call(g_dbus_message_new_method_call(
            kServiceName, kTransferPath, kTransferInterface, "GetBackupFilesList"));
        g_dbus_message_set_body(call.get(), g_variant_new("(ss)", "USB_X60.1", ""));
        g_dbus_connection_send_message(vanishing.connection(), call.get(),
                                       G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
        ASSERT_TRUE(device_.waitForCall("BR1.checkBackupFile"));
    }
    device_.openGate();
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
}

TEST_F(Client, mayWantNoReply) {
    g_dbus_connection_call(bus_.connection(), kServiceName, kTransferPath, kTransferInterface,
                           "CreateDirectory", g_variant_new("(ss)", "USB_X60.1", "new"), nullptr,
                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    // Calls of one client are handled in order.
    EXPECT_EQ(ask("DeleteFile", "('USB_X60.1', 'new')"), "(true,)");
}

}  // namespace
}  // namespace test_support
