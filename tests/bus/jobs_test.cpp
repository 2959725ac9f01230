// Jobs of the running service: their answers, their second, their calls of the device library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/bus/job_calls.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_calls.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/persistent_record.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAreArray;

class Job : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    const Stick stick_{1};
    DeviceDouble device_;
    ServiceProcess service_{{{}, device_.environment()}};
    const SystemBus bus_;
};

// Credentials that `controllers` ask for in each of their calls from setLog to the destruction.
std::vector<std::string> credentialReadings(const std::vector<std::string>& controllers,
                                            const std::string& credential) {
    std::vector<std::string> answers;
    for (const std::string& controller : controllers) {
        answers.insert(answers.end(), 5,
                       controller + ".readCredential() = 0 \"" + credential + "\"");
    }
    return answers;
}

// A backup, a restore and an update in one process of the service, seen from every side.
TEST_F(Job, runsOnThreadOfItsOwnAfterASecond) {
    const std::string credential(64, 'c');
    const PersistentRecord record(recordWith(credential));
    device_.order("*", "log", "0123456");
    device_.order("BR.backup", "write", "100");
    stick_.addFile("a.psb", "old");
    stick_.addFile("u.fwf");

    EXPECT_GE(durationOf([&] { EXPECT_EQ(doBackup(bus_, "USB_X60.1", 2, "a.psb"), 0); }), 1s);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    EXPECT_TRUE(
        service_.waitForOutput("\n The File " + stick_.path("a.psb") + " removed Successfully \n"));
    EXPECT_EQ(readFile(stick_.path("a.psb")), std::string(100, 'b'));
    EXPECT_GE(durationOf([&] { EXPECT_EQ(doRestore(bus_, "USB_X60.1", "r.psb"), 0); }), 1s);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR3)"));
    EXPECT_GE(durationOf([&] { EXPECT_EQ(doOsUpdate(bus_, "USB_X60.1", "u.fwf"), 0); }), 1s);
    ASSERT_TRUE(device_.waitForCall("FUDestroyController(FU1)"));

    const std::string joined = "/media/usb/USB_X60.1USB_X60.1";
    EXPECT_THAT(device_.calls(),
                ElementsAreArray(completed(sizeQuery(1, "recipes")) +
                                 completed(backupTo(2, stick_.path("a.psb"), "recipes")) +
                                 completed(restoreFrom(3, joined + "/a.psbr.psb")) +
                                 completed(updateFrom(1, joined + "USB_X60.1/u.fwf"))));
    EXPECT_THAT(device_.logAnswers(),
                ElementsAreArray(credentialReadings({"BR1", "BR2", "BR3", "FU1"}, credential)));
    std::set<int> workers;
    for (const DoubleRecord& call : device_.records()) {
        EXPECT_EQ(call.onMainThread, call.text.find("BR1") != std::string::npos) << call.text;
        if (!call.onMainThread) {
            workers.insert(call.thread);
        }
    }
    EXPECT_EQ(workers.size(), 3U);
    EXPECT_EQ(bus_.transfer("GetBackupFileName", g_variant_new("(u)", 1U)).error, "");
}

TEST_F(Job, keepsCallersWaitingForASecond) {
    device_.order("BR.restore", "hang", device_.gate());
    const auto start = std::chrono::steady_clock::now();
    std::thread other([] { EXPECT_EQ(doRestore(SystemBus(), "USB_X60.1", "a.psb"), 0); });
    EXPECT_TRUE(device_.waitForCall("BRCreateController"));
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").type(), "(av)");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1s);
    other.join();
    EXPECT_EQ(device_.calls().back(), R"(BR1.restore("/media/usb/USB_X60.1/a.psb"))");
    device_.openGate();
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
}

#if !defined(__SANITIZE_THREAD__)  // its threads take memory of their own
TEST_F(Job, answersMinus1WithoutThread) {
    if (const std::string reason = whyMemoryIsNotItsOwn(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    stick_.addFile("u.fwf");
    rlimit before{};
    ASSERT_EQ(prlimit(*service_.processId(), RLIMIT_AS, nullptr, &before), 0);
    ASSERT_TRUE(service_.forbidThreads());
    EXPECT_GE(durationOf([&] { EXPECT_EQ(doBackup(bus_, "USB_X60.1", 1, "a.psb"), -1); }), 1s);
    EXPECT_GE(durationOf([&] { EXPECT_EQ(doRestore(bus_, "USB_X60.1", "r.psb"), -1); }), 1s);
    EXPECT_GE(durationOf([&] { EXPECT_EQ(doOsUpdate(bus_, "USB_X60.1", "u.fwf"), -1); }), 1s);
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup"))));
    // The names of the jobs that did not start stay behind.
    ASSERT_EQ(prlimit(*service_.processId(), RLIMIT_AS, &before, nullptr), 0);
    EXPECT_EQ(doOsUpdate(bus_, "USB_X60.1", "u.fwf"), 0);
    EXPECT_TRUE(device_.waitForCall(
        "FU1.update(\"/media/usb/USB_X60.1USB_X60.1USB_X60.1USB_X60.1/u.fwfu.fwf\")"));
}
#endif

// Sanitizers have a heap of their own, and with 32 bits an arena is smaller than a stack.
#if __SIZEOF_POINTER__ == 8 && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Job, reservesStackAndNoHeapOfItsOwn) {
    if (const std::string reason = whyMemoryIsNotItsOwn(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    constexpr int kLessThanAnArena = 32 * 1024;  // kB; an arena reserves 64 MiB, a stack 8
    const auto addressSpace = [this] {
        return std::stoi(statusField(*service_.processId(), "VmSize").value());
    };
    const int before = addressSpace();
    EXPECT_EQ(doRestore(bus_, "USB_X60.1", "a.psb"), 0);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
    EXPECT_LT(addressSpace() - before, kLessThanAnArena);
}
#endif

// Not under the thread sanitizer: each thread takes memory of its own there, and where that ends
// the process is killed.
#if !defined(__SANITIZE_THREAD__)
// Nobody joins the workers, so a small device runs out of address space after some hundreds of
// jobs.
TEST_F(Job, keepsItsStackAfterItsEnd) {
    if (const std::string reason = whyMemoryIsNotItsOwn(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    const int atRest = service_.threads();
    ASSERT_TRUE(service_.forbidThreads(1));
    EXPECT_EQ(doRestore(bus_, "USB_X60.1", "a.psb"), 0);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
    ASSERT_TRUE(eventually([&] { return service_.threads() == atRest; }, "the worker ends"));
    EXPECT_EQ(doRestore(bus_, "USB_X60.1", "b.psb"), -1);
}
#endif

TEST_F(Job, restoresMountBaseWithoutStick) {
    EXPECT_EQ(doBackup(bus_, "", 1, "a.psb"), 0);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "fullbackup")) +
                                                  completed(restoreFrom(2, "/media/usb/"))));
}

}  // namespace
}  // namespace test_support
