// Ends and restarts the sandbox's message bus.
#include "tests/support/bus/bus_daemon.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <stdexcept>

#include "tests/support/bus/system_bus.h"
#include "tests/support/files/files.h"
#include "tests/support/process/argument_vector.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

constexpr const char* kPidFile = "/run/dbus/pid";
constexpr const char* kSocket = "/run/dbus/system_bus_socket";

// The words of a process's command line.
std::vector<std::string> commandOf(pid_t pid) {
    std::istringstream text(readFile("/proc/" + std::to_string(pid) + "/cmdline"));
    std::vector<std::string> words;
    for (std::string word; std::getline(text, word, '\0');) {
        words.push_back(word);
    }
    return words;
}

bool answers() {
    return SystemBus::hasOwner("org.freedesktop.DBus");
}

}  // namespace

BusOutage::BusOutage() {
    const std::string text = readFile(kPidFile);
    const pid_t daemon = text.empty() ? 0 : std::stoi(text);
    command_ = daemon > 1 ? commandOf(daemon) : std::vector<std::string>();
    if (command_.empty() || kill(daemon, SIGKILL) != 0) {
        throw std::runtime_error("the sandbox has no message bus to end");
    }
    waitUntil([&] { return !isRunning(daemon); });
    unlink(kPidFile);
    unlink(kSocket);
}

BusOutage::~BusOutage() {
    start();
}

void BusOutage::start() {
    if (answers()) {
        return;
    }
    std::vector<char*> arguments = argumentVector(command_);
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&quiet, fd, "/dev/null", O_RDWR, 0);
    }
    // Not ended with the test: the bus belongs to the sandbox.
    pid_t pid = 0;
    posix_spawnp(&pid, arguments[0], &quiet, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&quiet);
    waitUntil(answers);
    waitpid(pid, nullptr, WNOHANG);  // the launcher, when the daemon put itself in the background
}

}  // namespace test_support
