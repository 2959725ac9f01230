// Two sticks with files, directories and links, and random names of what is on them and what is
// not.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "tests/support/device/stick.h"

namespace test_support {

class OddSticks {
public:
    explicit OddSticks(unsigned seed);

    // A mount identifier and a path, as nobody should send them.
    std::string mount();
    std::string path();

    const std::string& oneOf(const std::vector<std::string>& words) {
        return words.at(random_() % words.size());
    }

private:
    std::mt19937 random_;
    const Stick first_{1};
    const Stick second_{2, {"16m", "/dev/sdb1"}};
};

// "/media/usb/<mount>/<path>".
std::string targetOf(const std::string& mount, const std::string& path);

// Whether nothing outside of the sticks is there.
bool staysOnSticks(const std::string& target);

// The same place with the links before the last component followed; "" when a parent is missing.
std::string physicalPath(std::string target);

}  // namespace test_support
