// Sticks, listings and file operations as they show from outside the running service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/bus/job_calls.h"
#include "tests/support/bus/interface_description.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/service_messages.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

const std::vector<std::string> kListings{"GetRestoreFilesList", "GetBackupFilesList",
                                         "GetUpdateFilesList"};

class Storage : public testing::Test {
protected:
    static Reply ask(const std::string& method, const std::string& stick, const std::string& path) {
        return SystemBus().transfer(method, g_variant_new("(ss)", stick.c_str(), path.c_str()));
    }

    // The answer of DeleteFile or CreateDirectory on the first stick.
    static bool answer(const std::string& method, const std::string& path) {
        const Reply reply = ask(method, "USB_X60.1", path);
        EXPECT_THAT(reply.text(), testing::AnyOf("(true,)", "(false,)"));
        return reply.text() == "(true,)";
    }

    // How many entries a listing has.
    static int countOf(const std::string& listing, const std::string& path) {
        return lastNumber(ask(listing, "USB_X60.1", path));
    }

    static int stickCount() { return lastNumber(SystemBus().transfer("GetStickDetailsWithCount")); }
};

TEST_F(Storage, printsStickSizesAndDeletions) {
    ServiceProcess service;
    ASSERT_TRUE(service.waitUntilAnswers());
    Stick first(1, {"8m"});
    const Stick third(3, {"5g", "/dev/sdb1"});
    EXPECT_EQ(stickCount(), 2);
    first.addFile("a/file.psb");
    for (const std::string& listing : kListings) {
        countOf(listing, "");
        countOf(listing, "missing");
        ask(listing, "USB_X60.9", "");
    }
    EXPECT_FALSE(answer("DeleteFile", "a"));
    EXPECT_FALSE(answer("DeleteFile", "missing"));
    EXPECT_TRUE(answer("DeleteFile", "a//file.psb"));
    EXPECT_TRUE(answer("DeleteFile", "/a"));
    EXPECT_TRUE(answer("CreateDirectory", "b/c/"));
    first.makeReadOnly();
    EXPECT_TRUE(answer("CreateDirectory", "d"));
    EXPECT_FALSE(answer("DeleteFile", "b/c"));
    first.pull();
    EXPECT_EQ(stickCount(), 1);

    const std::string thirdSize = "Disk size: 5368709120 Byte\nFree size: 5368709120 Byte\n";
    const std::string expected =
        asPrinted(startUpMessages()) + "Disk size: 8388608 Byte\nFree size: 8388608 Byte\n" +
        thirdSize +
        "\n The File /media/usb/USB_X60.1/a//file.psb removed Successfully \n"
        "\n The Directory /media/usb/USB_X60.1//a removed Successfully \n" +
        thirdSize;
    EXPECT_TRUE(service.waitForOutput(expected));
    EXPECT_EQ(service.standardOutput(), expected);
    EXPECT_EQ(service.standardError(), "");
}

// Every question, and both file operations, on a stick with something of everything.
void askForAll(const Stick& stick) {
    const SystemBus bus;
    stick.addFile("a/b/file.psb");
    stick.addFile("a/file.fwf");
    for (const Method& method : transferMethods()) {
        if (method.in.empty()) {
            bus.transfer(method.name);
        } else if (method.in == "ss" && method.name.rfind("Get", 0) == 0) {
            for (const char* path : {"", "a", "a/file.fwf", "missing", "loop"}) {
                const Reply reply =
                    bus.transfer(method.name, g_variant_new("(ss)", "USB_X60.1", path));
                EXPECT_EQ(reply.error, "") << method.name;
            }
        }
    }
    bus.transfer("CreateDirectory", g_variant_new("(ss)", "USB_X60.1", "new"));
    bus.transfer("DeleteFile", g_variant_new("(ss)", "USB_X60.1", "new"));
}

