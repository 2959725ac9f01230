// The real service, started by a test in a PID namespace of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/files/files.h"
#include "tests/support/process/namespace_process.h"

namespace test_support {

struct ServiceOptions {
    std::vector<std::string> arguments{};  // of the service, such as "-d"
    std::vector<std::string> environment{};  // "NAME=value"; see DeviceDouble::environment()
    std::vector<std::string> prefix{};  // a command that runs the service, such as withUmask()
};

inline const ServiceOptions kAsDaemon{{"-d"}};

// A prefix under which the service has an umask.
inline std::vector<std::string> withUmask(const std::string& mask) {
    return {"sh", "-c", "umask " + mask + " && exec \"$@\"", "sh"};
}

// Empty when the service's process has the memory and address space of the service alone, as
// forbidThreads() needs; else the reason why not.
std::string whyMemoryIsNotItsOwn();

// The folder that the sanitizers of the service report into, also those of a daemon without a
// standard error. A base, because it has to exist before the process starts.
struct SanitizerReports {
    TemporaryDirectory reports_;
};

// The words of the environment variable MORVANE_SERVICE_RUNNER, when set, are a command that is put
// in front of the service; see scripts/inside/memcheck.
//
// Standard output goes through a raw pseudo-terminal, so that it arrives line by line and byte for
// byte. The destructor ends everything and fails the test when a sanitizer reported anything; in
// sanitizer builds it first lets the service exit, so that leaks are looked for.
class ServiceProcess final : private SanitizerReports, public NamespaceProcess {
public:
    explicit ServiceProcess(const ServiceOptions& options = {});
    ~ServiceProcess();

    // Waits until "/sacIntf" answers. On failure says what the service printed instead.
    testing::AssertionResult waitUntilAnswers() const;

    // The process that owns the service's bus name, as seen by the test; nothing when there is
    // none or when it is not in this namespace.
    std::optional<pid_t> processId() const;

    // Its open descriptors, as the targets of /proc/PID/fd, and its number of threads.
    std::vector<std::string> openDescriptors() const;
    int threads() const;

    // From now on the service can start just `further` threads, those that it joins not
    // counted: its address space may not grow by another stack.
    testing::AssertionResult forbidThreads(unsigned further = 0) const;

    // Takes the bus name away from the service, which ends it. Returns the command's status,
    // nothing when it did not end.
    std::optional<ProcessEnd> stop() const;

private:
    std::string sanitizerReport() const;
};

}  // namespace test_support
