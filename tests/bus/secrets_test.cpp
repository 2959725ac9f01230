// The credential for the device manager goes to the device library and nowhere else: not into what
// the service logs, prints or answers, nor into what others can see of its process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/bus/job_calls.h"
#include "tests/support/bus/interface_description.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/persistent_record.h"
#include "tests/support/device/simulator.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// No part of it is likely to stand anywhere by chance.
constexpr std::size_t kTellingPart = 6;
const std::vector<std::string> kNone;

// 64 printable bytes of which each is different.
std::string credential() {
    std::string text;
    for (char c = '!'; text.size() < 64; ++c) {
        text += c;
    }
    return text;
}

testing::AssertionResult keepsSecret(const std::string& secret, const std::string& said) {
    for (std::size_t at = 0; at + kTellingPart <= secret.size(); ++at) {
        const std::string part = secret.substr(at, kTellingPart);
        if (said.find(part) != std::string::npos) {
            return testing::AssertionFailure() << "'" << part << "' stands in:\n" << said;
        }
    }
    return testing::AssertionSuccess();
}

// Exist before the service.
struct Surroundings {
    SyslogSocket syslog_;
    DeviceDouble device_;
};

class Credential : protected Surroundings, public testing::Test {
protected:
    enum class Library { kDouble, kStub };
    explicit Credential(Library library)
        : service_({{}, library == Library::kDouble ? device_.environment() : kNone}) {}

    void SetUp() override {
        stick_.addFile("a.psb");
        stick_.addFile("u.fwf");
        ASSERT_TRUE(service_.waitUntilAnswers());
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
        EXPECT_TRUE(syslog_.waitFor("Could not register servicename on bus"));
        std::string all = replies_ + service_.standardOutput() + service_.standardError();
        for (const LogMessage& message : syslog_.messages()) {
            all += message.text + "\n";
        }
        return all;
    }

    const Stick stick_{1};
    ServiceProcess service_;
    const SystemBus bus_;

private:
    void note(const Reply& reply) { replies_ += reply.text() + "\n" + reply.message + "\n"; }

    std::string replies_;
};

// A device library that asks for the credential in every call, and at which something fails.
class CredentialInDouble : public Credential {
protected:
    CredentialInDouble() : Credential(Library::kDouble) {}

    void orderFault(const char* operation, const char* key, const char* value) {
        device_.clearOrders();
        device_.order("*", "log", "0123456");
        device_.order(operation, key, value);
    }

    void TearDown() override {
        askEverything();
        EXPECT_THAT(device_.logAnswers(), Contains(HasSubstr(credential())))
            << "nobody has read what is to be kept";
        const std::string said = learnt();
        EXPECT_THAT(said, HasSubstr("Disk size: "));
        EXPECT_TRUE(keepsSecret(credential(), said));
        EXPECT_THAT(said, Not(ContainsRegex("from the double|%5.2f"))) << "the library's messages";
    }

private:
    const PersistentRecord record_{recordWith(credential())};
};

TEST_F(CredentialInDouble, isKeptWhenQuestionsFail) {
    for (const char* operation : {"BR.connect", "BR.getBackupSize", "BR.checkBackupFile",
                                  "FU.connect", "FU.checkFirmwareFile", "Vesk.getValue"}) {
        orderFault(operation, "status", "5");
        askEverything();
        orderFault("BR.connect", "status", "5");
        EXPECT_EQ(doBackup(bus_, stick_.name(), 1, "a.psb"), 3) << operation;
    }
    orderFault("*", "null", "");
}

TEST_F(CredentialInDouble, isKeptWhenJobsFail) {
    orderFault("BR.backup", "status", "5");
    EXPECT_EQ(doBackup(bus_, stick_.name(), 1, "a.psb"), 0);
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    orderFault("BR.restore", "status", "5");
    EXPECT_EQ(doRestore(bus_, stick_.name(), "a.psb"), 0);
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR3)"));
    orderFault("FU.update", "status", "5");
    EXPECT_EQ(doOsUpdate(bus_, stick_.name(), "u.fwf"), 0);
    EXPECT_TRUE(device_.waitForCall("FUDestroyController(FU1)"));
    orderFault("*", "null", "");
}

// The stub library hands the credential to the simulated device manager.
class CredentialInStubLibrary : public Credential {
protected:
    CredentialInStubLibrary() : Credential(Library::kStub) {}
    const TemporaryDirectory state_;
};

TEST_F(CredentialInStubLibrary, isKeptWhetherRightOrWrong) {
    const std::string asked = state_.path("record");
    Simulator simulator(state_.path("device"),
                        {"--job-seconds", "0", "--credential-record", asked});
    ASSERT_TRUE(eventually([&] { return readFile(asked).size() == 128; },
                           "the simulator makes the record"));
    {
        const PersistentRecord wrong(recordWith(credential()));
        EXPECT_EQ(doBackup(bus_, stick_.name(), 1, "b.psb"), 3);
        askEverything();
    }
    const std::string record = readFile(asked);
    const PersistentRecord right(record);
    EXPECT_EQ(doBackup(bus_, stick_.name(), 1, "b.psb"), 0);
    askEverything();
    const std::string said = learnt();
    EXPECT_TRUE(keepsSecret(credential(), said));
    EXPECT_TRUE(keepsSecret(record.substr(64), said));
}

}  // namespace
}  // namespace test_support
