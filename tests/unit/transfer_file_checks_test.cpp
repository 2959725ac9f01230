// The controllers that a listing keeps while it has packages checked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/device/device_calls.h"
#include "tests/unit/listing.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kConnect = "connect(\"127.0.0.1:5001\", \"\")";

// The calls by which one kind of controller comes into use.
Calls opened(const std::string& controller) {
    return {controller.substr(0, 2) + "CreateController() = " + controller,
            controller + ".setLog(log)", controller + "." + kConnect};
}

Calls destroyed(const std::string& controller) {
    return {controller.substr(0, 2) + "DestroyController(" + controller + ")"};
}

Calls released(const std::string& controller) {
    return Calls{controller + ".disconnect()"} + destroyed(controller);
}

class PackageCheck : public Listing {
protected:
    std::string check(const std::string& controller, const std::string& path) const {
        const bool updates = controller[0] == 'F';
        return controller + (updates ? ".checkFirmwareFile(\"" : ".checkBackupFile(\"") +
               stick_.path(path) + "\")";
    }
};

TEST_F(PackageCheck, sharesOneConnection) {
    stick_.addFile("a/1.psb");
    stick_.addFile("2.psb");
    stick_.addFile("3.psb");
    const std::vector<FileEntry> list = backup("");
    const std::vector<std::string> order = offeredPaths(device_);
    ASSERT_EQ(order.size(), 3U);
    Calls checks;
    for (const std::string& path : order) {
        checks.push_back("BR1.checkBackupFile(\"" + path + "\")");
    }
    EXPECT_EQ(device_.calls(), opened("BR1") + checks + released("BR1"));
    for (const DoubleRecord& record : device_.records()) {
        EXPECT_TRUE(record.onMainThread) << record.entry;
    }
}

TEST_F(PackageCheck, readsDeviceNameBeforeUpdates) {
    stick_.addFile("1.fwf");
    EXPECT_EQ(update("").size(), 1U);
    EXPECT_EQ(device_.calls(),
              (nameReading() + opened("FU1") + Calls{check("FU1", "1.fwf")} + released("FU1")));
}

TEST_F(PackageCheck, connectsForEachListing) {
    stick_.addFile("1.psb");
    stick_.addFile("2.fwf");
    backup("");
    backup("");
    update("");
    EXPECT_EQ(device_.calls(),
              (opened("BR1") + Calls{check("BR1", "1.psb")} + released("BR1") + opened("BR2") +
               Calls{check("BR2", "1.psb")} + released("BR2") + nameReading() + opened("FU1") +
               Calls{check("FU1", "2.fwf")} + released("FU1")));
}

TEST_F(PackageCheck, failsWithoutController) {
    stick_.addFile("1.psb");
    stick_.addFile("2.psb");
    stick_.addFile("3.fwf");
    device_.order("*", "null");
    EXPECT_THAT(backup(""), IsEmpty());
    EXPECT_THAT(update(""), IsEmpty());
    EXPECT_EQ(device_.calls(),
              (Calls{"BRCreateController() = null", "BRCreateController() = null"} + nameReading() +
               Calls{"FUCreateController() = null"}));
    EXPECT_THAT(offeredPaths(device_), IsEmpty());
}

TEST_F(PackageCheck, failsWithoutConnection) {
    stick_.addFile("1.psb");
    stick_.addFile("2.psb");
    stick_.addFile("3.psb");
    stick_.addFile("4.fwf");
    stick_.addFile("5.fwf");
    for (const std::string connect : {"BR.connect", "FU.connect"}) {
        device_.orderStatus(connect, 1LL << 32U);  // all 64 bits of a status count
    }
    EXPECT_THAT(backup(""), IsEmpty());
    EXPECT_THAT(update(""), IsEmpty());
    device_.clearOrders();
    EXPECT_EQ(device_.calls(),
              (opened("BR1") + destroyed("BR1") + opened("BR2") + destroyed("BR2") + opened("BR3") +
               released("BR3") + nameReading() + opened("FU1") + destroyed("FU1") + opened("FU2") +
               released("FU2")));
}

TEST_F(PackageCheck, goesOnWhenDeviceManagerIsBack) {
    stick_.addFile("1.psb");
    stick_.addFile("2.psb");
    stick_.addFile("3.psb");
    const std::vector<std::string> order = deliveredNames(stick_.path());
    device_.orderStatus("BR.connect", 1);
    std::vector<FileEntry> list;
    {
        const WatchedCalls watched([&](const WatchedCall& call, std::size_t) {
            if (call.path == stick_.path(order[1])) {
                device_.clearOrders();
            }
            return 0;
        });
        list = backup("");
    }
    EXPECT_THAT(namesOf(list), ElementsAre(order[1], order[2]));
    EXPECT_EQ(device_.calls(),
              (opened("BR1") + destroyed("BR1") + opened("BR2") +
               Calls{check("BR2", order[1]), check("BR2", order[2])} + released("BR2")));
}

TEST_F(PackageCheck, choosesControllerByMarker) {
    struct MarkerCase {
        std::string path;
        std::string marker;
        bool updates;
    };
    const std::vector<MarkerCase> cases{
        {"/x.psb", ".psb", false},     {"/x.fwf", ".psb", false}, {"/x.fwf", "", false},
        {"/x.fwf", ".FWF", false},     {"/x.fwf", ".fwf", true},  {"/x.psb", ".fwf", true},
        {"/x.psb", "a.fwf.psb", true}, {"", ".fwf", true},
    };
    for (const MarkerCase& one : cases) {
        EXPECT_TRUE(manager_.checkTransferFile(one.path, one.marker));
        const std::string check = one.updates ? ".checkFirmwareFile" : ".checkBackupFile";
        EXPECT_THAT(device_.calls().back(), testing::EndsWith(check + "(\"" + one.path + "\")"))
            << one.marker;
        // A listing releases what the check has left, even without a stick.
        one.updates ? manager_.getUpdateFilesList("USB_X60.9", "")
                    : manager_.getBackupFilesList("USB_X60.9", "");
    }
}

TEST_F(PackageCheck, failsForOtherKindMeanwhile) {
    stick_.addFile("1.psb");
    stick_.addFile("2.fwf");
    EXPECT_TRUE(manager_.checkUpdateFile("/first"));
    EXPECT_FALSE(manager_.checkRestoreFile("/second"));
    EXPECT_THAT(backup(""), IsEmpty());
    EXPECT_TRUE(manager_.checkUpdateFile("/third"));
    EXPECT_EQ(device_.calls(), (opened("FU1") + Calls{"FU1.checkFirmwareFile(\"/first\")",
                                                      "FU1.checkFirmwareFile(\"/third\")"}));
    EXPECT_EQ(update("").size(), 1U);
    EXPECT_EQ(backup("").size(), 1U);
    EXPECT_EQ(device_.calls().back(), "BRDestroyController(BR1)");
}

}  // namespace
}  // namespace test_support
