// transferctl without a service that answers as promised, wrong usage, and the help.
#include <gio/gunixsocketaddress.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/fake_service.h"
#include "tests/support/files/files.h"
#include "tests/transferctl/client.h"
#include "transferctl/commands.h"

namespace test_support {
namespace {

using Replies = FakeService::Replies;

using testing::HasSubstr;
using testing::Not;

const std::string kStickReply = "([<'USB_X60.1'>, <'USB_X60.1'>, <uint64 1>, <uint64 1>],)";

TEST(AbsentService, makesEveryCommandExit3) {
    for (const std::string& name : transferctl::commandNames()) {
        const bool takesPlace = transferctl::findCommand(name)->fewest > 0;
        if (name != "monitor") {  // which waits for the service
            EXPECT_THAT(errorOf(3, takesPlace ? Words{name, "1:a"} : Words{name}),
                        HasSubstr("the service is not running"));
        }
    }
}

TEST(AbsentBus, makesCommandsExit3) {
    const BusOutage outage;
    EXPECT_THAT(errorOf(3, {"sticks"}), HasSubstr("cannot connect to the system bus"));
}

TEST(HangingBus, makesCommandsExit4) {
    const TemporaryDirectory folder;
    g_autoptr(GSocketListener) listener = g_socket_listener_new();
    g_autoptr(GSocketAddress) address = g_unix_socket_address_new(folder.path("bus").c_str());
    ASSERT_TRUE(g_socket_listener_add_address(listener, address, G_SOCKET_TYPE_STREAM,
                                              G_SOCKET_PROTOCOL_DEFAULT, nullptr, nullptr,
                                              nullptr));
    const CommandResult result =
        transferctl({"--timeout", "0.1", "sticks"},
                    {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + folder.path("bus")});
    EXPECT_EQ(result.end, exited(4));
}

TEST(SlowService, makesCommandsExit4) {
    const FakeService service(kServiceName);
    EXPECT_THAT(errorOf(4, {"sticks", "--timeout=0.3"}), HasSubstr("within the time limit"));
}

TEST(EndingService, makesCommandsExit3) {
    FakeService service(kServiceName);
    ChildProcess asking(transferctlCommand({"sticks"}));
    ASSERT_TRUE(service.waitForCall("GetUSBStickDetails"));
    service.leave();
    EXPECT_EQ(asking.waitForEnd(), exited(3));
}

TEST(StartingService, isAskedAgainUntilItsObjectsAreThere) {
    const FakeService service(
        kServiceName, Replies{{"GetUSBStickDetails",
                               {"error org.freedesktop.DBus.Error.UnknownMethod", kStickReply}}});
    EXPECT_EQ(outputOf({"sticks"}), "USB_X60.1\t1\t1\t0\n");
    EXPECT_EQ(service.calls().size(), 2U);
}

// An exit status and the reply of the service that gives it.
using ReplyCase = std::pair<int, std::string>;
class Reply : public testing::TestWithParam<ReplyCase> {};
INSTANTIATE_TEST_SUITE_P(
    Errors, Reply,
    testing::Values(ReplyCase{1, "error org.freedesktop.DBus.Error.AccessDenied"},
                    ReplyCase{1, "error org.freedesktop.DBus.Error.AuthFailed"},
                    ReplyCase{3, "error org.freedesktop.DBus.Error.ServiceUnknown"},
                    ReplyCase{3, "error org.freedesktop.DBus.Error.NoReply"},
                    ReplyCase{3, "error com.morvane.No"},
                    ReplyCase{4, "error org.freedesktop.DBus.Error.TimedOut"}));
INSTANTIATE_TEST_SUITE_P(
    Broken, Reply,
    testing::Values(ReplyCase{3, "()"}, ReplyCase{3, "('text',)"}, ReplyCase{3, "(@av [], 1)"},
                    ReplyCase{3, "([<'USB_X60.1'>],)"},
                    ReplyCase{3, "([<1>, <'a'>, <uint64 1>, <uint64 1>],)"},
                    ReplyCase{3, "([<'a'>, <1>, <uint64 1>, <uint64 1>],)"},
                    ReplyCase{3, "([<'a'>, <'a'>, <'b'>, <uint64 1>],)"},
                    ReplyCase{3, "([<'a'>, <'a'>, <uint64 1>, <1>],)"},
                    ReplyCase{3, "([<<'a'>>, <'a'>, <uint64 1>, <uint64 1>],)"}));

TEST_P(Reply, givesItsExitStatusAndNoControls) {
    const FakeService service(kServiceName, Replies{{"GetUSBStickDetails", {GetParam().second}}});
    EXPECT_THAT(errorOf(GetParam().first, {"sticks"}), Not(HasSubstr("\x1b")));
}

TEST(FileReply, isRejectedWhenBroken) {
    for (const char* const reply :
         {"([<uint32 0>, <'d'>, <uint64 4>],)", "([<int32 0>, <'d'>, <uint64 4>, <'/'>],)",
          "([<uint32 0>, <'d'>, <uint32 4>, <'/'>],)",
          "([<uint32 0>, <'d'>, <uint64 4>, <['/']>],)"}) {
        const FakeService service(kServiceName, Replies{{"GetDirectoryIndex", {reply}}});
        EXPECT_THAT(errorOf(3, {"ls", "1:"}), HasSubstr("does not follow its interface"));
    }
}

TEST(DenyingBus, makesCommandsExit1) {
    const BusPolicy policy("<policy context=\"mandatory\"><deny send_destination=\"" +
                           std::string(kServiceName) + "\" send_type=\"method_call\"/></policy>");
    const FakeService service(kServiceName, Replies{{"GetUSBStickDetails", {kStickReply}}});
    EXPECT_THAT(errorOf(1, {"sticks"}), HasSubstr("does not let you call the service"));
    EXPECT_THAT(service.calls(), testing::IsEmpty());
}

TEST(WrongUsage, exits2WithoutAService) {
    for (const Words& command : std::vector<Words>{{},
                                                   {"frob"},
                                                   {"frob", "--help"},
                                                   {"--frob"},
                                                   {"ls"},
                                                   {"ls", "1:", "2:"},
                                                   {"ls", ":a"},
                                                   {"ls", "0:"},
                                                   {"ls", "1:../a"},
                                                   {"ls", "--force", "1:"},
                                                   {"ls", "--json", "0:"},
                                                   {"backups", "0:"},
                                                   {"mkdir", "1:"},
                                                   {"mkdir", "1:.a"},
                                                   {"rm", "1:a\xff"},
                                                   {"backup", "--name", "a/b", "1:"},
                                                   {"backup", "--name=", "1:"},
                                                   {"restore", "a.psb"},
                                                   {"status", "--timeout", "-1"},
                                                   {"status", "--timeout", "0"},
                                                   {"status", "--timeout", "nan"},
                                                   {"status", "--timeout", "1e7"},
                                                   {"status", "--timeout", "x"},
                                                   {"status", "--\x1b"}}) {
        const std::string message = errorOf(2, command);
        EXPECT_THAT(message, testing::StartsWith("transferctl: "));
        EXPECT_THAT(message, Not(HasSubstr("\x1b")));
    }
}

TEST(Help, describesEveryCommand) {
    const std::string help = outputOf({"--help"});
    for (const std::string& command : transferctl::commandNames()) {
        EXPECT_THAT(help, HasSubstr("\n  " + command + " "));
        EXPECT_THAT(outputOf({command, "--help"}), HasSubstr("] " + command));
    }
    EXPECT_THAT(help, Not(HasSubstr("__complete")));
}

TEST(Help, saysThatAStartedJobIsNotDone) {
    for (const char* const job : {"backup", "restore", "update"}) {
        EXPECT_THAT(outputOf({job, "--help"}), HasSubstr("not that it is done"));
    }
}

TEST(FullOutput, makesCommandsExit1) {
    const CommandResult result = redirected({"--version"}, ">/dev/full");
    EXPECT_EQ(result.end, exited(1));
    EXPECT_THAT(result.error, HasSubstr("cannot write to standard output"));
}

TEST(Version, isPrinted) {
    EXPECT_THAT(outputOf({"--version"}), testing::StartsWith("transferctl 0."));
}

TEST(Manual, namesEveryCommandAndOption) {
    const std::string manual = readFile(sourcePath("transferctl/transferctl.1.scd"));
    const std::string document = readFile(sourcePath("docs/transferctl.md"));
    for (const std::string& command : transferctl::commandNames()) {
        EXPECT_THAT(manual, HasSubstr("*" + command + "*"));
        EXPECT_THAT(document, testing::ContainsRegex("[`]" + command + "[ `]"));
    }
    for (const GOptionEntry& option : transferctl::optionEntries(transferctl::kEveryOption)) {
        if (option.description != nullptr) {
            EXPECT_THAT(manual, HasSubstr(std::string("*--") + option.long_name + "*"));
        }
    }
}

}  // namespace
}  // namespace test_support
