// The log object that the service hands to the device library: the credential it reads on demand.
#include "transfer/console_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
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

// 64 bytes of which each is different.
std::string credential() {
    std::string text;
    for (char c = '0'; text.size() < 64; ++c) {
        text += c;
    }
    return text;
}

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

// ---- what stays in memory ---------------------------------------------------------------------

constexpr std::ptrdiff_t kSecretSize = 64;

// The credential of this test, byte by byte: the test itself must not leave it in the heap.
char byteOfSecret(std::size_t at) {
    return static_cast<char>('0' + at * at % 61);
}

bool isSecret(const char* bytes) {
    std::size_t at = 0;
    while (at < kSecretSize && bytes[at] == byteOfSecret(at)) {
        ++at;
    }
    return at == kSecretSize;
}

// Where the heap of this process begins; null when it has none.
const char* beginOfHeap() {
    for (const std::string& line : readLines("/proc/self/maps")) {
        if (line.find("[heap]") != std::string::npos) {
            // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how the kernel names memory
            return reinterpret_cast<const char*>(std::stoull(line, nullptr, 16));
        }
    }
    return nullptr;
}

// How often the secret lies in the heap, in memory that was given back, too: takes none itself.
int copiesInHeap(const char* begin, const char* end) {
    int copies = 0;
    for (const char* at = begin; at != nullptr && at + kSecretSize <= end; ++at) {
        copies += isSecret(at) ? 1 : 0;
    }
    return copies;
}

TEST_F(Credential, hasNoOtherCopyInHeap) {
    const PersistentRecord record(std::string(2 * kSecretSize, '-'));
    std::array<char, kSecretSize> secret{};
    for (std::size_t at = 0; at < secret.size(); ++at) {
        secret[at] = byteOfSecret(at);
    }
    const UniqueFd file(open(PersistentRecord::kPath, O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(pwrite(file.get(), secret.data(), secret.size(), kSecretSize), kSecretSize);
    const auto log = std::make_unique<CConsoleLog>();
    const char* const heap = beginOfHeap();
    const int result = log->readCredential(&out_);
    const auto* const heapEnd = static_cast<const char*>(sbrk(0));
    const int copies = copiesInHeap(heap, heapEnd);
    ASSERT_EQ(result, kRead);
    EXPECT_TRUE(isSecret(out_));
    const bool logIsThere = std::less_equal<>()(heap, out_) && std::less<>()(out_, heapEnd);
    EXPECT_EQ(copies, heap != nullptr && logIsThere ? 1 : 0);  // a sanitizer has another heap
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

}  // namespace
}  // namespace test_support
