// The transfer script that the service runs, as a test wants it.
#include "tests/support/device/transfer_script.h"

#include <unistd.h>

#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kScript = "/etc/morvane/transfer/transfer.sh";
constexpr const char* kRuns = "/run/log/transfer-script";

std::string holdBelow(const TemporaryDirectory& folder) {
    return "touch " + folder.path("entered") + "\nwhile [ ! -e " + folder.path("released") +
           " ]; do sleep 0.01; done\n";
}

}  // namespace

std::vector<std::string> transferScriptRuns() {
    return readLines(kRuns);
}

void clearTransferScriptRuns() {
    unlink(kRuns);
}

TransferScript::TransferScript(const std::string& commands) : before_(readFile(kScript)) {
    writeFile(kScript, std::string("printf '%s\\n' \"$*\" >>") + kRuns + "\n" + commands + "\n");
}

TransferScript::~TransferScript() {
    writeFile(kScript, before_);
}

HeldTransferScript::HeldTransferScript(const std::string& commands)
    : script_(commands + "\n" + holdBelow(folder_)) {}

testing::AssertionResult HeldTransferScript::waitUntilEntered() const {
    return eventually([this] { return exists(folder_.path("entered")); },
                      "the service runs the transfer script");
}

void HeldTransferScript::release() const {
    writeFile(folder_.path("released"), "");
}

}  // namespace test_support
