// Turning the manager's records into the values that go over the bus.
#include "transfer/reply_encoding.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>

namespace reply {
namespace {

constexpr std::size_t kElementsPerRecord = 4;
constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

struct UnrefVariant {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Variant = std::unique_ptr<GVariant, UnrefVariant>;

enum class Layout { Array, Tuple };

// One element of a record, with the room that it takes in a message.
struct Element {
    GVariant* value;
    std::size_t alignment;
    std::size_t bytes;
};
using Record = std::array<Element, kElementsPerRecord>;

// An element of an array is a variant of its own; one of a tuple stands as it is.
GVariant* wrap(Layout layout, GVariant* value) {
    return layout == Layout::Array ? g_variant_new_variant(value) : value;
}

bool isValid(const std::string& bytes) {
    return g_utf8_validate(bytes.data(), static_cast<gssize>(bytes.size()), nullptr) != FALSE;
}

// The caller frees the text with g_free.
char* replaceInvalid(const std::string& bytes) {
    return g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size()));
}

Element text(Layout layout, const std::string& bytes) {
    GVariant* const value = isValid(bytes) ? g_variant_new_string(bytes.c_str())
                                           : g_variant_new_take_string(replaceInvalid(bytes));
    // On the wire: the length, the bytes and a terminator, which g_variant_get_size counts too.
    const std::size_t size = sizeof(std::uint32_t) + g_variant_get_size(value);
    return {wrap(layout, value), sizeof(std::uint32_t), size};
}

Element quad(Layout layout, std::uint64_t number) {
    return {wrap(layout, g_variant_new_uint64(number)), sizeof number, sizeof number};
}

Element kind(Layout layout, std::uint32_t kind, KindWord word) {
    GVariant* const value = word == KindWord::Unsigned
                                ? g_variant_new_uint32(kind)
                                : g_variant_new_int32(static_cast<std::int32_t>(kind));
    return {wrap(layout, value), sizeof kind, sizeof kind};
}

// Makes an element once for a run of records that have it in common, and keeps all that it made
// until the list of these records is finished.
template <typename Key>
class SharedElement {
public:
    template <typename Make>
    Element get(const Key& wanted, Make make) {
        if (made.empty() || !(wanted == key)) {
            key = wanted;
            element = make(key);
            made.emplace_back(g_variant_ref_sink(element.value));
        }
        return element;
    }

private:
    Key key{};
    Element element{};
    std::vector<Variant> made;
};

// Collects records up to what a reply can carry and makes one value of them.
class RecordList {
public:
    RecordList(Layout layout, std::size_t records, std::size_t maxBytes)
        : listLayout(layout),
          recordLimit(layout == Layout::Tuple ? kMaxTupleRecords : kUnlimited),
          byteLimit(layout == Layout::Array ? maxBytes : kUnlimited) {
        elements.reserve(kElementsPerRecord * std::min(records, recordLimit));
    }

    bool isFull() const { return full || count == recordLimit; }

    // Takes the record's floating values over; a record that does not fit is dropped and ends the
    // list.
    void add(const Record& record) {
        const std::size_t size = sizeWith(record);
        if (size > byteLimit) {
            full = true;
            std::for_each(record.begin(), record.end(), [](const Element& element) {
                const Variant dropped(g_variant_ref_sink(element.value));
            });
            return;
        }
        bytes = size;
        ++count;
        for (const Element& element : record) {
            elements.push_back(element.value);
        }
    }

    EncodedList finish() const {
        GVariant* const value =
            listLayout == Layout::Array
                ? g_variant_new_array(G_VARIANT_TYPE_VARIANT, elements.data(), elements.size())
                : g_variant_new_tuple(elements.data(), elements.size());
        return {value, count};
    }

private:
    // The bytes of the marshalled array with `record` at its end: each element is a variant, that
    // is a signature of one character with its length and terminator, and the aligned value.
    std::size_t sizeWith(const Record& record) const {
        std::size_t size = bytes;
        for (const Element& element : record) {
            size += 3;
            size = (size + element.alignment - 1) / element.alignment * element.alignment;
            size += element.bytes;
        }
        return size;
    }

    Layout listLayout;
    std::size_t recordLimit;
    std::size_t byteLimit;
    std::vector<GVariant*> elements;
    std::size_t count = 0;
    std::size_t bytes = sizeof(std::uint32_t);  // the length word of the array
    bool full = false;
};

EncodedList encodeSticks(const std::vector<UsbStickInfo>& sticks, Layout layout) {
    RecordList list(layout, sticks.size(), kMaxArrayBytes);
    for (auto stick = sticks.begin(); stick != sticks.end() && !list.isFull(); ++stick) {
        list.add({text(layout, stick->name), text(layout, stick->mountName),
                  quad(layout, stick->totalBytes), quad(layout, stick->freeBytes)});
    }
    return list.finish();
}

EncodedList encodeFiles(const std::vector<FileEntry>& entries, Layout layout, KindWord word,
                        std::size_t maxBytes) {
    RecordList list(layout, entries.size(), maxBytes);
    SharedElement<std::uint32_t> sharedKind;
    SharedElement<std::string> sharedLocation;
    const auto makeKind = [&](std::uint32_t value) { return kind(layout, value, word); };
    const auto makeLocation = [&](const std::string& value) { return text(layout, value); };
    for (auto entry = entries.begin(); entry != entries.end() && !list.isFull(); ++entry) {
        list.add({sharedKind.get(entry->kind, makeKind), text(layout, entry->name),
                  quad(layout, static_cast<std::uint64_t>(entry->size)),
                  sharedLocation.get(entry->location, makeLocation)});
    }
    return list.finish();
}

// Kept: clients that see no entry still find a tuple of one record's shape.
EncodedList placeholder(GVariant* tuple) {
    return {tuple, 0};
}

}  // namespace

EncodedList stickArray(const std::vector<UsbStickInfo>& sticks) {
    return encodeSticks(sticks, Layout::Array);
}

EncodedList fileArray(const std::vector<FileEntry>& entries, std::size_t maxBytes) {
    return encodeFiles(entries, Layout::Array, KindWord::Unsigned, maxBytes);
}

EncodedList stickTuple(const std::vector<UsbStickInfo>& sticks) {
    return sticks.empty()
               ? placeholder(g_variant_new("(sstt)", "", "", std::uint64_t{0}, std::uint64_t{0}))
               : encodeSticks(sticks, Layout::Tuple);
}

EncodedList fileTuple(const std::vector<FileEntry>& entries, KindWord kindWord) {
    return entries.empty()
               ? placeholder(g_variant_new("(usts)", std::uint32_t{0}, "", std::uint64_t{0}, ""))
               : encodeFiles(entries, Layout::Tuple, kindWord, kUnlimited);
}

std::string validText(const std::string& bytes) {
    if (isValid(bytes)) {
        return bytes;
    }
    const g_autofree char* valid = replaceInvalid(bytes);
    return valid;
}

}  // namespace reply
