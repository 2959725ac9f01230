// Any records as replies: what the bus can carry, holding the records that fit, in order.
#include <gio/gio.h>

#include <cstring>
#include <memory>
#include <vector>

#include "tests/fuzz/target.h"
#include "transfer/reply_encoding.h"

namespace {

constexpr std::size_t kLongestSignature = 255;

struct Unref {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};

struct UnrefObject {
    void operator()(GDBusMessage* message) const { g_object_unref(message); }
};

// As the bus carries it: the bytes of the body of a message that holds just the value, which has to
// be readable again.
std::size_t marshalledSize(GVariant* value) {
    const std::unique_ptr<GDBusMessage, UnrefObject> message(
        g_dbus_message_new_signal("/fuzz", "fuzz.Reply", "Sent"));
    g_dbus_message_set_serial(message.get(), 1);
    g_dbus_message_set_byte_order(message.get(), G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN);
    g_dbus_message_set_body(message.get(), g_variant_new_tuple(&value, 1));
    gsize size = 0;
    const std::unique_ptr<guchar, decltype(&g_free)> blob(
        g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr),
        g_free);
    fuzz::require(blob != nullptr, "the value can be sent");
    const std::unique_ptr<GDBusMessage, UnrefObject> received(
        g_dbus_message_new_from_blob(blob.get(), size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    fuzz::require(received != nullptr, "the value can be received");
    GVariant* const body = g_dbus_message_get_body(received.get());
    const std::unique_ptr<GVariant, Unref> sent(g_variant_get_child_value(body, 0));
    fuzz::require(g_variant_equal(sent.get(), value) != FALSE, "what is received was sent");
    std::uint32_t bytes = 0;  // the second word of a message
    std::memcpy(&bytes, blob.get() + 4, sizeof bytes);
    return GUINT32_FROM_LE(bytes);
}

// As read by somebody who trusts nothing: the service vouches for what it has written.
bool isValid(GVariant* value) {
    const std::unique_ptr<GBytes, decltype(&g_bytes_unref)> bytes(
        g_variant_get_data_as_bytes(value), g_bytes_unref);
    const std::unique_ptr<GVariant, Unref> untrusted(g_variant_ref_sink(
        g_variant_new_from_bytes(g_variant_get_type(value), bytes.get(), FALSE)));
    return g_variant_is_normal_form(untrusted.get()) != FALSE;
}

void checkCarriable(GVariant* value, std::size_t bytes) {
    const char* const signature = g_variant_get_type_string(value);
    fuzz::require(std::strlen(signature) <= kLongestSignature, "the signature is short enough");
    fuzz::require(isValid(value), "the value is valid");
    fuzz::require(marshalledSize(value) <= bytes, "the size is bounded");
}

// The element at `at` of a flat list, out of its box in an array.
std::unique_ptr<GVariant, Unref> elementAt(GVariant* list, std::size_t at) {
    std::unique_ptr<GVariant, Unref> element(g_variant_get_child_value(list, at));
    if (g_variant_is_of_type(element.get(), G_VARIANT_TYPE_VARIANT) != FALSE) {
        element.reset(g_variant_get_variant(element.get()));
    }
    return element;
}

void checkText(GVariant* list, std::size_t at, const std::string& bytes) {
    const auto element = elementAt(list, at);
    fuzz::require(g_variant_is_of_type(element.get(), G_VARIANT_TYPE_STRING) != FALSE, "a text");
    const std::string sent = g_variant_get_string(element.get(), nullptr);
    fuzz::require(g_utf8_validate(sent.c_str(), -1, nullptr) != FALSE, "a text is UTF-8");
    const bool valid =
        g_utf8_validate(bytes.data(), static_cast<gssize>(bytes.size()), nullptr) != FALSE;
    fuzz::require(!valid || sent == bytes, "valid text goes out as it is");
    fuzz::require(reply::validText(bytes) == sent || !valid, "and is shown as it is sent");
}

void checkNumber(GVariant* list, std::size_t at, std::uint64_t number) {
    const auto element = elementAt(list, at);
    fuzz::require(g_variant_get_uint64(element.get()) == number, "a number is kept");
}

void checkKind(GVariant* list, std::size_t at, std::uint32_t kind, bool isSigned) {
    const auto element = elementAt(list, at);
    const std::uint32_t sent = isSigned
                                   ? static_cast<std::uint32_t>(g_variant_get_int32(element.get()))
                                   : g_variant_get_uint32(element.get());
    fuzz::require(sent == kind, "a kind is kept");
}

void checkFiles(const reply::EncodedList& encoded, const std::vector<FileEntry>& entries,
                bool isSigned, std::size_t bytes) {
    const std::unique_ptr<GVariant, Unref> list(g_variant_ref_sink(encoded.value));
    checkCarriable(list.get(), bytes);
    fuzz::require(encoded.records <= entries.size(), "no record is made up");
    for (std::size_t i = 0; i < encoded.records; ++i) {
        checkKind(list.get(), 4 * i, entries[i].kind, isSigned);
        checkText(list.get(), 4 * i + 1, entries[i].name);
        checkNumber(list.get(), 4 * i + 2, static_cast<std::uint64_t>(entries[i].size));
        checkText(list.get(), 4 * i + 3, *entries[i].location);
    }
}

void checkSticks(const reply::EncodedList& encoded, const std::vector<UsbStickInfo>& sticks) {
    const std::unique_ptr<GVariant, Unref> list(g_variant_ref_sink(encoded.value));
    checkCarriable(list.get(), reply::kMaxArrayBytes);
    for (std::size_t i = 0; i < encoded.records; ++i) {
        checkText(list.get(), 4 * i, sticks[i].name);
        checkText(list.get(), 4 * i + 1, sticks[i].mountName);
        checkNumber(list.get(), 4 * i + 2, sticks[i].totalBytes);
        checkNumber(list.get(), 4 * i + 3, sticks[i].freeBytes);
    }
}

}  // namespace

// Names come from a file system or the settings, so none holds a zero byte.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t maxBytes = 4 + input.number() % 4096;  // an empty array has four
    std::vector<FileEntry> entries;
    std::vector<UsbStickInfo> sticks;
    while (!input.isEmpty()) {
        const auto kind = static_cast<std::uint32_t>(input.number());
        const SharedText location = input.upTo(2) == 0 || entries.empty()
                                        ? sharedText(fuzz::upToZero(input.text()))
                                        : entries.back().location;
        const std::string name = fuzz::upToZero(input.text());
        entries.push_back({kind, name, static_cast<std::int64_t>(input.number()), location});
        sticks.push_back({name, *location, input.number(), input.number()});
    }
    checkFiles(reply::fileArray(entries, maxBytes), entries, false, maxBytes);
    checkFiles(reply::fileArray(entries), entries, false, reply::kMaxArrayBytes);
    const std::size_t inTuple = std::min(entries.size(), reply::kMaxTupleRecords);
    for (const bool isSigned : {false, true}) {
        const auto word = isSigned ? reply::KindWord::Signed : reply::KindWord::Unsigned;
        const reply::EncodedList tuple = reply::fileTuple(entries, word);
        fuzz::require(tuple.records == inTuple, "a tuple is cut at its limit only");
        checkFiles(tuple, entries, isSigned, reply::kMaxArrayBytes);
    }
    checkSticks(reply::stickArray(sticks), sticks);
    checkSticks(reply::stickTuple(sticks), sticks);
    return 0;
}
