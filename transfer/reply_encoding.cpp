// The values that go over the bus, built from the manager's records.
#include "transfer/reply_encoding.h"

#include <algorithm>
#include <cstdint>

namespace reply {
namespace {

constexpr std::size_t kElementsPerRecord = 4;

// What a marshalled file group takes at most beside the strings in it: four signatures of three
// bytes, the padding behind each, the kind, the size, and two length words.
constexpr std::size_t kMaxGroupOverhead = 4 * 3 + (3 + 3 + 7 + 3) + 4 + 8 + 2 * 4;
constexpr std::size_t kArrayLengthWord = 4;

GVariant* kindElement(std::uint32_t kind, KindWord word) {
    return word == KindWord::Signed ? g_variant_new_int32(static_cast<std::int32_t>(kind))
                                    : g_variant_new_uint32(kind);
}

bool isUtf8(const std::string& bytes) {
    return g_utf8_validate(bytes.c_str(), -1, nullptr) != FALSE;
}

GVariant* string(const std::string& bytes) {
    return g_variant_new_string(isUtf8(bytes) ? bytes.c_str() : validString(bytes).c_str());
}

// Owned by the caller, so that several records may have it.
GVariant* box(GVariant* element) {
    return g_variant_ref_sink(g_variant_new_variant(element));
}

}  // namespace

GVariant* stickArray(const std::vector<UsbStickInfo>& sticks) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("av"));
    for (const UsbStickInfo& stick : sticks) {
        g_variant_builder_add(&builder, "v", string(stick.name));
        g_variant_builder_add(&builder, "v", string(stick.mountName));
        g_variant_builder_add(&builder, "v", g_variant_new_uint64(stick.totalBytes));
        g_variant_builder_add(&builder, "v", g_variant_new_uint64(stick.freeBytes));
    }
    return g_variant_builder_end(&builder);
}

GVariant* stickTuple(const std::vector<UsbStickInfo>& sticks) {
    if (sticks.empty()) {
        // Kept: clients that see no stick still find a tuple of one record's shape.
        return g_variant_new("(sstt)", "", "", std::uint64_t{0}, std::uint64_t{0});
    }
    std::vector<GVariant*> elements;
    elements.reserve(kElementsPerRecord * sticks.size());
    for (const UsbStickInfo& stick : sticks) {
        elements.push_back(string(stick.name));
        elements.push_back(string(stick.mountName));
        elements.push_back(g_variant_new_uint64(stick.totalBytes));
        elements.push_back(g_variant_new_uint64(stick.freeBytes));
    }
    return g_variant_new_tuple(elements.data(), elements.size());
}

EncodedFiles fileArray(const std::vector<FileEntry>& entries, std::size_t maxBytes) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("av"));
    // Boxes that consecutive records share are created once: half the time of a long list.
    g_autoptr(GVariant) kind = nullptr;
    g_autoptr(GVariant) location = nullptr;
    std::size_t locationBytes = 0;
    const FileEntry* previous = nullptr;
    std::size_t bytes = kArrayLengthWord;
    std::size_t records = 0;
    for (const FileEntry& entry : entries) {
        if (previous == nullptr || entry.kind != previous->kind) {
            g_clear_pointer(&kind, g_variant_unref);
            kind = box(kindElement(entry.kind, KindWord::Unsigned));
        }
        if (previous == nullptr || entry.location != previous->location) {
            g_clear_pointer(&location, g_variant_unref);
            location = box(string(entry.location));
            locationBytes = g_variant_get_size(location);
        }
        g_autoptr(GVariant) name = g_variant_ref_sink(string(entry.name));
        bytes += kMaxGroupOverhead + g_variant_get_size(name) + locationBytes;
        if (bytes > maxBytes) {
            break;
        }
        g_variant_builder_add_value(&builder, kind);
        g_variant_builder_add_value(&builder, g_variant_new_variant(name));
        const auto size = static_cast<std::uint64_t>(entry.size);
        g_variant_builder_add_value(&builder, g_variant_new_variant(g_variant_new_uint64(size)));
        g_variant_builder_add_value(&builder, location);
        previous = &entry;
        ++records;
    }
    return {g_variant_builder_end(&builder), records};
}

EncodedFiles fileTuple(const std::vector<FileEntry>& entries, KindWord kindWord) {
    if (entries.empty()) {
        // Kept: clients that see no entry still find a tuple of one record's shape.
        return {g_variant_new("(usts)", std::uint32_t{0}, "", std::uint64_t{0}, ""), 0};
    }
    const std::size_t records = std::min(entries.size(), kMaxTupleRecords);
    std::vector<GVariant*> elements;
    elements.reserve(kElementsPerRecord * records);
    for (std::size_t i = 0; i < records; ++i) {
        const FileEntry& entry = entries.at(i);
        elements.push_back(kindElement(entry.kind, kindWord));
        elements.push_back(string(entry.name));
        elements.push_back(g_variant_new_uint64(static_cast<std::uint64_t>(entry.size)));
        elements.push_back(string(entry.location));
    }
    return {g_variant_new_tuple(elements.data(), elements.size()), records};
}

std::string validString(const std::string& bytes) {
    if (isUtf8(bytes)) {
        return bytes.substr(0, bytes.find('\0'));
    }
    g_autofree char* valid = g_utf8_make_valid(bytes.c_str(), -1);
    return valid;
}

}  // namespace reply
