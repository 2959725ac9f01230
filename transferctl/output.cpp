// What the commands print: text, tables and JSON on standard output, notes on standard error.
#include "transferctl/output.h"

#include <json-glib/json-glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include "transferctl/failure.h"
#include "transferctl/safe_text.h"

namespace transferctl {
namespace {

constexpr std::string_view kNoBreakSpace = "\u00a0";
constexpr double kPercent = 100;
constexpr int kSecondsPerMinute = 60;

}  // namespace

void print(const std::string& safeText) {
    const bool isWritten =
        std::fwrite(safeText.data(), 1, safeText.size(), stdout) == safeText.size();
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

Table::Table(std::vector<std::string> titles)
    : Table(std::move(titles), isatty(STDOUT_FILENO) != 0) {}

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
