// Text, tables and numbers as people and programs read them.
#include "transferctl/output.h"

#include <gtest/gtest.h>

#include <utility>

namespace transferctl {
namespace {

using namespace std::chrono_literals;
using namespace std::string_view_literals;
using Pairs = std::vector<std::pair<std::string_view, std::string_view>>;

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

TEST(SafeText, escapesWhatATerminalActsOn) {
    for (const auto& [bytes, safe] : Pairs{{"plain.psb"sv, "plain.psb"sv},
                                           {"\x1b]0;x\x07"sv, "\\x1b]0;x\\x07"sv},
                                           {"a\nb\tc\rd"sv, "a\\x0ab\\x09c\\x0dd"sv},
                                           {"a\0b"sv, "a\\x00b"sv},
                                           {"\x7f"sv, "\\x7f"sv},
                                           {"\u009b31m"sv, "\\u009b31m"sv},
                                           {"\u202Efdp"sv, "\\u202efdp"sv},
                                           {"\u2066\u061c"sv, "\\u2066\\u061c"sv},
                                           {"\u2028\u2029"sv, "\\u2028\\u2029"sv},
                                           {"\U000e0041"sv, "\\U000e0041"sv},
                                           {"a\\x1b"sv, "a\\\\x1b"sv},
                                           {"%n%s -rf"sv, "%n%s -rf"sv},
                                           {"日本 é \u200c\u200d"sv, "日本 é \u200c\u200d"sv}}) {
        EXPECT_EQ(safeText(bytes), safe);
    }
}

TEST(SafeText, escapesEachByteThatIsNotUtf8) {
    for (const auto& [bytes, safe] : Pairs{{"a\xff\xfe"sv, "a\\xff\\xfe"sv},
                                           {"\x9b"sv, "\\x9b"sv},  // a C1 control as one byte
                                           {"\xc0\x9b"sv, "\\xc0\\x9b"sv},  // an overlong form
                                           {"\xed\xa0\x80"sv, "\\xed\\xa0\\x80"sv},  // a surrogate
                                           {"\xe2\x82"sv, "\\xe2\\x82"sv},  // cut off
                                           {"\xf4\x90\x80\x80"sv, "\\xf4\\x90\\x80\\x80"sv}}) {
        EXPECT_EQ(safeText(bytes), safe);
    }
}

TEST(SafeJson, escapesWhatATerminalActsOnAsUtf16) {
    EXPECT_EQ(safeJson("{\"a\":\"\u202e\u009b\"}"), "{\"a\":\"\\u202e\\u009b\"}");
    EXPECT_EQ(safeJson("\"\U000e0041\""), "\"\\udb40\\udc41\"");
    EXPECT_EQ(safeJson("\"日本\\\""), "\"日本\\\"");
}

TEST(DisplayWidth, countsColumns) {
    EXPECT_EQ(displayWidth("abc"), 3U);
    EXPECT_EQ(displayWidth("日本語"), 6U);
    EXPECT_EQ(displayWidth("e\u0301"), 1U);
}

}  // namespace
}  // namespace transferctl
