// A process that a test starts, with its output collected, ended with its owner.
#include "tests/support/process/child_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "tests/support/process/argument_vector.h"
#include "tests/support/process/errno_error.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

// The two sides of a stream: the test reads, the child writes.
struct Channel {
    UniqueFd reader;
    UniqueFd writer;
};

Channel makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throwErrno("pipe2");
    }
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

// Raw, so that what is written arrives byte for byte.
Channel makeTerminal() {
    Channel channel;
    channel.reader.reset(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    std::array<char, 64> name{};
    if (!channel.reader || grantpt(channel.reader.get()) != 0 ||
        unlockpt(channel.reader.get()) != 0 ||
        ptsname_r(channel.reader.get(), name.data(), name.size()) != 0) {
        throwErrno("posix_openpt");
    }
    channel.writer.reset(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings{};
    if (!channel.writer || tcgetattr(channel.writer.get(), &settings) != 0) {
        throwErrno(name.data());
    }
    cfmakeraw(&settings);
    if (tcsetattr(channel.writer.get(), TCSANOW, &settings) != 0) {
        throwErrno(name.data());
    }
    return channel;
}

std::vector<std::string> mergedEnvironment(const std::vector<std::string>& additions) {
    std::vector<std::string> result = additions;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string inherited = *entry;
        const std::string name = inherited.substr(0, inherited.find('=') + 1);
        bool replaced = false;
        for (const std::string& addition : additions) {
            replaced = replaced || addition.compare(0, name.size(), name) == 0;
        }
        if (!replaced) {
            result.push_back(inherited);
        }
    }
    return result;
}

// Everything that the child needs between fork and exec, made before the fork: other threads may
// hold the allocator's locks at that moment.
struct Launch {
    std::vector<std::string> environmentTexts;
    std::vector<char*> arguments;
    std::vector<char*> environment;
    std::array<int, 4> streams{};
    const ChildOptions* options = nullptr;
    pid_t parent = 0;
};

void takeStreams(const std::array<int, 4>& streams) {
    // The sources are all above the targets, so no target overwrites a source still needed.
    for (std::size_t target = 0; target < streams.size(); ++target) {
        if (dup2(streams[target], static_cast<int>(target)) < 0) {
            _exit(kCannotRun);
        }
    }
}

[[noreturn]] void becomeCommand(const Launch& launch) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != launch.parent) {
        _exit(kCannotRun);
    }
    takeStreams(launch.streams);
    for (const ResourceLimit& limit : launch.options->limits) {
        const rlimit both{limit.value, limit.value};
        setrlimit(static_cast<__rlimit_resource_t>(limit.resource), &both);
    }
    if (launch.options->umask) {
        umask(*launch.options->umask);
    }
    execvpe(launch.arguments[0], launch.arguments.data(), launch.environment.data());
    _exit(kCannotRun);
}

// A copy of the descriptor above the numbers that the child's streams take.
UniqueFd raised(const UniqueFd& fd) {
    UniqueFd copy(fcntl(fd.get(), F_DUPFD_CLOEXEC, 16));
    if (!copy) {
        throwErrno("fcntl");
    }
    return copy;
}

ProcessEnd endOf(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? killedBy(WTERMSIG(waitStatus))
                                   : exited(WEXITSTATUS(waitStatus));
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ProcessEnd& end) {
    return out << (end.bySignal ? "killed by signal " : "exited with status ") << end.number;
}

ChildProcess::ChildProcess(const std::vector<std::string>& command, const ChildOptions& options) {
    Channel output = options.terminal ? makeTerminal() : makePipe();
    Channel error = makePipe();
    Channel report = makePipe();
    const UniqueFd null(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const std::array<UniqueFd, 4> ends{raised(null), raised(output.writer), raised(error.writer),
                                       raised(report.writer)};
    Launch launch;
    launch.environmentTexts = mergedEnvironment(options.environment);
    launch.arguments = argumentVector(command);
    launch.environment = argumentVector(launch.environmentTexts);
    launch.streams = {ends[0].get(), ends[1].get(), ends[2].get(), ends[3].get()};
    launch.options = &options;
    launch.parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        throwErrno("fork");
    }
    if (pid_ == 0) {
        becomeCommand(launch);
    }
    std::vector<UniqueFd> readers;
    readers.push_back(std::move(output.reader));
    readers.push_back(std::move(error.reader));
    readers.push_back(std::move(report.reader));
    reader_ = std::make_unique<StreamReader>(std::move(readers));
}

ChildProcess::~ChildProcess() {
    kill();
}

bool ChildProcess::hasEnded() {
    int status = 0;
    if (!end_ && waitpid(pid_, &status, WNOHANG) == pid_) {
        end_ = endOf(status);
    }
    return end_.has_value();
}

std::optional<ProcessEnd> ChildProcess::waitForEnd() {
    waitUntil([this] { return hasEnded(); });
    return end_;
}

void ChildProcess::kill() {
    if (hasEnded()) {
        return;
    }
    ::kill(pid_, SIGKILL);
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    end_ = endOf(status);
}

testing::AssertionResult ChildProcess::waitForOutput(const std::string& text) const {
    return waitForText(0, text);
}

testing::AssertionResult ChildProcess::waitForError(const std::string& text) const {
    return waitForText(1, text);
}

testing::AssertionResult ChildProcess::waitForText(std::size_t stream,
                                                   const std::string& text) const {
    const auto holds = [&](const std::string& all) { return all.find(text) != std::string::npos; };
    if (reader_->waitFor(stream, holds)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "waited for:\n"
                                       << text << "\nbut got:\n"
                                       << reader_->text(stream) << "\nstandard error:\n"
                                       << reader_->text(1);
}

CommandResult runCommand(const std::vector<std::string>& command, const ChildOptions& options) {
    ChildProcess process(command, options);
    CommandResult result;
    result.end = process.waitForEnd();
    process.streams().waitForEnd();
    result.output = process.standardOutput();
    result.error = process.standardError();
    return result;
}

}  // namespace test_support
