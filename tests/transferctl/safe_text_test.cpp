// Text of any bytes made safe for a terminal and in JSON.
#include "transferctl/safe_text.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace transferctl {
namespace {

using namespace std::string_view_literals;
using Pairs = std::vector<std::pair<std::string_view, std::string_view>>;

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
