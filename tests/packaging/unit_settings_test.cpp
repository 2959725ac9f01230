// The service under the settings of its systemd unit, as far as they need no systemd (see as-unit).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "tests/packaging/accounts.h"
#include "tests/support/bus/applet_control.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/simulator.h"
#include "tests/support/device/stick.h"
#include "tests/support/device/transfer_script.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/lock_file.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kUnit = "packaging/com-morvane-transfer-service.service";
constexpr uid_t kSomebody = 61001;

// The value of one setting of the unit, "" when it is not set.
std::string setting(const std::string& key) {
    std::smatch found;
    const std::string unit = readFile(buildPath(kUnit));
    std::regex_search(unit, found, std::regex("(?:^|\n)" + key + "=(.*)"));
    return found.size() > 1 ? found.str(1) : "";
}

// The service started as the unit does; `dropIn` is another unit file that changes settings.
class UnitService {
public:
    explicit UnitService(const std::string& dropIn = "",
                         const std::vector<std::string>& environment = {}) {
        ServiceOptions options;
        options.arguments = {"-d"};
        options.environment = environment;
        options.prefix = {sourcePath("tests/packaging/as-unit"), buildPath(kUnit)};
        if (!dropIn.empty()) {
            writeFile(folder_.path("drop-in"), dropIn);
            options.prefix.push_back(folder_.path("drop-in"));
        }
        options.prefix.emplace_back("--");
        process_.emplace(options);
    }

    // Until the launcher has ended well, which is when systemd says "started".
    testing::AssertionResult waitUntilStarted() {
        const std::optional<ProcessEnd> end = process_->waitForCommandEnd();
        if (end == exited(0)) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure() << process_->standardError();
    }

    ServiceProcess* operator->() { return &*process_; }

private:
    TemporaryDirectory folder_;
    std::optional<ServiceProcess> process_;
};

class UnitSettings : public testing::Test {
protected:
    UnitSettings() { clearTransferScriptRuns(); }

    Reply createDirectory(const std::string& path) const {
        return bus_.transfer("CreateDirectory", g_variant_new("(ss)", "USB_X60.1", path.c_str()));
    }
    Reply deleteFile(const std::string& path) const {
        return bus_.transfer("DeleteFile", g_variant_new("(ss)", "USB_X60.1", path.c_str()));
    }

    const SystemBus bus_;
};

TEST_F(UnitSettings, nameTheProgramThatIsInstalledAndTheFileThatItLocks) {
    EXPECT_THAT(setting("ExecStart"),
                testing::MatchesRegex("/.*sbin/com-morvane-transfer-service -d"));
    EXPECT_EQ(setting("Type"), "forking");
    EXPECT_EQ(setting("PIDFile"), kLockFile);
}

TEST_F(UnitSettings, letTheServiceAnswerByTheTimeThatItCountsAsStarted) {
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
    const std::optional<pid_t> daemon = service->processId();
    ASSERT_TRUE(daemon);
    EXPECT_EQ(readFile(kLockFile), std::to_string(innermostId(*daemon).value_or(0)) + "\n");
    EXPECT_TRUE(exists(kTransferMarker));
}

TEST_F(UnitSettings, leaveTheServiceThreePowersAndNoWayToMore) {
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    const pid_t daemon = service->processId().value_or(0);
    for (const char* const field : {"CapBnd", "CapPrm", "CapEff"}) {
        EXPECT_EQ(statusField(daemon, field), "000000000000002a") << field;
    }
    // Every process of the sandbox has it, so the unit itself is asked.
    EXPECT_THAT(readLines(sourcePath("packaging/com-morvane-transfer-service.service.in")),
                testing::Contains("NoNewPrivileges=yes"));
}

