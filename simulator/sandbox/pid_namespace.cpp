// pid-namespace [--report FD] [--terminal] -- COMMAND [ARG...]: runs COMMAND in a PID and mount
// namespace of its own.
//
// The namespace keeps a kill(-1, SIGTERM) to itself: only what runs in it is reached, never the
// small init that this program leaves there as process 1. The init reaps every process and, with
// --report, writes one line for each to FD: "start PID" for COMMAND, then "exit PID CODE" or
// "signal PID NUMBER", with process ids as inside the namespace, so that the end of a daemon is
// seen too.
//
// With --terminal COMMAND's standard output is a terminal, so that what it writes without flushing
// comes line by line; it is passed on unchanged.
//
// The program ends when no process is left in it, with COMMAND's status (128 + N for signal N).
// Everything in it dies with this program, and this program with its caller. Status 125: no
// namespace was made; 127: COMMAND could not be run.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "simulator/sandbox/inside_sandbox.h"

namespace {

constexpr int kNoNamespace = 125;
constexpr int kCannotRun = 127;
constexpr int kSignalBase = 128;
constexpr useconds_t kGuestPollMicroseconds = 10000;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

struct Arguments {
    int reportFd = -1;
    bool terminal = false;
    char** command = nullptr;
};

[[noreturn]] void refuse(const std::string& reason) {
    std::fprintf(stderr, "pid-namespace: %s\n", reason.c_str());
    _exit(kNoNamespace);
}

[[noreturn]] void refuseWithErrno(const std::string& what) {
    refuse(what + ": " + std::strerror(errno));
}

int parseDescriptor(std::string_view text) {
    int fd = -1;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), fd);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() ||
        fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
        refuse("--report needs an open file descriptor, not " + std::string(text));
    }
    return fd;
}

Arguments parse(int argc, char** argv) {
    Arguments result;
    int next = 1;
    if (next + 1 < argc && std::strcmp(argv[next], "--report") == 0) {
        result.reportFd = parseDescriptor(argv[next + 1]);
        next += 2;
    }
    if (next < argc && std::strcmp(argv[next], "--terminal") == 0) {
        result.terminal = true;
        ++next;
    }
    if (next + 1 >= argc || std::strcmp(argv[next], "--") != 0) {
        refuse("usage: pid-namespace [--report FD] [--terminal] -- COMMAND [ARG...]");
    }
    result.command = argv + next + 1;
    return result;
}

int exitStatusOf(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? kSignalBase + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

void report(int fd, const char* what, pid_t pid, const int* number) {
    if (fd < 0) {
        return;
    }
    std::string line = std::string(what) + " " + std::to_string(pid);
    if (number != nullptr) {
        line += " " + std::to_string(*number);
    }
    line += "\n";
    // A reader that has gone away wants no report.
    [[maybe_unused]] const ssize_t written = write(fd, line.data(), line.size());
}

void reportEnd(int fd, pid_t pid, int waitStatus) {
    const int number = WIFSIGNALED(waitStatus) ? WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
    report(fd, WIFSIGNALED(waitStatus) ? "signal" : "exit", pid, &number);
}

bool isZombie(const std::string& pid) {
    std::ifstream stat("/proc/" + pid + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t end = text.rfind(") ");
    return end == std::string::npos || text[end + 2] == 'Z' || text[end + 2] == 'X';
}

// Whether a process that entered the namespace from outside (and is reaped there) still runs.
bool guestsLeft() {
    const std::unique_ptr<DIR, CloseDirectory> proc(opendir("/proc"));
    if (proc == nullptr) {
        return false;
    }
    while (const dirent* entry = readdir(proc.get())) {
        const std::string name = entry->d_name;
        const bool isProcess = name.find_first_not_of("0123456789") == std::string::npos;
        if (isProcess && name != "1" && !isZombie(name)) {
            return true;
        }
    }
    return false;
}

// Reaps until the namespace is empty; returns the wait status of `command`.
int reapAll(pid_t command, int reportFd) {
    int result = 0;
    for (;;) {
        int status = 0;
        const pid_t pid = waitpid(-1, &status, 0);
        if (pid > 0) {
            reportEnd(reportFd, pid, status);
            result = pid == command ? status : result;
        } else if (errno == ECHILD && !guestsLeft()) {
            return result;
        } else if (errno == ECHILD) {
            usleep(kGuestPollMicroseconds);
        }
    }
}

// The streams belong to COMMAND: whoever reads them sees their end when COMMAND's side closes.
void dropStandardStreams() {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (null >= 0) {
            dup2(null, fd);
        } else {
            close(fd);
        }
    }
}

[[noreturn]] void runCommand(char** command) {
    execvp(command[0], command);
    std::fprintf(stderr, "pid-namespace: cannot run %s: %s\n", command[0], std::strerror(errno));
    _exit(kCannotRun);
}

void dieWithParent(int parentAlive) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd gone{parentAlive, POLLIN, 0};
    if (poll(&gone, 1, 0) != 0) {  // the parent died before the line above took effect
        _exit(kNoNamespace);
    }
    close(parentAlive);
}

