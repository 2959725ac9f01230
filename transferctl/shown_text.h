// Names of any bytes as a terminal may see them.
#pragma once

#include <glib.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace transferctl {

// Whether a terminal would act on the character instead of showing it: controls, marks of writing
// direction and other invisible format characters, line separators. The two zero-width joiners
// are let through, some scripts cannot be read without them.
bool isUnsafe(gunichar character);

// The text with `\xNN` for each control below U+0080 and each byte that is not UTF-8, `\uNNNN` or
// `\UNNNNNNNN` for other unsafe characters, and `\\` for a backslash, so that no two texts look
// alike by it. Always valid UTF-8.
std::string shownSafely(std::string_view bytes);

// Columns of a terminal that a text from shownSafely takes.
std::size_t displayWidth(std::string_view shown);

// A JSON text on one line, unsafe characters in its strings replaced by JSON's own `\uNNNN`.
std::string safeJson(std::string_view json);

}  // namespace transferctl