TEST_F(UnitSettings, keepTheMemoryOfTheServiceOutOfCoreDumps) {
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    rlimit limit{1, 1};
    ASSERT_EQ(prlimit(service->processId().value_or(-1), RLIMIT_CORE, nullptr, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, 0U);
    EXPECT_EQ(limit.rlim_max, 0U);
}

TEST_F(UnitSettings, showSticksThatArePluggedLaterAndLetThemGo) {
    makeDirectories(stickPath(1));
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    Stick stick(1, {"8m", "/dev/sda1", false});
    EXPECT_THAT(bus_.transfer("GetUSBStickDetails").text(), HasSubstr("<'USB_X60.1'>"));
    EXPECT_EQ(createDirectory("photos/summer").text(), "(true,)");
    EXPECT_TRUE(exists(stick.path("photos/summer")));
    EXPECT_EQ(deleteFile("photos/summer").text(), "(true,)");
    EXPECT_FALSE(exists(stick.path("photos/summer")));
    EXPECT_TRUE(stick.unmount());
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").text(), "(@av [],)");
}

TEST_F(UnitSettings, letTheServiceWriteToSticksThatWerePluggedBefore) {
    const Stick stick(1);
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    EXPECT_EQ(createDirectory("photos").text(), "(true,)");
    EXPECT_TRUE(exists(stick.path("photos")));
}

TEST_F(UnitSettings, keepPathsThatLeadOffTheStickFromChangingTheSystem) {
    const Stick stick(1);
    writeFile("/mnt/precious", "x");
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    EXPECT_EQ(createDirectory("../../../mnt/made").text(), "(true,)");  // it was tried
    EXPECT_FALSE(exists("/mnt/made"));
    EXPECT_EQ(deleteFile("../../../mnt/precious").text(), "(false,)");
    EXPECT_TRUE(exists("/mnt/precious"));
    unlink("/mnt/precious");
}

TEST_F(UnitSettings, leaveTheFilesOfTmpWithinReachOfSuchPaths) {
    const Stick stick(1);
    writeFile("/tmp/neighbour", "x");
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    EXPECT_EQ(deleteFile("../../../tmp/neighbour").text(), "(true,)");
    EXPECT_FALSE(exists("/tmp/neighbour"));
}

TEST_F(UnitSettings, letTheTransferScriptWriteOnlyWhereADropInSaysSo) {
    {
        UnitService service;
        ASSERT_TRUE(service.waitUntilStarted());
        EXPECT_THAT(transferScriptRuns(), IsEmpty());
    }
    UnitService service("[Service]\nReadWritePaths=/run/log\n");
    ASSERT_TRUE(service.waitUntilStarted());
    EXPECT_THAT(transferScriptRuns(), ElementsAre(kScriptStart));
}

TEST_F(UnitSettings, letAJobWriteToTheStick) {
    DeviceDouble device;
    device.order("BR.backup", "write", "100");
    const Stick stick(1);
    UnitService service("", device.environment());
    ASSERT_TRUE(service.waitUntilStarted());
    EXPECT_EQ(
        bus_.transfer("DoBackup", g_variant_new("(sus)", "USB_X60.1", 1, "sets/a.psb")).text(),
        "(0,)");
    ASSERT_TRUE(device.waitForCall("BRDestroyController(BR2)"));
    EXPECT_EQ(readFile(stick.path("sets/a.psb")).size(), 100U);
}

TEST_F(UnitSettings, letTheDeviceManagerBeAskedOverTheLocalNetwork) {
    Simulator simulator;
    ASSERT_TRUE(simulator.waitUntilListens());
    const Stick stick(1);
    stick.addFile("foreign.psb", "no backup");
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    EXPECT_EQ(bus_.transfer("GetBackupFileName", g_variant_new("(u)", 1)).error, "");
    EXPECT_EQ(bus_.transfer("DoBackup", g_variant_new("(sus)", "USB_X60.1", 2, "today.psb")).text(),
              "(0,)");
    const auto listed = [this] {
        return bus_.transfer("GetBackupFilesList", g_variant_new("(ss)", "USB_X60.1", "")).text();
    };
    EXPECT_TRUE(eventually([&] { return listed().find("'today.psb'") != std::string::npos; },
                           "the device manager accepts the backup"));
    EXPECT_THAT(listed(), Not(HasSubstr("foreign.psb")));
}

// What root's three powers are for, on a machine with more users than root.
class UnitPowers : public UnitSettings {
protected:
    void SetUp() override {
        const std::string reason = Accounts::whyUnavailable();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }

    // A process of an ordinary user in the service's PID namespace.
    static std::unique_ptr<ChildProcess> enterSomebody(ServiceProcess& service) {
        const std::string id = std::to_string(kSomebody);
        std::unique_ptr<ChildProcess> witness =
            service.enter({"setpriv", "--reuid", id, "--regid", id, "--clear-groups", "--", "sh",
                           "-c", "echo here; exec sleep infinity"});
        EXPECT_TRUE(witness != nullptr && witness->waitForOutput("here"));
        return witness;
    }

    const AppletControl appletControl_;
};

TEST_F(UnitPowers, deleteFilesOfAnybodyAndOfAnyMode) {
    const Stick stick(1);
    stick.addFile("private/secret");
    ASSERT_EQ(chown(stick.path("private").c_str(), kSomebody, kSomebody), 0);
    ASSERT_EQ(chmod(stick.path("private").c_str(), S_ISVTX | 0700), 0);
    ASSERT_EQ(chown(stick.path("private/secret").c_str(), kSomebody, kSomebody), 0);
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    EXPECT_EQ(deleteFile("private/secret").text(), "(true,)");
}

TEST_F(UnitPowers, endTheProcessesOfEveryUserAfterAnAppletChange) {
    UnitService service;
    ASSERT_TRUE(service.waitUntilStarted());
    const std::unique_ptr<ChildProcess> somebody = enterSomebody(*service.operator->());
    appletControl_.emitAppletChanged(256);
    EXPECT_EQ(somebody->waitForEnd(), killedBy(SIGTERM));
}

// The trap that the unit's comment names.
TEST_F(UnitPowers, withoutKillEndTheProcessesOfRootAlone) {
    UnitService service(
        "[Service]\nCapabilityBoundingSet=\nCapabilityBoundingSet=CAP_DAC_OVERRIDE\n");
    ASSERT_TRUE(service.waitUntilStarted());
    const std::unique_ptr<ChildProcess> somebody = enterSomebody(*service.operator->());
    const std::unique_ptr<ChildProcess> ofRoot = service->enterWitness();
    appletControl_.emitAppletChanged(256);
    EXPECT_EQ(ofRoot->waitForEnd(), killedBy(SIGTERM));
    ASSERT_TRUE(eventually([&] { return !service->processId(); }, "the service ends"));
    EXPECT_FALSE(somebody->hasEnded());
}

}  // namespace
}  // namespace test_support
