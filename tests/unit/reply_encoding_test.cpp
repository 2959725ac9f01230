// The encoders as pure functions: every shape of a list, compared with golden texts and with a
// plain encoder.
#include "transfer/reply_encoding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/files/golden.h"
#include "tests/unit/naive_reply.h"

namespace test_support {
namespace {

using reply::EncodedList;
using reply::KindWord;

using Sticks = std::vector<UsbStickInfo>;
using Files = std::vector<FileEntry>;

std::string text(GVariant* floating) {
    const VariantPtr value(g_variant_ref_sink(floating));
    return asText(value.get());
}

// What a golden file would hold of the replies with these lists.
std::string arrayReply(const EncodedList& list) {
    const VariantPtr reply(g_variant_ref_sink(g_variant_new("(@av)", list.value)));
    return typeAndText(reply.get());
}

std::string stickTupleReply(const EncodedList& list) {
    const VariantPtr reply(
        g_variant_ref_sink(g_variant_new("(vu)", list.value, static_cast<guint32>(list.records))));
    return typeAndText(reply.get());
}

std::string fileTupleReply(const EncodedList& list) {
    const VariantPtr reply(
        g_variant_ref_sink(g_variant_new("(vi)", list.value, static_cast<gint32>(list.records))));
    return typeAndText(reply.get());
}

struct StickCase {
    std::string situation;
    Sticks sticks;
};

std::vector<StickCase> stickCases() {
    const UsbStickInfo first{"USB_X60.1", "USB_X60.1", 8388608, 8388608};
    const UsbStickInfo second{"USB_X60.2", "USB_X60.2", 4194304, 4194304};
    const UsbStickInfo third{"USB_X60.3", "USB_X60.3", 16777216, 15728640};
    const UsbStickInfo fourth{"USB_X60.4", "USB_X60.4", 2097152, 2097152};
    return {{"without a stick", {}},
            {"with one stick", {third}},
            {"with two sticks", {first, third}},
            {"with four sticks", {first, second, third, fourth}}};
}

TEST(ReplyEncoding, ofSticksIsTheGoldenText) {
    const auto golden = goldenReplies("stick_replies.txt");
    for (const auto& [situation, sticks] : stickCases()) {
        EXPECT_EQ(arrayReply(reply::stickArray(sticks)),
                  golden.at("GetUSBStickDetails() " + situation));
        EXPECT_EQ(stickTupleReply(reply::stickTuple(sticks)),
                  golden.at("GetStickDetailsWithCount() " + situation));
    }
}

struct FileCase {
    std::string directory;
    Files entries;
};

const FileCase kNoFile{"level/none", {}};

std::vector<FileCase> levelCases() {
    return {kNoFile,
            {"level/one", {{1, "a.psb", 7, sharedText("level/one")}}},
            {"level/two",
             {{0, "photos", 40, sharedText("level/two")},
              {1, "notes.txt", 5'000'000'000, sharedText("level/two")}}}};
}

std::vector<FileCase> treeCases() {
    return {kNoFile,
            {"tree/one", {{1, "a.psb.fwf", 7, sharedText("tree/one")}}},
            {"tree/two",
             {{1, "a", 5, sharedText("tree/two/set.psb.fwf")},
              {0, "set.psb.fwf", 60, sharedText("tree/two")}}},
            {"tree/many",
             {{1, "a", 0, sharedText("tree/many/x.psb.fwf/y/z")},
              {0, "z", 60, sharedText("tree/many/x.psb.fwf/y")},
              {0, "y", 60, sharedText("tree/many/x.psb.fwf")},
              {0, "x.psb.fwf", 60, sharedText("tree/many")}}}};
}

std::string onStick(const std::string& method, const std::string& directory) {
    return method + "('USB_X60.1', '" + directory + "')";
}

TEST(ReplyEncoding, ofADirectoryIsTheGoldenText) {
    const auto golden = goldenReplies("file_replies.txt");
    for (const auto& [directory, entries] : levelCases()) {
        EXPECT_EQ(arrayReply(reply::fileArray(entries)),
                  golden.at(onStick("GetDirectoryIndex", directory)));
        EXPECT_EQ(fileTupleReply(reply::fileTuple(entries, KindWord::Unsigned)),
                  golden.at(onStick("GetRestoreFilesList", directory)));
    }
}

TEST(ReplyEncoding, ofATreeIsTheGoldenText) {
    const auto golden = goldenReplies("file_replies.txt");
    for (const auto& [directory, entries] : treeCases()) {
        EXPECT_EQ(arrayReply(reply::fileArray(entries)),
                  golden.at(onStick("GetDirectoryIndexForBackup", directory)));
        EXPECT_EQ(fileTupleReply(reply::fileTuple(entries, KindWord::Signed)),
                  golden.at(onStick("GetUpdateFilesList", directory)));
    }
}

TEST(ReplyEncoding, ofNothingSaysThatItHoldsNoRecord) {
    for (const EncodedList& list :
         {reply::stickArray({}), reply::stickTuple({}), reply::fileArray({}),
          reply::fileTuple({}, KindWord::Signed), reply::fileTuple({}, KindWord::Unsigned)}) {
        EXPECT_EQ(list.records, 0U);
        g_variant_unref(g_variant_ref_sink(list.value));
    }
}

TEST(ReplyEncoding, givesFloatingValuesForTheReplyToTakeOver) {
    const Sticks sticks(2);
    const Files files(2, {1, "a", 1, sharedText("/")});
    for (GVariant* value :
         {reply::stickArray(sticks).value, reply::stickTuple(sticks).value,
          reply::fileArray(files).value, reply::fileTuple(files, KindWord::Signed).value,
          reply::fileTuple({}, KindWord::Signed).value}) {
        EXPECT_TRUE(g_variant_is_floating(value));
        g_variant_unref(g_variant_ref_sink(value));
    }
}

TEST(ReplyEncoding, sendsKindsWithTheTopBitAsLargeOrAsNegativeNumbers) {
    const Files entries = {{0xFFFFFFFFU, "a", 1, sharedText("/")},
                           {0x80000000U, "b", 2, sharedText("/")}};
    EXPECT_EQ(text(reply::fileArray(entries).value),
              "[<uint32 4294967295>, <'a'>, <uint64 1>, <'/'>,"
              " <uint32 2147483648>, <'b'>, <uint64 2>, <'/'>]");
    EXPECT_EQ(text(reply::fileTuple(entries, KindWord::Unsigned).value),
              "(uint32 4294967295, 'a', uint64 1, '/', uint32 2147483648, 'b', uint64 2, '/')");
    EXPECT_EQ(text(reply::fileTuple(entries, KindWord::Signed).value),
              "(-1, 'a', uint64 1, '/', -2147483648, 'b', uint64 2, '/')");
}

TEST(ReplyEncoding, sendsSizesAsUnsignedNumbers) {
    const Files entries = {{1, "a", -1, sharedText("/")},
                           {1, "b", std::numeric_limits<std::int64_t>::max(), sharedText("/")}};
    EXPECT_EQ(text(reply::fileTuple(entries, KindWord::Unsigned).value),
              "(uint32 1, 'a', uint64 18446744073709551615, '/',"
              " uint32 1, 'b', uint64 9223372036854775807, '/')");
}

// Makes records with everything that names may hold, from a fixed seed.
class Generator {
public:
    Sticks sticks() {
        Sticks list(below(5));
        for (UsbStickInfo& stick : list) {
            stick = {bytes(), bytes(), random_(), random_()};
        }
        return list;
    }

    Files files(std::size_t most) {
        Files list(below(most + 1));
        SharedText location = sharedText(bytes());
        for (FileEntry& entry : list) {
            if (below(3) == 0) {
                location = sharedText(bytes());
            }
            const auto kind = static_cast<std::uint32_t>(below(4) == 0 ? random_() : below(2));
            entry = {kind, bytes(), static_cast<std::int64_t>(random_()), location};
        }
        return list;
    }

    // Mostly letters, with characters of several bytes and pieces of them in between.
    std::string bytes() {
        static const std::vector<std::string> kPieces = {"a",
                                                         "b",
                                                         ".psb",
                                                         "\xC3\xA4",
                                                         "\xE2\x82\xAC",
                                                         "\xF0\x9F\x98\x80",
                                                         "\xC3",
                                                         "\xE2\x82",
                                                         "\xF0\x9F",
                                                         "\x80",
                                                         "\xFF",
                                                         "\xED\xA0\x80",
                                                         "\xC0\xAF",
                                                         "\xF4\x90\x80\x80",
                                                         " ",
                                                         "'"};
        std::string result;
        for (std::size_t i = below(12); i > 0; --i) {
            result += kPieces[below(kPieces.size())];
        }
        return result;
    }

private:
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }

    std::mt19937_64 random_{20260101};
};

void expectEqual(GVariant* fast, GVariant* naive) {
    const VariantPtr fastOwner(g_variant_ref_sink(fast));
    const VariantPtr naiveOwner(g_variant_ref_sink(naive));
    EXPECT_STREQ(g_variant_get_type_string(fast), g_variant_get_type_string(naive));
    EXPECT_TRUE(g_variant_equal(fast, naive)) << asText(fast) << "\ninstead of\n" << asText(naive);
    EXPECT_TRUE(g_variant_is_normal_form(fast));
    EXPECT_EQ(marshalledBody(fast), marshalledBody(naive));
}

TEST(ReplyEncoding, ofAnySticksEqualsThePlainEncoding) {
    Generator generate;
    for (int i = 0; i < 300; ++i) {
        const Sticks sticks = generate.sticks();
        expectEqual(reply::stickArray(sticks).value, naiveArray(sticks));
        if (!sticks.empty()) {
            expectEqual(reply::stickTuple(sticks).value, naiveTuple(sticks));
        }
    }
}

TEST(ReplyEncoding, ofAnyFilesEqualsThePlainEncoding) {
    Generator generate;
    for (int i = 0; i < 100; ++i) {
        const Files entries = generate.files(reply::kMaxTupleRecords);
        expectEqual(reply::fileArray(entries).value, naiveArray(entries));
        if (!entries.empty()) {
            for (const KindWord word : {KindWord::Unsigned, KindWord::Signed}) {
                expectEqual(reply::fileTuple(entries, word).value, naiveTuple(entries, word));
            }
        }
    }
}

// The places in a serialised array take one byte up to 255, two up to 65,535 and then four.
TEST(ReplyEncoding, ofArraysOfAnySizeEqualsThePlainEncoding) {
    Generator generate;
    for (const std::size_t most : {1U, 4U, 8U, 100U, 1'000U, 3'000U}) {
        for (int i = 0; i < 10; ++i) {
            const Files entries = generate.files(most);
            expectEqual(reply::fileArray(entries).value, naiveArray(entries));
        }
    }
}

// One byte more or less of a name moves everything behind it over each border.
TEST(ReplyEncoding, ofArraysAtTheBordersOfTheirPlacesEqualsThePlainEncoding) {
    // With a last text of this length an array can be as long as its places just about allow.
    const auto withName = [](std::size_t length) {
        return Files{{1, std::string(length, 'x'), 1, sharedText("/")},
                     {1, "y", 1, sharedText("/sub")}};
    };
    const auto sizeWithName = [&](std::size_t length) {
        const VariantPtr array(g_variant_ref_sink(naiveArray(withName(length))));
        return g_variant_get_size(array.get());
    };
    constexpr std::size_t kAround = 40;  // more than alignment and wider places make up
    for (const std::size_t border : {0x100U, 0x10000U}) {
        const std::size_t middle = border - (sizeWithName(border) - border);
        for (std::size_t length = middle - kAround; length < middle + kAround; ++length) {
            const Files files = withName(length);
            expectEqual(reply::fileArray(files).value, naiveArray(files));
        }
    }
}

TEST(ReplyEncoding, ofAnyBytesReplacesWhatIsNoCharacter) {
    Generator generate;
    for (int i = 0; i < 2000; ++i) {
        const std::string bytes = generate.bytes();
        const std::string valid = reply::validText(bytes);
        EXPECT_EQ(valid, naiveValidText(bytes));
        EXPECT_TRUE(g_utf8_validate(valid.c_str(), -1, nullptr));
    }
}

struct BytesCase {
    const char* what;
    std::string bytes;
    std::string text;
};

TEST(ReplyEncoding, replacesEachByteThatIsNotUtf8) {
    const std::string r = "\xEF\xBF\xBD";
    const BytesCase cases[] = {
        {"nothing", "", ""},
        {"plain letters", "a.psb", "a.psb"},
        {"characters of 2, 3 and 4 bytes", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80",
         "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a replacement character", r, r},
        {"alone", "\xFF", r},
        {"at the start",
         "\xFF"
         "abc",
         r + "abc"},
        {"in the middle",
         "ab\xFF"
         "cd",
         "ab" + r + "cd"},
        {"at the end", "abc\xFF", "abc" + r},
        {"several", "\xFF\xFE\xFD", r + r + r},
        {"a lead byte before a letter", "\xC3(", r + "("},
        {"a continuation byte", "a\x80", "a" + r},
        {"a character that is cut off", "a\xE2\x82", "a" + r + r},
        {"a surrogate", "\xED\xA0\x80", r + r + r},
        {"more bytes than needed", "\xC0\xAF", r + r},
        {"beyond the last character", "\xF4\x90\x80\x80", r + r + r + r},
        {"a zero byte", std::string("a\0b", 3), "a" + r + "b"},
    };
    for (const auto& [what, bytes, expected] : cases) {
        EXPECT_EQ(reply::validText(bytes), expected) << what;
    }
}

}  // namespace
}  // namespace test_support
