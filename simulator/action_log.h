// The simulator's account of what it does: readable lines on standard output.
#pragma once

#include <string>

// `text` with escapes such as \033 for every byte but printable ASCII.
std::string printable(const std::string& text);

// Prints one line (time, action, outcome) at once. Any thread.
void logAction(const std::string& action, const std::string& outcome);
