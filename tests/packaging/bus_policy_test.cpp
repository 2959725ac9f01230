// Who may call the service, own its name and end it: the policy file under a real message bus.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/fake_service.h"
#include "tests/support/bus/interface_description.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

using testing::HasSubstr;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr const char* kPolicyFile = "/etc/dbus-1/system.d/com.morvane.transfer.conf";
constexpr const char* kBuiltPolicy = "packaging/com.morvane.transfer.conf";

struct Member {
    std::string interface;
    std::string name;
};

void PrintTo(const Member& member, std::ostream* out) {
    *out << member.interface << "." << member.name;
}

// What every object on a bus offers and the policy lets through.
const std::vector<Member> kStandardMembers{{"org.freedesktop.DBus.Introspectable", "Introspect"},
                                           {"org.freedesktop.DBus.Peer", "Ping"},
                                           {"org.freedesktop.DBus.Peer", "GetMachineId"},
                                           {"org.freedesktop.DBus.Properties", "Get"},
                                           {"org.freedesktop.DBus.Properties", "GetAll"},
                                           {"org.freedesktop.DBus.Properties", "Set"}};

std::vector<Member> allMembers() {
    std::vector<Member> members = kStandardMembers;
    for (const std::vector<Method>& methods : {transferMethods(), controlMethods()}) {
        for (const Method& method : methods) {
            members.push_back({method.interface, method.name});
        }
    }
    return members;
}

// The rules of one section of the policy, such as `user="root"`.
std::vector<std::string> rulesIn(const std::string& policy, const std::string& section) {
    std::smatch found;
    std::vector<std::string> rules;
    if (!std::regex_search(policy, found, std::regex("<policy " + section + ">([^]*?)</policy>"))) {
        ADD_FAILURE() << "no section " << section;
        return rules;
    }
    const std::string content = std::regex_replace(found.str(1), std::regex("<!--[^]*?-->"), "");
    const std::regex rule("<(allow|deny)\\s[^>]*>");
    for (std::sregex_iterator at(content.begin(), content.end(), rule), end; at != end; ++at) {
        rules.push_back(std::regex_replace(at->str(), std::regex("\\s+"), " "));
    }
    return rules;
}

std::string busGroup(const std::string& policy) {
    std::smatch found;
    std::regex_search(policy, found, std::regex("<policy group=\"([^\"]+)\">"));
    return found.size() > 1 ? found.str(1) : "";
}

TEST(BusPolicyFile, allowsRootAndGroupFiveInterfaces) {
    const std::string policy = readFile(buildPath(kBuiltPolicy));
    std::vector<std::string> rules;
    for (const char* interface :
         {kTransferInterface, kControlInterface, "org.freedesktop.DBus.Introspectable",
          "org.freedesktop.DBus.Peer", "org.freedesktop.DBus.Properties"}) {
        rules.push_back("<allow send_destination=\"com.morvane.transfer\" send_interface=\"" +
                        std::string(interface) + "\"/>");
    }
    EXPECT_THAT(rulesIn(policy, "group=\"" + busGroup(policy) + "\""),
                UnorderedElementsAreArray(rules));
    rules.emplace_back("<allow own=\"com.morvane.transfer\"/>");
    EXPECT_THAT(rulesIn(policy, "user=\"root\""), UnorderedElementsAreArray(rules));
}

TEST(BusPolicyFile, allowsEverybodyNothingButAppletChanges) {
    EXPECT_THAT(rulesIn(readFile(buildPath(kBuiltPolicy)), "context=\"default\""),
                UnorderedElementsAre("<deny own=\"com.morvane.transfer\"/>",
                                     "<deny send_destination=\"com.morvane.transfer\"/>",
                                     "<allow send_destination=\"com.morvane.transfer\" "
                                     "send_type=\"signal\" send_interface=\"com.morvane.scctrl\" "
                                     "send_member=\"appletChanged\"/>"));
}

TEST(BusPolicyFile, isInForceInSandboxButForTheGroup) {
    const std::regex group("<policy group=\"[^\"]+\">");
    const std::string installed = readFile(kPolicyFile);
    EXPECT_EQ(busGroup(installed), "plugdev");
    EXPECT_EQ(installed, std::regex_replace(readFile(buildPath(kBuiltPolicy)), group,
                                            "<policy group=\"plugdev\">"));
}

