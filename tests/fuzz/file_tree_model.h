// A second implementation of the search for packages, to compare the first with.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "transfer/records.h"

namespace test_support {

// One search for backups below a directory of a stick; enter() does it.
struct TreeModel {
    std::string root;  // of the stick
    std::vector<std::string> rejected;  // substrings of paths that the device manager rejects

    std::vector<std::string> list{};  // the paths that are listed
    std::vector<std::string> offered{};  // the paths that the device manager is asked about
    std::vector<std::filesystem::path> inside{};  // the directories on the current path
    int loops = 0;

    void enter(const std::string& directory);

    // The listed paths as the listing should describe them.
    std::vector<FileEntry> entries() const;

private:
    bool accepts(const std::string& path);
};

}  // namespace test_support
