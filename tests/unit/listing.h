// What the tests of the listings share.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "transfer/tf_mngr.h"

namespace test_support {

// A stick, the device behind it, and the manager that lists it.
class Listing : public testing::Test {
protected:
    std::vector<FileEntry> restore(const std::string& directory) {
        return manager_.getRestoreFilesList(stick_.name(), directory);
    }
    std::vector<FileEntry> backup(const std::string& directory) {
        return manager_.getBackupFilesList(stick_.name(), directory);
    }
    std::vector<FileEntry> update(const std::string& directory) {
        return manager_.getUpdateFilesList(stick_.name(), directory);
    }

    // Makes a link on the stick; `target` is taken as it is.
    void link(const std::string& target, const std::string& path) const {
        std::filesystem::create_symlink(target, stick_.path(path));
    }

    Stick stick_{1};
    DeviceDouble device_;
    TfMngr manager_;
};

template <typename Text>
std::vector<std::string> ofEach(const std::vector<FileEntry>& list, Text text) {
    std::vector<std::string> result;
    for (const FileEntry& entry : list) {
        result.push_back(text(entry));
    }
    return result;
}

inline std::vector<std::string> namesOf(const std::vector<FileEntry>& list) {
    return ofEach(list, [](const FileEntry& entry) { return entry.name; });
}

// "LOCATION NAME" each, for lists in which the same name occurs in several places.
inline std::vector<std::string> placesOf(const std::vector<FileEntry>& list) {
    return ofEach(list, [](const FileEntry& entry) { return entry.location + " " + entry.name; });
}

// All fields of each entry in one string.
inline std::vector<std::string> wholly(const std::vector<FileEntry>& list) {
    return ofEach(list, [](const FileEntry& entry) {
        return "kind " + std::to_string(entry.kind) + " name '" + entry.name + "' size " +
               std::to_string(entry.size) + " location '" + entry.location + "' reserved '" +
               entry.reserved + "'";
    });
}

// The visible names of a directory in the order in which readdir64 gives them.
inline std::vector<std::string> deliveredNames(const std::string& directory) {
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

// The paths that a record shows to have been offered to the device manager, in order.
inline std::vector<std::string> offeredPaths(const DeviceDouble& device) {
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
