#include "tests/support/process/process_table.h"

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <system_error>

#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;

std::string procPath(pid_t pid, const std::string& name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

// The numbers among the names of a directory; a directory that vanishes has none.
std::vector<int> numbersIn(const std::string& directory) {
    std::vector<int> numbers;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos) {
            numbers.push_back(std::stoi(name));
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::string linkTarget(const std::string& path) {
    std::error_code error;
    return fs::read_symlink(path, error).string();
}

}  // namespace

bool isRunning(pid_t pid) {
    const std::optional<std::string> state = statusField(pid, "State");
    return state && state->front() != 'Z' && state->front() != 'X';
}

std::optional<std::string> statusField(pid_t pid, const std::string& name) {
    for (const std::string& line : readLines(procPath(pid, "status"))) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            const std::size_t begin = line.find_first_not_of(" \t", name.size() + 1);
            return begin == std::string::npos ? "" : line.substr(begin);
        }
    }
    return std::nullopt;
}

std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> children;
    for (const pid_t pid : numbersIn("/proc")) {
        if (statusField(pid, "PPid") == std::to_string(parent)) {
            children.push_back(pid);
        }
    }
    return children;
}

std::vector<pid_t> processesInNamespaceOf(pid_t member) {
    const std::string wanted = linkTarget(procPath(member, "ns/pid"));
    std::vector<pid_t> members;
    for (const pid_t pid : numbersIn("/proc")) {
        if (!wanted.empty() && linkTarget(procPath(pid, "ns/pid")) == wanted) {
            members.push_back(pid);
        }
    }
    return members;
}

std::optional<pid_t> innermostId(pid_t pid) {
    const std::optional<std::string> ids = statusField(pid, "NSpid");
    if (!ids) {
        return std::nullopt;
    }
    return std::stoi(ids->substr(ids->find_last_of(" \t") + 1));
}

std::vector<std::string> openDescriptorsOf(pid_t pid) {
    std::vector<std::string> targets;
    for (const int fd : numbersIn(procPath(pid, "fd"))) {
        targets.push_back(linkTarget(procPath(pid, "fd/" + std::to_string(fd))));
    }
    return targets;
}

std::optional<int> openFlagsOf(pid_t pid, int fd) {
    const std::string label = "flags:";
    for (const std::string& line : readLines(procPath(pid, "fdinfo/" + std::to_string(fd)))) {
        if (line.compare(0, label.size(), label) == 0) {
            return std::stoi(line.substr(label.size()), nullptr, 8);
        }
    }
    return std::nullopt;
}

int threadsOf(pid_t pid) {
    return static_cast<int>(numbersIn(procPath(pid, "task")).size());
}

std::optional<pid_t> lockHolder(const std::string& path) {
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    // The last byte that a file may have: in the way of a lock of the whole file only.
    struct flock lastByte {};
    lastByte.l_type = F_WRLCK;
    lastByte.l_whence = SEEK_SET;
    lastByte.l_start = std::numeric_limits<off_t>::max();
    lastByte.l_len = 1;
    if (!file || fcntl(file.get(), F_GETLK, &lastByte) != 0 || lastByte.l_type != F_WRLCK ||
        lastByte.l_start != 0 || lastByte.l_len != 0) {
        return std::nullopt;
    }
    return lastByte.l_pid;
}

}  // namespace test_support
