// The records that the transfer manager hands to the bus side.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

// One mounted USB stick.
struct UsbStickInfo {
    std::string name;  // "USB_X60.n": the mount identifier that the other operations take
    std::string mountName;  // the same text; both are part of the bus contract
    std::uint64_t totalBytes;
    std::uint64_t freeBytes;  // counted in blocks free to the super-user
};

// A text that never changes and that many records have in common.
using SharedText = std::shared_ptr<const std::string>;

inline SharedText sharedText(std::string text) {
    return std::make_shared<const std::string>(std::move(text));
}

// One entry of a directory on a stick. Texts are bytes as the file system gives them, not always
// UTF-8. Kept small: a directory may have a hundred thousand.
struct FileEntry {
    std::uint32_t kind;  // kDirectory or kOther
    std::string name;
    std::int64_t size;  // bytes, for directories too
    SharedText location;  // the holding directory relative to the stick's root, "/" for the root;
                          // never null
    static constexpr std::string_view kReserved{};  // always empty

    static constexpr std::uint32_t kDirectory = 0;
    static constexpr std::uint32_t kOther = 1;
};
