// What the bus tests stand on: sticks, system log, message bus, processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/statfs.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>

#include "simulator/sandbox/inside_sandbox.h"
#include "tests/support/bus/applet_control.h"
#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using testing::HasSubstr;

std::string mountTable() {
    return readFile("/etc/mtab");
}

TEST(Sandbox, isWhereTestsRun) {
    EXPECT_EQ(whyOutsideSandbox(), "");
}

TEST(TmpfsStick, appearsInTheMountTableWithItsDeviceUntilItEnds) {
    {
        const Stick stick(4, {"1m", "/dev/sdc1", false});
        EXPECT_THAT(mountTable(), HasSubstr("/dev/sdc1 /media/usb/USB_X60.4 tmpfs rw"));
        stick.addFile("a/b", "text");
        EXPECT_EQ(readFile("/media/usb/USB_X60.4/a/b"), "text");
        EXPECT_THROW(stick.addFile("big", std::string(2U << 20U, 'x')), std::system_error);
        stick.addSparseFile("sparse", 1ULL << 40U);
    }
    EXPECT_THAT(mountTable(), testing::Not(HasSubstr("USB_X60.4")));
    EXPECT_FALSE(exists("/media/usb/USB_X60.4"));
}

TEST(TmpfsStick, canBeReadOnlyAndCanBePulledWhileAFileIsOpen) {
    Stick stick(1);
    stick.addFile("open");
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(stick.path("open").c_str(), "re"),
                                                     fclose);
    ASSERT_NE(file, nullptr);
    stick.makeReadOnly();
    EXPECT_THROW(stick.addFile("late"), std::system_error);
    EXPECT_FALSE(stick.unmount());
    stick.pull();
    EXPECT_FALSE(exists(stick.path("open")));
}

TEST(Ext4Stick, isABlockDeviceWithReservedBlocks) {
    const std::string reason = LoopStick::whyUnavailable();
    if (!reason.empty()) {
        GTEST_SKIP() << reason;
    }
    const LoopStick stick(2);
    EXPECT_THAT(mountTable(), HasSubstr("/dev/sdb1 /media/usb/USB_X60.2 ext4 rw"));
    struct statfs64 space {};
    ASSERT_EQ(statfs64(stick.path().c_str(), &space), 0);
    EXPECT_GT(space.f_bfree, space.f_bavail);
    stick.addFile("file");
    EXPECT_EQ(readFile("/media/usb/USB_X60.2/file"), "content");
}

TEST(SystemLog, givesPriorityAndTextToTheByte) {
    SyslogSocket log;
    syslog(LOG_ERR, "an error: %d\n", 7);
    syslog(LOG_INFO, "some news");
    ASSERT_TRUE(log.waitFor("some news"));
    const std::vector<LogMessage> expected{{LOG_ERR, LOG_USER, "an error: 7\n"},
                                           {LOG_INFO, LOG_USER, "some news"}};
    EXPECT_EQ(log.messages(), expected);
    EXPECT_EQ(log.messages().front().facility, LOG_USER);
}

TEST(SystemLog, isGivenBackAfterwards) {
    { const SyslogSocket log; }
    EXPECT_TRUE(exists("/dev/log"));
    syslog(LOG_INFO, "for the sandbox's own log");
    EXPECT_TRUE(eventually(
        [] {
            return readFile("/run/log/messages").find("the sandbox's own log") != std::string::npos;
        },
        "the message reaches the log file"));
}

TEST(Bus, answersAndNamesErrors) {
    const SystemBus bus;
    EXPECT_EQ(bus.call("/", "org.freedesktop.DBus", "NoSuchMethod", nullptr, "org.freedesktop.DBus")
                  .error,
              "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(bus.transfer("GetUSBStickDetails").error,
              "org.freedesktop.DBus.Error.NameHasNoOwner");
    const VariantPtr pair(g_variant_ref_sink(g_variant_new("(us)", 1U, "a")));
    EXPECT_EQ(asText(pair.get()), "(uint32 1, 'a')");
}

