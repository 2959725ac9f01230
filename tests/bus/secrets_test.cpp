// The credential for the device manager goes to the device library and nowhere else: not into what
// the service logs, prints or answers, nor into what others can see of its process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/bus/job_calls.h"
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

constexpr const char* kLastMessage = "Could not register servicename on bus";

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

class Secrets : protected Surroundings, public testing::Test {
protected:
    enum class Library { Double, StandIn };
    explicit Secrets(Library library)
        : service_({{}, environmentFor(library, device_), {}, {}, {}}) {}

    void SetUp() override {
        stick_.addFile("a.psb");
        stick_.addFile("u.fwf");
        ASSERT_TRUE(service_.waitUntilAnswers());
    }

    // Every question that leads to the device libraries, and calls that cannot succeed.
    void askEverything() {
        for (const char* method : {"GetBackupFilesList", "GetUpdateFilesList", "GetDirectoryIndex",
                                   "GetDirectoryIndexForBackup", "GetDirectoryIndexForUpdate"}) {
            note(bus_.transfer(method, g_variant_new("(ss)", stick_.name().c_str(), "")));
            note(bus_.transfer(method));
        }
        note(bus_.transfer("GetUSBStickDetails"));
        note(bus_.transfer("GetBackupFileName", g_variant_new("(u)", 1U)));
        note(bus_.transfer("DoBackup", g_variant_new("(sus)", "USB_X60.3", 1U, "a.psb")));
        note(bus_.transfer("ReadCredential"));
        note(bus_.call(kTransferPath, "org.freedesktop.DBus.Introspectable", "Introspect"));
        note(bus_.call(kControlPath, kControlInterface, "Init"));
    }

    // All that anybody outside of the process could have learnt. Ends the service, so that nothing
    // of it is on its way any more.
    std::string learnt() {
        const std::string process = "/proc/" + std::to_string(*service_.processId());
        replies_ += readFile(process + "/cmdline") + readFile(process + "/environ");
        EXPECT_TRUE(service_.stop().has_value());

        EXPECT_TRUE(syslog_.waitFor(kLastMessage));
        std::string all = replies_ + service_.standardOutput() + service_.standardError();
        for (const LogMessage& message : syslog_.messages()) {
            all += message.text + "\n";
        }
        return all;
    }

    void note(const Reply& reply) { replies_ += reply.text() + "\n" + reply.message + "\n"; }

    const Stick stick_{1};
    ServiceProcess service_;
    const SystemBus bus_;

private:
    static std::vector<std::string> environmentFor(Library library, const DeviceDouble& device) {
        return library == Library::Double ? device.environment() : std::vector<std::string>{};
    }

    std::string replies_;
};

// ---- a library that asks for the credential in every call --------------------------------------

class SecretsOfAJob : public Secrets {
protected:
    SecretsOfAJob() : Secrets(Library::Double) {}

    void SetUp() override {
        Secrets::SetUp();
        orderFault("BR.checkBackupFile", "reject", "nothing");
    }

    void orderFault(const char* operation, const char* key, const char* value) {
        device_.clearOrders();
        device_.order("*", "log", "0123456");
        device_.order(operation, key, value);
    }

    void TearDown() override {
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

TEST_F(SecretsOfAJob, areKeptWhenTheDeviceManagerFailsBeforeIt) {
    askEverything();
    for (const char* operation : {"BR.connect", "BR.getBackupSize", "BR.checkBackupFile",
                                  "FU.connect", "FU.checkFirmwareFile", "Vesk.getValue"}) {
        orderFault(operation, "status", "5");
        askEverything();
        orderFault("BR.connect", "status", "5");
        EXPECT_EQ(doBackup(bus_, stick_.name(), 1, "a.psb"), 3) << operation;
    }
    orderFault("*", "null", "");
    askEverything();
}

TEST_F(SecretsOfAJob, areKeptWhenItsBackupFails) {
    orderFault("BR.backup", "status", "5");
    EXPECT_EQ(doBackup(bus_, stick_.name(), 1, "a.psb"), 0);
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    askEverything();
}

TEST_F(SecretsOfAJob, areKeptWhenItsRestoreFails) {
    orderFault("BR.restore", "status", "5");
    EXPECT_EQ(doRestore(bus_, stick_.name(), "a.psb"), 0);
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
    askEverything();
}

TEST_F(SecretsOfAJob, areKeptWhenItsUpdateFails) {
    orderFault("FU.update", "status", "5");
    EXPECT_EQ(doOsUpdate(bus_, stick_.name(), "u.fwf"), 0);
    EXPECT_TRUE(device_.waitForCall("FUDestroyController(FU1)"));
    askEverything();
}

// ---- the stand-in of the library, which hands the credential to the device manager --------------

class SecretsOfAConnection : public Secrets {
protected:
    SecretsOfAConnection() : Secrets(Library::StandIn) {}
    const TemporaryDirectory state_;
};

TEST_F(SecretsOfAConnection, areKeptWhetherTheyAreRightOrWrong) {
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
