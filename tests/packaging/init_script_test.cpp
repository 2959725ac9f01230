// The boot script for devices without systemd, run as the boot runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/transfer_script.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"
#include "tests/support/process/namespace_process.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

using testing::HasSubstr;

constexpr const char* kBuiltScript = "packaging/com-morvane-transfer-service.init";
constexpr const char* kService = "com-morvane-transfer-service";

struct Ran {
    ProcessEnd end;
    std::string said;
};

void PrintTo(const Ran& ran, std::ostream* out) {
    *out << ran.end << " saying " << ran.said;
}

testing::Matcher<Ran> ended(int status, const std::string& said) {
    return testing::AllOf(testing::Field(&Ran::end, exited(status)),
                          testing::Field(&Ran::said, HasSubstr(said)));
}

// Whose start-stop-daemon is in front of the script's others.
enum class Tools { kDpkg, kBusybox };

void PrintTo(Tools tools, std::ostream* out) {
    *out << (tools == Tools::kDpkg ? "Dpkg" : "Busybox");
}

class InitScript : public testing::TestWithParam<Tools> {
protected:
    void SetUp() override {
        if (emulated()) {
            GTEST_SKIP() << kEmulatorCannot << "stand behind the path that the script starts";
        }
        ASSERT_TRUE(namespace_.waitForOutput("the namespace is there"));
        makeTools();
        writeScript(buildPath(kService));
    }

    // The script of the build, but for the program and a folder of tools before all others.
    void writeScript(const std::string& program) const {
        std::string script = readFile(buildPath(kBuiltScript));
        replaceLine(script, "PATH=/sbin",
                    "PATH=" + folder_.path("tools") + ":/sbin:/usr/sbin:/bin:/usr/bin");
        replaceLine(script, "daemon=/", "daemon=" + program);
        writeFile(folder_.path("script"), script);
    }

    static void replaceLine(std::string& text, const std::string& beginning,
                            const std::string& line) {
        const std::size_t at = text.find("\n" + beginning) + 1;
        ASSERT_NE(at, 0U) << beginning;
        text.replace(at, text.find('\n', at) - at, line);
    }

    void makeTools() const {
        const char* const tool =
            GetParam() == Tools::kBusybox ? "\"$(command -v busybox)\"" : "/sbin/start-stop-daemon";
        makeDirectories(folder_.path("tools"));
        const std::string link = folder_.path("tools/start-stop-daemon");
        ASSERT_EQ(runCommand({"sh", "-euc", "ln -s " + std::string(tool) + " " + link}).end,
                  exited(0));
    }

    // Has each pause of the script begin with a command, for which $process is the service's.
    void pauseAfter(const std::string& command) const {
        const std::string pause = folder_.path("tools/sleep");
        writeFile(pause, "#!/bin/sh\nread -r process <" + std::string(kLockFile) + "\n" + command +
                             "\nexec /bin/sleep \"$@\"\n");
        ASSERT_EQ(chmod(pause.c_str(), 0755), 0);
    }

    // A daemon that gives up takes longer than the script watches it, where leaks are looked for.
    void pauseAfterEndOfService() const {
        pauseAfter(R"(while kill -0 "$process" 2>/dev/null; do /bin/sleep 0.01; done)");
    }

    // What it says goes to a file: the service that it starts may keep the streams open.
    Ran run(const std::string& action) {
        const std::string said = folder_.path("said");
        const std::unique_ptr<ChildProcess> process =
            namespace_.enter({"sh", "-c", R"(exec sh "$1" "$2" >"$3" 2>&1)", "sh",
                              folder_.path("script"), action, said});
        const std::optional<ProcessEnd> end = process->waitForEnd();
        return {end.value_or(ProcessEnd{}), readFile(said)};
    }

    // The service, as seen from here.
    static std::optional<pid_t> service() { return SystemBus::processOf(kServiceName); }