TEST(Bus, letsANameBeOwnedOnceAndReplacedWhereAllowed) {
    const SystemBus first;
    const SystemBus second;
    EXPECT_TRUE(first.ownName(kServiceName));
    EXPECT_FALSE(second.ownName(kServiceName, kReplaceExisting));
    EXPECT_EQ(SystemBus::processOf(kServiceName), getpid());
    first.releaseName(kServiceName);
    EXPECT_TRUE(second.ownName(kServiceName, kAllowReplacement));
    EXPECT_TRUE(first.ownName(kServiceName, kReplaceExisting));
    first.releaseName(kServiceName);
    EXPECT_FALSE(SystemBus::hasOwner(kServiceName));
}

TEST(Bus, canBeDownAndComeBack) {
    {
        BusOutage outage;
        EXPECT_THROW(SystemBus(), std::runtime_error);
        EXPECT_FALSE(SystemBus::hasOwner("org.freedesktop.DBus"));
        outage.start();
        EXPECT_TRUE(SystemBus::hasOwner("org.freedesktop.DBus"));
    }
    EXPECT_TRUE(SystemBus::hasOwner("org.freedesktop.DBus"));
    EXPECT_TRUE(SystemBus().ownName(kServiceName));
}

TEST(AppletControl, answersForItsPropertiesOrNever) {
    const SystemBus bus;
    const auto properties = [&] {
        return bus.call(kAppletControlPath, "org.freedesktop.DBus.Properties", "GetAll",
                        g_variant_new("(s)", kAppletControlInterface), kAppletControlName);
    };
    {
        const AppletControl control;
        EXPECT_EQ(properties().type(), "(a{sv})");
    }
    const AppletControl silent(AppletControl::Answers::kNever);
    const int oneSecond = 1000;
    g_autoptr(GError) error = nullptr;
    const VariantPtr reply(g_dbus_connection_call_sync(
        bus.connection(), kAppletControlName, kAppletControlPath, "org.freedesktop.DBus.Peer",
        "Ping", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, oneSecond, nullptr, &error));
    EXPECT_EQ(reply, nullptr);
    EXPECT_TRUE(g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT));
}

TEST(Child, givesItsOutputByteForByteThroughATerminal) {
    ChildOptions options;
    options.terminal = true;
    ChildProcess process({"sh", "-c", "test -t 1 && printf 'a\\nb\\tc\\n'; echo e >&2"}, options);
    EXPECT_EQ(process.waitForEnd(), exited(0));
    ASSERT_TRUE(process.streams().waitForEnd());
    EXPECT_EQ(process.standardOutput(), "a\nb\tc\n");
    EXPECT_EQ(process.standardError(), "e\n");
}

TEST(Child, takesEnvironmentLimitsAndUmask) {
    const CommandResult result = runCommand({"sh", "-c", "echo $COLOUR $(ulimit -n) $(umask)"},
                                            {{"COLOUR=red"}, {{RLIMIT_NOFILE, 64}}, 0027, false});
    EXPECT_EQ(result.output, "red 64 0027\n");
}

TEST(Child, isGoneOnceItWasKilled) {
    ChildProcess process({"sh", "-c", "echo one; sleep infinity"});
    EXPECT_TRUE(process.waitForOutput("one\n"));
    const pid_t pid = process.id();
    EXPECT_TRUE(isRunning(pid));
    process.kill();
    EXPECT_EQ(process.waitForEnd(), killedBy(SIGKILL));
    EXPECT_FALSE(isRunning(pid));
}

TEST(Child, saysWhatCameInsteadOfTheOutput) {
    const ChildProcess process({"sh", "-c", "echo other"});
    const testing::AssertionResult result = process.waitForOutput("wanted");
    EXPECT_FALSE(result);
    EXPECT_THAT(result.message(), HasSubstr("other"));
}

TEST(Files, thatCannotBeReadAreEmpty) {
    EXPECT_EQ(readFile("/tmp"), "");
    EXPECT_EQ(readFile("/no/such/file"), "");
    EXPECT_EQ(readLines("/proc/self/mem"), std::vector<std::string>());
}

TEST(ProcessTable, countsDescriptorsAndThreads) {
    const std::size_t before = openDescriptorsOf(getpid()).size();
    const UniqueFd fd(dup(0));
    EXPECT_EQ(openDescriptorsOf(getpid()).size(), before + 1);
    const ChildProcess other({"sh", "-c", "echo begun; exec sleep infinity"});
    ASSERT_TRUE(other.waitForOutput("begun"));  // before, it is this program, with its threads
    EXPECT_EQ(threadsOf(other.id()), 1);
}

}  // namespace
}  // namespace test_support
