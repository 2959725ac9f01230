// The log object that the service hands to the device library: the credential it reads on demand.
#include "transfer/console_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>

#include "tests/support/device/persistent_record.h"
#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

constexpr int kRead = 0;
constexpr int kNoRecord = -1;
constexpr int kShortRecord = -2;

class Credential : public testing::Test {
protected:
    int read() { return log_.readCredential(&out_); }
    bool isUntouched() const { return out_ == kUntouched; }

    static constexpr const char* kUntouched = "untouched";
    CConsoleLog log_;
    const char* out_ = kUntouched;
};

TEST_F(Credential, isSecondHalfOfRecord) {
    const PersistentRecord record(recordWith(credential()));
    EXPECT_EQ(read(), kRead);
    EXPECT_EQ(out_, credential());
}

TEST_F(Credential, isMissingWithoutRecord) {
    EXPECT_EQ(read(), kNoRecord);
    EXPECT_TRUE(isUntouched());
}

TEST_F(Credential, takes128BytesOrMore) {
    const std::string bytes = recordWith(credential()) + std::string(1000, 'x');
    for (const std::size_t length : {0U, 1U, 64U, 127U}) {
        const PersistentRecord record(bytes.substr(0, length));
        EXPECT_EQ(read(), kShortRecord) << length;
        EXPECT_TRUE(isUntouched()) << length;
    }
    for (const std::size_t length : {128U, 129U, 1000U}) {
        const PersistentRecord record(bytes.substr(0, length));
        EXPECT_EQ(read(), kRead) << length;
        EXPECT_EQ(out_, credential()) << length;
        out_ = kUntouched;
    }
}

TEST_F(Credential, isMissingInDirectory) {
    makeDirectories(PersistentRecord::kPath);
    EXPECT_EQ(read(), kShortRecord);
    EXPECT_TRUE(isUntouched());
    std::filesystem::remove(PersistentRecord::kPath);
}

TEST_F(Credential, endsAtZeroByte) {
    const PersistentRecord record(recordWith("short" + std::string(59, '\0')));
    EXPECT_EQ(read(), kRead);
    EXPECT_STREQ(out_, "short");
}

TEST_F(Credential, isReadAgainOnEachDemand) {
    const PersistentRecord first(recordWith(std::string(64, 'a')));
    ASSERT_EQ(read(), kRead);
    const char* kept = out_;
    CConsoleLog other;
    const PersistentRecord second(recordWith(std::string(64, 'b')));
    const char* fromOther = nullptr;
    ASSERT_EQ(other.readCredential(&fromOther), kRead);
    EXPECT_EQ(fromOther, std::string(64, 'b'));
    EXPECT_EQ(kept, std::string(64, 'a')) << "one log has written into another";
    EXPECT_EQ(read(), kRead);
    EXPECT_EQ(out_, std::string(64, 'b'));
}

// A stream with a buffer would read on, and leave a copy in freed memory.
TEST_F(Credential, isReadWithoutBuffer) {
    const std::string record = recordWith(credential());
    const ReplacedFile place(PersistentRecord::kPath);
    ASSERT_EQ(mkfifo(PersistentRecord::kPath, 0600), 0);
    const UniqueFd pipe(open(PersistentRecord::kPath, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    const std::string twice = record + record;
    ASSERT_EQ(write(pipe.get(), twice.data(), twice.size()), 256);
    EXPECT_EQ(read(), kRead);
    std::array<char, 256> left{};
    EXPECT_EQ(::read(pipe.get(), left.data(), left.size()), 128);
}

TEST_F(Credential, isClearedWithLog) {
    const PersistentRecord record(recordWith(credential()));
    alignas(CConsoleLog) std::array<char, sizeof(CConsoleLog)> memory{};
    auto* const log = new (memory.data()) CConsoleLog;
    ASSERT_EQ(log->readCredential(&out_), kRead);
    const std::string_view bytes(memory.data(), memory.size());
    ASSERT_NE(bytes.find(credential()), std::string_view::npos);
    log->~CConsoleLog();
    EXPECT_EQ(bytes.find(credential().substr(0, 8)), std::string_view::npos);
}

// Counts the destructions and whether the memory was freed with them.
class CountedLog : public CConsoleLog {
public:
    ~CountedLog() override { ++destroyed; }
    static void operator delete(void* object) {
        ++freed;
        ::operator delete(object);
    }

    static inline int destroyed = 0;
    static inline int freed = 0;
};

TEST(ConsoleLog, isDestroyedInSlot7AndFreedAsWellInSlot8) {
    using Slot = void (*)(void*);
    auto* log = new CountedLog;
    const Slot* slots = nullptr;
    std::memcpy(&slots, log, sizeof slots);
    slots[7](log);
    EXPECT_EQ(CountedLog::destroyed, 1);
    EXPECT_EQ(CountedLog::freed, 0);
    new (log) CountedLog;
    slots[8](log);
    EXPECT_EQ(CountedLog::destroyed, 2);
    EXPECT_EQ(CountedLog::freed, 1);
}

}  // namespace
}  // namespace test_support
