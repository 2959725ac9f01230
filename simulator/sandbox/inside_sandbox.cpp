// Tells whether this process is inside the project's sandbox.
#include "simulator/sandbox/inside_sandbox.h"

#include <unistd.h>

#include <array>
#include <fstream>

namespace test_support {
namespace {

constexpr const char* kSandboxMark = "/run/morvane-sandbox";

// The "ipc:[4026531839]" form of one of the caller's namespaces; empty when it cannot be read.
std::string ownNamespace(const std::string& kind) {
    std::array<char, 64> text{};
    const ssize_t length =
        readlink(("/proc/self/ns/" + kind).c_str(), text.data(), text.size() - 1);
    return length > 0 ? std::string(text.data()) : std::string();
}

bool markNames(const std::string& link) {
    std::ifstream mark(kSandboxMark);
    for (std::string line; std::getline(mark, line);) {
        if (!link.empty() && line == link) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string whyOutsideSandbox() {
    if (access(kSandboxMark, R_OK) != 0) {
        return std::string(kSandboxMark) + " does not exist";
    }
    for (const char* kind : {"ipc", "net"}) {
        if (!markNames(ownNamespace(kind))) {
            return std::string(kSandboxMark) + " names another " + kind + " namespace";
        }
    }
    return {};
}

}  // namespace test_support
