// The device's persistent record, whose second half is the credential for the device manager.
#pragma once

#include <string>
#include <string_view>

#include "tests/support/files/files.h"

namespace test_support {

// Lies at its fixed place for as long as the object lives.
struct PersistentRecord : ReplacedFile {
    static constexpr const char* kPath = "/mnt/usrdata/persistent/pdata.rt_file.ESAT";

    explicit PersistentRecord(std::string_view bytes) : ReplacedFile(kPath, bytes) {}
};

// 64 printable bytes of which each is different.
inline std::string credential() {
    std::string bytes;
    for (char c = '!'; bytes.size() < 64; ++c) {
        bytes += c;
    }
    return bytes;
}

// The 128 bytes of a record with this credential of 64 bytes.
inline std::string recordWith(const std::string& credential) {
    return std::string(64, '-') + credential;
}

}  // namespace test_support
