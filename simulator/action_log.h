// The simulator's account of what it does: readable lines on standard output.
#pragma once

#include <string>

// `text` with everything that is not printable shown as escapes, so that any bytes may go to a
// terminal and into a UTF-8 text.
std::string printable(const std::string& text);

// Prints one line (time, action, outcome) at once. Any thread.
void logAction(const std::string& action, const std::string& outcome);
