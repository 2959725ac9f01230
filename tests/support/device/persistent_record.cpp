// The device's persistent record.
#include "tests/support/device/persistent_record.h"

#include <unistd.h>

#include <filesystem>

#include "tests/support/files/files.h"

namespace test_support {

namespace {

constexpr std::size_t kHalf = 64;

}  // namespace

PersistentRecord::PersistentRecord(std::string_view bytes) {
    makeDirectories(std::filesystem::path(kPath).parent_path());
    writeFile(kPath, bytes);
}

PersistentRecord::~PersistentRecord() {
    unlink(kPath);
}

std::string recordWith(const std::string& credential) {
    return std::string(kHalf, '-') + credential;
}

}  // namespace test_support
