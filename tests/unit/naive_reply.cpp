// The same values as transfer/reply_encoding makes, made in the plainest way.
#include "tests/unit/naive_reply.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/bus/system_bus.h"

namespace test_support {
namespace {

using reply::KindWord;

// Adds an element, in a box of its own when the builder makes an array.
void add(GVariantBuilder* builder, bool boxed, GVariant* element) {
    g_variant_builder_add_value(builder, boxed ? g_variant_new_variant(element) : element);
}

void addText(GVariantBuilder* builder, bool boxed, const std::string& bytes) {
    add(builder, boxed, g_variant_new_string(naiveValidText(bytes).c_str()));
}

GVariant* build(const std::vector<UsbStickInfo>& sticks, bool boxed) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, boxed ? G_VARIANT_TYPE("av") : G_VARIANT_TYPE_TUPLE);
    for (const UsbStickInfo& stick : sticks) {
        addText(&builder, boxed, stick.name);
        addText(&builder, boxed, stick.mountName);
        add(&builder, boxed, g_variant_new_uint64(stick.totalBytes));
        add(&builder, boxed, g_variant_new_uint64(stick.freeBytes));
    }
    return g_variant_builder_end(&builder);
}

GVariant* build(const std::vector<FileEntry>& entries, bool boxed, KindWord kindWord) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, boxed ? G_VARIANT_TYPE("av") : G_VARIANT_TYPE_TUPLE);
    for (const FileEntry& entry : entries) {
        add(&builder, boxed,
            kindWord == KindWord::Unsigned
                ? g_variant_new_uint32(entry.kind)
                : g_variant_new_int32(static_cast<std::int32_t>(entry.kind)));
        addText(&builder, boxed, entry.name);
        add(&builder, boxed, g_variant_new_uint64(static_cast<std::uint64_t>(entry.size)));
        addText(&builder, boxed, *entry.location);
    }
    return g_variant_builder_end(&builder);
}

// The length of the well-formed character that `bytes` has at `from`, 0 when there is none.
std::size_t characterAt(const std::string& bytes, std::size_t from) {
    const auto byte = [&](std::size_t i) {
        return from + i < bytes.size() ? static_cast<unsigned char>(bytes[from + i]) : 0U;
    };
    const unsigned lead = byte(0);
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0x80 ? 2 : 1;
    if (length == 1) {
        return lead != 0 ? 1 : 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80U) {
            return 0;
        }
    }
    const bool tooLong =
        lead < 0xC2 || (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool surrogate = lead == 0xED && byte(1) >= 0xA0;
    const bool tooLarge = lead > 0xF4 || (lead == 0xF4 && byte(1) >= 0x90);
    return tooLong || surrogate || tooLarge ? 0 : length;
}

}  // namespace

GVariant* naiveArray(const std::vector<UsbStickInfo>& sticks) {
    return build(sticks, true);
}

GVariant* naiveArray(const std::vector<FileEntry>& entries) {
    return build(entries, true, KindWord::Unsigned);
}

GVariant* naiveTuple(const std::vector<UsbStickInfo>& sticks) {
    return build(sticks, false);
}

GVariant* naiveTuple(const std::vector<FileEntry>& entries, KindWord kindWord) {
    return build(entries, false, kindWord);
}

std::string naiveValidText(const std::string& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size();) {
        const std::size_t length = characterAt(bytes, i);
        text += length > 0 ? bytes.substr(i, length) : "\xEF\xBF\xBD";
        i += length > 0 ? length : 1;
    }
    return text;
}

std::string marshalledBody(GVariant* body) {
    const ObjectPtr<GDBusMessage> message(
        g_dbus_message_new_method_call(nullptr, "/a", "a.b", "c"));
    g_dbus_message_set_serial(message.get(), 1);
    g_dbus_message_set_body(message.get(), g_variant_new_tuple(&body, 1));
    gsize size = 0;
    g_autofree guchar* blob =
        g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
    guint32 bodySize = 0;
    if (blob == nullptr || size < 8) {
        ADD_FAILURE() << "a message that cannot be marshalled";
        return {};
    }
    std::memcpy(&bodySize, blob + 4, sizeof bodySize);  // its place in the header
    return {reinterpret_cast<const char*>(blob + size - bodySize), bodySize};
}

std::size_t marshalledSize(GVariant* body) {
    return marshalledBody(body).size();
}

}  // namespace test_support
