// Texts that a client should not send.
#include "tests/fuzz/hostile_text.h"

#include <array>

namespace fuzz {
namespace {

constexpr std::size_t kMegabyte = 1024U * 1024U;
constexpr char32_t kPlane = 0x10000;
constexpr char32_t kPlanes = 17;
constexpr char32_t kSurrogates = 0xD800;
constexpr char32_t kAfterSurrogates = 0xE000;

template <std::size_t count>
std::string oneOf(Random& random, const std::array<const char*, count>& texts) {
    return texts.at(upTo(random, count - 1));
}

void append(std::string& text, char32_t point) {
    const auto tail = [point](unsigned shift) {
        return static_cast<char>(0x80U | ((point >> shift) & 0x3FU));
    };
    if (point < 0x80) {
        text += static_cast<char>(point);
    } else if (point < 0x800) {
        text += {static_cast<char>(0xC0U | point >> 6U), tail(0)};
    } else if (point < kPlane) {
        text += {static_cast<char>(0xE0U | point >> 12U), tail(6), tail(0)};
    } else {
        text += {static_cast<char>(0xF0U | point >> 18U), tail(12), tail(6), tail(0)};
    }
}

// Each plane as likely as any other.
std::string unicodeText(Random& random) {
    std::string text;
    for (std::size_t left = upTo(random, 40); left > 0; --left) {
        const auto plane = static_cast<char32_t>(upTo(random, kPlanes - 1));
        const char32_t point = plane * kPlane + static_cast<char32_t>(upTo(random, kPlane - 1));
        if (point != 0 && (point < kSurrogates || point >= kAfterSurrogates)) {
            append(text, point);
        }
    }
    return text;
}

std::string controlText(Random& random) {
    std::string text;
    for (std::size_t left = upTo(random, 20); left > 0; --left) {
        text += static_cast<char>(1 + upTo(random, 0x1E));
    }
    return text + "\x7F";
}

}  // namespace

std::size_t upTo(Random& random, std::size_t most) {
    return std::uniform_int_distribution<std::size_t>(0, most)(random);
}

std::string hostileText(Random& random) {
    switch (upTo(random, 9)) {
        case 0:
            return "";
        case 1:
            return unicodeText(random);
        case 2:
            return controlText(random);
        case 3:
            return upTo(random, 99) == 0 ? std::string(kMegabyte, 'x')
                                         : std::string(upTo(random, 6000), '/');
        case 4:
            return std::string(upTo(random, 600), "a./%~\\"[upTo(random, 5)]);
        default:
            return oneOf(random,
                         std::array<const char*, 16>{"%n%n%s%s%s", "%99999d", "..", ".", "/", "//",
                                                     "\\", "\"'`$(id)", "a\nb", "-rf", "*", "~",
                                                     "null", ".psb", ".fwf", "\xEF\xBF\xBF"});
    }
}

std::string hostilePath(Random& random) {
    std::string path;
    for (std::size_t left = upTo(random, 4); left > 0; --left) {
        path += upTo(random, 3) == 0
                    ? hostileText(random)
                    : oneOf(random, std::array<const char*, 14>{
                                        "a", "b", "c", "deep", "a.psb", "b.fwf", "..", ".",
                                        "USB_X60.1", "USB_X60.2", "set.psb", "loop", "usr", "tmp"});
        path += left > 1 ? "/" : "";
    }
    return path;
}

std::string hostileMount(Random& random) {
    const std::size_t choice = upTo(random, 9);
    if (choice < 7) {
        return oneOf(random, std::array<const char*, 4>{"USB_X60.1", "USB_X60.2", "USB_X60.3", ""});
    }
    return choice == 7 ? hostileText(random) : hostilePath(random);
}

}  // namespace fuzz
