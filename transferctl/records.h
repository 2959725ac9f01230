// What the service's lists hold.
#pragma once

#include <cstdint>
#include <string>

#include "transferctl/stick_path.h"

namespace transferctl {

struct Stick {
    std::string name;
    std::uint64_t size = 0;  // bytes
    std::uint64_t free = 0;
};

struct File {
    bool isDirectory = false;
    std::string name;
    std::uint64_t size = 0;  // bytes
    StickPath place;  // stick and path of the file itself
};

}  // namespace transferctl
