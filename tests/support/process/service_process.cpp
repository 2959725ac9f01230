#include "tests/support/process/service_process.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "tests/support/bus/system_bus.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr rlim_t kBytesPerKilobyte = 1024;
// More than the service needs to go on answering, less than the smallest default thread stack.
constexpr rlim_t kGrowthWithoutThreads = 4 * kBytesPerKilobyte * kBytesPerKilobyte;
constexpr rlim_t kStackWithoutLimit = 2 * kBytesPerKilobyte * kBytesPerKilobyte;

std::vector<std::string> commandFor(const ServiceOptions& options) {
    std::vector<std::string> words = options.prefix;
    if (const char* runner = std::getenv("MORVANE_SERVICE_RUNNER")) {
        std::istringstream runnerWords(runner);
        words.insert(words.end(), std::istream_iterator<std::string>(runnerWords), {});
    }
    return runnableAfter(words, buildPath("com-morvane-transfer-service"), options.arguments);
}

// Sanitizers write their reports to files that begin with `reports`; other settings stay.
std::vector<std::string> environmentFor(const ServiceOptions& options, const std::string& reports) {
    std::vector<std::string> result = options.environment;
    if (!sanitized()) {
        return result;
    }
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
        const char* const inherited = std::getenv(name);
        result.push_back(std::string(name) + "=" +
                         (inherited != nullptr ? std::string(inherited) + ":" : "") +
                         "log_path=" + reports);
    }
    return result;
}

bool transferObjectAnswers() {
    const SystemBus bus;
    return bus
        .call(kTransferPath, "org.freedesktop.DBus.Properties", "Get",
              g_variant_new("(ss)", kTransferInterface, "organizationName"))
        .error.empty();
}

// What the C library takes for a thread's stack unless told otherwise.
rlim_t stackOfThreadsIn(pid_t pid) {
    rlimit stack{};
    const bool limited =
        prlimit(pid, RLIMIT_STACK, nullptr, &stack) == 0 && stack.rlim_cur != RLIM_INFINITY;
    return limited ? stack.rlim_cur : kStackWithoutLimit;
}

// The soft limit only, so that it can be lifted again without root's powers.
testing::AssertionResult limitAddressSpace(pid_t pid, rlim_t limit) {
    rlimit both{};
    if (prlimit(pid, RLIMIT_AS, nullptr, &both) == 0) {
        both.rlim_cur = std::min(limit, both.rlim_max);
        if (prlimit(pid, RLIMIT_AS, &both, nullptr) == 0) {
            return testing::AssertionSuccess();
        }
    }
    return testing::AssertionFailure() << "cannot limit the address space of " << pid;
}

}  // namespace

std::string whyMemoryIsNotItsOwn() {
    return emulated() ? std::string(kEmulatorCannot) + "be told from the program by its memory"
                      : "";
}

ServiceProcess::ServiceProcess(const ServiceOptions& options)
    : NamespaceProcess(commandFor(options), environmentFor(options, reports_.path("report")),
                       true) {}

ServiceProcess::~ServiceProcess() {
    // Killed, a process has no chance to look for its leaks or to write what it has counted.
    if ((sanitized() || countsCoverage()) && processId()) {
        stop();
    }
    kill();
    const std::string report = sanitizerReport();
    if (!report.empty()) {
        ADD_FAILURE() << "a sanitizer reported on the service:\n" << report;
    }
}

std::string ServiceProcess::sanitizerReport() const {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(reports_.path())) {
        all += readFile(entry.path()) + "\n";
    }
    return all;
}

testing::AssertionResult ServiceProcess::waitUntilAnswers() const {
    // A foreground service that has ended will never answer; of a daemon the launcher ends early.
    const auto answers = [this] { return processId() && transferObjectAnswers(); };
    if (waitUntil([&] { return answers() || hasEnded(); }) && !hasEnded()) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "the service does not answer\nstandard output:\n"
                                       << standardOutput() << "\nstandard error:\n"
                                       << standardError() << sanitizerReport();
}

std::optional<pid_t> ServiceProcess::processId() const {
    const std::optional<pid_t> owner = SystemBus::processOf(kServiceName);
    const std::vector<pid_t> mine = processesOutside();
    const bool here = owner && std::find(mine.begin(), mine.end(), *owner) != mine.end();
    return here ? owner : std::nullopt;
}

std::vector<std::string> ServiceProcess::openDescriptors() const {
    const std::optional<pid_t> pid = processId();
    return pid ? openDescriptorsOf(*pid) : std::vector<std::string>();
}

int ServiceProcess::threads() const {
    const std::optional<pid_t> pid = processId();
    return pid ? threadsOf(*pid) : 0;
}

testing::AssertionResult ServiceProcess::forbidThreads(unsigned further) const {
    const std::optional<pid_t> pid = processId();
    const std::optional<std::string> size = pid ? statusField(*pid, "VmSize") : std::nullopt;
    if (!size) {
        return testing::AssertionFailure() << "the service does not run";
    }
    return limitAddressSpace(*pid, std::stoull(*size) * kBytesPerKilobyte + kGrowthWithoutThreads +
                                       further * stackOfThreadsIn(*pid));
}

std::optional<ProcessEnd> ServiceProcess::stop() const {
    const SystemBus bus;
    if (!bus.ownName(kServiceName, G_BUS_NAME_OWNER_FLAGS_REPLACE)) {
        return std::nullopt;
    }
    return waitForEnd();
}

}  // namespace test_support
