// Names of any bytes as a terminal may see them.
#include "transferctl/shown_text.h"

#include <array>
#include <cstdio>
#include <optional>

namespace transferctl {
namespace {

constexpr gunichar kZeroWidthNonJoiner = 0x200C;
constexpr gunichar kZeroWidthJoiner = 0x200D;
constexpr gunichar kEndOfAscii = 0x80;
constexpr gunichar kBeyondBasicPlane = 0x10000;
constexpr gunichar kHighSurrogates = 0xD800;
constexpr gunichar kLowSurrogates = 0xDC00;
constexpr gunichar kSurrogateMask = 0x3FF;
constexpr unsigned kSurrogateBits = 10;

// The first character of a text, and its bytes; no code when the first byte is not UTF-8.
struct Character {
    std::optional<gunichar> code;
    std::string_view bytes;
};

Character firstOf(std::string_view text) {
    const gunichar code = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    if (g_unichar_validate(code) == FALSE) {
        return {std::nullopt, text.substr(0, 1)};
    }
    return {code, text.substr(0, static_cast<std::size_t>(g_unichar_to_utf8(code, nullptr)))};
}

// A backslash, a letter and so many hexadecimal digits.
std::string escape(char letter, int digits, gunichar number) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "\\%c%0*x", letter, digits, number);
    return text.data();
}

std::string escaped(const Character& character) {
    if (!character.code) {
        return escape('x', 2, static_cast<unsigned char>(character.bytes.front()));
    }
    const gunichar code = *character.code;
    if (code < kEndOfAscii) {
        return escape('x', 2, code);
    }
    return code < kBeyondBasicPlane ? escape('u', 4, code) : escape('U', 8, code);
}

std::string jsonEscaped(gunichar code) {
    if (code < kBeyondBasicPlane) {
        return escape('u', 4, code);
    }
    const gunichar offset = code - kBeyondBasicPlane;
    return escape('u', 4, kHighSurrogates + (offset >> kSurrogateBits)) +
           escape('u', 4, kLowSurrogates + (offset & kSurrogateMask));
}

}  // namespace

bool isUnsafe(gunichar character) {
    switch (g_unichar_type(character)) {
        case G_UNICODE_CONTROL:
        case G_UNICODE_LINE_SEPARATOR:
        case G_UNICODE_PARAGRAPH_SEPARATOR:
        case G_UNICODE_SURROGATE:
            return true;
        case G_UNICODE_FORMAT:
            return character != kZeroWidthNonJoiner && character != kZeroWidthJoiner;
        default:
            return false;
    }
}

std::string shownSafely(std::string_view bytes) {
    std::string shown;
    while (!bytes.empty()) {
        const Character character = firstOf(bytes);
        bytes.remove_prefix(character.bytes.size());
        if (!character.code || isUnsafe(*character.code)) {
            shown += escaped(character);
        } else if (*character.code == '\\') {
            shown += "\\\\";
        } else {
            shown += character.bytes;
        }
    }
    return shown;
}

std::size_t displayWidth(std::string_view shown) {
    std::size_t width = 0;
    while (!shown.empty()) {
        const Character character = firstOf(shown);
        shown.remove_prefix(character.bytes.size());
        const gunichar code = character.code.value_or('?');
        if (g_unichar_iszerowidth(code) == FALSE) {
            width += g_unichar_iswide(code) != FALSE ? 2 : 1;
        }
    }
    return width;
}

std::string safeJson(std::string_view json) {
    std::string safe;
    while (!json.empty()) {
        const Character character = firstOf(json);
        json.remove_prefix(character.bytes.size());
        if (character.code && isUnsafe(*character.code)) {
            safe += jsonEscaped(*character.code);
        } else {
            safe += character.bytes;
        }
    }
    return safe;
}

}  // namespace transferctl
