// The credential for the device manager goes to the device library and nowhere else: not into what
// the service logs, prints or answers, nor into what others can see of its process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/bus/steady_service.h"
#include "tests/support/bus/interface_description.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/persistent_record.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"

namespace test_support {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

// No part of it is likely to stand anywhere by chance.
constexpr std::size_t kTellingPart = 6;

testing::AssertionResult keepsSecret(const std::string& secret, const std::string& said) {
    for (std::size_t at = 0; at + kTellingPart <= secret.size(); ++at) {
        const std::string part = secret.substr(at, kTellingPart);
        if (said.find(part) != std::string::npos) {
            return testing::AssertionFailure() << "'" << part << "' stands in:\n" << said;
        }
    }
    return testing::AssertionSuccess();
}

// A device library that asks for the credential in every call, and at which something fails.
class Credential : protected WithLog, public SteadyServiceWithDouble {
protected:
    void orderFault(const char* operation, const char* key, const char* value) {
        device_.clearOrders();
        device_.order("*", "log", "0123456");
        device_.order(operation, key, value);
    }

    // Every method, and calls that cannot succeed.
    void askEverything() {
        for (const Method& method : transferMethods()) {
            const bool lists = method.in == "ss" && method.name.rfind("Get", 0) == 0;
            note(bus_.transfer(method.name, lists ? g_variant_new("(ss)", "USB_X60.1", "")
                                                  : harmlessArguments(method.in)));
            note(bus_.transfer(method.name, harmlessArguments(method.in + "s")));
        }
        note(bus_.transfer("ReadCredential"));
        note(bus_.call(kTransferPath, "org.freedesktop.DBus.Introspectable", "Introspect"));
        note(bus_.call(kControlPath, kControlInterface, "Init"));
    }

    // All that anybody outside of the process could have learnt. Ends the service, so that nothing
    // of it is on its way any more.
    std::string learnt() {
        const std::string process = "/proc/" + std::to_string(*service_.processId());
        replies_ += readFile(process + "/cmdline") + readFile(process + "/environ");
        EXPECT_TRUE(service_.stop());
        EXPECT_TRUE(log_.waitFor("Could not register servicename on bus"));
        std::string all = replies_ + service_.standardOutput() + service_.standardError();
        for (const std::string& message : log_.messages()) {
            all += message + "\n";
        }
        return all;
    }

    void SetUp() override {
        SteadyServiceWithDouble::SetUp();
        stick_.addFile("a.psb");
        stick_.addFile("u.fwf");
    }

    void TearDown() override {
        orderFault("*", "null", "");
        askEverything();
        EXPECT_THAT(device_.logAnswers(), Contains(HasSubstr(credential())))
            << "nobody has read what is to be kept";
        const std::string said = learnt();
        EXPECT_THAT(said, HasSubstr("Disk size: "));
        EXPECT_TRUE(keepsSecret(credential(), said));
        for (const char* message : {"from the double", "%5.2f"}) {
            EXPECT_THAT(said, Not(HasSubstr(message))) << "of the library";
        }
    }

private:
    void note(const Reply& reply) { replies_ += reply.printed() + "\n" + reply.message + "\n"; }

    std::string replies_;
    const Stick stick_{1};
    const PersistentRecord record_{recordWith(credential())};
};

TEST_F(Credential, isKeptWhenQuestionsFail) {
    for (const char* operation : {"BR.connect", "BR.getBackupSize", "BR.checkBackupFile",
                                  "FU.connect", "FU.checkFirmwareFile", "Vesk.getValue"}) {
        orderFault(operation, "status", "5");
        askEverything();
    }
    orderFault("BR.getBackupSize", "status", "5");
    EXPECT_EQ(ask("DoBackup", "('USB_X60.1', uint32 1, 'a.psb')"), "(3,)");
}

TEST_F(Credential, isKeptWhenJobsFail) {
    orderFault("BR.backup", "status", "5");
    EXPECT_EQ(ask("DoBackup", "('USB_X60.1', uint32 1, 'a.psb')"), "(0,)");
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    orderFault("BR.restore", "status", "5");
    EXPECT_EQ(ask("DoRestore", "('USB_X60.1', 'a.psb')"), "(0,)");
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR3)"));
    orderFault("FU.update", "status", "5");
    EXPECT_EQ(ask("DoOSUpdate", "('USB_X60.1', 'u.fwf')"), "(0,)");
    EXPECT_TRUE(device_.waitForCall("FUDestroyController(FU1)"));
}

}  // namespace
}  // namespace test_support
