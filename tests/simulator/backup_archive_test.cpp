// Backup and update files: what is written can be read, and nothing else can.
#include "simulator/backup_archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <tuple>
#include <vector>

#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/child_process.h"

namespace {

using test_support::readFile;
using test_support::TemporaryDirectory;
using test_support::writeFile;

// Bytes that do not compress.
std::string noise(std::size_t count) {
    std::mt19937 generator(1);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(generator()); });
    return bytes;
}

class BackupArchive : public testing::Test {
protected:
    // The reason why readArchive refuses the file; empty when it takes it.
    std::string refusal() const { return refusalOf(file_); }
    static std::string refusalOf(const std::string& path) {
        try {
            readArchive(OpenFile(path, "rbe"));
            return {};
        } catch (const DeviceError& error) {
            return error.what();
        }
    }

    const TemporaryDirectory folder_;
    const std::string file_ = folder_.path("a.psb");
    const Archive small_ = {"recipes", "Kitchen", "2026-01-05T09:07:03Z", "1.4.0", {{"a", "hot"}}};
    const Archive large_ = {"recipes", "", "", "", {{"a", noise(300000)}}};
};

TEST_F(BackupArchive, returnsWhatWasWritten) {
    const Archive written = {"recipes",
                             "S\xC3\xBC\xC3\x9F \\n=;",
                             "now",
                             "",
                             {{"empty", ""},
                              {"a/b\xFF", std::string("\0\xFF\n\0", 4)},
                              {std::string(150, 'n') + "/" + std::string(150, 'm'), noise(99999)}}};
    const std::uint64_t size = writeArchive(file_, written);
    EXPECT_EQ(size, std::filesystem::file_size(file_));
    const Archive read = readArchive(OpenFile(file_, "rbe"));
    EXPECT_EQ(read.kind, written.kind);
    EXPECT_EQ(read.device, written.device);
    EXPECT_EQ(read.time, written.time);
    EXPECT_EQ(read.firmware, written.firmware);
    EXPECT_EQ(read.members, written.members);
}

TEST_F(BackupArchive, isRefusedWhenCutAnywhere) {
    writeArchive(file_, small_);
    const std::string whole = readFile(file_);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        writeFile(file_, whole.substr(0, length));
        ASSERT_NE(refusal(), "") << "cut to " << length << " of " << whole.size() << " bytes";
    }
}

// Some bits of a frame mean nothing to a reader: then the content is what was written.
TEST_F(BackupArchive, isNeverReadAlteredAfterFlippedBit) {
    writeArchive(file_, small_);
    const std::string whole = readFile(file_);
    std::size_t refused = 0;
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
        std::string altered = whole;
        altered[bit / 8] = static_cast<char>(altered[bit / 8] ^ (1 << (bit % 8)));
        writeFile(file_, altered);
        if (!refusal().empty()) {
            ++refused;
            continue;
        }
        const Archive read = readArchive(OpenFile(file_, "rbe"));
        EXPECT_EQ(std::tie(read.kind, read.members), std::tie(small_.kind, small_.members)) << bit;
    }
    EXPECT_GT(refused, 7 * whole.size());
}

TEST_F(BackupArchive, isRefusedWhenForeign) {
    writeArchive(file_, small_);
    const std::string whole = readFile(file_);
    for (const std::string& bytes :
         {std::string("no archive"), std::string(100000, '\0'), std::string("\x28\xB5\x2F\xFD", 4),
          noise(50000), whole + "x", "x" + whole}) {
        writeFile(file_, bytes);
        EXPECT_NE(refusal(), "") << bytes.size() << " bytes";
    }
}

// A plain tar has no checksum over its contents.
TEST_F(BackupArchive, isRefusedWhenNotCompressed) {
    writeFile(folder_.path("manifest"), "[Archive]\nKind=recipes\nDevice=\nTime=\nFirmware=\n");
    const std::vector<std::string> tar = {"tar", "-C", folder_.path(), "-cf", file_, "manifest"};
    ASSERT_EQ(test_support::runCommand(tar).end, test_support::exited(0));
    EXPECT_EQ(refusal(), "not a backup or update file");
}

TEST_F(BackupArchive, isRefusedWhenNoRegularFile) {
    const std::string pipe = folder_.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(refusalOf(folder_.path()), "not a regular file");
    EXPECT_EQ(refusalOf(pipe), "not a regular file");
    EXPECT_THROW(writeArchive(pipe, small_), DeviceError);
    EXPECT_TRUE(test_support::exists(pipe));
}

TEST_F(BackupArchive, isRefusedUntilItIsWhole) {
    std::vector<std::uint64_t> sizes;
    for (const Archive& each : {small_, large_}) {
        writeArchive(file_, each, [&](std::uint64_t done, std::uint64_t total) {
            sizes.push_back(std::filesystem::file_size(file_));
            EXPECT_EQ(done, sizes.back());
            EXPECT_LE(done, total);
            EXPECT_NE(refusal(), "");
        });
        EXPECT_EQ(refusal(), "");
    }
    EXPECT_GT(sizes.size(), 10U);
}

TEST_F(BackupArchive, isRemovedWhenStickIsFull) {
    const test_support::Mount stick(folder_.path("small"), "tmpfs", "tmpfs", 0, "size=64k");
    const std::string path = folder_.path("small/a.psb");
    EXPECT_THROW(writeArchive(path, large_), DeviceError);
    EXPECT_FALSE(test_support::exists(path));
}

}  // namespace
