// The encoders as pure functions: the value of each shape of a list, and where a long one ends.
#include "transfer/reply_encoding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"

namespace test_support {
namespace {

using reply::EncodedFiles;
using reply::KindWord;
using testing::StartsWith;

using Files = std::vector<FileEntry>;
using Sticks = std::vector<UsbStickInfo>;

std::string text(GVariant* floating) {
    const VariantPtr value(g_variant_ref_sink(floating));
    EXPECT_TRUE(g_variant_is_normal_form(value.get()));
    return asText(value.get());
}

// The bytes of a whole message with nothing else in it than `value`.
std::size_t messageSize(GVariant* value) {
    const ObjectPtr<GDBusMessage> message(g_dbus_message_new_signal("/a", "a.b", "c"));
    g_dbus_message_set_serial(message.get(), 1);
    g_dbus_message_set_body(message.get(), g_variant_new_tuple(&value, 1));
    gsize size = 0;
    g_free(g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    return size;
}

const Sticks kSticks = {{"USB_X60.1", "mount", 8, 7}, {"USB_X60.3", "other", 6, 5}};
const Files kFiles = {{0, "photos", 40, "/"}, {1, "a.psb", 7, "old"}, {1, "b.psb", 9, "old"}};

Files numberedFiles(std::size_t count) {
    Files files;
    for (std::size_t i = 0; i < count; ++i) {
        files.push_back({static_cast<std::uint32_t>(i % 2), "f" + std::to_string(i),
                         static_cast<std::int64_t>(i), "d" + std::to_string(i / 7)});
    }
    return files;
}

struct ReplyShape {
    const char* name;
    GVariant* (*encode)();
    const char* text;
};

class ReplyValue : public testing::TestWithParam<ReplyShape> {};

TEST_P(ReplyValue, hasItsShape) {
    GVariant* const value = GetParam().encode();
    EXPECT_TRUE(g_variant_is_floating(value));
    EXPECT_EQ(text(value), GetParam().text);
}

const ReplyShape kShapes[] = {
    {"stickArray", [] { return reply::stickArray(kSticks); },
     "[<'USB_X60.1'>, <'mount'>, <uint64 8>, <uint64 7>,"
     " <'USB_X60.3'>, <'other'>, <uint64 6>, <uint64 5>]"},
    {"emptyStickArray", [] { return reply::stickArray({}); }, "@av []"},
    {"stickTuple", [] { return reply::stickTuple(kSticks); },
     "('USB_X60.1', 'mount', uint64 8, uint64 7, 'USB_X60.3', 'other', uint64 6, uint64 5)"},
    {"emptyStickTuple", [] { return reply::stickTuple({}); }, "('', '', uint64 0, uint64 0)"},
    {"fileArray", [] { return reply::fileArray(kFiles).value; },
     "[<uint32 0>, <'photos'>, <uint64 40>, <'/'>, <uint32 1>, <'a.psb'>, <uint64 7>, <'old'>,"
     " <uint32 1>, <'b.psb'>, <uint64 9>, <'old'>]"},
    {"emptyFileArray", [] { return reply::fileArray({}).value; }, "@av []"},
    {"fileTuple", [] { return reply::fileTuple(kFiles, KindWord::Unsigned).value; },
     "(uint32 0, 'photos', uint64 40, '/', uint32 1, 'a.psb', uint64 7, 'old',"
     " uint32 1, 'b.psb', uint64 9, 'old')"},
    {"emptyFileTuple", [] { return reply::fileTuple({}, KindWord::Unsigned).value; },
     "(uint32 0, '', uint64 0, '')"},
    // Clients of the update and backup lists rely on an unsigned kind in it.
    {"emptySignedFileTuple", [] { return reply::fileTuple({}, KindWord::Signed).value; },
     "(uint32 0, '', uint64 0, '')"},
};

INSTANTIATE_TEST_SUITE_P(Of, ReplyValue, testing::ValuesIn(kShapes),
                         [](const auto& shape) { return std::string(shape.param.name); });

TEST(FileKind, keepsTopBit) {
    const Files files = {{0xFFFFFFFFU, "a", 1, "/"}};
    EXPECT_THAT(text(reply::fileArray(files).value), StartsWith("[<uint32 4294967295>"));
    EXPECT_THAT(text(reply::fileTuple(files, KindWord::Unsigned).value),
                StartsWith("(uint32 4294967295"));
    EXPECT_THAT(text(reply::fileTuple(files, KindWord::Signed).value), StartsWith("(-1, "));
}

TEST(FileSize, isUnsigned) {
    const Files files = {{1, "a", -1, "/"}};
    EXPECT_EQ(text(reply::fileArray(files).value),
              "[<uint32 1>, <'a'>, <uint64 18446744073709551615>, <'/'>]");
    EXPECT_EQ(text(reply::fileTuple(files, KindWord::Unsigned).value),
              "(uint32 1, 'a', uint64 18446744073709551615, '/')");
}

TEST(FileTuple, truncatesAfter63Records) {
    for (const std::size_t count : {0U, 1U, 62U, 63U, 64U, 200U}) {
        const Files files = numberedFiles(count);
        const Files carried = numberedFiles(std::min<std::size_t>(count, 63));
        const EncodedFiles list = reply::fileTuple(files, KindWord::Signed);
        EXPECT_EQ(list.records, carried.size());
        EXPECT_LE(std::string(g_variant_get_type_string(list.value)).size(), 255U);
        EXPECT_EQ(text(list.value), text(reply::fileTuple(carried, KindWord::Signed).value));
    }
}

TEST(FileArray, neverExceedsItsLimit) {
    const std::string unaligned[] = {
        "", "a", "ab", "abc", "abcd\xFF", "abcdefgh\xC3", std::string(50, 'n')};
    Files files;
    for (const std::string& name : unaligned) {
        for (const std::string& location : unaligned) {
            files.push_back({static_cast<std::uint32_t>(files.size() % 3), name, -1, location});
        }
    }
    const std::size_t empty = messageSize(reply::fileArray({}).value);
    for (std::size_t limit = 4; limit < 3'000; ++limit) {
        const EncodedFiles list = reply::fileArray(files, limit);
        EXPECT_LE(messageSize(list.value) - empty + 4, limit) << list.records;
    }
}

// A third is far more than what alignment may cost a record of this length.
TEST(FileArray, usesMostOfItsLimit) {
    const Files files(1'000, {1, std::string(100, 'n'), 1, "location"});
    constexpr std::size_t kLimit = 100'000;
    EXPECT_GE(messageSize(reply::fileArray(files, kLimit).value), kLimit * 2 / 3);
}

// A shorter record behind one that does not fit would leave a gap.
TEST(FileArray, endsAtFirstRecordThatDoesNotFit) {
    const Files files = {{1, "a", 1, "/"}, {1, std::string(255, 'b'), 2, "/"}, {1, "c", 3, "/"}};
    const EncodedFiles list = reply::fileArray(files, 250);
    EXPECT_EQ(list.records, 1U);
    EXPECT_EQ(text(list.value), "[<uint32 1>, <'a'>, <uint64 1>, <'/'>]");
}

TEST(FileArray, leavesRoomForMessageHeader) {
    const std::string longName = ":1." + std::string(252, '9');  // longer than any bus gives
    const ObjectPtr<GDBusMessage> call(
        g_dbus_message_new_method_call(":1.1", "/sacIntf", "com.morvane.transfer.sac", "m"));
    g_dbus_message_set_serial(call.get(), 1);
    const ObjectPtr<GDBusMessage> answer(g_dbus_message_new_method_reply(call.get()));
    g_dbus_message_set_sender(answer.get(), longName.c_str());
    g_dbus_message_set_destination(answer.get(), longName.c_str());
    g_dbus_message_set_serial(answer.get(), 2);
    g_dbus_message_set_body(answer.get(), g_variant_new("(@av)", reply::fileArray({}).value));
    gsize size = 0;
    g_free(g_dbus_message_to_blob(answer.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    EXPECT_LE(size + reply::kMaxArrayBytes, 32U * 1024 * 1024);
}

struct StringCase {
    const char* what;
    std::string bytes;
    std::string valid;
};

class ValidString : public testing::TestWithParam<StringCase> {};

TEST_P(ValidString, replacesEachInvalidByte) {
    const auto& [what, bytes, valid] = GetParam();
    EXPECT_EQ(reply::validString(bytes), valid) << what;
    EXPECT_EQ(text(reply::fileArray({{1, bytes, 1, bytes}}).value),
              text(reply::fileArray({{1, valid, 1, valid}}).value));
}

constexpr const char* kR = "\xEF\xBF\xBD";

INSTANTIATE_TEST_SUITE_P(
    Cases, ValidString,
    testing::Values(StringCase{"nothing", "", ""}, StringCase{"letters", "a.psb", "a.psb"},
                    StringCase{"2 to 4 bytes", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80",
                               "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
                    StringCase{"replacement", kR, kR}, StringCase{"alone", "\xFF", kR},
                    StringCase{"in the middle", "ab\xFFxy", std::string("ab") + kR + "xy"},
                    StringCase{"lead byte before a letter", "\xC3(", std::string(kR) + "("},
                    StringCase{"cut off at the end", "a\xE2\x82", std::string("a") + kR + kR},
                    StringCase{"surrogate", "\xED\xA0\x80", std::string(kR) + kR + kR},
                    StringCase{"overlong", "\xC0\xAF", std::string(kR) + kR},
                    StringCase{"ends at a zero byte", std::string("a\0b", 3), "a"}));

}  // namespace
}  // namespace test_support
