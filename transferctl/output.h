// What the commands print: text, tables and JSON on standard output, notes on standard error.
#pragma once

#include <glib.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "transferctl/transfer_client.h"

namespace transferctl {

// The string with `\xNN` for each ASCII control and each byte that is not UTF-8, `\uNNNN` or
// `\UNNNNNNNN` for other characters that a terminal acts on or hides, and `\\` for a backslash:
// different strings stay different. Always valid UTF-8.
std::string safeText(std::string_view bytes);

// JSON with `\uNNNN` for each such character, which every reader turns back.
std::string safeJson(const std::string& json);

// Columns of a terminal that valid UTF-8 takes.
std::size_t displayWidth(const std::string& text);

// Writes and flushes. Throws Failure (refused) when standard output cannot be written.
void print(const std::string& safe);

// Prints one value, a floating one is taken over, as JSON on one line.
void printJson(GVariant* value);

// {"name": …, "size": …, "free": …}; floating.
GVariant* jsonOf(const Stick& stick);

// The number for JSON, whose readers take 2^63-1 at most.
gint64 jsonNumber(std::uint64_t value);

// A line on standard error; `text` may hold any bytes.
void note(const std::string& text);

// "1.8 KiB", "16.0 MiB"; below 1024 in bytes.
std::string humanSize(std::uint64_t bytes);

// Minutes and seconds: "0:05", "62:03".
std::string humanDuration(std::chrono::milliseconds time);

// A table whose first column is a name: aligned, with titles and units, for people; a line of
// exact values between tabs for each row otherwise.
class Table {
public:
    explicit Table(std::vector<std::string> titles, bool isForPeople = isatty(STDOUT_FILENO) != 0);

    // A row of as many safe strings as there are titles.
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    // The contents of cells: a number of bytes, and its share of a whole.
    std::string size(std::uint64_t bytes) const;
    std::string used(std::uint64_t bytes, std::uint64_t whole) const;

    // Nothing when there are no rows.
    std::string text() const;

private:
    bool isForPeople_;
    std::vector<std::vector<std::string>> rows_;  // with the titles, for people
};

}  // namespace transferctl
