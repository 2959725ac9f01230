// The device's persistent record, whose second half is the credential for the device manager.
#pragma once

#include <string>
#include <string_view>

namespace test_support {

// Lies at its fixed place for as long as the object lives.
class PersistentRecord {
public:
    static constexpr const char* kPath = "/mnt/usrdata/persistent/pdata.rt_file.ESAT";

    explicit PersistentRecord(std::string_view bytes);
    ~PersistentRecord();
    PersistentRecord(const PersistentRecord&) = delete;
    PersistentRecord& operator=(const PersistentRecord&) = delete;
};

// The 128 bytes of a record with this credential of 64 bytes.
std::string recordWith(const std::string& credential);

}  // namespace test_support
