// The script that the test doubles of the device libraries follow, and the record of their calls.
#include "tests/doubles/double_script.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace device_double {
namespace {

using namespace std::chrono_literals;

std::string pathIn(const char* variable) {
    const char* path = std::getenv(variable);
    return path != nullptr ? path : "";
}

// Reads memory after giving it back, for tests of what notices that.
void misuseMemory() {
    char* volatile memory = static_cast<char*>(std::malloc(1));
    std::free(memory);
    [[maybe_unused]] const volatile char lost = *memory;  // NOLINT: the point of it
}

}  // namespace

std::string quoted(const char* string) {
    return string != nullptr ? "\"" + std::string(string) + "\"" : "null";
}

Orders::Orders(const std::string& operation) {
    std::ifstream script(pathIn(kScriptVariable));
    std::string target;
    std::string key;
    std::string value;
    while (script >> target >> key && script.get() == ' ' && std::getline(script, value, '\0')) {
        if (target == "*" || target == operation) {
            orders_.emplace_back(key, value);
        }
    }
}

bool Orders::has(const std::string& key) const {
    return !all(key).empty();
}

std::vector<std::string> Orders::all(const std::string& key) const {
    std::vector<std::string> values;
    for (const auto& [name, value] : orders_) {
        if (name == key) {
            values.push_back(value);
        }
    }
    return values;
}

std::string Orders::value(const std::string& key, const std::string& otherwise) const {
    const std::vector<std::string> values = all(key);
    return values.empty() ? otherwise : values.back();
}

std::int64_t Orders::number(const std::string& key) const {
    // It takes a sign as well, and sizes of 64 bits.
    return static_cast<std::int64_t>(std::strtoull(value(key).c_str(), nullptr, 10));
}

void Orders::misuseOrWait() const {
    if (has("misuse")) {
        misuseMemory();
    }
    while (has("hang") && access(value("hang").c_str(), F_OK) != 0) {
        std::this_thread::sleep_for(5ms);
    }
}

std::string recordPath() {
    return pathIn(kRecordVariable);
}

void record(const std::string& kind, const std::string& entry) {
    const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
    const std::string line = kind + " " + std::to_string(thread) +
                             (thread == getpid() ? " main " : " worker ") + entry + '\0';
    const int fd = open(recordPath().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        abort();  // a double that cannot record proves nothing
    }
    close(fd);
}

}  // namespace device_double
