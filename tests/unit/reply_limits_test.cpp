// Lists longer than a reply can carry, to the record and to the byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/unit/naive_reply.h"
#include "transfer/reply_encoding.h"

namespace test_support {
namespace {

using reply::KindWord;

using Sticks = std::vector<UsbStickInfo>;
using Files = std::vector<FileEntry>;

// The records that a list of `count` holds are all different.
Files filesNumbered(std::size_t count) {
    Files entries;
    for (std::size_t i = 0; i < count; ++i) {
        entries.push_back({FileEntry::kOther, "f" + std::to_string(i), static_cast<std::int64_t>(i),
                           sharedText("d" + std::to_string(i / 7))});
    }
    return entries;
}

Sticks sticksNumbered(std::size_t count) {
    Sticks sticks;
    for (std::size_t i = 0; i < count; ++i) {
        sticks.push_back({"s" + std::to_string(i), "m", i, i});
    }
    return sticks;
}

template <typename Records>
Records firstOf(Records records, std::size_t count) {
    records.resize(count);
    return records;
}

bool equal(GVariant* one, GVariant* other) {
    const VariantPtr first(g_variant_ref_sink(one));
    const VariantPtr second(g_variant_ref_sink(other));
    return g_variant_equal(one, other) != FALSE;
}

constexpr std::size_t kCounts[] = {1, 62, 63, 64, 65, 200};

TEST(TupleLimit, ofFilesIs63RecordsAndTheListSaysSo) {
    for (const std::size_t count : kCounts) {
        const Files entries = filesNumbered(count);
        const std::size_t carried = std::min<std::size_t>(count, 63);
        for (const KindWord word : {KindWord::Unsigned, KindWord::Signed}) {
            const reply::EncodedList list = reply::fileTuple(entries, word);
            EXPECT_EQ(list.records, carried);
            EXPECT_LE(std::string(g_variant_get_type_string(list.value)).size(), 255U);
            EXPECT_TRUE(equal(list.value, naiveTuple(firstOf(entries, carried), word)));
        }
    }
}

TEST(TupleLimit, ofSticksIs63RecordsAndTheListSaysSo) {
    for (const std::size_t count : kCounts) {
        const Sticks sticks = sticksNumbered(count);
        const std::size_t carried = std::min<std::size_t>(count, 63);
        const reply::EncodedList list = reply::stickTuple(sticks);
        EXPECT_EQ(list.records, carried);
        EXPECT_TRUE(equal(list.value, naiveTuple(firstOf(sticks, carried))));
    }
}

TEST(TupleLimit, doesNotHoldForArrays) {
    for (const std::size_t count : kCounts) {
        const Files entries = filesNumbered(count);
        const reply::EncodedList list = reply::fileArray(entries);
        EXPECT_EQ(list.records, count);
        EXPECT_TRUE(equal(list.value, naiveArray(entries)));
    }
}

// Records whose elements fall on every alignment.
Files unalignedFiles() {
    Files entries;
    for (std::size_t i = 0; i < 16; ++i) {
        const std::string name = (i % 3 == 0 ? "\xFF" : "") + std::string(i, 'n');
        entries.push_back({static_cast<std::uint32_t>(i % 2), name, -1,
                           sharedText(std::string(i / 4, 'l') + (i == 9 ? "\xC3" : ""))});
    }
    return entries;
}

// The sizes that the beginnings of `entries` really have on the wire: none, the first, ...
std::vector<std::size_t> sizesOfBeginnings(const Files& entries) {
    std::vector<std::size_t> sizes;
    for (std::size_t count = 0; count <= entries.size(); ++count) {
        sizes.push_back(marshalledSize(naiveArray(firstOf(entries, count))));
    }
    return sizes;
}

TEST(ArrayLimit, isTheRealSizeToTheByte) {
    const Files entries = unalignedFiles();
    const std::vector<std::size_t> sizes = sizesOfBeginnings(entries);
    for (std::size_t limit = sizes.front(); limit <= sizes.back() + 8; ++limit) {
        const auto fitting =
            static_cast<std::size_t>(std::upper_bound(sizes.begin(), sizes.end(), limit) -
                                     sizes.begin()) -
            1;
        const reply::EncodedList list = reply::fileArray(entries, limit);
        EXPECT_EQ(list.records, fitting) << "limit " << limit;
        const VariantPtr array(g_variant_ref_sink(list.value));
        EXPECT_EQ(marshalledSize(array.get()), sizes[fitting]);
        EXPECT_TRUE(equal(array.get(), naiveArray(firstOf(entries, fitting))));
    }
}

TEST(ArrayLimit, thatNothingFitsGivesAnEmptyArray) {
    for (const std::size_t limit : {0U, 3U, 4U, 20U}) {
        const reply::EncodedList list = reply::fileArray(unalignedFiles(), limit);
        EXPECT_EQ(list.records, 0U);
        EXPECT_TRUE(equal(list.value, naiveArray(Files{})));
    }
}

// A shorter record behind one that does not fit would leave a gap.
TEST(ArrayLimit, endsTheListAtTheFirstRecordThatDoesNotFit) {
    const Files entries = {{1, "a", 1, sharedText("/")},
                           {1, std::string(255, 'b'), 2, sharedText("/")},
                           {1, "c", 3, sharedText("/")}};
    const reply::EncodedList list = reply::fileArray(entries, 200);
    EXPECT_EQ(list.records, 1U);
    EXPECT_TRUE(equal(list.value, naiveArray(firstOf(entries, 1))));
}

TEST(ArrayLimit, ofAReplyLeavesRoomForTheHeaderInTheBusesLimit) {
    constexpr std::size_t kBusLimit = 32U * 1024 * 1024;
    const ObjectPtr<GDBusMessage> call(
        g_dbus_message_new_method_call(":1.1", "/sacIntf", "com.morvane.transfer.sac", "m"));
    g_dbus_message_set_serial(call.get(), 1);
    const ObjectPtr<GDBusMessage> answer(g_dbus_message_new_method_reply(call.get()));
    // Longer than any name that a bus gives.
    const std::string longName = ":1." + std::string(252, '9');
    g_dbus_message_set_sender(answer.get(), longName.c_str());
    g_dbus_message_set_destination(answer.get(), longName.c_str());
    g_dbus_message_set_serial(answer.get(), 2);
    const Files entries{{1, "a", 1, sharedText("/")}};
    g_dbus_message_set_body(answer.get(), g_variant_new("(@av)", reply::fileArray(entries).value));
    gsize size = 0;
    g_free(g_dbus_message_to_blob(answer.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    const std::size_t header = size - marshalledSize(naiveArray(entries));
    EXPECT_LE(header + reply::kMaxArrayBytes, kBusLimit);
}

}  // namespace
}  // namespace test_support
