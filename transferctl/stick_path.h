// Places on sticks, written STICK:dir/file.
#pragma once

#include <filesystem>
#include <string>

namespace transferctl {

// `stick` is a stick's name such as "USB_X60.1", never empty. `path` is relative to the stick's
// root, without "." and ".." and without a slash at its end; empty for the root.
struct StickPath {
    std::string stick;
    std::filesystem::path path;

    std::string text() const { return stick + ":" + path.string(); }

    // The service lists nothing whose name begins with a dot.
    bool isHidden() const { return path.filename().string().substr(0, 1) == "."; }
};

// Reads "STICK:dir/file" or "STICK". Throws Failure (usage) for another stick, for "..", which
// would lead off the stick, and for what is not UTF-8, which the bus does not carry.
StickPath parseStickPath(const std::string& text);

// Throws Failure (usage) unless `name` is one part of a path that the service creates and lists.
void checkNewName(const std::string& name);

// Throws Failure (usage) when the service would cut off the path of a new directory.
void checkNewDirectory(const StickPath& directory);

}  // namespace transferctl