    TemporaryDirectory folder_;
    // The boot's place: whatever is started ends with it at the latest.
    NamespaceProcess namespace_{{"sh", "-c", "echo the namespace is there; exec sleep infinity"}};
};

TEST_P(InitScript, startsServiceOnce) {
    EXPECT_THAT(run("status"), ended(3, "does not run"));
    EXPECT_THAT(run("start"), ended(0, "started"));
    const std::optional<pid_t> first = service();
    EXPECT_EQ(SystemBus().transfer("GetUSBStickDetails").printed(), "(@av [],)");
    EXPECT_THAT(run("status"), ended(0, "runs"));
    EXPECT_THAT(run("start"), ended(0, "runs already"));
    EXPECT_EQ(service(), first);
    EXPECT_TRUE(first);
}

TEST_P(InitScript, stopsServiceAndKeepsLockFile) {
    ASSERT_THAT(run("start"), ended(0, "started"));
    const pid_t first = service().value_or(0);
    EXPECT_THAT(run("stop"), ended(0, "stopped"));
    EXPECT_FALSE(isRunning(first));
    EXPECT_THAT(run("status"), ended(3, "does not run"));
    EXPECT_TRUE(exists(kLockFile));
    EXPECT_THAT(run("stop"), ended(0, "does not run"));
}

TEST_P(InitScript, restartsAsAnotherProcess) {
    EXPECT_THAT(run("try-restart"), ended(0, ""));
    EXPECT_FALSE(service());
    EXPECT_THAT(run("restart"), ended(0, "started"));
    const std::optional<pid_t> first = service();
    EXPECT_THAT(run("force-reload"), ended(0, "started"));
    const std::optional<pid_t> second = service();
    EXPECT_TRUE(first && second && first != second);
}

// Frozen, the service takes the signal only after the first pause of the script.
TEST_P(InitScript, stopWaitsForServiceToEnd) {
    ASSERT_THAT(run("start"), ended(0, "started"));
    const pid_t process = service().value_or(0);
    ASSERT_EQ(kill(process, SIGSTOP), 0);
    pauseAfter(R"(kill -CONT "$process")");
    EXPECT_THAT(run("stop"), ended(0, "stopped"));
    EXPECT_FALSE(isRunning(process));
}

TEST_P(InitScript, refusesUnknownAction) {
    EXPECT_THAT(run("begin"), ended(2, "usage"));
}

TEST(InitScriptHeader, ordersStartAfterBus) {
    EXPECT_THAT(readFile(buildPath(kBuiltScript)),
                HasSubstr("# Required-Start:    $local_fs $remote_fs $syslog dbus\n"));
}

TEST_P(InitScript, failsWhenNameIsTaken) {
    const SystemBus owner;
    ASSERT_TRUE(owner.ownName(kServiceName));
    pauseAfterEndOfService();
    EXPECT_THAT(run("start"), ended(1, "not started"));
    EXPECT_THAT(run("status"), ended(3, "does not run"));
}

TEST_P(InitScript, failsWithoutBus) {
    const BusOutage outage;
    pauseAfterEndOfService();
    EXPECT_THAT(run("start"), ended(1, "not started"));
}

TEST_P(InitScript, failsWhenServiceDiesInStart) {
    const TransferScript script("kill -KILL \"$(cat /var/lock/com.morvane.transfer.pid)\"");
    EXPECT_THAT(run("start"), ended(1, "not started"));
}

TEST_P(InitScript, failsWithoutProgram) {
    writeScript("/nonexistent/service");
    EXPECT_THAT(run("start"), ended(5, "not installed"));
    EXPECT_THAT(run("stop"), ended(0, "does not run"));
}

INSTANTIATE_TEST_SUITE_P(With, InitScript, testing::Values(Tools::kDpkg, Tools::kBusybox),
                         [](const auto& tools) { return testing::PrintToString(tools.param); });

}  // namespace
}  // namespace test_support
