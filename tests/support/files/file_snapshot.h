// What lies below a folder at one moment, to see what a call has changed.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace test_support {

// Path -> kind, mode and contents (or a link's target) of a folder and of everything below it.
// Links are not followed, mounts are.
using FileSnapshot = std::map<std::string, std::string>;
FileSnapshot snapshotOf(const std::string& folder);

// The paths that only one of them has, or that differ.
std::vector<std::string> changedPaths(const FileSnapshot& before, const FileSnapshot& after);

// Whether nothing is gone, nothing has changed, and what is new are directories.
bool addsOnlyDirectories(const FileSnapshot& before, const FileSnapshot& after);

}  // namespace test_support
