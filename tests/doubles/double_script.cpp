// The script that the test doubles of the device libraries follow, and the record of their calls.
#include "tests/doubles/double_script.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
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

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

}  // namespace

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') {
            result += "\\n";
        } else if (c == '\\') {
            result += "\\\\";
        } else {
            result += c;
        }
    }
    return result;
}

std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool pair = text[i] == '\\' && i + 1 < text.size();
        if (!pair) {
            result += text[i];
            continue;
        }
        ++i;
        result += text[i] == 'n' ? '\n' : text[i];
    }
    return result;
}

std::string quoted(const char* text) {
    return text != nullptr ? "\"" + std::string(text) + "\"" : "null";
}

Orders::Orders(const std::string& operation) {
    std::ifstream script(pathIn(kScriptVariable));
    for (std::string line; std::getline(script, line);) {
        std::istringstream words(line);
        std::string target;
        Order order;
        words >> target >> order.key;
        words.get();  // the blank before the value, which may hold blanks itself
        std::getline(words, order.value);
        order.value = unescaped(order.value);
        if (target == "*" || target == operation) {
            orders_.push_back(order);
        }
    }
}

bool Orders::has(const std::string& key) const {
    return !all(key).empty();
}

std::vector<std::string> Orders::all(const std::string& key) const {
    std::vector<std::string> values;
    for (const Order& order : orders_) {
        if (order.key == key) {
            values.push_back(order.value);
        }
    }
    return values;
}

std::string Orders::text(const std::string& key, const std::string& otherwise) const {
    const std::vector<std::string> values = all(key);
    return values.empty() ? otherwise : values.back();
}

std::int64_t Orders::number(const std::string& key, std::int64_t otherwise) const {
    return has(key) ? std::strtoll(text(key).c_str(), nullptr, 10) : otherwise;
}

std::uint64_t Orders::size(const std::string& key, std::uint64_t otherwise) const {
    return has(key) ? std::strtoull(text(key).c_str(), nullptr, 10) : otherwise;
}

void Orders::misuseOrWait() const {
    if (has("misuse")) {
        misuseMemory();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(number("delay")));
    while (has("hang") && !exists(text("hang"))) {
        std::this_thread::sleep_for(5ms);
    }
}

std::string recordPath() {
    return pathIn(kRecordVariable);
}

void record(const std::string& kind, const std::string& text) {
    const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
    const std::string line = kind + " " + std::to_string(thread) +
                             (thread == getpid() ? " main " : " worker ") + escaped(text) + "\n";
    const int fd = open(recordPath().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        abort();  // a double that cannot record proves nothing
    }
    close(fd);
}

}  // namespace device_double
