// Where the tests find the project's sources and what was built.
#include "tests/support/paths.h"

#include <cstdlib>
#include <sstream>
#include <string_view>

namespace test_support {
namespace {

std::vector<std::string> emulator() {
    const char* fromEnvironment = std::getenv("MORVANE_EMULATOR");
    std::istringstream words(fromEnvironment != nullptr ? fromEnvironment : MORVANE_TEST_EMULATOR);
    std::vector<std::string> result;
    for (std::string word; words >> word;) {
        result.push_back(word);
    }
    return result;
}

}  // namespace

std::string sourcePath(const std::string& relative) {
    return std::string(MORVANE_TEST_SOURCE_DIR) + "/" + relative;
}

std::string buildPath(const std::string& relative) {
    return std::string(MORVANE_TEST_BUILD_DIR) + "/" + relative;
}

std::vector<std::string> runnable(const std::string& program,
                                  const std::vector<std::string>& arguments) {
    std::vector<std::string> command = emulator();
    command.push_back(program);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

bool emulated() {
    return !emulator().empty();
}

bool sanitized() {
    return !std::string_view(MORVANE_TEST_SANITIZE).empty();
}

}  // namespace test_support
