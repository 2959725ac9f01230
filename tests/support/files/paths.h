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
// or an emulator in front of it when the build is for another processor.
std::vector<std::string> runnable(const std::string& program,
                                  const std::vector<std::string>& arguments = {});

// The same behind `words`, which are a command that runs another.
std::vector<std::string> runnableAfter(std::vector<std::string> words, const std::string& program,
                                       const std::vector<std::string>& arguments = {});

// Absolute path of the running test executable; empty when it cannot be found out.
std::string ownExecutable();

// Whether built programs run under an emulator, where some checks cannot be made.
bool emulated();

// What the reason for a skip begins with when it is the emulator's; the only skips that CI accepts.
constexpr const char* kEmulatorCannot = "the emulator cannot ";

// Whether the build carries sanitizers.
bool sanitized();

// Whether the build counts coverage: then each process has to end by itself, which is when it
// writes its counters.
bool countsCoverage();

}  // namespace test_support
