// The committed replies and descriptions of tests/golden.
#pragma once

#include <gio/gio.h>

#include <map>
#include <string>

namespace test_support {

// The text of tests/golden/<file>; fails the test and is empty when it cannot be read.
std::string goldenText(const std::string& file);

// A reply as golden files hold it: its type and its value, each a line. Null gives "".
std::string typeAndText(GVariant* reply);

// A golden file of replies by title: blocks of a title, then typeAndText(), then an empty line.
std::map<std::string, std::string> goldenReplies(const std::string& file);

}  // namespace test_support
