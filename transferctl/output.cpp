// What the commands print: text, tables and JSON on standard output, notes on standard error.
#include "transferctl/output.h"

#include <json-glib/json-glib.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include "transferctl/failure.h"

namespace transferctl {
namespace {

constexpr std::string_view kNoBreakSpace = "\u00a0";
constexpr double kPercent = 100;
constexpr int kSecondsPerMinute = 60;
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

void print(const std::string& safe) {
    const bool isWritten = std::fwrite(safe.data(), 1, safe.size(), stdout) == safe.size();
    if (!isWritten || std::fflush(stdout) != 0) {
        throw refused("cannot write to standard output");
    }
}

void printJson(GVariant* value) {
    g_autoptr(GVariant) object = g_variant_ref_sink(value);
    g_autofree gchar* json = json_gvariant_serialize_data(object, nullptr);
    print(safeJson(json) + "\n");
}

GVariant* jsonOf(const Stick& stick) {
    return g_variant_new_parsed("{'name': <%s>, 'size': <%x>, 'free': <%x>}", stick.name.c_str(),
                                jsonNumber(stick.size), jsonNumber(stick.free));
}

gint64 jsonNumber(std::uint64_t value) {
    constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<gint64>::max());
    return static_cast<gint64>(std::min(value, kLargest));
}

void note(const std::string& text) {
    std::fputs(("transferctl: " + safeText(text) + "\n").c_str(), stderr);
}

std::string humanSize(std::uint64_t bytes) {
    g_autofree gchar* text = g_format_size_full(bytes, G_FORMAT_SIZE_IEC_UNITS);
    std::string size = text;
    const std::size_t gap = size.find(kNoBreakSpace);
    return gap == std::string::npos ? size : size.replace(gap, kNoBreakSpace.size(), " ");
}

std::string humanDuration(std::chrono::milliseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    const std::string rest = std::to_string(seconds % kSecondsPerMinute);
    return std::to_string(seconds / kSecondsPerMinute) + (rest.size() < 2 ? ":0" : ":") + rest;
}

Table::Table(std::vector<std::string> titles, bool isForPeople) : isForPeople_(isForPeople) {
    if (isForPeople_) {
        rows_.push_back(std::move(titles));
    }
}

std::string Table::size(std::uint64_t bytes) const {
    return isForPeople_ ? humanSize(bytes) : std::to_string(bytes);
}

std::string Table::used(std::uint64_t bytes, std::uint64_t whole) const {
    if (!isForPeople_) {
        return std::to_string(bytes);
    }
    const double share = static_cast<double>(bytes) * kPercent / static_cast<double>(whole);
    return whole > 0 ? std::to_string(static_cast<int>(share)) + " %" : "-";
}

std::string Table::text() const {
    if (rows_.size() <= (isForPeople_ ? 1 : 0)) {
        return {};
    }
    std::vector<std::size_t> widths(rows_.front().size());
    for (const std::vector<std::string>& row : rows_) {
        for (std::size_t column = 0; isForPeople_ && column < row.size(); ++column) {
            widths[column] = std::max(widths[column], displayWidth(row[column]));
        }
    }
    std::string text;
    for (const std::vector<std::string>& row : rows_) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::size_t width = displayWidth(row[column]);
            const std::string padding(std::max(widths[column], width) - width, ' ');
            const char* const gap = isForPeople_ ? "  " : "\t";
            text += column == 0 ? row[column] + padding : gap + padding + row[column];
        }
        text += '\n';
    }
    return text;
}

}  // namespace transferctl
