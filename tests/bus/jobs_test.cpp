// Jobs of the running service: their answers, their second, their calls of the device library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>

#include "tests/bus/steady_service.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_calls.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAreArray;

constexpr const char* kBackup = "('USB_X60.1', uint32 2, 'a.psb')";
constexpr const char* kRestore = "('USB_X60.1', 'r.psb')";
constexpr const char* kUpdate = "('USB_X60.1', 'u.fwf')";

class Job : public SteadyServiceWithDouble {
protected:
    // Fails the test unless the answer is `answer` and comes after a second.
    void start(const std::string& method, const std::string& arguments,
               const std::string& answer = "(0,)") const {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(ask(method, arguments), answer);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    }

    const Stick stick_{1};
};

// A backup, a restore and an update in one process of the service, seen from every side.
TEST_F(Job, runsOnThreadOfItsOwnAfterASecond) {
    device_.order("BR.backup", "write", "100");
    stick_.addFile("a.psb", "old");
    stick_.addFile("u.fwf");

    start("DoBackup", kBackup);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    EXPECT_TRUE(
        service_.waitForOutput("\n The File " + stick_.path("a.psb") + " removed Successfully \n"));
    EXPECT_EQ(readFile(stick_.path("a.psb")), std::string(100, 'b'));
    start("DoRestore", kRestore);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR3)"));
    start("DoOSUpdate", kUpdate);
    ASSERT_TRUE(device_.waitForCall("FUDestroyController(FU1)"));

    const std::string joined = "/media/usb/USB_X60.1USB_X60.1";
    EXPECT_THAT(device_.calls(),
                ElementsAreArray(completed(sizeQuery(1, "recipes")) +
                                 completed(backupTo(2, stick_.path("a.psb"), "recipes")) +
                                 completed(restoreFrom(3, joined + "/a.psbr.psb")) +
                                 completed(updateFrom(1, joined + "USB_X60.1/u.fwf"))));
    std::set<int> workers;
    for (const DoubleRecord& call : device_.records()) {
        EXPECT_EQ(call.onMainThread, call.entry.find("BR1") != std::string::npos) << call.entry;
        if (!call.onMainThread) {
            workers.insert(call.thread);
        }
    }
    EXPECT_EQ(workers.size(), 3U);
}

TEST_F(Job, keepsCallersWaitingForASecond) {
    device_.order("BR.restore", "hang", device_.gate());
    const auto begin = std::chrono::steady_clock::now();
    std::thread other([] {
        EXPECT_EQ(SystemBus().transfer("DoRestore", g_variant_new_parsed(kRestore)).printed(),
                  "(0,)");
    });
    EXPECT_TRUE(device_.waitForCall("BRCreateController"));
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").type(), "(av)");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    other.join();
    EXPECT_EQ(device_.calls().back(), R"(BR1.restore("/media/usb/USB_X60.1/r.psb"))");
    device_.openGate();
    EXPECT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
}

// Under the thread sanitizer each thread takes memory of its own.
#if !defined(__SANITIZE_THREAD__)
TEST_F(Job, answersMinus1WithoutThread) {
    if (const std::string reason = whyMemoryIsNotItsOwn(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    stick_.addFile("a.psb", "old");
    stick_.addFile("u.fwf");
    rlimit before{};
    ASSERT_EQ(prlimit(*service_.processId(), RLIMIT_AS, nullptr, &before), 0);
    ASSERT_TRUE(service_.forbidThreads());
    start("DoBackup", kBackup, "(-1,)");
    start("DoRestore", kRestore, "(-1,)");
    start("DoOSUpdate", kUpdate, "(-1,)");
    EXPECT_THAT(device_.calls(), ElementsAreArray(completed(sizeQuery(1, "recipes"))));
    EXPECT_EQ(readFile(stick_.path("a.psb")), "old");
    // The names of the jobs that did not start stay behind.
    ASSERT_EQ(prlimit(*service_.processId(), RLIMIT_AS, &before, nullptr), 0);
    start("DoOSUpdate", kUpdate);
    EXPECT_TRUE(device_.waitForCall(
        "FU1.update(\"/media/usb/USB_X60.1USB_X60.1USB_X60.1USB_X60.1/u.fwfu.fwf\")"));
    EXPECT_TRUE(device_.waitForCall("FUDestroyController(FU1)"));
}

// Nobody joins the workers, so a small device runs out of address space after some hundreds of
// jobs.
TEST_F(Job, keepsItsStackAfterItsEnd) {
    if (const std::string reason = whyMemoryIsNotItsOwn(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    const int atRest = service_.threads();
    ASSERT_TRUE(service_.forbidThreads(1));
    start("DoRestore", kRestore);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
    ASSERT_TRUE(eventually([&] { return service_.threads() == atRest; }, "the worker ends"));
    start("DoRestore", kRestore, "(-1,)");
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
    start("DoRestore", kRestore);
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR1)"));
    EXPECT_LT(addressSpace() - before, kLessThanAnArena);
}
#endif

}  // namespace
}  // namespace test_support
