// Tables and numbers as people and programs read them.
#include "transferctl/output.h"

#include <gtest/gtest.h>

namespace transferctl {
namespace {

using namespace std::chrono_literals;

Table example(bool isForPeople) {
    Table table({"NAME", "SIZE", "USED"}, isForPeople);
    table.add({"日本", table.size(1536), table.used(1, 3)});
    table.add({"dir/", "-", table.used(0, 0)});
    return table;
}

TEST(Table, alignsByDisplayWidthForPeople) {
    EXPECT_EQ(example(true).text(),
              "NAME     SIZE  USED\n"
              "日本  1.5 KiB  33 %\n"
              "dir/        -     -\n");
}

TEST(Table, separatesExactValuesByTabsForPrograms) {
    EXPECT_EQ(example(false).text(), "日本\t1536\t1\ndir/\t-\t0\n");
}

TEST(Table, isEmptyWithoutRows) {
    EXPECT_EQ(Table({"NAME"}, true).text(), "");
    EXPECT_EQ(Table({"NAME"}, false).text(), "");
}

TEST(HumanSize, hasTheUnitThatFits) {
    EXPECT_EQ(humanSize(0), "0 bytes");
    EXPECT_EQ(humanSize(1536), "1.5 KiB");
    EXPECT_EQ(humanSize(~0ULL), "16.0 EiB");
}

TEST(HumanDuration, isMinutesAndSeconds) {
    EXPECT_EQ(humanDuration(5999ms), "0:05");
    EXPECT_EQ(humanDuration(3723s), "62:03");
}

TEST(JsonNumber, endsAtTheLargestThatReadersTake) {
    EXPECT_EQ(jsonNumber(1ULL << 62U), 1LL << 62U);
    EXPECT_EQ(jsonNumber(~0ULL), 9223372036854775807LL);
}

}  // namespace
}  // namespace transferctl
