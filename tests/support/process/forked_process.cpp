// Part of a test that runs in a child process.
#include "tests/support/process/forked_process.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "tests/support/process/errno_error.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace {

// Whether this process is a copy of one with several threads. The leak sanitizer cannot work there:
// it looks for threads that have not come along.
bool copiedFromThreads = false;

}  // namespace

#if defined(__SANITIZE_ADDRESS__)
extern "C" int __lsan_is_turned_off() {
    return copiedFromThreads ? 1 : 0;
}
#endif

namespace test_support {
namespace {

// By reopening, because the buffering of the parent's output is not that of a file.
void sendTo(const std::string& path, std::FILE* stream) {
    if (std::freopen(path.c_str(), "a", stream) == nullptr) {
        _exit(kCannotRun);
    }
}

}  // namespace

ForkedProcess::ForkedProcess(const std::function<void()>& body) {
    const pid_t parent = getpid();
    const bool threads = threadsOf(parent) > 1;
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ < 0) {
        throwErrno("fork");
    }
    if (pid_ > 0) {
        return;
    }
    copiedFromThreads = threads;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(kCannotRun);
    }
    sendTo(folder_.path("output"), stdout);
    sendTo(folder_.path("error"), stderr);
    std::setvbuf(stderr, nullptr, _IONBF, 0);
    body();
    std::fflush(nullptr);
    _exit(EXIT_SUCCESS);
}

ForkedProcess::~ForkedProcess() {
    if (!hasEnded()) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

bool ForkedProcess::hasEnded() {
    int status = 0;
    if (!end_ && waitpid(pid_, &status, WNOHANG) == pid_) {
        end_ = WIFSIGNALED(status) ? killedBy(WTERMSIG(status)) : exited(WEXITSTATUS(status));
    }
    return end_.has_value();
}

std::optional<ProcessEnd> ForkedProcess::waitForEnd() {
    waitUntil([this] { return hasEnded(); });
    return end_;
}

CommandResult runForked(const std::function<void()>& body) {
    ForkedProcess process(body);
    const std::optional<ProcessEnd> end = process.waitForEnd();
    return {end, process.standardOutput(), process.standardError()};
}

}  // namespace test_support
