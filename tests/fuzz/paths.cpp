// Relative and parent path of any string.
#include <stdexcept>

#include "tests/fuzz/target.h"
#include "transfer/contract.h"

namespace {

// What relativePath gives, or "throws".
std::string relative(const std::string& path, const std::string& mount) {
    try {
        return "=" + TfMngr::relativePath(path, mount);
    } catch (const std::out_of_range&) {
        return "throws";
    }
}

std::string modelOfRelative(const std::string& path, const std::string& mount) {
    const std::string prefix = "/media/usb/" + mount + "/";
    for (std::size_t at = 0; at + prefix.size() <= path.size(); ++at) {
        if (path.compare(at, prefix.size(), prefix) == 0) {
            return "=" + path.substr(0, at) + path.substr(at + prefix.size());
        }
    }
    return "throws";
}

std::string modelOfParent(const std::string& path) {
    for (std::size_t at = path.size(); at > 0; --at) {
        if (path[at - 1] == '/') {
            return path.substr(0, at - 1);
        }
    }
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string mount = input.string();
    const std::string path = input.rest();
    fuzz::require(TfMngr::mountPath(mount) == "/media/usb/" + mount, "the path of a stick");
    fuzz::require(relative(path, mount) == modelOfRelative(path, mount), "the relative path");
    const std::string below = TfMngr::mountPath(mount) + "/" + path;
    fuzz::require(relative(below, mount) == "=" + path, "the relative path on the stick");
    fuzz::require(TfMngr::parentPath(path) == modelOfParent(path), "the parent path");
    fuzz::require(hasMarker(path + ".psb" + mount, ".psb"), "the marker counts anywhere");
    return 0;
}
