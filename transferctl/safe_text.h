// Text of any bytes made safe for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace transferctl {

// The string with `\xNN` for each ASCII control and each byte that is not UTF-8, `\uNNNN` or
// `\UNNNNNNNN` for other characters that a terminal acts on or hides, and `\\` for a backslash:
// different strings stay different. Always valid UTF-8.
std::string safeText(std::string_view bytes);

// JSON with `\uNNNN` for each such character, which every reader turns back.
std::string safeJson(const std::string& json);

// Columns of a terminal that valid UTF-8 takes.
std::size_t displayWidth(const std::string& text);

}  // namespace transferctl
