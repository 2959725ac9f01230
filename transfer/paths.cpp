// Paths on a stick, and what is made of them.
#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>

#include "transfer/contract.h"
#include "transfer/tf_mngr.h"

namespace {

constexpr std::size_t kFormatBufferSize = 1024;

}  // namespace

std::string TfMngr::formatString(const char* format, ...) {
    char buffer[kFormatBufferSize] = {};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

std::string TfMngr::mountPath(const std::string& mntId) {
    return std::string(kMountBase) + "/" + mntId;
}

// Kept: ".." and all else in a path is used as it is.
std::string TfMngr::pathOnStick(const std::string& mntId, const std::string& relative) {
    return mountPath(mntId) + "/" + relative;
}

std::string TfMngr::pathOrMountPath(const std::string& mntId, const std::string& relative) {
    return relative.empty() ? mountPath(mntId) : pathOnStick(mntId, relative);
}

std::string TfMngr::relativePath(std::string entryPath, const std::string& mntId) {
    const std::string prefix = mountPath(mntId) + "/";
    return entryPath.erase(entryPath.find(prefix), prefix.size());
}

std::string TfMngr::parentPath(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

bool TfMngr::exists(const std::string& path) {
    struct stat64 status {};
    return stat64(path.c_str(), &status) == 0;
}
