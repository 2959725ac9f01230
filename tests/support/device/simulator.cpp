// The device-manager simulator, started by a test.
#include "tests/support/device/simulator.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/support/files/paths.h"
#include "tests/support/process/unique_fd.h"
#include "tests/support/process/waiting.h"
#include "transfer/contract.h"

namespace test_support {
namespace {

std::vector<std::string> commandFor(const std::string& state,
                                    const std::vector<std::string>& moreArguments) {
    std::vector<std::string> arguments = moreArguments;
    if (!state.empty()) {
        arguments.insert(arguments.end(), {"--state", state});
    }
    return runnable(buildPath("device-manager-simulator"), arguments);
}

}  // namespace

bool deviceManagerListens() {
    const UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kDeviceManagerPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

Simulator::Simulator(const std::string& state, const std::vector<std::string>& moreArguments)
    : process_(commandFor(state, moreArguments)) {}

testing::AssertionResult Simulator::waitUntilListens() {
    waitUntil([this] { return deviceManagerListens() || process_.hasEnded(); });
    if (!process_.hasEnded() && deviceManagerListens()) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << "the simulator does not listen: " << process_.standardOutput()
           << process_.standardError();
}

}  // namespace test_support
