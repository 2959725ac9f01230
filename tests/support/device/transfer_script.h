// The transfer script that the service runs, as a test wants it.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/files/files.h"
#include "tests/support/process/waiting.h"

namespace test_support {

// What a start makes before it runs the script.
constexpr const char* kEnabledFile = "/tmp/transfer.enabled";
// The arguments of the script's run at a start.
constexpr const char* kScriptStart = "TF_STATE_SNC_START true true";

inline constexpr const char* kScriptRuns = "/run/log/transfer-script";

// The arguments of every run of the sandbox's transfer script by now, one line a run.
inline std::vector<std::string> transferScriptRuns() {
    return readLines(kScriptRuns);
}

inline void clearTransferScriptRuns() {
    unlink(kScriptRuns);
}

// Puts other commands in the place of the transfer script. The runs are noted as ever.
struct TransferScript : ReplacedFile {
    // `commands` are lines for the shell, run after the arguments ("$@") have been noted.
    explicit TransferScript(const std::string& commands)
        : ReplacedFile(
              "/etc/morvane/transfer/transfer.sh",
              std::string("printf '%s\\n' \"$*\" >>") + kScriptRuns + "\n" + commands + "\n") {}
};

// A script that returns on release(): until then the service stands still in its start, before it
// has the name. Every later run returns at once.
class HeldTransferScript {
public:
    // `commands` are run first.
    explicit HeldTransferScript(const std::string& commands = "")
        : script_(commands + "\ntouch " + folder_.path("entered") + "\nwhile [ ! -e " +
                  folder_.path("released") + " ]; do sleep 0.01; done") {}
    ~HeldTransferScript() { release(); }
    HeldTransferScript(const HeldTransferScript&) = delete;
    HeldTransferScript& operator=(const HeldTransferScript&) = delete;

    // Waits until a service has come to the script.
    testing::AssertionResult waitUntilEntered() const {
        return eventually([this] { return exists(folder_.path("entered")); },
                          "the service runs the transfer script");
    }
    void release() const { writeFile(folder_.path("released"), ""); }

private:
    TemporaryDirectory folder_;
    TransferScript script_;
};

}  // namespace test_support
