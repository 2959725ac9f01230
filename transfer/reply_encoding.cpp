// Turning the manager's records into the values that go over the bus.
#include "transfer/reply_encoding.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <string_view>

namespace reply {
namespace {

constexpr std::size_t kElementsPerRecord = 4;

struct FreeText {
    void operator()(char* text) const { g_free(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

bool isValid(std::string_view bytes) {
    return g_utf8_validate(bytes.data(), static_cast<gssize>(bytes.size()), nullptr) != FALSE;
}

OwnedText replaceInvalid(std::string_view bytes) {
    return OwnedText(g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size())));
}

// `bytes` as the bus carries them; refers to them where nothing had to be replaced.
class Text {
public:
    explicit Text(std::string_view bytes)
        : mended(isValid(bytes) ? nullptr : replaceInvalid(bytes)),
          text(mended ? std::string_view(mended.get()) : bytes) {}

    std::string_view get() const { return text; }

private:
    OwnedText mended;
    std::string_view text;
};

// One element of a record: its type's character and its value, which it refers to.
struct Element {
    char type;
    std::string_view bytes;  // without the zero byte at the end of a text
};
using Record = std::array<Element, kElementsPerRecord>;

constexpr char kText = 's';
constexpr char kQuad = 't';

Element element(const Text& text) {
    return {kText, text.get()};
}

template <typename Number>
Element element(char type, const Number& number) {
    return {type, {reinterpret_cast<const char*>(&number), sizeof number}};
}

template <typename Number>
Number numberIn(const Element& element) {
    Number number;
    std::memcpy(&number, element.bytes.data(), sizeof number);
    return number;
}

std::size_t alignedTo(std::size_t alignment, std::size_t place) {
    return (place + alignment - 1) / alignment * alignment;
}

// Where a marshalled array that ends at `place` ends with one more element: a variant, that is a
// signature of one character with its length and terminator, and the aligned value.
std::size_t marshalledEnd(std::size_t place, const Element& element) {
    constexpr std::size_t kSignature = 3;
    constexpr std::size_t kWord = sizeof(std::uint32_t);
    const std::size_t value =
        alignedTo(element.type == kQuad ? sizeof(std::uint64_t) : kWord, place + kSignature);
    // A text has its length before it and a terminator behind.
    return value + element.bytes.size() + (element.type == kText ? kWord + 1 : 0);
}

// An "av" written in one piece as GVariant serialises it: each element aligned to eight bytes, its
// value followed by a zero byte and its type; behind all of them the places where they end. Takes
// a fraction of the memory of a value of its own for each element.
class ArrayWriter {
public:
    ArrayWriter(std::size_t records, std::size_t maxBytes)
        : byteLimit(maxBytes), bytes(g_byte_array_new()) {
        ends.reserve(records * kElementsPerRecord);
    }

    // Returns false, having written nothing, when the record does not fit any more.
    bool add(const Record& record) {
        std::size_t end = marshalled;
        for (const Element& element : record) {
            end = marshalledEnd(end, element);
        }
        if (end > byteLimit) {
            return false;
        }
        marshalled = end;
        for (const Element& element : record) {
            write(element);
        }
        return true;
    }

    EncodedList finish() {
        const std::size_t records = ends.size() / kElementsPerRecord;
        writeEnds();
        const GBytesPtr whole(g_byte_array_free_to_bytes(bytes.release()));
        return {g_variant_new_from_bytes(G_VARIANT_TYPE("av"), whole.get(), TRUE), records};
    }

private:
    struct UnrefArray {
        void operator()(GByteArray* array) const { g_byte_array_unref(array); }
    };
    struct UnrefBytes {
        void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
    };
    using GBytesPtr = std::unique_ptr<GBytes, UnrefBytes>;

    // So many further bytes, all zero up to where they are written.
    guint8* grow(std::size_t size) {
        const std::size_t before = bytes->len;
        g_byte_array_set_size(bytes.get(), static_cast<guint>(before + size));
        return bytes->data + before;
    }

    void write(const Element& element) {
        constexpr std::size_t kAlignment = 8;
        constexpr std::size_t kZeroAndType = 2;
        const std::size_t padding = alignedTo(kAlignment, bytes->len) - bytes->len;
        const std::size_t value = element.bytes.size();
        const std::size_t terminator = element.type == kText ? 1 : 0;
        guint8* at = grow(padding + value + terminator + kZeroAndType);
        std::memset(at, 0, padding);
        std::memcpy(at + padding, element.bytes.data(), value);
        at += padding + value;
        std::memset(at, 0, terminator + 1);
        at[terminator + 1] = static_cast<guint8>(element.type);
        ends.push_back(bytes->len);
    }

