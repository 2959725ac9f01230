#include "tests/support/files/file_snapshot.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "tests/support/files/files.h"

namespace test_support {

namespace fs = std::filesystem;

namespace {

std::string description(const fs::path& path) {
    const fs::file_status status = fs::symlink_status(path);
    const auto kind = std::to_string(static_cast<int>(status.type()));
    const auto mode = std::to_string(static_cast<unsigned>(status.permissions()));
    switch (status.type()) {
        case fs::file_type::regular:
            return kind + " " + mode + " " + readFile(path);
        case fs::file_type::symlink:
            return kind + " " + fs::read_symlink(path).string();
        default:
            return kind + " " + mode;
    }
}

}  // namespace

FileSnapshot snapshotOf(const std::string& folder) {
    FileSnapshot snapshot{{folder, description(folder)}};
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        snapshot[entry.path()] = description(entry.path());
    }
    return snapshot;
}

std::vector<std::string> changedPaths(const FileSnapshot& before, const FileSnapshot& after) {
    FileSnapshot changed;
    std::set_symmetric_difference(before.begin(), before.end(), after.begin(), after.end(),
                                  std::inserter(changed, changed.end()));
    std::vector<std::string> paths;
    for (const auto& [path, text] : changed) {
        paths.push_back(path);
    }
    return paths;
}

bool addsOnlyDirectories(const FileSnapshot& before, const FileSnapshot& after) {
    const std::vector<std::string> changed = changedPaths(before, after);
    return std::all_of(changed.begin(), changed.end(), [&](const std::string& path) {
        return before.count(path) == 0 && fs::is_directory(fs::symlink_status(path));
    });
}

}  // namespace test_support
