// Names of any bytes, made safe for a terminal and for JSON.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "transferctl/shown_text.h"

namespace transferctl {
namespace {

using namespace std::string_view_literals;
using Pairs = std::vector<std::pair<std::string_view, std::string_view>>;

TEST(ShownText, escapesWhatATerminalWouldActOn) {
    const Pairs pairs{{"plain.psb"sv, "plain.psb"sv},
                      {"\x1b]0;x\x07"sv, "\\x1b]0;x\\x07"sv},
                      {"a\nb\tc\rd"sv, "a\\x0ab\\x09c\\x0dd"sv},
                      {"a\0b"sv, "a\\x00b"sv},
                      {"\x7f"sv, "\\x7f"sv},
                      {"\u009b31m"sv, "\\u009b31m"sv},
                      {"\u202Efdp"sv, "\\u202efdp"sv},
                      {"\u2066\u2069\u200f\u061c"sv, "\\u2066\\u2069\\u200f\\u061c"sv},
                      {"\u2028\u2029"sv, "\\u2028\\u2029"sv},
                      {"\U000e0041"sv, "\\U000e0041"sv},
                      {"a\\x1b"sv, "a\\\\x1b"sv},
                      {"%n%s"sv, "%n%s"sv},
                      {"-rf"sv, "-rf"sv},
                      {"日本 é \u200d"sv, "日本 é \u200d"sv}};
    for (const auto& [bytes, shown] : pairs) {
        EXPECT_EQ(shownSafely(bytes), shown);
    }
}

TEST(ShownText, escapesEachByteThatIsNotUtf8) {
    const Pairs pairs{{"a\xff\xfe"sv, "a\\xff\\xfe"sv},
                      {"\x9b"sv, "\\x9b"sv},  // C1 as a single byte
                      {"\xc0\x9b"sv, "\\xc0\\x9b"sv},  // too long a form
                      {"\xed\xa0\x80"sv, "\\xed\\xa0\\x80"sv},  // a surrogate
                      {"\xe2\x82"sv, "\\xe2\\x82"sv},  // cut off
                      {"\xf4\x90\x80\x80"sv, "\\xf4\\x90\\x80\\x80"sv}};
    for (const auto& [bytes, shown] : pairs) {
        EXPECT_EQ(shownSafely(bytes), shown);
    }
}

TEST(ShownText, showsNoByteOfAnyValueThatIsAControl) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    const std::string shown = shownSafely(all);
    EXPECT_NE(g_utf8_validate(shown.data(), static_cast<gssize>(shown.size()), nullptr), FALSE);
    for (const char byte : shown) {
        EXPECT_TRUE(byte >= ' ' && byte <= '~') << static_cast<int>(byte);
    }
}

TEST(DisplayWidth, countsColumnsAndNotBytes) {
    EXPECT_EQ(displayWidth("abc"), 3U);
    EXPECT_EQ(displayWidth("日本語"), 6U);
    EXPECT_EQ(displayWidth("e\u0301"), 1U);
    EXPECT_EQ(displayWidth("\u200d"), 0U);
}

TEST(SafeJson, keepsItsMeaningWithoutUnsafeCharacters) {
    EXPECT_EQ(safeJson("{\"a\":\"\u202e\u009b\"}"), "{\"a\":\"\\u202e\\u009b\"}");
    EXPECT_EQ(safeJson("\"\U000e0041\""), "\"\\udb40\\udc41\"");
    EXPECT_EQ(safeJson("\"日本\""), "\"日本\"");
}

}  // namespace
}  // namespace transferctl
