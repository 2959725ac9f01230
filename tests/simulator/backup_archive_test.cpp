// Backup and update files: what is written can be read, and nothing else can.
#include "simulator/backup_archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <tuple>
#include <vector>

#include "simulator/device_folder.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/child_process.h"

namespace {

using test_support::readFile;
using test_support::TemporaryDirectory;
using test_support::writeFile;

constexpr std::size_t kStride = 11;  // between the bytes that are tried

class BackupArchive : public testing::Test {
protected:
    Archive read() const {
        const TemporaryDirectory target;
        return unpackArchive(OpenFile(file_, "rbe"), target.path());
    }

    // The reason why the file is refused; empty when it is taken.
    std::string refusal(const std::string& bytes) const {
        writeFile(file_, bytes);
        return refusal();
    }
    std::string refusal() const {
        try {
            read();
            return {};
        } catch (const DeviceError& error) {
            return error.what();
        }
    }

    // That of an archive which tar makes, with these options and members.
    std::string refusalOfTar(const std::vector<std::string>& words) const {
        writeFile(source_.path("manifest"), "[Archive]\nKind=recipes\nDevice=\nTime=\nFirmware=\n");
        std::vector<std::string> tar = {"tar", "-C", source_.path(), "-cf", file_};
        tar.insert(tar.end(), words.begin(), words.end());
        EXPECT_EQ(test_support::runCommand(tar).end, test_support::exited(0));
        return refusal();
    }

    const TemporaryDirectory source_;
    const TemporaryDirectory folder_;
    const std::string file_ = folder_.path("a.psb");
    const Archive content_ = {
        "recipes", "S\xC3\xBC\xC3\x9F \\n=;", "2026-01-05T09:07:03Z", "", {"a"}};
    const std::string small_ = [this] {
        writeStateFile(source_.path("a/b"), "hot");
        return packArchive(content_, source_.path());
    }();
};

TEST_F(BackupArchive, returnsWhatWasWritten) {
    const std::string name = "a/" + std::string(150, 'n') + "/\xFF";
    writeStateFile(source_.path(name), firmwarePayload("1"));
    writeArchive(file_, packArchive(content_, source_.path()));
    const TemporaryDirectory target;
    const Archive read = unpackArchive(OpenFile(file_, "rbe"), target.path());
    EXPECT_EQ(std::tie(read.kind, read.device, read.time, read.firmware),
              std::tie(content_.kind, content_.device, content_.time, content_.firmware));
    EXPECT_THAT(read.members, testing::UnorderedElementsAre("a/b", name));
    EXPECT_EQ(readFile(target.path("a/b")), "hot");
    EXPECT_EQ(readFile(target.path(name)), firmwarePayload("1"));
}

TEST_F(BackupArchive, isRefusedWhenCutAnywhere) {
    for (std::size_t length = 0; length < small_.size(); length += kStride) {
        EXPECT_NE(refusal(small_.substr(0, length)), "") << length << " of " << small_.size();
    }
    EXPECT_NE(refusal(small_.substr(0, small_.size() - 1)), "");
}

// A bit of the frame's header may mean nothing to a reader: then the content is what was written.
TEST_F(BackupArchive, isNeverReadAlteredAfterFlippedBit) {
    std::size_t refused = 0;
    for (std::size_t byte = 0; byte < small_.size(); byte += kStride) {
        std::string altered = small_;
        altered[byte] = static_cast<char>(altered[byte] ^ (1 << (byte % 8)));
        if (!refusal(altered).empty()) {
            ++refused;
            continue;
        }
        EXPECT_EQ(read().members, std::vector<std::string>{"a/b"}) << byte;
    }
    EXPECT_GT(refused, small_.size() / kStride - 2);
}

TEST_F(BackupArchive, isRefusedWhenForeign) {
    for (const std::string& bytes :
         {std::string("no archive"), std::string(100000, '\0'), std::string("\x28\xB5\x2F\xFD", 4),
          firmwarePayload("1"), small_ + "x", "x" + small_}) {
        EXPECT_EQ(refusal(bytes), "not a backup or update file") << bytes.size() << " bytes";
    }
}

using TarCase = std::pair<std::vector<std::string>, std::string>;  // words for tar, the refusal
class ForeignTar : public BackupArchive, public testing::WithParamInterface<TarCase> {};
INSTANTIATE_TEST_SUITE_P(
    Members, ForeignTar,
    testing::Values(TarCase{{"a", "manifest"}, "not a backup or update file"},
                    TarCase{{"--zstd", "a"}, "bad manifest: no Kind"},
                    TarCase{{"--zstd", "manifest", "link"}, "a member is not a plain file"},
                    TarCase{{"--zstd", "manifest", "pipe"}, "a member is not a plain file"},
                    TarCase{{"--zstd", "-P", "--transform=s,^a,../a,", "manifest", "a"},
                            "not a backup or update file"}));

TEST_P(ForeignTar, isRefused) {
    std::filesystem::create_symlink("/etc/passwd", source_.path("link"));
    ASSERT_EQ(mkfifo(source_.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(refusalOfTar(GetParam().first), GetParam().second);
}

TEST_F(BackupArchive, mayBeMadeByTar) {
    EXPECT_EQ(refusalOfTar({"--zstd", "manifest", "a"}), "");
}

TEST_F(BackupArchive, isRefusedWhenNoRegularFile) {
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    EXPECT_EQ(refusal(), "not a regular file");
    EXPECT_THROW(writeArchive(file_, small_), DeviceError);
    EXPECT_TRUE(test_support::exists(file_));
}

TEST_F(BackupArchive, isRefusedUntilItIsWhole) {
    writeStateFile(source_.path("a/large"), firmwarePayload("1"));
    std::size_t steps = 0;
    for (const std::string& bytes : {small_, packArchive(content_, source_.path())}) {
        writeArchive(file_, bytes, [&](std::uint64_t done, std::uint64_t total) {
            ++steps;
            EXPECT_EQ(done, std::filesystem::file_size(file_));
            EXPECT_LE(done, total);
            EXPECT_NE(refusal(), "");
        });
        EXPECT_EQ(refusal(), "");
    }
    EXPECT_GT(steps, 10U);
}

TEST_F(BackupArchive, isRemovedWhenStickIsFull) {
    const test_support::Mount stick(folder_.path("small"), "tmpfs", "tmpfs", 0, "size=64k");
    const std::string path = folder_.path("small/a.psb");
    EXPECT_THROW(writeArchive(path, firmwarePayload("1")), DeviceError);
    EXPECT_FALSE(test_support::exists(path));
}

}  // namespace
