// transferctl without a service that answers, and wrong usage.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"
#include "tests/transferctl/client.h"
#include "tests/transferctl/stand_in_service.h"

namespace test_support {
namespace {

using testing::HasSubstr;

const std::string kSticks = "([<'USB_X60.1'>, <'USB_X60.1'>, <uint64 1>, <uint64 1>],)";

TEST(WithoutAService, everyCommandEndsWithStatus3) {
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"status"},
                                               {"sticks"},
                                               {"ls", "1:"},
                                               {"backups"},
                                               {"mkdir", "1:a"},
                                               {"rm", "1:a"},
                                               {"name"},
                                               {"backup", "1:"},
                                               {"restore", "1:a"},
                                               {"update", "1:a"}}) {
        const CommandResult result = transferctl(command);
        EXPECT_EQ(result.end, exited(3)) << command[0];
        EXPECT_EQ(result.error, "transferctl: the service is not running\n");
    }
}

TEST(WithoutABus, theStatusIs3) {
    const BusOutage outage;
    const CommandResult result = transferctl({"sticks"});
    EXPECT_EQ(result.end, exited(3));
    EXPECT_THAT(result.error, HasSubstr("cannot connect to the system bus"));
}

TEST(ABusThatHangs, isGivenUpAfterTheTimeLimit) {
    const TemporaryDirectory folder;
    const UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    folder.path("bus").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    ChildOptions options;
    options.environment = {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + folder.path("bus")};
    EXPECT_EQ(transferctl({"--timeout", "0.1", "sticks"}, options).end, exited(4));
}

TEST(ABusThatDenies, isARefusal) {
    const std::string policy = "/etc/dbus-1/system.d/deny-everyone.conf";
    writeFile(policy, "<busconfig><policy context=\"mandatory\"><deny send_destination=\"" +
                          std::string(kServiceName) +
                          "\" send_type=\"method_call\"/></policy></busconfig>");
    const auto reload = [] {
        SystemBus().call("/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig", nullptr,
                         "org.freedesktop.DBus");
    };
    reload();
    const StandInService service(
        std::map<std::string, std::string>{{"GetUSBStickDetails", kSticks}});
    const CommandResult result = transferctl({"sticks"});
    EXPECT_EQ(result.end, exited(1));
    EXPECT_THAT(result.error, HasSubstr("does not let you call the service"));
    EXPECT_THAT(service.calls(), testing::IsEmpty());
    std::filesystem::remove(policy);
    reload();
}

TEST(ASlowService, isGivenUpAfterTheTimeLimit) {
    const StandInService service{std::map<std::string, std::string>()};
    EXPECT_EQ(transferctl({"sticks", "--timeout=0.3"}).end, exited(4));
}

TEST(AServiceThatGoes, isNotWaitedFor) {
    StandInService service{std::map<std::string, std::string>()};
    ChildProcess asking(transferctlCommand({"sticks"}));
    ASSERT_TRUE(service.waitForCall("GetUSBStickDetails"));
    service.leave();
    EXPECT_EQ(asking.waitForEnd(), exited(3));
}

TEST(AServiceThatHasJustComeUp, isAskedAgainUntilItsObjectsAreThere) {
    StandInService service(std::map<std::string, std::string>{{"GetUSBStickDetails", kSticks}});
    service.answerOnce("GetUSBStickDetails", "error org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(transferctl({"sticks"}).output, "USB_X60.1\t1\t1\t0\n");
    EXPECT_EQ(service.calls().size(), 2U);
}

TEST(AServiceThatLies, isNotBelieved) {
    for (const std::string& reply :
         std::vector<std::string>{"([<'USB_X60.1'>],)", "([<1>, <2>, <3>, <4>],)", "('text',)",
                                  "()", "(@av [], 1)", "error com.morvane.No"}) {
        const StandInService service(
            std::map<std::string, std::string>{{"GetUSBStickDetails", reply}});
        const CommandResult result = transferctl({"sticks"});
        EXPECT_EQ(result.end, exited(3)) << reply;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error.find('\x1b'), std::string::npos);
    }
}

TEST(Usage, thatIsWrongEndsWithStatus2AndNeedsNoService) {
    const std::vector<std::vector<std::string>> commands{{},
                                                         {"frob"},
                                                         {"--frob"},
                                                         {"ls"},
                                                         {"ls", "1:", "2:"},
                                                         {"ls", ":a"},
                                                         {"ls", "5:"},
                                                         {"ls", "1:../a"},
                                                         {"ls", "--force", "1:"},
                                                         {"backups", "9:"},
                                                         {"mkdir", "1:"},
                                                         {"mkdir", "1:.a"},
                                                         {"rm", "1:a\xff"},
                                                         {"backup", "--type", "all", "1:"},
                                                         {"backup", "--name", "a/b", "1:"},
                                                         {"backup", "--name=", "1:"},
                                                         {"restore", "a.psb"},
                                                         {"status", "--timeout", "-1"},
                                                         {"status", "--timeout", "nan"},
                                                         {"status", "--timeout", "x"},
                                                         {"status", "--\x1b"}};
    for (const std::vector<std::string>& command : commands) {
        const CommandResult result = transferctl(command);
        EXPECT_EQ(result.end, exited(2)) << testing::PrintToString(command) << result.error;
        EXPECT_THAT(result.error, testing::StartsWith("transferctl: "));
        EXPECT_EQ(result.error.find('\x1b'), std::string::npos);
    }
}

constexpr const char* kCommands[] = {"status", "sticks", "ls",     "backups", "updates", "mkdir",
                                     "rm",     "name",   "backup", "restore", "update",  "monitor"};

TEST(Help, namesEveryCommandAndExplainsJobs) {
    const CommandResult all = transferctl({"--help"});
    EXPECT_EQ(all.end, exited(0));
    for (const char* const command : kCommands) {
        EXPECT_THAT(all.output, HasSubstr(std::string("\n  ") + command + " "));
        EXPECT_EQ(transferctl({command, "--help"}).end, exited(0));
    }
    EXPECT_THAT(all.output, testing::Not(HasSubstr("__complete")));
    EXPECT_THAT(transferctl({"restore", "--help"}).output, HasSubstr("not that it is done"));
    EXPECT_THAT(transferctl({"--version"}).output, testing::StartsWith("transferctl 0."));
}

TEST(Help, ofEveryKindNamesTheSameCommands) {
    const std::string manual = readFile(sourcePath("transferctl/transferctl.1.scd"));
    const std::string document = readFile(sourcePath("docs/transferctl.md"));
    const std::string completion = readFile(sourcePath("transferctl/completion/transferctl.bash"));
    std::string words;
    for (const std::string command : kCommands) {
        EXPECT_THAT(manual, HasSubstr("*" + command + "*"));
        EXPECT_THAT(document, testing::ContainsRegex("[`]" + command + "[ `]"));
        words += " " + command;
    }
    EXPECT_THAT(completion, HasSubstr("_transferctl_offer_words" + words + " ;;"));
}

}  // namespace
}  // namespace test_support
