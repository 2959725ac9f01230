// What the tests of the listings share.
#pragma once

#include <gtest/gtest.h>

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
    void link(const std::string& target, const std::string& path) const;

    Stick stick_{1};
    DeviceDouble device_;
    TfMngr manager_;
};

std::vector<std::string> namesOf(const std::vector<FileEntry>& list);

// "LOCATION NAME" each, for lists in which the same name occurs in several places.
std::vector<std::string> placesOf(const std::vector<FileEntry>& list);

// All fields of each entry in one text.
std::vector<std::string> wholly(const std::vector<FileEntry>& list);

// The visible names of a directory in the order in which readdir64 gives them.
std::vector<std::string> deliveredNames(const std::string& directory);

// The paths that a record shows to have been offered to the device manager, in order.
std::vector<std::string> offeredPaths(const DeviceDouble& device);

}  // namespace test_support
