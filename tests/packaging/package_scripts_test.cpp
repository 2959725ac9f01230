// The scripts of the Debian package, run with tools that only note how they are called.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kUnit = "com-morvane-transfer-service.service";

class PackageScript : public testing::Test {
protected:
    // The scripts take the machine for one with systemd.
    PackageScript() {
        writeFile(folder_.path("calls"), "");
        makeDirectories("/run/systemd/system");
        for (const char* const tool : {"deb-systemd-helper", "deb-systemd-invoke", "invoke-rc.d",
                                       "systemctl", "update-rc.d"}) {
            writeFile(folder_.path(tool), "#!/bin/sh\necho \"${0##*/} $*\" >>\"${0%/*}/calls\"\n");
            chmod(folder_.path(tool).c_str(), 0755);
        }
    }
    ~PackageScript() override { rmdir("/run/systemd/system"); }

    // How the script calls its tools.
    std::string calls(const std::string& script, const std::string& argument) const {
        const CommandResult result =
            runCommand({"env", "PATH=" + folder_.path(".") + ":/usr/bin:/bin", "sh",
                        sourcePath("packaging/debian/" + script), argument});
        EXPECT_EQ(result.end, exited(0));
        return readFile(folder_.path("calls"));
    }

    TemporaryDirectory folder_;
};

TEST_F(PackageScript, enablesUnitOnInstallation) {
    EXPECT_THAT(calls("postinst", "configure"), HasSubstr("deb-systemd-helper enable " + kUnit));
}

TEST_F(PackageScript, givesInitScriptPlaceInBoot) {
    EXPECT_THAT(calls("postinst", "configure"),
                HasSubstr("update-rc.d com-morvane-transfer-service defaults"));
}

TEST_F(PackageScript, startsNothingOnInstallation) {
    EXPECT_THAT(calls("postinst", "configure"), Not(HasSubstr("start")));
}

TEST_F(PackageScript, stopsUnitOnRemoval) {
    EXPECT_EQ(calls("prerm", "remove"), "deb-systemd-invoke stop " + kUnit + "\n");
}

TEST_F(PackageScript, leavesServiceAloneOnUpgrade) {
    EXPECT_EQ(calls("prerm", "upgrade"), "");
}

TEST_F(PackageScript, forgetsUnitAndInitScriptOnPurge) {
    EXPECT_THAT(calls("postrm", "purge"),
                AllOf(HasSubstr("deb-systemd-helper purge " + kUnit),
                      HasSubstr("update-rc.d com-morvane-transfer-service remove")));
}

TEST_F(PackageScript, keepsPlaceInBootOnRemoval) {
    EXPECT_EQ(calls("postrm", "remove"), "systemctl --system daemon-reload\n");
}

}  // namespace
}  // namespace test_support
