// What the sanitizers of a started process have to say.
#include "tests/support/process/sanitizer_reports.h"

#include <cstdlib>
#include <filesystem>

#include "tests/support/files/paths.h"

namespace test_support {

std::vector<std::string> SanitizerReports::environment() const {
    std::vector<std::string> result;
    if (!sanitized()) {
        return result;
    }
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
        std::string entry = std::string(name) + "=";
        if (const char* inherited = std::getenv(name)) {
            entry.append(inherited).append(":");
        }
        result.push_back(entry.append("log_path=").append(folder_.path("report")));
    }
    return result;
}

std::string SanitizerReports::text() const {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
        all += readFile(entry.path()) + "\n";
    }
    return all;
}

}  // namespace test_support