// Two ordinary users beside root: the insider is in the policy's group.
constexpr uid_t kRoot = 0;
constexpr uid_t kInsider = 61001;
constexpr uid_t kOutsider = 61002;
constexpr gid_t kGroup = 62000;
constexpr const char* kUserFile = "/etc/passwd";
constexpr const char* kGroupFile = "/etc/group";

// The policy of the build in force on a machine with these users.
class BusAccess : public testing::Test {
protected:
    explicit BusAccess(bool hasGroup = true) {
        for (const char* const path : {kPolicyFile, kUserFile, kGroupFile}) {
            before_[path] = readFile(path);
        }
        const std::string policy = readFile(buildPath(kBuiltPolicy));
        writeFile(kPolicyFile, policy);
        writeFile(kUserFile,
                  "root:x:0:0::/:/bin/sh\n"
                  "insider:x:61001:61001::/:/bin/sh\n"
                  "outsider:x:61002:61002::/:/bin/sh\n");
        writeFile(kGroupFile,
                  "root:x:0:\n" + (hasGroup ? busGroup(policy) + ":x:62000:insider\n" : ""));
        reloadBus();
    }

    ~BusAccess() override {
        for (const auto& [path, bytes] : before_) {
            writeFile(path, bytes);
        }
        reloadBus();
    }

    void SetUp() override {
        std::istringstream map(readFile("/proc/self/uid_map"));
        unsigned long inside = 0;
        unsigned long outside = 0;
        unsigned long users = 0;
        map >> inside >> outside >> users;
        if (users <= 1) {
            GTEST_SKIP() << "the sandbox's user namespace has just one user, as it is not root's";
        }
    }

    // A client that the bus takes for this user. The test itself stays root.
    static std::unique_ptr<SystemBus> connectAs(uid_t user) {
        const gid_t group = user == kInsider ? kGroup : user;
        EXPECT_TRUE(setgroups(1, &group) == 0 && setegid(user) == 0 && seteuid(user) == 0);
        auto bus = std::make_unique<SystemBus>();
        EXPECT_TRUE(seteuid(kRoot) == 0 && setegid(kRoot) == 0);
        return bus;
    }

    // Starts the service, with doubles of the device libraries.
    testing::AssertionResult startService() {
        service_.emplace(ServiceOptions{{}, device_.environment()});
        return service_->waitUntilAnswers();
    }

    bool serviceAnswers() const { return SystemBus().transfer("GetUSBStickDetails").error.empty(); }

    // The errors with which these calls without arguments are answered. One that arrives and wants
    // arguments is answered by the service with InvalidArgs, and nothing is done.
    static std::set<std::string> errorsOf(const SystemBus& bus,
                                          const std::vector<Member>& members) {
        std::set<std::string> errors;
        for (const Member& member : members) {
            const std::string path =
                member.interface == kControlInterface ? kControlPath : kTransferPath;
            errors.insert(bus.call(path, member.interface, member.name).error);
        }
        return errors;
    }

    std::map<std::string, std::string> before_;  // files by path
    DeviceDouble device_;
    std::optional<ServiceProcess> service_;
};

