// Standard output and standard error of the commands.
#pragma once

#include <string>

#include "transferctl/table.h"

namespace transferctl {

// Writes a text that is safe to show, at once. Throws Failure (refused) when it cannot be written.
void print(const std::string& safeText);

// The table as standard output wants it: aligned on a terminal, with tabs otherwise.
void print(const Table& table);

// A line for people on standard error; `text` may hold any bytes.
void note(const std::string& text);

// Whether standard error is a terminal, where a progress line may be drawn.
bool notesGoToTerminal();

// Columns of the terminal at standard error, 80 when it does not tell.
std::size_t terminalWidth();

}  // namespace transferctl
