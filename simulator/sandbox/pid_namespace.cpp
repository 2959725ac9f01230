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
#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "simulator/sandbox/inside_sandbox.h"

namespace {

constexpr int kNoNamespace = 125;
constexpr int kCannotRun = 127;
constexpr int kSignalBase = 128;
constexpr useconds_t kGuestPollMicroseconds = 10000;

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

Arguments parse(int argc, char** argv) {
    static const std::array<option, 3> kOptions{
        {{"report", required_argument, nullptr, 'r'}, {"terminal", no_argument, nullptr, 't'}, {}}};
    Arguments result;
    int letter = 0;
    while ((letter = getopt_long(argc, argv, "+", kOptions.data(), nullptr)) != -1) {
        if (letter == 't') {
            result.terminal = true;
            continue;
        }
        result.reportFd = letter == 'r' ? static_cast<int>(std::strtol(optarg, nullptr, 10)) : -1;
        if (result.reportFd <= STDERR_FILENO || fcntl(result.reportFd, F_SETFD, FD_CLOEXEC) != 0) {
            refuse("the options are --report with an open descriptor, and --terminal");
        }
    }
    if (optind == argc) {
        refuse("usage: pid-namespace [--report FD] [--terminal] -- COMMAND [ARG...]");
    }
    result.command = argv + optind;
    return result;
}

int exitStatusOf(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? kSignalBase + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

// Reaps until the namespace is empty; returns the wait status of `command`. Who entered the
// namespace from outside is reaped there, and polled for here.
int reapAll(pid_t command, int reportFd) {
    int result = 0;
    for (;;) {
        int status = 0;
        const pid_t pid = waitpid(-1, &status, 0);
        if (pid > 0 && WIFSIGNALED(status)) {
            dprintf(reportFd, "signal %d %d\n", pid, WTERMSIG(status));
        } else if (pid > 0) {
            dprintf(reportFd, "exit %d %d\n", pid, WEXITSTATUS(status));
        } else if (kill(-1, 0) == 0) {
            usleep(kGuestPollMicroseconds);
        } else {
            return result;
        }
        result = pid == command ? status : result;
    }
}

// The streams belong to COMMAND: whoever reads them sees their end when COMMAND's side closes.
void dropStandardStreams() {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(null, fd);
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
    dprintf(arguments.reportFd, "start %d\n", command);
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
    termios settings{};
    if (openpty(&result.reader, &result.writer, nullptr, nullptr, nullptr) != 0 ||
        tcgetattr(result.writer, &settings) != 0) {
        refuseWithErrno("cannot open a terminal");
    }
    cfmakeraw(&settings);
    tcsetattr(result.writer, TCSANOW, &settings);
    return result;
}

// Until nobody has the terminal any more.
void passOn(int terminal) {
    std::array<char, 4096> buffer{};
    ssize_t got = 0;
    while ((got = read(terminal, buffer.data(), buffer.size())) > 0 &&
           write(STDOUT_FILENO, buffer.data(), static_cast<std::size_t>(got)) == got) {
    }
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
    const Terminal terminal = arguments.terminal ? openTerminal() : Terminal{};
    // The sandbox's mounts are shared, so that the namespace's copies follow them.
    if (unshare(CLONE_NEWNS | CLONE_NEWPID) != 0) {
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
            close(terminal.reader);
        }
        runInit(arguments);
    }
    close(alive[0]);
    close(arguments.reportFd);
    close(terminal.writer);
    if (arguments.terminal) {
        passOn(terminal.reader);
    }
    dropStandardStreams();
    int status = 0;
    waitpid(init, &status, 0);
    _exit(exitStatusOf(status));
}
