// The doubles of the device libraries, used through the project's own declarations of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <new>
#include <thread>

#include "tests/support/device/device_double.h"
#include "transfer/platform/device_manager_client.h"
#include "transfer/platform/vesk_service_interface.h"

namespace test_support {
namespace {

using testing::ElementsAre;

class CountingLog : public IBRLog {
public:
    void log(const char* /*format*/, ...) override { calls += "0"; }
    void reserved1() override { calls += "1"; }
    void reserved2() override { calls += "2"; }
    void reserved3() override { calls += "3"; }
    void logError(const char* /*format*/, ...) override { calls += "4"; }
    void reserved5() override { calls += "5"; }
    int readCredential(const char** out) override {
        calls += "6";
        if (credential == nullptr) {
            return -2;
        }
        *out = credential;
        return 0;
    }

    std::string calls;
    const char* credential = nullptr;
};

class Doubles : public testing::Test {
protected:
    DeviceDouble device_;
};

TEST_F(Doubles, recordTheCallsOfABackupControllerInOrder) {
    std::uint64_t bytes = 7;
    IBRController* controller = BRCreateController();
    ASSERT_NE(controller, nullptr);
    EXPECT_EQ(controller->connect("127.0.0.1:5001", ""), 0);
    controller->setWorkDirectory("/tmp");
    EXPECT_EQ(controller->backup("/a\nb", "recipes"), 0);
    EXPECT_EQ(controller->restore("/a"), 0);
    EXPECT_EQ(controller->getBackupSize("fullbackup", &bytes), 0);
    EXPECT_EQ(controller->checkBackupFile("/b"), 0);
    controller->disconnect();
    BRDestroyController(controller);
    EXPECT_EQ(bytes, 7U);
    const std::string name = device_.calls().front().substr(23);
    EXPECT_THAT(
        device_.calls(),
        ElementsAre("BRCreateController() = " + name, name + ".connect(\"127.0.0.1:5001\", \"\")",
                    name + ".setWorkDirectory(\"/tmp\")", name + ".backup(\"/a\nb\", \"recipes\")",
                    name + ".restore(\"/a\")", name + ".getBackupSize(\"fullbackup\", 7)",
                    name + ".checkBackupFile(\"/b\")", name + ".disconnect()",
                    "BRDestroyController(" + name + ")"));
    EXPECT_TRUE(device_.records().front().onMainThread);
}

TEST_F(Doubles, recordTheCallsOfAnUpdateControllerInOrder) {
    IFUController* controller = FUCreateController();
    ASSERT_NE(controller, nullptr);
    EXPECT_EQ(controller->connect("e", "c"), 0);
    EXPECT_EQ(controller->update("/u"), 0);
    controller->setWorkDirectory("/tmp");
    EXPECT_EQ(controller->checkFirmwareFile("/f"), 0);
    controller->disconnect();
    FUDestroyController(controller);
    FUDestroyController(nullptr);
    const std::string name = device_.calls().front().substr(23);
    EXPECT_THAT(device_.calls(),
                ElementsAre("FUCreateController() = " + name, name + ".connect(\"e\", \"c\")",
                            name + ".update(\"/u\")", name + ".setWorkDirectory(\"/tmp\")",
                            name + ".checkFirmwareFile(\"/f\")", name + ".disconnect()",
                            "FUDestroyController(" + name + ")", "FUDestroyController(null)"));
}

TEST_F(Doubles, followTheScriptAsItIsAtEachCall) {
    std::uint64_t bytes = 0;
    IBRController* controller = BRCreateController();
    device_.orderStatus("BR.connect", 5);
    EXPECT_EQ(controller->connect("", ""), 5);
    device_.orderStatus("BR.connect", -1);
    EXPECT_EQ(controller->connect("", ""), -1);
    device_.order("BR.getBackupSize", "bytes", "18446744073709551615");
    EXPECT_EQ(controller->getBackupSize("", &bytes), 0);
    EXPECT_EQ(bytes, 18446744073709551615U);
    device_.order("BR.checkBackupFile", "reject", "bad");
    EXPECT_NE(controller->checkBackupFile("/bad.psb"), 0);
    EXPECT_EQ(controller->checkBackupFile("/good.psb"), 0);
    device_.clearOrders();
    EXPECT_EQ(controller->checkBackupFile("/bad.psb"), 0);
    BRDestroyController(controller);
    device_.order("*", "null");
    EXPECT_EQ(BRCreateController(), nullptr);
    EXPECT_EQ(FUCreateController(), nullptr);
}

TEST_F(Doubles, writeABackupOfTheOrderedSize) {
    const TemporaryDirectory folder;
    IBRController* controller = BRCreateController();
    device_.order("BR.backup", "write", "1000");
    EXPECT_EQ(controller->backup(folder.path("b").c_str(), ""), 0);
    EXPECT_EQ(readFile(folder.path("b")).size(), 1000U);
    BRDestroyController(controller);
}

TEST_F(Doubles, useTheLogFromItsHandoverToTheDestruction) {
    CountingLog log;
    IBRController* controller = BRCreateController();
    controller->disconnect();
    EXPECT_EQ(log.calls, "");
    controller->setLog(&log);
    EXPECT_EQ(log.calls, "012345");
    device_.order("*", "log", "05");
    controller->disconnect();
    BRDestroyController(controller);
    EXPECT_EQ(log.calls, "0123450505");
}

TEST_F(Doubles, recordWhatReadCredentialAnswers) {
    CountingLog log;
    IFUController* controller = FUCreateController();
    device_.order("FU.connect", "log", "6");
    controller->setLog(&log);
    controller->connect("", "");
    log.credential = "secret";
    controller->connect("", "");
    FUDestroyController(controller);
    EXPECT_THAT(device_.logAnswers(),
                ElementsAre(testing::EndsWith(".readCredential() = -2 untouched"),
                            testing::EndsWith(".readCredential() = 0 \"secret\"")));
}

TEST_F(Doubles, noticeALogThatHasGone) {
    device_.expectViolations();
    alignas(CountingLog) std::array<std::byte, sizeof(CountingLog)> place{};
    auto* log = new (place.data()) CountingLog;
    IBRController* controller = BRCreateController();
    controller->setLog(log);
    log->~CountingLog();
    std::memset(place.data(), 0, place.size());
    controller->disconnect();
    BRDestroyController(controller);
    EXPECT_THAT(device_.violations(),
                testing::Each(testing::EndsWith("holds a log object that has gone")));
    EXPECT_EQ(device_.violations().size(), 2U);
}

TEST_F(Doubles, noticeSlotsThatAreNeverToBeCalled) {
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

TEST_F(Doubles, noticeUseAfterDestructionAndDestructionOfTheWrongKind) {
    device_.expectViolations();
    IBRController* controller = BRCreateController();
    BRDestroyController(controller);
    controller->disconnect();
    BRDestroyController(controller);
    BRDestroyController(nullptr);
    FUDestroyController(reinterpret_cast<IFUController*>(controller));
    EXPECT_EQ(device_.violations().size(), 4U) << testing::PrintToString(device_.violations());
}

TEST_F(Doubles, recordTheSettingsTransactions) {
    std::string value;
    VeskServiceInterface* settings = VeskServiceInterface::getSingleton();
    EXPECT_EQ(settings->startTransaction(true, false), 0);
    EXPECT_EQ(settings->getValue("A/b", value), 0);
    settings->stopTransaction();
    EXPECT_EQ(value, "DEVICE");
    device_.order("Vesk.getValue", "value", "two words\nand a line ");
    device_.orderStatus("Vesk.getValue", 3);
    EXPECT_EQ(settings->getValue("A/b", value), 3);
    EXPECT_EQ(value, "two words\nand a line ");
    EXPECT_THAT(device_.calls(),
                ElementsAre("Vesk.startTransaction(true, false)", "Vesk.getValue(\"A/b\")",
                            "Vesk.stopTransaction()", "Vesk.getValue(\"A/b\")"));
}

TEST_F(Doubles, hangUntilTheGateOpens) {
    IBRController* controller = BRCreateController();
    device_.order("BR.restore", "hang", device_.gate());
    bool returned = false;
    std::thread job([&] { returned = controller->restore("/r") == 0; });
    EXPECT_TRUE(device_.waitForCall(device_.calls().front().substr(23) + ".restore"));
    device_.openGate();
    job.join();
    EXPECT_TRUE(returned);
    EXPECT_FALSE(device_.records().back().onMainThread);
    BRDestroyController(controller);
}

}  // namespace
}  // namespace test_support
