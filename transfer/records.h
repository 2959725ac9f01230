// The records that the transfer manager hands to the bus side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// One mounted USB stick.
struct UsbStickInfo {
    std::string name;  // "USB_X60.n": the mount identifier that the other operations take
    std::string mountName;  // Kept: the same string
    std::uint64_t totalBytes;
    std::uint64_t freeBytes;  // bytes, the blocks reserved for the super-user included
};

// One entry of a directory on a stick. Strings are bytes as the file system gives them, not always
// UTF-8.
struct FileEntry {
    std::uint32_t kind;  // kDirectory or kOther
    std::string name;
    std::int64_t size;  // bytes, for directories too
    std::string location;  // the holding directory relative to the stick's root, "/" for the root
    std::string reserved{};  // always empty

    static constexpr std::uint32_t kDirectory = 0;
    static constexpr std::uint32_t kOther = 1;
};

// The memory of a list with more entries than this is worth giving back.
inline constexpr std::size_t kLongList = 1'000;
