// Places on sticks, written STICK:dir/file.
#pragma once

#include <string>
#include <string_view>

namespace transferctl {

// `stick` is a stick's name such as "USB_X60.1", never empty; `path` is relative to its root,
// without slashes at its ends or in a row, "" for the root.
struct StickPath {
    std::string stick;
    std::string path;

    bool isRoot() const { return path.empty(); }
    bool isHidden() const { return name().substr(0, 1) == "."; }

    // The last part of the path; empty for the root.
    std::string_view name() const;

    // The directory that holds it; the root's is the root.
    StickPath parent() const;

    StickPath child(std::string_view name) const;

    // "USB_X60.1:dir/file".
    std::string text() const { return stick + ":" + path; }
};

// "USB_X60.N" for N from 1 to 4, written in full or as the number alone; empty for any other text.
std::string stickNamed(std::string_view text);

// Reads "STICK:dir/file" or "STICK". Throws Failure (usage) for another stick, for ".." in the
// path, which would lead off the stick, and for what is not UTF-8, which the bus does not carry.
StickPath parseStickPath(const std::string& text);

// Throws Failure (usage) unless `text` is one part of a path that the service can create and list.
void checkNewName(std::string_view text);

// Throws Failure (usage) when the service would cut the path of a new directory off.
void checkNewDirectory(const StickPath& directory);

}  // namespace transferctl
