// Installed files: the executable, and each setting of the systemd unit that docs/integration.md
// gives a reason for. ./dev machine shows what they do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"

namespace test_support {
namespace {

// The lines of the unit without comments and empty ones.
std::vector<std::string> settings() {
    std::istringstream unit(readFile(buildPath("packaging/com-morvane-transfer-service.service")));
    std::vector<std::string> lines;
    for (std::string line; std::getline(unit, line);) {
        if (!line.empty() && line.front() != '#') {
            lines.push_back(line);
        }
    }
    return lines;
}

TEST(UnitFile, holdsTheseSettingsAlone) {
    EXPECT_THAT(
        settings(),
        testing::ElementsAre(
            "[Unit]", "Description=Transfer service: backup, restore and update by USB stick",
            "Documentation=man:com-morvane-transfer-service(8)", "Requires=dbus.socket",
            "After=dbus.socket", "StartLimitIntervalSec=0", "[Service]", "Type=forking",
            testing::MatchesRegex("ExecStart=/.*sbin/com-morvane-transfer-service -d"),
            "PIDFile=/var/lock/com.morvane.transfer.pid", "Environment=G_SLICE=always-malloc",
            "Restart=no", "TimeoutStopSec=10", "StandardOutput=null", "StandardError=journal",
            "CapabilityBoundingSet=CAP_DAC_OVERRIDE CAP_FOWNER CAP_KILL", "NoNewPrivileges=yes",
            "RestrictSUIDSGID=yes", "RestrictNamespaces=yes", "RestrictRealtime=yes",
            "LockPersonality=yes", "LimitCORE=0", "LimitNOFILE=4096", "MemoryDenyWriteExecute=yes",
            "PrivateMounts=yes", "ProtectSystem=strict",
            "ReadWritePaths=-/media/usb /tmp /var/lock", "ProtectHome=yes", "PrivateTmp=no",
            "PrivateDevices=yes", "ProtectProc=invisible", "ProcSubset=pid",
            "ProtectControlGroups=yes", "ProtectKernelTunables=yes", "ProtectKernelModules=yes",
            "ProtectKernelLogs=yes", "ProtectClock=yes", "ProtectHostname=yes", "UMask=0077",
            "RestrictAddressFamilies=AF_UNIX AF_INET", "IPAddressDeny=any",
            "IPAddressAllow=localhost", "PrivateIPC=yes", "KeyringMode=private",
            "SystemCallArchitectures=native", "SystemCallFilter=@system-service",
            "SystemCallFilter=~@privileged @resources", "SystemCallErrorNumber=EPERM", "[Install]",
            "WantedBy=multi-user.target"));
}

// Nothing else shows the blank: the shell drops it.
TEST(ServiceExecutable, holdsStopCommandWithLeadingBlank) {
    const std::string command =
        " /bin/sh /etc/morvane/transfer/transfer.sh TF_STATE_SNC_STOP true true";
    EXPECT_THAT(readFile(buildPath("com-morvane-transfer-service")),
                testing::HasSubstr('\0' + command + '\0'));
}

}  // namespace
}  // namespace test_support
