// The service as a whole: it starts, both objects answer every method, an applet change ends it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/bus/applet_control.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

class RunningService : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    DeviceDouble device_;
    AppletControl appletControl_;
    ServiceProcess service_{{{}, device_.environment(), {}, {}, {}}};
    SystemBus bus_;
};

struct MethodCase {
    const char* name;
    const char* arguments;  // in GVariant's text form
    const char* replyType;
};

std::ostream& operator<<(std::ostream& out, const MethodCase& method) {
    return out << method.name;
}

class TransferMethod : public RunningService, public testing::WithParamInterface<MethodCase> {};

TEST_P(TransferMethod, answersWithItsOutSignature) {
    GVariant* arguments = g_variant_new_parsed(GetParam().arguments);
    const Reply reply = bus_.transfer(GetParam().name, arguments);
    EXPECT_EQ(reply.error, "") << reply.message;
    EXPECT_EQ(reply.type(), GetParam().replyType);
}

INSTANTIATE_TEST_SUITE_P(
    OfAll, TransferMethod,
    testing::Values(MethodCase{"GetUSBStickDetails", "()", "(av)"},
                    MethodCase{"GetStickDetailsWithCount", "()", "(vu)"},
                    MethodCase{"ValidateBackupSize", "(uint32 1, 'USB_X60.1')", "(b)"},
                    MethodCase{"GetBackupFileName", "(uint32 1,)", "(s)"},
                    MethodCase{"GetDirectoryIndex", "('USB_X60.1', '')", "(av)"},
                    MethodCase{"GetDirectoryIndexForUpdate", "('USB_X60.1', '')", "(av)"},
                    MethodCase{"GetDirectoryIndexForBackup", "('USB_X60.1', '')", "(av)"},
                    MethodCase{"DeleteFile", "('USB_X60.1', 'a')", "(b)"},
                    MethodCase{"CreateDirectory", "('USB_X60.1', 'a')", "(b)"},
                    MethodCase{"DoOSUpdate", "('USB_X60.1', 'a.fwf')", "(i)"},
                    MethodCase{"DoBackup", "('USB_X60.1', uint32 1, 'a.psb')", "(i)"},
                    MethodCase{"DoRestore", "('USB_X60.1', 'a.psb')", "(i)"},
                    MethodCase{"GetRestoreFilesList", "('USB_X60.1', '')", "(vi)"},
                    MethodCase{"GetUpdateFilesList", "('USB_X60.1', '')", "(vi)"},
                    MethodCase{"GetBackupFilesList", "('USB_X60.1', '')", "(vi)"}),
    [](const auto& method) { return std::string(method.param.name); });

TEST_F(RunningService, answersQuitAndInitAndGoesOn) {
    EXPECT_EQ(bus_.call(kControlPath, kControlInterface, "Quit").text(), "()");
    EXPECT_EQ(bus_.call(kControlPath, kControlInterface, "Init").text(), "()");
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
    EXPECT_TRUE(service_.processId().has_value());
}

TEST_F(RunningService, listsTwoSticksInAscendingOrder) {
    const Stick second(2, {"8m", "/dev/sdb1", false});
    const Stick first(1, {"16m", "/dev/sda1", false});
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(),
              "([<'USB_X60.1'>, <'USB_X60.1'>, <uint64 16777216>, <uint64 16777216>,"
              " <'USB_X60.2'>, <'USB_X60.2'>, <uint64 8388608>, <uint64 8388608>],)");
    EXPECT_EQ(bus_.transfer("GetStickDetailsWithCount").text(),
              "(<('USB_X60.1', 'USB_X60.1', uint64 16777216, uint64 16777216,"
              " 'USB_X60.2', 'USB_X60.2', uint64 8388608, uint64 8388608)>, uint32 2)");
}

TEST_F(RunningService, runsABackupOnTheDeviceLibraryOnAThreadOfItsOwn) {
    const Stick stick(1);
    device_.order("BR.backup", "write", "100");
    EXPECT_EQ(bus_.transfer("DoBackup", g_variant_new("(sus)", "USB_X60.1", 1U, "a.psb")).text(),
              "(0,)");
    ASSERT_TRUE(device_.waitForCall("BRDestroyController(BR2)"));
    EXPECT_THAT(device_.calls(),
                testing::ElementsAre("BRCreateController() = BR1", "BR1.setLog(log)",
                                     "BR1.connect(\"127.0.0.1:5001\", \"\")",
                                     "BR1.getBackupSize(\"fullbackup\", 0)", "BR1.disconnect()",
                                     "BRDestroyController(BR1)",  // the size query ends
                                     "BRCreateController() = BR2", "BR2.setWorkDirectory(\"/tmp\")",
                                     "BR2.setLog(log)", "BR2.connect(\"127.0.0.1:5001\", \"\")",
                                     "BR2.backup(\"/media/usb/USB_X60.1/a.psb\", \"fullbackup\")",
                                     "BR2.disconnect()", "BRDestroyController(BR2)"));
    for (const DoubleRecord& call : device_.records()) {
        EXPECT_EQ(call.onMainThread, call.text.find("BR2") == std::string::npos) << call.text;
    }
    EXPECT_EQ(readFile(stick.path("a.psb")).size(), 100U);
}

TEST_F(RunningService, ignoresAnAppletThatLeavesItAlone) {
    appletControl_.emitAppletChanged(258);
    ASSERT_TRUE(service_.waitForOutput("appletHasChanged() Signal received with ID 258\n"));
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
    EXPECT_TRUE(service_.ends().empty());
}

TEST_F(RunningService, endsWithItsNeighboursWhenTheAppletChanges) {
    const std::unique_ptr<ChildProcess> neighbour = service_.enterWitness();
    ChildProcess outsider({"sleep", "infinity"});
    appletControl_.emitAppletChanged(0);
    EXPECT_EQ(service_.waitForCommandEnd(), exited(0));
    EXPECT_EQ(neighbour->waitForEnd(), killedBy(SIGTERM));
    EXPECT_EQ(service_.waitForEmpty(), exited(0));
    EXPECT_FALSE(outsider.hasEnded());
    EXPECT_TRUE(SystemBus::hasOwner("org.freedesktop.DBus"));
}

}  // namespace
}  // namespace test_support
