// Any list of files: what the bus side sends holds the same files, and never more than fits.
#include <gio/gio.h>

#include <algorithm>
#include <vector>

#include "tests/fuzz/target.h"
#include "transfer/reply_encoding.h"

namespace {

constexpr std::size_t kMostEntries = 100;

std::vector<FileEntry> readEntries(fuzz::Input& input) {
    std::vector<FileEntry> entries;
    std::string location = "/";
    while (!input.isEmpty() && entries.size() < kMostEntries) {
        const std::uint8_t choice = input.byte();
        if (choice % 4 == 0) {
            location = input.string();
        }
        const std::string name = input.string();
        const auto size = static_cast<std::int64_t>(choice < 0xF0 ? choice : input.number());
        entries.push_back({choice / 4U % 3U, name, size, location, {}});
    }
    return entries;
}

// The first files as a list of boxes or a tuple, without the code under test.
GVariant* modelOf(const std::vector<FileEntry>& entries, std::size_t count, bool boxed) {
    GVariantBuilder list;
    g_variant_builder_init(&list, boxed ? G_VARIANT_TYPE("av") : G_VARIANT_TYPE_TUPLE);
    for (std::size_t i = 0; i < count; ++i) {
        const FileEntry& entry = entries[i];
        GVariant* const elements[] = {
            g_variant_new(boxed ? "u" : "i", entry.kind),
            g_variant_new("s", reply::validString(entry.name).c_str()),
            g_variant_new("t", static_cast<std::uint64_t>(entry.size)),
            g_variant_new("s", reply::validString(entry.location).c_str()),
        };
        for (GVariant* const element : elements) {
            g_variant_builder_add_value(&list, boxed ? g_variant_new_variant(element) : element);
        }
    }
    return g_variant_ref_sink(g_variant_builder_end(&list));
}

void requireRecords(reply::EncodedFiles encoded, const std::vector<FileEntry>& entries,
                    bool boxed) {
    g_autoptr(GVariant) list = g_variant_ref_sink(encoded.value);
    g_autoptr(GVariant) model = modelOf(entries, encoded.records, boxed);
    fuzz::require(g_variant_equal(list, model) != FALSE, "the records are the files");
}

// The bytes of the array in a message on the bus.
std::size_t marshalledSize(GVariant* array) {
    g_autoptr(GDBusMessage) message = g_dbus_message_new_signal("/a", "a.b", "c");
    g_dbus_message_set_serial(message, 1);
    const auto sizeOf = [message] {
        gsize size = 0;
        g_free(g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
        return size;
    };
    g_dbus_message_set_body(message, g_variant_new("(@av)", array));
    const gsize whole = sizeOf();
    g_dbus_message_set_body(message, g_variant_new("(av)", nullptr));
    return whole - sizeOf() + sizeof(std::uint32_t);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t limit = input.byte() * 16U;
    const std::vector<FileEntry> entries = readEntries(input);

    const reply::EncodedFiles all = reply::fileArray(entries);
    fuzz::require(all.records == entries.size(), "an array holds every file");
    requireRecords(all, entries, true);
    const reply::EncodedFiles cut = reply::fileArray(entries, limit);
    g_autoptr(GVariant) array = g_variant_ref_sink(cut.value);
    fuzz::require(cut.records == 0 || marshalledSize(array) <= limit, "a cut array fits");
    const reply::EncodedFiles tuple = reply::fileTuple(entries, reply::KindWord::Signed);
    fuzz::require(tuple.records == std::min(entries.size(), reply::kMaxTupleRecords),
                  "a tuple holds as many as its signature allows");
    if (!entries.empty()) {
        requireRecords(tuple, entries, false);
    } else {
        g_variant_unref(g_variant_ref_sink(tuple.value));
    }
    return 0;
}