TEST_F(Storage, keepsNoDescriptorOpen) {
    const DeviceDouble device;
    ServiceProcess service({{}, device.environment()});
    ASSERT_TRUE(service.waitUntilAnswers());
    Stick stick(1);
    std::filesystem::create_directory_symlink("..", stick.path("a-loop"));
    askForAll(stick);
    const std::vector<std::string> open = service.openDescriptors();
    ASSERT_FALSE(open.empty());
    for (int round = 0; round < 5; ++round) {
        askForAll(stick);
    }
    EXPECT_EQ(service.openDescriptors(), open);
    EXPECT_TRUE(stick.unmount());
}

TEST_F(Storage, answersWhileSticksArePulled) {
    const DeviceDouble device;
    ServiceProcess service({{}, device.environment()});
    ASSERT_TRUE(service.waitUntilAnswers());
    stickCount();
    const std::vector<std::string> open = service.openDescriptors();
    for (int round = 0; round < 60; ++round) {
        Stick stick(1);
        for (int number = 0; number < 20; ++number) {
            stick.addFile("d" + std::to_string(number) + "/x.psb", "");
            stick.addFile("x" + std::to_string(number), "");
        }
        std::thread hand([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(100) * round);
            stick.pull();
        });
        const int count =
            countOf(round % 2 == 0 ? "GetRestoreFilesList" : "GetBackupFilesList", "");
        hand.join();
        EXPECT_GE(count, 0);
        EXPECT_LE(count, 40);
        EXPECT_EQ(countOf("GetRestoreFilesList", ""), 0);
    }
    EXPECT_EQ(stickCount(), 0);
    EXPECT_EQ(service.openDescriptors(), open);
}

// Lets the process open no descriptor any more; returns the limit before.
rlimit forbidDescriptors(pid_t pid) {
    std::set<rlim_t> used;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        used.insert(std::stoul(entry.path().filename()));
    }
    rlim_t firstFree = 0;
    while (used.count(firstFree) != 0) {
        ++firstFree;
    }
    rlimit before{};
    EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &before), 0);
    const rlimit none{firstFree, before.rlim_max};
    EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, &none, nullptr), 0);
    return before;
}

TEST_F(Storage, givesEmptyAnswersWithoutDescriptor) {
    ServiceProcess service;  // with the stub libraries: the doubles could not write their record
    ASSERT_TRUE(service.waitUntilAnswers());
    const Stick stick(1);
    stick.addFile("a/b.psb");
    ASSERT_EQ(stickCount(), 1);
    ASSERT_EQ(countOf("GetRestoreFilesList", ""), 1);
    const std::vector<std::string> open = service.openDescriptors();
    const rlimit before = forbidDescriptors(*service.processId());
    EXPECT_EQ(stickCount(), 0);
    for (const std::string& listing : kListings) {
        EXPECT_EQ(countOf(listing, ""), 0) << listing;
        EXPECT_EQ(countOf(listing, "a"), 0) << listing;
    }
    EXPECT_TRUE(answer("CreateDirectory", "c"));
    EXPECT_TRUE(answer("DeleteFile", "c"));
    EXPECT_EQ(service.openDescriptors(), open);
    ASSERT_EQ(prlimit(*service.processId(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_EQ(stickCount(), 1);
    EXPECT_EQ(countOf("GetRestoreFilesList", "a"), 1);
}

TEST_F(Storage, givesEmptyAnswersWithoutPermission) {
    const DeviceDouble device;
    ServiceProcess service({{}, device.environment(), {}, {}, kWithoutPowers});
    ASSERT_TRUE(service.waitUntilAnswers());
    const Stick stick(1);
    stick.addFile("closed/1.psb");
    stick.addFile("open/2.psb");
    chmod(stick.path("closed").c_str(), 0);
    EXPECT_EQ(countOf("GetRestoreFilesList", ""), 2);
    EXPECT_EQ(countOf("GetRestoreFilesList", "closed"), 0);
    EXPECT_EQ(countOf("GetBackupFilesList", "closed"), 0);
    EXPECT_EQ(countOf("GetBackupFilesList", ""), 1);
    EXPECT_FALSE(answer("DeleteFile", "closed/1.psb"));
    EXPECT_TRUE(answer("CreateDirectory", "closed/new"));
    EXPECT_FALSE(exists(stick.path("closed/new")));
}

}  // namespace
}  // namespace test_support
