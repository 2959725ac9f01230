// What the tests of the listings share.
#include "tests/unit/listing.h"

#include <dirent.h>
#include <unistd.h>

#include <memory>

namespace test_support {

void Listing::link(const std::string& target, const std::string& path) const {
    ASSERT_EQ(symlink(target.c_str(), stick_.path(path).c_str()), 0) << path;
}

std::vector<std::string> namesOf(const std::vector<FileEntry>& list) {
    std::vector<std::string> result;
    for (const FileEntry& entry : list) {
        result.push_back(entry.name);
    }
    return result;
}

std::vector<std::string> placesOf(const std::vector<FileEntry>& list) {
    std::vector<std::string> result;
    for (const FileEntry& entry : list) {
        result.push_back(entry.location + " " + entry.name);
    }
    return result;
}

std::vector<std::string> wholly(const std::vector<FileEntry>& list) {
    std::vector<std::string> result;
    for (const FileEntry& entry : list) {
        result.push_back("kind " + std::to_string(entry.kind) + " name '" + entry.name + "' size " +
                         std::to_string(entry.size) + " location '" + entry.location +
                         "' reserved '" + entry.reserved + "'");
    }
    return result;
}

std::vector<std::string> deliveredNames(const std::string& directory) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(directory.c_str()), closedir);
    EXPECT_NE(stream, nullptr) << directory;
    while (const dirent64* entry = stream ? readdir64(stream.get()) : nullptr) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    return names;
}

std::vector<std::string> offeredPaths(const DeviceDouble& device) {
    std::vector<std::string> paths;
    for (const std::string& call : device.calls()) {
        for (const std::string check : {".checkBackupFile(\"", ".checkFirmwareFile(\""}) {
            const std::size_t at = call.find(check);
            if (at != std::string::npos) {
                const std::size_t begin = at + check.size();
                paths.push_back(call.substr(begin, call.size() - begin - 2));
            }
        }
    }
    return paths;
}

}  // namespace test_support
