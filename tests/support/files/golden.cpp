// The committed replies and descriptions of tests/golden.
#include "tests/support/files/golden.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/bus/system_bus.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"

namespace test_support {

std::string goldenText(const std::string& file) {
    std::string text = readFile(sourcePath("tests/golden/" + file));
    EXPECT_NE(text, "") << "no golden text " << file;
    return text;
}

std::string typeAndText(GVariant* reply) {
    return reply == nullptr
               ? ""
               : std::string(g_variant_get_type_string(reply)) + "\n" + asText(reply) + "\n";
}

std::map<std::string, std::string> goldenReplies(const std::string& file) {
    std::map<std::string, std::string> replies;
    std::istringstream text(goldenText(file));
    std::string title;
    for (std::string line; std::getline(text, line);) {
        if (line.empty()) {
            title.clear();
        } else if (title.empty()) {
            title = line;
        } else {
            replies[title] += line + "\n";
        }
    }
    return replies;
}

}  // namespace test_support
