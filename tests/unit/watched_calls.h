// The system calls of the code under test: counted, acted between, or made to fail.
#pragma once

#include <sys/statfs.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

// One call: the C function's name and its path, "" where it has none; of fcntl64 the command.
struct WatchedCall {
    std::string name;
    std::string path;
};

// Watches this thread's calls of the functions that tests/CMakeLists.txt lists while it exists; one
// at a time. The linker leads the calls of everything linked statically into the unit tests here
// (--wrap). A ForkedProcess goes on watching.
class WatchedCalls {
public:
    // Runs before each call, which is already the last of calls(). Returns 0 to let the call
    // happen, otherwise the errno with which it fails instead; closedir and endmntent always
    // happen. What it calls itself is not watched.
    using Before = std::function<int(const WatchedCall& call, std::size_t index)>;

    explicit WatchedCalls(Before before = {});
    ~WatchedCalls();
    WatchedCalls(const WatchedCalls&) = delete;
    WatchedCalls& operator=(const WatchedCalls&) = delete;

    // From now on statfs64 says this wherever it succeeds.
    void setFileSystem(const struct statfs64& fileSystem) { fileSystem_ = fileSystem; }

    const std::vector<WatchedCall>& calls() const { return calls_; }
    std::size_t count(const std::string& name, const std::optional<std::string>& path = {}) const;

    // For the functions that stand in for the calls. Returns the errno to fail with, or 0.
    static int enter(const char* name, const char* path = "");
    static void replaceAnswer(struct statfs64* fileSystem);

private:
    int watch(const WatchedCall& call);

    Before before_;
    std::vector<WatchedCall> calls_;
    std::optional<struct statfs64> fileSystem_;
};

}  // namespace test_support
