// Where the tests find the project's sources and what was built.
#pragma once

#include <string>
#include <vector>

namespace test_support {

// Absolute path of `relative` below the source folder.
std::string sourcePath(const std::string& relative);

// Absolute path of `relative` below the build folder.
std::string buildPath(const std::string& relative);

// The command that runs a built program, followed by that program's arguments: the program itself,
// or an emulator in front of it when the build is for another processor. The environment variable
// MORVANE_EMULATOR, when set, replaces the emulator command that the build was configured with.
std::vector<std::string> runnable(const std::string& program,
                                  const std::vector<std::string>& arguments = {});

// Whether built programs run under an emulator, where some checks cannot be made.
bool emulated();

// Whether the build carries sanitizers.
bool sanitized();

}  // namespace test_support
