// Where the tests find the project's sources and what was built.
#include "tests/support/files/paths.h"

#include <cerrno>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <system_error>

namespace test_support {
namespace {

std::vector<std::string> emulator() {
    std::istringstream words(MORVANE_TEST_EMULATOR);
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

std::vector<std::string> runnableAfter(std::vector<std::string> words, const std::string& program,
                                       const std::vector<std::string>& arguments) {
    for (const std::string& word : runnable(program, arguments)) {
        words.push_back(word);
    }
    return words;
}

std::string ownExecutable() {
    std::error_code error;
    // What an emulator executes is the loader, which gives the program its name.
    const std::filesystem::path path =
        emulated() ? std::filesystem::absolute(program_invocation_name, error)
                   : std::filesystem::read_symlink("/proc/self/exe", error);
    return path.string();
}

bool emulated() {
    return !emulator().empty();
}

bool sanitized() {
    return !std::string_view(MORVANE_TEST_SANITIZE).empty();
}

bool countsCoverage() {
#ifdef MORVANE_COUNTS_COVERAGE
    return true;
#else
    return false;
#endif
}

}  // namespace test_support
