// The working list of the listings by itself.
#include "transfer/entry_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/listing.h"

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kDirectory = FileEntry::kDirectory;
constexpr std::uint32_t kOther = FileEntry::kOther;

TEST(EntryList, holdsEverythingOfItsEntries) {
    EntryList list;
    list.append(kOther, "a.psb", 5'000'000'000, "backups");
    list.append(kDirectory, "", -1, "");
    list.append(7, "\xFF name", 0, "a/b");
    list.append(kOther, "b", 1, "backups");
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(list[0].name, "a.psb");
    EXPECT_EQ(list[2].location, "a/b");
    EXPECT_THAT(wholly(list.records()),
                ElementsAre("kind 1 name 'a.psb' size 5000000000 location 'backups' reserved ''",
                            "kind 0 name '' size -1 location '' reserved ''",
                            "kind 7 name '\xFF name' size 0 location 'a/b' reserved ''",
                            "kind 1 name 'b' size 1 location 'backups' reserved ''"));
}

TEST(EntryList, putsDirectoriesFirstFromAPlaceOnAndKeepsBothGroupsInTheirOrder) {
    EntryList list;
    list.append(kOther, "before", 0, "/");
    for (const char* name : {"d1", "f1", "f2", "d2", "f3"}) {
        list.append(*name == 'd' ? kDirectory : kOther, name, 0, "x");
    }
    list.putDirectoriesFirst(1);
    EXPECT_THAT(placesOf(list.records()),
                ElementsAre("/ before", "x d1", "x d2", "x f1", "x f2", "x f3"));
}

TEST(EntryList, isEmptyOnceClearedAndTakesEntriesAgain) {
    EntryList list;
    list.append(kOther, "a", 0, "x");
    list.clear();
    EXPECT_TRUE(list.empty());
    EXPECT_THAT(list.records(), IsEmpty());
    list.append(kOther, "b", 0, "y");
    EXPECT_THAT(placesOf(list.records()), ElementsAre("y b"));
}

TEST(EntryList, copiesAreOfTheMoment) {
    EntryList list;
    list.append(kOther, "a", 0, "x");
    const std::vector<FileEntry> copy = list.records();
    list.clear();
    EXPECT_THAT(placesOf(copy), ElementsAre("x a"));
}

}  // namespace
}  // namespace test_support
