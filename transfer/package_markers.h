// The texts that mark a path as a package for the device manager.
#pragma once

#include <string>

inline constexpr const char* kBackupMarker = ".psb";
inline constexpr const char* kUpdateMarker = ".fwf";

// Kept: the marker counts anywhere in the text, so "x.psb.old" and whatever lies below "set.psb/"
// have it.
inline bool hasMarker(const std::string& path, const std::string& marker) {
    return path.find(marker) != std::string::npos;
}
