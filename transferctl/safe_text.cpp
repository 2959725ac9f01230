// Text of any bytes made safe for a terminal.
#include "transferctl/safe_text.h"

#include <glib.h>

namespace transferctl {
namespace {

constexpr gunichar kZeroWidthNonJoiner = 0x200C;
constexpr gunichar kZeroWidthJoiner = 0x200D;
constexpr gunichar kEndOfAscii = 0x80;
constexpr gunichar kEndOfBasicPlane = 0x10000;

// Whether a terminal acts on the character or hides it. Some scripts cannot be read without the two
// zero-width joiners.
bool isUnsafe(gunichar character) {
    switch (g_unichar_type(character)) {
        case G_UNICODE_CONTROL:
        case G_UNICODE_LINE_SEPARATOR:
        case G_UNICODE_PARAGRAPH_SEPARATOR:
            return true;
        case G_UNICODE_FORMAT:
            return character != kZeroWidthNonJoiner && character != kZeroWidthJoiner;
        default:
            return false;
    }
}

std::string hexadecimal(const char* prefix, int digits, unsigned number) {
    g_autofree gchar* text = g_strdup_printf("%s%0*x", prefix, digits, number);
    return text;
}

std::string escaped(gunichar character) {
    if (character < kEndOfAscii) {
        return hexadecimal("\\x", 2, character);
    }
    return character < kEndOfBasicPlane ? hexadecimal("\\u", 4, character)
                                        : hexadecimal("\\U", 8, character);
}

// JSON knows UTF-16 units only.
std::string escapedForJson(gunichar character) {
    glong count = 0;
    g_autofree gunichar2* units = g_ucs4_to_utf16(&character, 1, nullptr, &count, nullptr);
    std::string text;
    for (glong i = 0; i < count; ++i) {
        text += hexadecimal("\\u", 4, units[i]);
    }
    return text;
}

}  // namespace

std::string safeText(std::string_view bytes) {
    std::string safe;
    while (!bytes.empty()) {
        const auto size = static_cast<gssize>(bytes.size());
        const gunichar character = g_utf8_get_char_validated(bytes.data(), size);
        std::size_t length = 1;
        if (g_unichar_validate(character) == FALSE) {
            safe += hexadecimal("\\x", 2, static_cast<unsigned char>(bytes.front()));
        } else {
            length = static_cast<std::size_t>(g_unichar_to_utf8(character, nullptr));
            safe += isUnsafe(character) ? escaped(character) : bytes.substr(0, length);
            safe += character == '\\' ? "\\" : "";
        }
        bytes.remove_prefix(length);
    }
    return safe;
}

std::string safeJson(const std::string& json) {
    std::string safe;
    for (const char* at = json.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar character = g_utf8_get_char(at);
        const char* const next = g_utf8_next_char(at);
        safe += isUnsafe(character) ? escapedForJson(character) : std::string(at, next);
    }
    return safe;
}

std::size_t displayWidth(const std::string& text) {
    std::size_t width = 0;
    for (const char* at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar character = g_utf8_get_char(at);
        if (g_unichar_iszerowidth(character) == FALSE) {
            width += g_unichar_iswide(character) != FALSE ? 2 : 1;
        }
    }
    return width;
}

}  // namespace transferctl
