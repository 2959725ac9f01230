// A second implementation of the search for packages.
#include "tests/fuzz/file_tree_model.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "tests/unit/listing.h"

namespace test_support {

namespace fs = std::filesystem;

bool TreeModel::accepts(const std::string& path) {
    offered.push_back(path);
    return std::none_of(rejected.begin(), rejected.end(), [&](const std::string& text) {
        return path.find(text) != std::string::npos;
    });
}

void TreeModel::enter(const std::string& directory) {
    const fs::path real = fs::canonical(directory);
    if (std::find(inside.begin(), inside.end(), real) != inside.end()) {
        ++loops;
        return;
    }
    inside.push_back(real);
    for (const std::string& name : deliveredNames(directory)) {
        const std::string path = directory + "/" + name;
        std::error_code gone;
        const fs::file_status status = fs::status(path, gone);
        if (gone || !fs::exists(status)) {
            continue;
        }
        if (fs::is_directory(status)) {
            enter(path);
        }
        if (path.find(".psb") != std::string::npos && accepts(path)) {
            list.push_back(path);
            if (list.size() >= 30) {
                break;
            }
        }
    }
    inside.pop_back();
}

std::vector<FileEntry> TreeModel::entries() const {
    std::vector<FileEntry> result;
    for (const std::string& path : list) {
        struct stat64 status {};
        EXPECT_EQ(stat64(path.c_str(), &status), 0) << path;
        const std::string relative = path.substr(root.size() + 1);
        const std::size_t slash = relative.rfind('/');
        result.push_back({S_ISDIR(status.st_mode) ? 0U : 1U, relative.substr(slash + 1),
                          status.st_size,
                          slash == std::string::npos ? "/" : relative.substr(0, slash)});
    }
    return result;
}

}  // namespace test_support
