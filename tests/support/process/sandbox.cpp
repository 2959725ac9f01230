#include "tests/support/process/sandbox.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "simulator/sandbox/inside_sandbox.h"
#include "tests/support/files/paths.h"

namespace test_support {
namespace {

constexpr int kCannotTest = 2;
// Set on the way into the sandbox, so that a sandbox that is none cannot make us try for ever.
constexpr const char* kEntering = "MORVANE_TEST_ENTERING_SANDBOX";

[[noreturn]] void giveUp(const std::string& reason) {
    std::fprintf(stderr, "tests run inside the sandbox only: %s\n", reason.c_str());
    std::exit(kCannotTest);
}

// Sanitizer settings for the tests and everything that they start; what the caller set stays.
void setSanitizerDefaults() {
    if (!sanitized()) {
        return;
    }
    setenv("ASAN_OPTIONS", "detect_leaks=1:abort_on_error=0", 0);
    setenv("UBSAN_OPTIONS", "print_stacktrace=1:halt_on_error=1", 0);
    const std::string races =
        "halt_on_error=0:atexit_sleep_ms=0:suppressions=" + sourcePath("tests/tsan.supp");
    setenv("TSAN_OPTIONS", races.c_str(), 0);
    setenv("G_SLICE", "always-malloc", 0);
}

void replaceBy(std::vector<std::string> command) {
    std::vector<char*> arguments;
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
}

}  // namespace

void enterSandbox(int argc, char** argv) {
    const std::string reason = whyOutsideSandbox();
    if (reason.empty()) {
        unsetenv(kEntering);
        return;
    }
    if (std::getenv(kEntering) != nullptr) {
        giveUp("the sandbox did not take us in: " + reason);
    }
    const std::string executable = ownExecutable();
    if (executable.empty()) {
        giveUp("their own executable cannot be found");
    }
    setenv(kEntering, "1", 1);
    setSanitizerDefaults();
    const std::string sandbox = sourcePath("simulator/sandbox/sandbox");
    replaceBy(runnableAfter({sandbox, "--keep", buildPath("."), "--"}, executable,
                            {argv + 1, argv + argc}));
    giveUp("cannot run " + sandbox + ": " + std::strerror(errno));
}

}  // namespace test_support
