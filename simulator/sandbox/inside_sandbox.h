// Tells whether this process is inside the project's sandbox.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace test_support {

// The reason why this process is not inside the sandbox; empty when it is. Inside means: the
// sandbox's mark exists and names the ipc and net namespaces that this process is in.
inline std::string whyOutsideSandbox() {
    const std::string path = "/run/morvane-sandbox";
    std::ifstream file(path);
    const std::string mark{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        return path + " does not exist";
    }
    for (const std::string kind : {"ipc", "net"}) {
        std::error_code ignored;
        const auto link = std::filesystem::read_symlink("/proc/self/ns/" + kind, ignored);
        if (link.empty() || mark.find(link.string()) == std::string::npos) {
            return std::string(path).append(" names another ").append(kind).append(" namespace");
        }
    }
    return {};
}

}  // namespace test_support
