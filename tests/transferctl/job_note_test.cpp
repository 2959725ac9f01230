// The note of the last job, and that nobody else can put one there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "tests/support/files/files.h"
#include "transferctl/job_note.h"

namespace transferctl {
namespace {

const JobNote kNote{{":1.7", "bus", "boot"}, "backup", "USB_X60.1:a\nb ]\\.psb"};

class NoteFile : public testing::Test {
protected:
    std::string folder() const { return folder_.path("transferctl"); }
    std::string file() const { return folder() + "/last-job"; }

    const test_support::TemporaryDirectory folder_;
};

TEST(NoteText, comesBackAsItWas) {
    const std::optional<JobNote> back = decodeNote(encodeNote(kNote));
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->life == kNote.life);
    EXPECT_EQ(back->job, kNote.job);
    EXPECT_EQ(back->file, kNote.file);
}

TEST(NoteText, ofAnyOtherKindIsNoNote) {
    for (const char* const text : {"", "\xff", "[Job]", "[Other]\nOwner=:1.7", "Owner=:1.7"}) {
        EXPECT_FALSE(decodeNote(text)) << text;
    }
}

TEST(Life, isAnotherWithAnotherOwnerBusOrBoot) {
    EXPECT_FALSE(kNote.life == (Life{":1.8", "bus", "boot"}));
    EXPECT_FALSE(kNote.life == (Life{":1.7", "sub", "boot"}));
    EXPECT_FALSE(kNote.life == (Life{":1.7", "bus", "toob"}));
}

TEST_F(NoteFile, isKeptInAFolderForItsUserOnly) {
    const JobNoteFile note(folder());
    EXPECT_FALSE(note.read());
    note.write(kNote);
    ASSERT_TRUE(note.read());
    EXPECT_EQ(note.read()->file, kNote.file);
    struct stat status {};
    ASSERT_EQ(stat(folder().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    ASSERT_EQ(stat(file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_TRUE(readJobNote(folder()));
    note.remove();
    EXPECT_FALSE(note.read());
    EXPECT_FALSE(readJobNote(folder()));
}

TEST_F(NoteFile, isHeldByOneAtATime) {
    const JobNoteFile first(folder());
    try {
        const JobNoteFile second(folder());
        ADD_FAILURE() << "both hold it";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::operation_would_block);
    }
}

TEST_F(NoteFile, isNotKeptBehindALinkOrWhereOthersMayEnter) {
    std::filesystem::create_directory_symlink(folder_.path(), folder());
    EXPECT_THROW(JobNoteFile{folder()}, std::system_error);
    EXPECT_FALSE(readJobNote(folder()));
    std::filesystem::remove(folder());
    test_support::makeDirectories(folder());
    ASSERT_EQ(chmod(folder().c_str(), 0750), 0);
    EXPECT_THROW(JobNoteFile{folder()}, std::system_error);
    test_support::writeFile(folder_.path("plain"), "");
    EXPECT_THROW(JobNoteFile{folder_.path("plain")}, std::system_error);
}

TEST_F(NoteFile, isWrittenBesideALinkAndNotThroughIt) {
    const std::string victim = folder_.path("victim");
    test_support::writeFile(victim, encodeNote(kNote));
    const JobNoteFile note(folder());
    std::filesystem::create_symlink(victim, file());
    std::filesystem::create_symlink(victim, folder() + "/last-job.new");
    EXPECT_THROW(note.read(), std::system_error);
    JobNote other = kNote;
    other.job = "restore";
    note.write(other);
    EXPECT_EQ(test_support::readFile(victim), encodeNote(kNote));
    ASSERT_TRUE(note.read());
    EXPECT_EQ(note.read()->job, "restore");
}

TEST_F(NoteFile, thatHoldsRubbishOrIsAPipeIsNoNote) {
    const JobNoteFile note(folder());
    test_support::writeFile(file(), std::string(100000, 'x'));
    EXPECT_FALSE(note.read());
    std::filesystem::remove(file());
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    EXPECT_FALSE(note.read());  // and does not wait for a writer
}

TEST(NoteFolder, liesWhereTheUsersSessionKeepsItsFiles) {
    setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
    EXPECT_EQ(noteFolder(), "/run/user/7/transferctl");
    setenv("XDG_RUNTIME_DIR", "relative", 1);
    EXPECT_EQ(noteFolder(), "/run/transferctl");  // root's, as everyone is in the sandbox
    unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(noteFolder(), "/run/transferctl");
}

}  // namespace
}  // namespace transferctl