std::string errorOfCallWithoutInterface(const SystemBus& bus) {
    const ObjectPtr<GDBusMessage> message(
        g_dbus_message_new_method_call(kServiceName, kTransferPath, nullptr, "GetUSBStickDetails"));
    const ObjectPtr<GDBusMessage> reply(g_dbus_connection_send_message_with_reply_sync(
        bus.connection(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, -1, nullptr, nullptr,
        nullptr));
    const char* const name =
        reply != nullptr ? g_dbus_message_get_error_name(reply.get()) : nullptr;
    return name != nullptr ? name : "";
}

class AllowedCaller : public BusAccess, public testing::WithParamInterface<uid_t> {};
INSTANTIATE_TEST_SUITE_P(Users, AllowedCaller, testing::Values(kRoot, kInsider));

TEST_P(AllowedCaller, reachesEveryMember) {
    ASSERT_TRUE(startService());
    const std::unique_ptr<SystemBus> bus = connectAs(GetParam());
    for (const Member& member : allMembers()) {
        EXPECT_EQ(errorsOf(*bus, {member}).count(kAccessDenied), 0U)
            << testing::PrintToString(member);
    }
    EXPECT_EQ(bus->transfer("GetUSBStickDetails").printed(), "(@av [],)");
}

// Members that the interfaces lack, other interfaces, and no interface.
TEST_P(AllowedCaller, reachesNothingElse) {
    ASSERT_TRUE(startService());
    const std::unique_ptr<SystemBus> bus = connectAs(GetParam());
    const auto errorOf = [&bus](const char* interface, const char* method) {
        return bus->call(kTransferPath, interface, method).error;
    };
    EXPECT_EQ(errorOf(kTransferInterface, "Eject"), kUnknownMethod);
    EXPECT_EQ(errorOf("org.freedesktop.DBus.Peer", "Pong"), kUnknownMethod);
    EXPECT_EQ(errorOf("org.freedesktop.DBus.ObjectManager", "GetManagedObjects"), kAccessDenied);
    EXPECT_EQ(errorOf("com.morvane.other", "Get"), kAccessDenied);
    EXPECT_EQ(errorOfCallWithoutInterface(*bus), kAccessDenied);
}

TEST_F(BusAccess, isDeniedOutsideTheGroup) {
    ASSERT_TRUE(startService());
    const std::unique_ptr<SystemBus> bus = connectAs(kOutsider);
    for (const Member& member : allMembers()) {
        EXPECT_EQ(errorsOf(*bus, {member}), std::set<std::string>{kAccessDenied})
            << testing::PrintToString(member);
    }
    EXPECT_EQ(errorOfCallWithoutInterface(*bus), kAccessDenied);
    EXPECT_THAT(device_.calls(), testing::IsEmpty());
}

TEST_F(BusAccess, letsOnlyRootOwnName) {
    for (const uid_t user : {kInsider, kOutsider}) {
        const Reply reply =
            connectAs(user)->call("/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                                  g_variant_new("(su)", kServiceName, 0U), "org.freedesktop.DBus");
        EXPECT_EQ(reply.error, kAccessDenied) << user;
    }
    EXPECT_TRUE(SystemBus().ownName(kServiceName));
}

TEST_F(BusAccess, letsNobodyTakeNameFromService) {
    ASSERT_TRUE(startService());
    for (const uid_t user : {kInsider, kOutsider}) {
        EXPECT_FALSE(connectAs(user)->ownName(kServiceName, G_BUS_NAME_OWNER_FLAGS_REPLACE))
            << user;
    }
    EXPECT_TRUE(serviceAnswers());
}

TEST_F(BusAccess, letsAppletControlBeHeard) {
    ASSERT_TRUE(startService());
    const AppletControl appletControl;
    appletControl.emitAppletChanged(257);
    EXPECT_TRUE(service_->waitForOutput("appletHasChanged() Signal received with ID 257"));
}

TEST_F(BusAccess, letsNobodyPlayAppletControl) {
    const AppletControl appletControl;
    ASSERT_TRUE(startService());
    for (const uid_t user : {kInsider, kOutsider}) {
        connectAs(user)->emitSignal(kAppletControlPath, kAppletControlInterface, "appletChanged",
                                    g_variant_new("(i)", 256));
    }
    EXPECT_TRUE(serviceAnswers());
    EXPECT_FALSE(service_->hasEnded());
}

// A machine that has no group of the name.
class BusAccessWithoutGroup : public BusAccess {
protected:
    BusAccessWithoutGroup() : BusAccess(false) {}
};

TEST_F(BusAccessWithoutGroup, servesRootAlone) {
    ASSERT_TRUE(startService());
    for (const uid_t user : {kInsider, kOutsider}) {
        EXPECT_EQ(errorsOf(*connectAs(user), allMembers()), std::set<std::string>{kAccessDenied})
            << user;
    }
    EXPECT_TRUE(serviceAnswers());
    EXPECT_THAT(readFile("/run/log/system-bus"),
                HasSubstr("Unknown group \"" + busGroup(readFile(kPolicyFile)) +
                          "\" in message bus configuration file"));
}

}  // namespace
}  // namespace test_support
