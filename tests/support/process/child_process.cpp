#include "tests/support/process/child_process.h"

#include <glib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/files/paths.h"
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

#ifdef MORVANE_COUNTS_COVERAGE
extern "C" void __gcov_dump();

// In place of the C library's, which would throw the counters away.
extern "C" void _exit(int status) {
    __gcov_dump();
    for (;;) {
        syscall(SYS_exit_group, status);
    }
}
#endif

namespace test_support {
namespace {

constexpr int kCannotRun = 127;  // as shells have it
constexpr const char* kFreshMark = "MORVANE_TEST_FRESH_PROCESS";

void dieWithParent(gpointer parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != *static_cast<pid_t*>(parent)) {  // it ended before the line above took effect
        _exit(kCannotRun);
    }
}

// By reopening, because the parent's output may have another buffering than a file's.
void sendTo(const CollectedStream& target, std::FILE* stream) {
    const std::string path = "/proc/self/fd/" + std::to_string(target.fd());
    if (std::freopen(path.c_str(), "a", stream) == nullptr) {
        _exit(kCannotRun);
    }
}

}  // namespace

CollectedStream::CollectedStream() : file_(memfd_create("stream", MFD_CLOEXEC)) {
    if (!file_) {
        throwErrno("memfd_create");
    }
}

std::string CollectedStream::content() const {
    struct stat status {};
    fstat(file_.get(), &status);
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t length = pread(file_.get(), bytes.data(), bytes.size(), 0);
    bytes.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return bytes;
}

ChildProcess::ChildProcess(const std::vector<std::string>& command,
                           const std::vector<std::string>& environment) {
    std::vector<std::string> words = environment;
    if (!words.empty()) {
        words.insert(words.begin(), "env");
    }
    words.insert(words.end(), command.begin(), command.end());
    std::vector<const char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    arguments.push_back(nullptr);
    pid_t parent = getpid();
    const int source = report_.fd();
    const int target = kReportFd;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH |
                                                G_SPAWN_LEAVE_DESCRIPTORS_OPEN);
    g_autoptr(GError) error = nullptr;
    if (g_spawn_async_with_pipes_and_fds(nullptr, arguments.data(), nullptr, flags, dieWithParent,
                                         &parent, -1, output_.fd(), error_.fd(), &source, &target,
                                         1, &pid_, nullptr, nullptr, nullptr, &error) == FALSE) {
        throw std::runtime_error(error->message);
    }
}

ChildProcess::~ChildProcess() {
    kill();
}

bool ChildProcess::hasEnded() const {
    int status = 0;
    if (!end_ && waitpid(pid_, &status, WNOHANG) == pid_) {
        end_ = WIFSIGNALED(status) ? killedBy(WTERMSIG(status)) : exited(WEXITSTATUS(status));
    }
    return end_.has_value();
}

std::optional<ProcessEnd> ChildProcess::waitForEnd() const {
    waitUntil([this] { return hasEnded(); });
    return end_;
}

void ChildProcess::kill() {
    if (!hasEnded()) {
        ::kill(pid_, SIGKILL);
        waitForEnd();
    }
}

testing::AssertionResult ChildProcess::waitForOutput(const std::string& text) const {
    return waitFor(output_, text);
}

testing::AssertionResult ChildProcess::waitForError(const std::string& text) const {
    return waitFor(error_, text);
}

testing::AssertionResult ChildProcess::waitForReport(const std::string& text) const {
    return waitFor(report_, text);
}

testing::AssertionResult ChildProcess::waitFor(const CollectedStream& stream,
                                               const std::string& text) const {
    const auto holds = [&] { return stream.content().find(text) != std::string::npos; };
    waitUntil([&] { return holds() || hasEnded(); });
    if (holds()) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "waited for:\n"
                                       << text << "\nbut got:\n"
                                       << stream.content() << "\nstandard error:\n"
                                       << standardError();
}

ForkedProcess::ForkedProcess(const std::function<void()>& body) {
    pid_t parent = getpid();
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
    dieWithParent(&parent);
    sendTo(output_, stdout);
    sendTo(error_, stderr);
    std::setvbuf(stderr, nullptr, _IONBF, 0);
    body();
    std::fflush(nullptr);
    _exit(EXIT_SUCCESS);
}

ChildProcess freshProcess() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(test->test_suite_name()) + "." + test->name();
    // Where this process runs a share of the tests, the test may be none of the new one's share.
    return ChildProcess(
        runnable(ownExecutable(), {"--gtest_filter=" + name}),
        {std::string(kFreshMark) + "=1", "GTEST_TOTAL_SHARDS=1", "GTEST_SHARD_INDEX=0"});
}

bool isFreshProcess() {
    return std::getenv(kFreshMark) != nullptr;
}

void note(const std::string& line) {
    const std::string text = line + "\n";
    if (write(ChildProcess::kReportFd, text.data(), text.size()) < 0) {
        ADD_FAILURE() << "nobody takes the note " << line;
    }
}

static CommandResult resultOf(const ChildProcess& process) {
    const std::optional<ProcessEnd> end = process.waitForEnd();
    return {end, process.standardOutput(), process.standardError()};
}

CommandResult runCommand(const std::vector<std::string>& command,
                         const std::vector<std::string>& environment) {
    return resultOf(ChildProcess(command, environment));
}

CommandResult runForked(const std::function<void()>& body) {
    return resultOf(ForkedProcess(body));
}

}  // namespace test_support
