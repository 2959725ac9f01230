// What the sanitizers of a started process have to say.
#include "tests/support/sanitizer_reports.h"

#include <cstdlib>
#include <filesystem>

#include "tests/support/paths.h"

namespace test_support {

std::vector<std::string> SanitizerReports::environment() const {
    std::vector<std::string> result;
    if (!sanitized()) {
        return result;
    }
    for (const std::string name :
         {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
        const char* inherited = std::getenv(name.c_str());
        const std::string settings = inherited != nullptr ? std::string(inherited) + ":" : "";
        result.push_back(name + "=" + settings + "log_path=" + folder_.path("report"));
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