[[noreturn]] void runInit(const Arguments& arguments) {
    // Slave: what is mounted outside later appears here, and nothing of here appears outside.
    if (mount("none", "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) {
        refuseWithErrno("cannot separate the mounts");
    }
    if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        refuseWithErrno("cannot mount /proc");
    }
    const pid_t command = fork();
    if (command < 0) {
        refuseWithErrno("cannot start a process");
    }
    if (command == 0) {
        runCommand(arguments.command);
    }
    report(arguments.reportFd, "start", command, nullptr);
    dropStandardStreams();
    _exit(exitStatusOf(reapAll(command, arguments.reportFd)));
}

// The two ends of a terminal that changes nothing of what is written to it.
struct Terminal {
    int reader = -1;
    int writer = -1;
};

Terminal openTerminal() {
    Terminal result;
    result.reader = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (result.reader < 0 || grantpt(result.reader) != 0 || unlockpt(result.reader) != 0) {
        refuseWithErrno("cannot make a terminal");
    }
    result.writer = open(ptsname(result.reader), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    if (result.writer < 0 || tcgetattr(result.writer, &settings) != 0) {
        refuseWithErrno("cannot open the terminal");
    }
    cfmakeraw(&settings);
    if (tcsetattr(result.writer, TCSANOW, &settings) != 0) {
        refuseWithErrno("cannot set the terminal up");
    }
    return result;
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return true;
}

// Until nobody has the terminal any more. What a reader that has gone away does not take is lost,
// and the namespace goes on.
void passOn(int terminal) {
    std::array<char, 4096> buffer{};
    bool wanted = true;
    for (;;) {
        const ssize_t got = read(terminal, buffer.data(), buffer.size());
        if (got > 0) {
            wanted =
                wanted && writeAll(STDOUT_FILENO, {buffer.data(), static_cast<std::size_t>(got)});
        } else if (got == 0 || errno != EINTR) {
            return;
        }
    }
}

int waitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return exitStatusOf(status);
}

}  // namespace

int main(int argc, char** argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const Arguments arguments = parse(argc, argv);
    const std::string outside = test_support::whyOutsideSandbox();
    if (!outside.empty()) {
        refuse("not inside the sandbox: " + outside);
    }
    std::array<int, 2> alive{};
    if (pipe2(alive.data(), O_CLOEXEC) != 0) {
        refuseWithErrno("cannot make a pipe");
    }
    Terminal terminal;
    if (arguments.terminal) {
        terminal = openTerminal();
    }
    // Shared, so that the namespace's copy of every mount follows the sandbox's.
    if (mount("none", "/", nullptr, MS_REC | MS_SHARED, nullptr) != 0 ||
        unshare(CLONE_NEWNS | CLONE_NEWPID) != 0) {
        refuseWithErrno("cannot make the namespaces");
    }
    const pid_t init = fork();
    if (init < 0) {
        refuseWithErrno("cannot start the namespace's init");
    }
    if (init == 0) {
        close(alive[1]);
        dieWithParent(alive[0]);
        if (arguments.terminal) {
            dup2(terminal.writer, STDOUT_FILENO);
            close(terminal.writer);
        }
        runInit(arguments);
    }
    close(alive[0]);
    if (arguments.reportFd >= 0) {
        close(arguments.reportFd);
    }
    if (arguments.terminal) {
        close(terminal.writer);
        signal(SIGPIPE, SIG_IGN);
        passOn(terminal.reader);
    }
    dropStandardStreams();
    _exit(waitFor(init));
}
