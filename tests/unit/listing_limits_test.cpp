// Listings at the limits of path lengths, links and permissions.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/process/descriptor_limit.h"
#include "tests/support/process/dropped_powers.h"
#include "tests/support/process/process_table.h"
#include "tests/support/process/unique_fd.h"
#include "tests/unit/listing.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ListingLimit : public Listing {
protected:
    void TearDown() override { EXPECT_EQ(openDescriptorsOf(getpid()), open_); }

    std::vector<std::string> open_ = openDescriptorsOf(getpid());
};

// Directories called "d" one in the other, deeper than a path can name, and a package in every
// `step`th of them.
void dig(const std::string& root, int depth, int step) {
    UniqueFd at(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int level = 1; level <= depth; ++level) {
        ASSERT_EQ(mkdirat(at.get(), "d", 0700), 0);
        at.reset(openat(at.get(), "d", O_PATH | O_DIRECTORY | O_CLOEXEC));
        ASSERT_TRUE(at);
        if (level % step == 0) {
            const UniqueFd file(openat(at.get(), "x.psb", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            ASSERT_TRUE(file);
        }
    }
}

TEST_F(ListingLimit, reachesTheDepthThatAPathCanName) {
    constexpr rlim_t kDeepest = PATH_MAX / 2;
    if (raiseDescriptorLimit() < kDeepest + 100) {
        GTEST_SKIP() << "this machine allows too few open files for so deep a tree";
    }
    constexpr int kStep = 100;
    dig(stick_.path(), 2500, kStep);
    // "/d" of each level, "/x.psb" and the byte that ends the path.
    const int levels = (PATH_MAX - static_cast<int>(stick_.path().size()) - 7) / 2;
    const std::vector<FileEntry> list = backup("");
    EXPECT_EQ(list.size(), static_cast<std::size_t>(levels / kStep));
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(list.front().location.size(),
              static_cast<std::size_t>(levels / kStep * kStep * 2 - 1));
    EXPECT_EQ(list.back().location.size(), static_cast<std::size_t>(kStep * 2 - 1));
}

TEST_F(ListingLimit, isEmptyForAPathThatIsTooLong) {
    stick_.addFile("a/b.psb");
    for (const std::string& path :
         {std::string(256, 'x'), std::string(5000, 'x'), "a/" + std::string(5000, '/'),
          "a" + std::string(100000, '/')}) {
        EXPECT_THAT(restore(path), IsEmpty());
        EXPECT_THAT(backup(path), IsEmpty());
        EXPECT_THAT(manager_.getRestoreFilesList(path, ""), IsEmpty());
        EXPECT_THAT(manager_.getUpdateFilesList(path, "a"), IsEmpty());
        EXPECT_FALSE(manager_.CreateDirectory(path, "a"));
        EXPECT_FALSE(manager_.DeleteFile(path, "a"));
    }
}

TEST_F(ListingLimit, skipsAnEntryWhosePathIsTooLong) {
    stick_.addFile("a/b");
    stick_.addFile("a/" + std::string(100, 'c'));
    // The directory still has a path, its longer entry has none.
    const std::string directory = "a" + std::string(PATH_MAX - 100 - stick_.path().size(), '/');
    EXPECT_THAT(namesOf(restore(directory)), ElementsAre("b"));
}

TEST_F(ListingLimit, skipsAChainOfTooManyLinks) {
    constexpr int kFollowed = 40;  // by the kernel, for one path
    // When something is mounted meanwhile the kernel starts the path again, twice at most, and goes
    // on counting. What may or may not be followed then is hidden.
    constexpr int kSurelyFollowed = kFollowed / 3;
    const auto name = [](int number) {
        const bool hidden = kSurelyFollowed < number && number <= kFollowed;
        return (hidden ? "." : "") + std::to_string(number);
    };
    stick_.addFile("0/x.psb");
    for (int number = 1; number <= kFollowed + 10; ++number) {
        link(name(number - 1), name(number));
    }
    EXPECT_EQ(restore("").size(), 1U + kSurelyFollowed);
    EXPECT_THAT(namesOf(restore(name(kSurelyFollowed))), ElementsAre("x.psb"));
    EXPECT_THAT(restore(name(kFollowed + 1)), IsEmpty());
    EXPECT_EQ(backup("").size(), 1U + kSurelyFollowed);
    EXPECT_THAT(placesOf(backup(name(kSurelyFollowed))),
                ElementsAre(name(kSurelyFollowed) + " x.psb"));
    EXPECT_THAT(backup(name(kFollowed + 1)), IsEmpty());
}

TEST_F(ListingLimit, isEmptyWithoutReadPermission) {
    stick_.addFile("closed/1.psb");
    stick_.addFile("open/2.psb");
    chmod(stick_.path("closed").c_str(), 0300);
    const DroppedPowers withoutPowers;
    EXPECT_THAT(restore("closed"), IsEmpty());
    EXPECT_THAT(backup("closed"), IsEmpty());
    EXPECT_THAT(namesOf(restore("")), UnorderedElementsAre("closed", "open"));
    EXPECT_THAT(placesOf(backup("")), ElementsAre("open 2.psb"));
}

}  // namespace
}  // namespace test_support