    // In words just wide enough for the size of the whole.
    void writeEnds() {
        const auto wholeWith = [this](std::size_t width) {
            return bytes->len + width * ends.size();
        };
        const std::size_t width = wholeWith(1) <= std::numeric_limits<std::uint8_t>::max()    ? 1
                                  : wholeWith(2) <= std::numeric_limits<std::uint16_t>::max() ? 2
                                                                                              : 4;
        guint8* at = grow(width * ends.size());
        for (const std::uint32_t end : ends) {
            const std::uint32_t word = GUINT32_TO_LE(end);
            std::memcpy(at, &word, width);
            at += width;
        }
    }

    std::size_t byteLimit;
    std::size_t marshalled = sizeof(std::uint32_t);  // the length word of the array
    std::unique_ptr<GByteArray, UnrefArray> bytes;
    std::vector<std::uint32_t> ends;  // 32 bits: a message is far smaller
};

// A tuple, of one value for each element: it never holds many.
class TupleWriter {
public:
    bool add(const Record& record) {
        if (records == kMaxTupleRecords) {
            return false;
        }
        ++records;
        std::transform(record.begin(), record.end(), std::back_inserter(elements), valueOf);
        return true;
    }

    EncodedList finish() const {
        return {g_variant_new_tuple(elements.data(), elements.size()), records};
    }

private:
    static GVariant* valueOf(const Element& element) {
        switch (element.type) {
            case kText:
                return g_variant_new_take_string(
                    g_strndup(element.bytes.data(), element.bytes.size()));
            case kQuad:
                return g_variant_new_uint64(numberIn<std::uint64_t>(element));
            case static_cast<char>(KindWord::Signed):
                return g_variant_new_int32(numberIn<std::int32_t>(element));
            default:
                return g_variant_new_uint32(numberIn<std::uint32_t>(element));
        }
    }

    std::vector<GVariant*> elements;
    std::size_t records = 0;
};

template <typename Writer>
EncodedList encodeSticks(const std::vector<UsbStickInfo>& sticks, Writer writer) {
    bool fits = true;
    for (auto stick = sticks.begin(); stick != sticks.end() && fits; ++stick) {
        const Text name(stick->name);
        const Text mountName(stick->mountName);
        fits = writer.add({element(name), element(mountName), element(kQuad, stick->totalBytes),
                           element(kQuad, stick->freeBytes)});
    }
    return writer.finish();
}

template <typename Writer>
EncodedList encodeFiles(const std::vector<FileEntry>& entries, KindWord word, Writer writer) {
    bool fits = true;
    for (auto entry = entries.begin(); entry != entries.end() && fits; ++entry) {
        const Text name(entry->name);
        const Text location(*entry->location);
        fits = writer.add({element(static_cast<char>(word), entry->kind), element(name),
                           element(kQuad, entry->size), element(location)});
    }
    return writer.finish();
}

// Kept: clients that see no entry still find a tuple of one record's shape.
EncodedList placeholder(GVariant* tuple) {
    return {tuple, 0};
}

}  // namespace

EncodedList stickArray(const std::vector<UsbStickInfo>& sticks) {
    return encodeSticks(sticks, ArrayWriter(sticks.size(), kMaxArrayBytes));
}

EncodedList stickTuple(const std::vector<UsbStickInfo>& sticks) {
    return sticks.empty()
               ? placeholder(g_variant_new("(sstt)", "", "", std::uint64_t{0}, std::uint64_t{0}))
               : encodeSticks(sticks, TupleWriter());
}

EncodedList fileArray(const std::vector<FileEntry>& entries, std::size_t maxBytes) {
    return encodeFiles(entries, KindWord::Unsigned, ArrayWriter(entries.size(), maxBytes));
}

EncodedList fileTuple(const std::vector<FileEntry>& entries, KindWord kindWord) {
    return entries.empty()
               ? placeholder(g_variant_new("(usts)", std::uint32_t{0}, "", std::uint64_t{0}, ""))
               : encodeFiles(entries, kindWord, TupleWriter());
}

std::string validText(const std::string& bytes) {
    return std::string(Text(bytes).get());
}

}  // namespace reply
