// Columns, units and the progress line.
#include <gtest/gtest.h>

#include "transferctl/backup_watch.h"
#include "transferctl/shown_text.h"
#include "transferctl/table.h"
#include "transferctl/units.h"

namespace transferctl {
namespace {

using namespace std::chrono_literals;

Table example() {
    Table table({{"NAME", Column::Side::kLeft}, {"SIZE", Column::Side::kRight}});
    table.add({textCell("日本\n"), {"1.0 KiB", "1024"}});
    table.add({textCell("語"), {"-", "-"}});
    return table;
}

TEST(Table, alignsByDisplayWidth) {
    EXPECT_EQ(example().aligned(),
              "NAME         SIZE\n"
              "日本\\x0a  1.0 KiB\n"
              "語              -\n");
}

TEST(Table, separatesExactValuesByTabs) {
    EXPECT_EQ(example().tabbed(), "日本\\x0a\t1024\n語\t-\n");
}

TEST(Table, withoutRowsIsEmptyAndWithoutTrailingBlanks) {
    const Table empty({{"NAME", Column::Side::kLeft}});
    EXPECT_EQ(empty.aligned(), "");
    EXPECT_EQ(empty.tabbed(), "");
    Table oneColumn({{"LONGTITLE", Column::Side::kLeft}});
    oneColumn.add({textCell("a")});
    EXPECT_EQ(oneColumn.aligned(), "LONGTITLE\na\n");
}

TEST(Units, areThoseThatPeopleRead) {
    EXPECT_EQ(humanSize(0), "0 bytes");
    EXPECT_EQ(humanSize(1536), "1.5 KiB");
    EXPECT_EQ(humanSize(16777216), "16.0 MiB");
    EXPECT_EQ(humanSize(~0ULL), "16.0 EiB");
    EXPECT_EQ(humanRate(3 << 20, 2s), "1.5 MiB/s");
    EXPECT_EQ(humanRate(1, 0ms), "-");
    EXPECT_EQ(humanDuration(5999ms), "0:05");
    EXPECT_EQ(humanDuration(3723s), "1:02:03");
    EXPECT_EQ(humanShare(1, 3), "33 %");
    EXPECT_EQ(humanShare(0, 0), "-");
    EXPECT_EQ(humanShare(~0ULL, ~0ULL), "100 %");
}

TEST(ProgressLine, showsBytesRateAndTimeBesideAMarkThatWanders) {
    EXPECT_EQ(progressLine(1 << 20, 1s, 60),
              "[    ======                    ]  1.0 MiB  1.0 MiB/s  0:01");
    EXPECT_EQ(progressLine(1 << 20, 8s, 60),
              "[                ======        ]  1.0 MiB  128.0 KiB/s  0:08");
}

TEST(ProgressLine, fitsTerminalsOfAnyWidth) {
    for (std::size_t width = 0; width < 100; ++width) {
        for (const auto elapsed : {0ms, 1250ms, 100000ms}) {
            EXPECT_LE(displayWidth(progressLine(12345678, elapsed, width)), width);
        }
    }
}

}  // namespace
}  // namespace transferctl
